// Tasks on the pool's threads or on fresh ones, the fork over all processors, and the library's names for the host's
// semaphores, critical regions and clock.
//
// The pool's list is not locked: it belongs to the thread that owns the environment. What a worker reads of its entry
// is handed over by the semaphore that starts it.
#define KQ_MODULE "Source/Threads"
#include "Source/Threads.h"

#include <atomic>

#include "Source/Alloc.h"
#include "Source/Faults.h"
#include "Source/Startup.h"
#include "kq/environment.h"
#include "pal/program.h"
#include "pal/thread.h"

namespace {

constexpr size_t kStackBytes = 16384;
constexpr i16 kArrowCursor = 0, kWaitCursor = 4;

using TaskRoutine = void (*)(void*);

// One slice of a fork.
struct ForkSlice {
    ::Node Node;
    i32 Slice, Slices;
    int (*Routine)(i32, i32, void*);
    void* Argument;
    TaskInfoKQ* Task;   // null: no thread could be had
    int Result;
};

pal::Region* NativeRegion(KQCriticalRegion* region) { return reinterpret_cast<pal::Region*>(region); }

pal::Event* EventOf(TaskInfoKQ* task) { return task ? static_cast<pal::Event*>(task->Event) : nullptr; }

// Closes and frees whatever the task holds; its thread has ended or was never there.
void FreeTask(TaskInfoKQ* task) {
    if (!task) return;
    if (task->Event) pal::EventFree(EventOf(task));
    FreeSemaphoreKQ(task->StartSemaphore);
    FreeSemaphoreKQ(task->DoneSemaphore);
    KQ_FREE(task);
}

// A task with both semaphores, without a thread; null on failure.
TaskInfoKQ* MakeTask() {
    TaskInfoKQ* task = KQ_NEW(TaskInfoKQ);
    if (!task) return nullptr;
    task->StartSemaphore = CreateSemaphoreKQ(0, 1);
    task->DoneSemaphore = CreateSemaphoreKQ(0, 1);
    if (task->StartSemaphore && task->DoneSemaphore) return task;
    FreeTask(task);
    return nullptr;
}

// Gives the task its event and its thread; on failure it has neither.
bool StartThread(TaskInfoKQ* task, TaskRoutine routine, void* argument) {
    task->Event = kq::ThreadCallFails() ? nullptr : pal::EventCreate();
    if (!task->Event) return false;
    task->Thread = kq::ThreadCallFails() ? nullptr : pal::ThreadStart(routine, argument, kStackBytes);
    if (task->Thread) return true;
    pal::EventFree(EventOf(task));
    task->Event = nullptr;
    return false;
}

void JoinThread(TaskInfoKQ* task) {
    pal::ThreadJoin(static_cast<pal::Thread*>(task->Thread));
    task->Thread = nullptr;
}

// The processor that ran the owner of the environment when it last started a pooled task.
std::atomic<i32> ownersProcessor{-1};

// A pooled thread stays alert for a moment after its work: frame after frame is forked, and a sleeping processor takes
// longer to wake up than many a slice takes. Only the owner's processor is left to the owner.
void WaitForWork(void* startSemaphore) {
    pal::Semaphore* start = static_cast<pal::Semaphore*>(startSemaphore);
    if (pal::CurrentProcessor() == ownersProcessor.load(std::memory_order_relaxed))
        pal::SemaphoreWait(start);
    else
        pal::SemaphoreWaitAlert(start);
}

void RunSlice(void* data);

// A slice has the processor that is the thread's own. Any other task may last, and may start threads and programs that
// would inherit the place, so it runs wherever there is room.
void Work(kq::PoolEntry* entry) {
    if (entry->Routine == RunSlice) return entry->Routine(entry->Argument);
    auto thread = static_cast<pal::Thread*>(entry->Task->Thread);
    pal::ThreadRoam(thread);
    entry->Routine(entry->Argument);
    pal::ThreadPlace(thread, entry->Place);
}

// The life of a pooled thread.
void PoolThread(void* data) {
    kq::PoolEntry* entry = static_cast<kq::PoolEntry*>(data);
    TaskInfoKQ* task = entry->Task;
    for (;;) {
        WaitForWork(task->StartSemaphore);
        if (entry->Quit) break;
        Work(entry);
        SignalSemaphoreKQ(task->DoneSemaphore);
    }
    SignalSemaphoreKQ(task->DoneSemaphore);
}

bool AddPoolEntry(i32 place) {
    kq::PoolEntry* entry = KQ_NEW(kq::PoolEntry);
    if (!entry) return false;
    entry->Place = place;
    entry->Task = MakeTask();
    if (entry->Task && StartThread(entry->Task, PoolThread, entry)) {
        pal::ThreadPlace(static_cast<pal::Thread*>(entry->Task->Thread), place);
        AddTail(&KQEnv->TaskPool, &entry->Node);
        return true;
    }
    FreeTask(entry->Task);
    KQ_FREE(entry);
    return false;
}

void StopPoolEntry(kq::PoolEntry* entry) {
    TaskInfoKQ* task = entry->Task;
    if (entry->Busy) WaitSemaphoreKQ(task->DoneSemaphore);
    entry->Quit = 1;
    SignalSemaphoreKQ(task->StartSemaphore);
    WaitSemaphoreKQ(task->DoneSemaphore);
    JoinThread(task);
    FreeTask(task);
    Remove(&entry->Node);
    KQ_FREE(entry);
}

// The first entry of the pool for which `wanted` is true, or null.
template <class Wanted>
kq::PoolEntry* FindEntry(Wanted wanted) {
    for (Node* node = KQEnv->TaskPool.Head; node->Succ; node = node->Succ) {
        kq::PoolEntry* entry = reinterpret_cast<kq::PoolEntry*>(node);
        if (wanted(entry)) return entry;
    }
    return nullptr;
}

TaskInfoKQ* StartPooled(kq::PoolEntry* entry, TaskRoutine routine, void* argument) {
    entry->Busy = 1;
    entry->Routine = routine;
    entry->Argument = argument;
    pal::EventTake(EventOf(entry->Task));
    ownersProcessor.store(pal::CurrentProcessor(), std::memory_order_relaxed);
    SignalSemaphoreKQ(entry->Task->StartSemaphore);
    return entry->Task;
}

TaskInfoKQ* StartFresh(TaskRoutine routine, void* argument) {
    TaskInfoKQ* task = MakeTask();
    if (task && StartThread(task, routine, argument)) return task;
    FreeTask(task);
    return nullptr;
}

void RunSlice(void* data) {
    ForkSlice* slice = static_cast<ForkSlice*>(data);
    slice->Result = slice->Routine(slice->Slice, slice->Slices, slice->Argument);
}

// Starts the routine in an idle thread of the pool, else in a fresh one; null when none can be had.
TaskInfoKQ* StartTask(TaskRoutine routine, void* argument) {
    kq::PoolEntry* idle = FindEntry([](kq::PoolEntry* entry) { return !entry->Busy; });
    return idle ? StartPooled(idle, routine, argument) : StartFresh(routine, argument);
}

// Appends and starts a slice; null when there is no memory for its record.
ForkSlice* StartSlice(List* slices, const ForkSlice& wanted) {
    ForkSlice* slice = KQ_NEW(ForkSlice);
    if (!slice) return nullptr;
    *slice = wanted;
    AddTail(slices, &slice->Node);
    slice->Task = StartTask(RunSlice, slice);
    return slice;
}

// The error word, which slices at work write in the memory manager, under its lock.
u32 ReadError() {
    EnterCriticalRegionKQ(KQEnv->MemoryLock);
    u32 error = KQEnv->Error;
    ExitCriticalRegionKQ(KQEnv->MemoryLock);
    return error;
}

// Waits for a slice, or runs it here when it has no thread, and frees it; its result.
int FinishSlice(ForkSlice* slice) {
    if (slice->Task)
        TaskWaitKQ(slice->Task);
    else
        RunSlice(slice);
    int result = slice->Result;
    KQ_FREE(slice);
    return result;
}

}   // namespace

namespace kq {

void StartTaskPool() {
    NewList(&KQEnv->TaskPool);
    if (KQEnv->Processors < 2) return;
    pal::NoteProcessors();
    for (i32 i = 0; i < KQEnv->Processors; ++i)
        if (!AddPoolEntry(i)) return;
}

void StopTaskPool() {
    while (!List_Empty(&KQEnv->TaskPool)) StopPoolEntry(reinterpret_cast<PoolEntry*>(KQEnv->TaskPool.Head));
}

void NoteError(u32 error) {
    EnterCriticalRegionKQ(KQEnv->MemoryLock);
    KQEnv->Error = error;
    ExitCriticalRegionKQ(KQEnv->MemoryLock);
}

void CreateMemoryLock() { KQEnv->MemoryLock = CreateCriticalRegionKQ(); }

void FreeMemoryLock() {
    FreeCriticalRegionKQ(KQEnv->MemoryLock);
    KQEnv->MemoryLock = nullptr;
}

}   // namespace kq

TaskInfoKQ* CreateTaskKQ(void* routine, void* argument) {
    TaskRoutine typed = reinterpret_cast<TaskRoutine>(routine);
    TaskInfoKQ* task = typed ? StartTask(typed, argument) : nullptr;
    if (!task) kq::NoteError(KQERR_NOMEM);
    return task;
}

void TaskWaitKQ(TaskInfoKQ* task) {
    if (!task) return;
    if (kq::PoolEntry* entry = FindEntry([task](kq::PoolEntry* e) { return e->Task == task; })) {
        WaitSemaphoreKQ(task->DoneSemaphore);
        entry->Busy = 0;
        return;
    }
    JoinThread(task);
    FreeTask(task);
}

void SetEventKQ(TaskInfoKQ* task) {
    if (pal::Event* event = EventOf(task)) pal::EventSignal(event);
}

int CheckForEventKQ(TaskInfoKQ* task) {
    pal::Event* event = EventOf(task);
    return event && pal::EventTake(event);
}

int MPForkKQ(int (*routine)(i32, i32, void*), void* data, i32 maxSlices) {
    i32 processors = KQEnv->Processors;
    if (processors < 2 || maxSlices < 2) return routine(1, 1, data);
    i32 slices = maxSlices < processors ? maxSlices : processors;
    List running;
    NewList(&running);
    int all = 1;
    for (i32 slice = 1; slice <= slices; ++slice) {
        u32 error = ReadError();
        const ForkSlice* started = StartSlice(&running, ForkSlice{{}, slice, slices, routine, data, nullptr, 0});
        if (!started || !started->Task) kq::NoteError(error);   // it runs in this thread: no failure of the fork's
        if (!started && !routine(slice, slices, data)) all = 0;
    }
    while (Node* node = RemHead(&running))
        if (!FinishSlice(reinterpret_cast<ForkSlice*>(node))) all = 0;
    return all;
}

i32 GetProcessorsKQ() { return KQEnv->Processors; }

void* CreateSemaphoreKQ(i32 initial, i32 maximum) {
    return kq::ThreadCallFails() ? nullptr : pal::SemaphoreCreate(initial, maximum);
}

void FreeSemaphoreKQ(void* semaphore) {
    if (semaphore) pal::SemaphoreFree(static_cast<pal::Semaphore*>(semaphore));
}

void WaitSemaphoreKQ(void* semaphore) {
    if (semaphore) pal::SemaphoreWait(static_cast<pal::Semaphore*>(semaphore));
}

void SignalSemaphoreKQ(void* semaphore) {
    if (semaphore) pal::SemaphoreSignal(static_cast<pal::Semaphore*>(semaphore));
}

KQCriticalRegion* CreateCriticalRegionKQ() {
    return kq::ThreadCallFails() ? nullptr : reinterpret_cast<KQCriticalRegion*>(pal::RegionCreate());
}

void FreeCriticalRegionKQ(KQCriticalRegion* region) {
    if (region) pal::RegionFree(NativeRegion(region));
}

void EnterCriticalRegionKQ(KQCriticalRegion* region) {
    if (region) pal::RegionEnter(NativeRegion(region));
}

void ExitCriticalRegionKQ(KQCriticalRegion* region) {
    if (region) pal::RegionExit(NativeRegion(region));
}

void StartTimerKQ(i32* timer) { *timer = i32(pal::MillisecondClock()); }

i32 ElapsedTimeKQ(i32 timer) { return i32(kq::MillisecondsBetween(u32(timer), pal::MillisecondClock())); }

void BusyKQ() {
    ++KQEnv->BusyCount;
    KQEnv->Cursor = kWaitCursor;
    kq::ShowCursor();
}

void NotBusyKQ() {
    if (--KQEnv->BusyCount != 0) return;
    KQEnv->Cursor = kArrowCursor;
    kq::ShowCursor();
}
