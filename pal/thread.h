// Threads, counting semaphores, auto-reset events and recursive locks of the host. Their memory comes from the host
// and not from the library's memory manager, which takes such a lock itself.
#pragma once

#include "kq/types.h"

namespace pal {

// A running thread; opaque.
struct Thread;

// Runs `routine(argument)` on a new thread whose routine may hold `stackBytes` on its stack: the host adds what it
// needs itself, and goes up to its own minimum. Null when the thread cannot be had.
Thread* ThreadStart(void (*routine)(void*), void* argument, size_t stackBytes);

// Takes the processors that the calling thread may use for those of the program, as ThreadPlace and ThreadRoam do from
// now on.
void NoteProcessors();

// Keeps the thread on the `index`-th of the processors that the program may use, counted from 0 and round again, as far
// as the host grants it: threads of different index that work at the same time do not meet on one processor. Threads
// and programs that it starts inherit its place.
void ThreadPlace(Thread* thread, i32 index);

// Lets the thread run on any processor again.
void ThreadRoam(Thread* thread);

// The number of the processor that runs the calling thread at this moment.
i32 CurrentProcessor();

// Waits without limit for the end of the thread, then frees its handle.
void ThreadJoin(Thread* thread);

// A counting semaphore with a maximum; opaque.
struct Semaphore;

// Null when `maximum` is below 1, `initial` is not from 0 to `maximum`, or memory is short.
Semaphore* SemaphoreCreate(i32 initial, i32 maximum);

// Frees a semaphore that no thread waits for. A thread that has just been let through may free it, though the one
// that signalled has not returned yet.
void SemaphoreFree(Semaphore* semaphore);

// Waits without limit until the count is above 0, then takes 1 from it.
void SemaphoreWait(Semaphore* semaphore);

// The same for a thread that often gets new work within microseconds and has a processor to itself: it keeps looking
// for some 100 microseconds before it sleeps, so that nobody has to wake the processor up.
void SemaphoreWaitAlert(Semaphore* semaphore);

// Adds 1 to the count unless it is at the maximum.
void SemaphoreSignal(Semaphore* semaphore);

// An event that goes back to unsignalled when it is seen; opaque.
struct Event;

// An unsignalled event; null when memory is short.
Event* EventCreate();

void EventFree(Event* event);

void EventSignal(Event* event);

// True when the event was signalled; it is unsignalled afterwards. Does not wait.
bool EventTake(Event* event);

// A recursive lock, cheap when nobody else wants it; opaque.
struct Region;

// Null when memory is short.
Region* RegionCreate();

// Frees a region that nobody holds.
void RegionFree(Region* region);

// Waits until no other thread holds the region; the holder may enter again.
void RegionEnter(Region* region);

// Gives back one entry of the calling thread, which must hold the region.
void RegionExit(Region* region);

}   // namespace pal
