// The draw context: what drawing calls draw on.
#pragma once

#include "kq/types.h"

// A short-lived context over a drawing surface. Belongs to the thread that began it. Not final: the drawing calls will
// add fields behind these, so a program neither makes one by itself nor relies on its size.
struct KQDrawInfo {
    void* deviceContext;    // the display's context
    i32 originX, originY;   // added to every coordinate
};
