// Diagnostics: a sink for text, the line counter of the screen's debug text, and two reports.
#include <cstdarg>
#include <cstdio>

#include "kq/environment.h"
#include "pal/memory.h"

namespace {

void (*debugSink)(const char*) = nullptr;
i32 debugLine = 0;

}   // namespace

void DebugMessage(const char* format, ...) {
    if (!debugSink) return;
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    debugSink(text);
}

void SetDebugSinkKQ(void (*sink)(const char*)) { debugSink = sink; }

void HdcMessage(const char*, ...) { debugLine = 60 + 18; }

void HdcMessageRun(const char*, ...) {
    debugLine += 18;
    if (debugLine > 730) debugLine = 50;
}

void HdcMessagePos(i32, i32, const char*, ...) {}
