// Tasks: a pool of threads for short work, one call that spreads work over all processors, semaphores, critical
// regions, an event per task, millisecond timers and the busy pointer.
//
// CreateTaskKQ, TaskWaitKQ, MPForkKQ and the busy calls belong to the thread that called InitKQ. A routine that runs
// on another thread may call the memory manager (kq/memory.h) and the semaphore, region, event and timer calls; of the
// rest of the library nothing is guarded. A routine may hold 16384 bytes on its stack: a thread gets that and what the
// host needs for itself, at least the host's minimum.
#pragma once

#include "kq/types.h"

// A running task. The handles are the platform's; SetEventKQ and CheckForEventKQ are the way to the event. The record
// belongs to the library; TaskWaitKQ ends it.
struct TaskInfoKQ {
    void* StartSemaphore;   // signalled to start work
    void* DoneSemaphore;    // signalled by the worker when the work is done
    void* Thread;           // native thread
    void* Event;            // auto-reset event of the task
};

// A recursive lock; opaque. Its memory comes from the platform, because the memory manager itself holds one.
struct KQCriticalRegion;

// Runs `routine(argument)` on another thread: an idle one of the pool, else a fresh one. `routine` is the address of a
// `void (void*)`. Returns the task, to be given to TaskWaitKQ once: until then it keeps its thread of the pool, and
// CleanUpKQ waits for the end of a pooled one that nobody waited for. A fresh one has to be waited for before
// CleanUpKQ; at most GetProcessorsKQ tasks at a time are sure to be pooled. A task begins with its event not signalled.
// Null with `Error` 1 when no thread can be had, also for a null routine.
KQ_API TaskInfoKQ* CreateTaskKQ(void* routine, void* argument);

// The same for a routine with its type.
inline TaskInfoKQ* CreateTaskKQ(void (*routine)(void* argument), void* argument) {
    return CreateTaskKQ(reinterpret_cast<void*>(routine), argument);
}

// Waits for the end of the task and releases what it held; the task is gone afterwards. Null is ignored.
KQ_API void TaskWaitKQ(TaskInfoKQ* task);

// Signals the task's event; a task or event that is null is ignored. Any thread.
KQ_API void SetEventKQ(TaskInfoKQ* task);

// Non-zero when the task's event is signalled, which it is no longer afterwards. Does not wait; a task or event that
// is null gives 0. Any thread.
KQ_API int CheckForEventKQ(TaskInfoKQ* task);

// Splits work: calls `routine(slice, slices, data)` for each slice from 1 to `slices` on threads of their own at the
// same time, and returns when all have returned: 1 when each gave non-zero, else 0. There are `maxSlices` slices, but
// not more than GetProcessorsKQ. With one processor, or `maxSlices` below 2, `routine(1, 1, data)` runs in the calling
// thread and its result is returned. A slice whose thread cannot be had runs in the calling thread, so slices must not
// wait for each other; `Error` is left alone then. There is no balance between slices: each does the share that its
// number tells.
KQ_API int MPForkKQ(int (*routine)(i32 slice, i32 slices, void* data), void* data, i32 maxSlices);

// The count of processors, as InitKQ found it.
KQ_API i32 GetProcessorsKQ();

// A counting semaphore, for any thread, that holds `initial` and never more than `maximum`; freed by FreeSemaphoreKQ.
// Null when `maximum` is below 1, `initial` is not from 0 to `maximum`, or the platform has none.
KQ_API void* CreateSemaphoreKQ(i32 initial, i32 maximum);

// Frees a semaphore that no thread waits for. Null is ignored.
KQ_API void FreeSemaphoreKQ(void* semaphore);

// Waits without limit until the count is above 0 and takes 1 from it. Null is ignored. Any thread.
KQ_API void WaitSemaphoreKQ(void* semaphore);

// Adds 1 to the count; at the maximum nothing happens. Null is ignored. Any thread.
KQ_API void SignalSemaphoreKQ(void* semaphore);

// A critical region that nobody holds; freed by FreeCriticalRegionKQ. Null when the platform has no memory.
KQ_API KQCriticalRegion* CreateCriticalRegionKQ();

// Frees a region that nobody holds. Null is ignored.
KQ_API void FreeCriticalRegionKQ(KQCriticalRegion* region);

// Waits until no other thread holds the region, and holds it. A thread may enter again what it holds, and exits as
// often as it entered. Null is ignored.
KQ_API void EnterCriticalRegionKQ(KQCriticalRegion* region);

// Gives back one entry of the thread that holds the region. Null is ignored.
KQ_API void ExitCriticalRegionKQ(KQCriticalRegion* region);

// Stores the millisecond clock in `*timer`. Any thread.
KQ_API void StartTimerKQ(i32* timer);

// Milliseconds since StartTimerKQ stored `timer`; right across the wrap of the clock, up to 24 days. Any thread.
KQ_API i32 ElapsedTimeKQ(i32 timer);

// Counts one more reason to be busy (`BusyCount`) and shows the wait pointer (`Cursor` 4).
KQ_API void BusyKQ();

// Takes one reason back; with the last one the arrow shows again (`Cursor` 0).
KQ_API void NotBusyKQ();
