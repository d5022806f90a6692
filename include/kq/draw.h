// The draw context: what drawing calls draw on.
#pragma once

#include "kq/types.h"

// A short-lived context over a drawing surface. Belongs to the thread that began it.
struct KQDrawInfo {
    void* deviceContext;    // the display's context
    i32 originX, originY;   // added to every coordinate
};
