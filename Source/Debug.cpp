// Diagnostics: a sink for text, the line counter of the screen's debug text, and two reports.
#include "Source/Debug.h"

#include <atomic>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>

#include "kq/environment.h"
#include "pal/memory.h"

namespace {

std::atomic<void (*)(const char*)> debugSink{nullptr};
i32 debugLine = 0;

constexpr i32 kLineHeight = 18;

// What ShowFreeMemory found free the last time.
u64 lastPhysicalFree = 0;
u64 lastPageFree = 0;

}   // namespace

namespace kq {

i32 DebugLine() { return debugLine; }

}   // namespace kq

void DebugMessage(const char* format, ...) {
    auto sink = debugSink.load();
    if (!sink) return;
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    sink(text);
}

void SetDebugSinkKQ(void (*sink)(const char*)) { debugSink = sink; }

void HdcMessage(const char*, ...) { debugLine = 60 + kLineHeight; }

void HdcMessageRun(const char*, ...) {
    debugLine += kLineHeight;
    if (debugLine > 730) debugLine = 50;
}

void HdcMessagePos(i32, i32, const char*, ...) {}

void ShowFreeMemory(int report) {
    pal::MemoryStatus now;
    if (!pal::MemoryQuery(&now)) return;
    i64 physicalChange = i64(now.physicalFree - lastPhysicalFree), pageChange = i64(now.pageFree - lastPageFree);
    lastPhysicalFree = now.physicalFree;
    lastPageFree = now.pageFree;
    if (!report) return;
#define KQ_BYTES "%.10" PRId64 "  %.5" PRId64 "k\n"
    DebugMessage(
        "Percent in use:\t\t%.10d\n"
        "Physical Memory (total):\t" KQ_BYTES "Paging File (total):\t\t" KQ_BYTES "Physical Memory (free):\t" KQ_BYTES
        "Paging File (free):\t\t" KQ_BYTES "Physical Memory (change):\t" KQ_BYTES "Paging File (change):\t" KQ_BYTES,
        i32(now.percentInUse), i64(now.physicalTotal), i64(now.physicalTotal) / 1024, i64(now.pageTotal),
        i64(now.pageTotal) / 1024, i64(now.physicalFree), i64(now.physicalFree) / 1024, i64(now.pageFree),
        i64(now.pageFree) / 1024, physicalChange, physicalChange / 1024, pageChange, pageChange / 1024);
#undef KQ_BYTES
}
