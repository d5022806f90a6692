// What the screen's debug text has been reduced to.
#pragma once

#include "kq/types.h"

namespace kq {

// The line at which the next debug text would stand, in pixels from the top.
i32 DebugLine();

}   // namespace kq
