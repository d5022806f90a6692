// Rows of pixels shared by the processors, through the fork that the library's own thread has.
#include "Source/Parallel.h"

#include "kq/tasks.h"

namespace kq {

namespace {

// Below this the threads cost more than they gain.
constexpr i64 kSharedPixels = 900000;

thread_local bool ownThread = false;

struct SharedWork {
    RangeRoutine routine;
    const void* data;
    i64 rows;
};

int DoSlice(i32 slice, i32 slices, void* data) {
    auto* work = static_cast<SharedWork*>(data);
    work->routine(work->rows * (slice - 1) / slices, work->rows * slice / slices, work->data);
    return 1;
}

}   // namespace

void ShareRows(RangeRoutine routine, const void* data, i64 rows, i64 pixels) {
    if (pixels < kSharedPixels || !ownThread || GetProcessorsKQ() < 2) return routine(0, rows, data);
    SharedWork work{routine, data, rows};
    MPForkKQ(DoSlice, &work, GetProcessorsKQ());
}

void NoteOwnThread() { ownThread = true; }

}   // namespace kq
