// Rows of pixels shared by the processors, through the fork that the library's own thread has.
#include "Source/Parallel.h"

#include <atomic>

#include "kq/tasks.h"

namespace kq {

namespace {

// Below this the threads cost more than they gain. Loops are as fast as they write, be a pixel of one byte or of four.
constexpr i64 kSharedBytes = 2000000;

thread_local bool ownThread = false;

struct SharedWork {
    RangeRoutine routine;
    const void* data;
    i64 rows;
};

// Stores that went past the caches are only ordered by a fence; behind it every thread sees them.
void Run(const SharedWork& work, i64 top, i64 bottom) {
    work.routine(top, bottom, work.data);
    std::atomic_thread_fence(std::memory_order_seq_cst);
}

int DoSlice(i32 slice, i32 slices, void* data) {
    auto* work = static_cast<SharedWork*>(data);
    Run(*work, work->rows * (slice - 1) / slices, work->rows * slice / slices);
    return 1;
}

}   // namespace

void ShareRows(RangeRoutine routine, const void* data, i64 rows, i64 bytes) {
    SharedWork work{routine, data, rows};
    if (bytes < kSharedBytes || !ownThread || GetProcessorsKQ() < 2) return Run(work, 0, rows);
    MPForkKQ(DoSlice, &work, GetProcessorsKQ());
}

void NoteOwnThread(bool own) { ownThread = own; }

}   // namespace kq
