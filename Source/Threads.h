// What other modules and the tests need of the tasks: the pool's entry and the timers' difference.
#pragma once

#include "kq/lists.h"
#include "kq/tasks.h"

namespace kq {

// One thread of the pool. The fields belong to the thread that owns the environment, except while the entry works:
// between the signals of its two semaphores the worker reads Routine, Argument and Quit.
struct PoolEntry {
    ::Node Node;              // in TaskPool
    void (*Routine)(void*);   // the present work
    void* Argument;
    i32 Quit;   // makes the thread end
    i32 Busy;   // non-zero from CreateTaskKQ to TaskWaitKQ
    TaskInfoKQ* Task;
    i32 Place;   // the thread's processor
};

// Sets the error word from any thread: the memory manager writes it under its lock.
void NoteError(u32 error);

// Milliseconds from one reading of the wrapping clock to a later one.
constexpr u32 MillisecondsBetween(u32 from, u32 to) { return to - from; }

}   // namespace kq
