// How a native bitmap's record follows from its size.
#pragma once

#include "kq/nativebitmap.h"

namespace kq {

// Sets every field but the pixels. The size has passed SizeFits.
void SetNativeFormat(KQNativeBitmap* bitmap, i32 width, i32 height, i32 depth);

}   // namespace kq
