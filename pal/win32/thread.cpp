// Threads, semaphores and events on Windows are the kernel's; the recursive lock is the host's critical section, which
// spins before it sleeps.
#include "pal/thread.h"

#include <cstdlib>

#include <windows.h>

#include <process.h>

#include "pal/program.h"

namespace pal {

struct Thread {
    HANDLE handle;
    void (*routine)(void*);
    void* argument;
};

struct Region {
    CRITICAL_SECTION section;
};

namespace {

constexpr DWORD kSpins = 2000;
constexpr int kAlertTurns = 100;

unsigned __stdcall ThreadEntry(void* data) {
    Thread* thread = static_cast<Thread*>(data);
    thread->routine(thread->argument);
    return 0;
}

}   // namespace

// The size is what the host commits at once. It reserves the program's own default, which is never less.
Thread* ThreadStart(void (*routine)(void*), void* argument, size_t stackBytes) {
    Thread* thread = static_cast<Thread*>(std::calloc(1, sizeof(Thread)));
    if (!thread) return nullptr;
    thread->routine = routine;
    thread->argument = argument;
    thread->handle =
        reinterpret_cast<HANDLE>(_beginthreadex(nullptr, unsigned(stackBytes), ThreadEntry, thread, 0, nullptr));
    if (thread->handle) return thread;
    std::free(thread);
    return nullptr;
}

void ThreadPlace(Thread* thread, i32 index) {
    SetThreadIdealProcessor(thread->handle, DWORD(index % ProcessorCount()));
}

// The host places threads among the processors of the program by itself.
void NoteProcessors() {}

// An ideal processor holds nobody back.
void ThreadRoam(Thread*) {}

i32 CurrentProcessor() { return i32(GetCurrentProcessorNumber()); }

void ThreadJoin(Thread* thread) {
    WaitForSingleObject(thread->handle, INFINITE);
    CloseHandle(thread->handle);
    std::free(thread);
}

Semaphore* SemaphoreCreate(i32 initial, i32 maximum) {
    return reinterpret_cast<Semaphore*>(CreateSemaphoreW(nullptr, initial, maximum, nullptr));
}

void SemaphoreFree(Semaphore* semaphore) { CloseHandle(semaphore); }

void SemaphoreWait(Semaphore* semaphore) { WaitForSingleObject(semaphore, INFINITE); }

// A look is a call of the kernel here and as dear as sleeping, so a few must do.
void SemaphoreWaitAlert(Semaphore* semaphore) {
    for (int turn = kAlertTurns; turn > 0; --turn)
        if (WaitForSingleObject(semaphore, 0) == WAIT_OBJECT_0) return;
    SemaphoreWait(semaphore);
}

void SemaphoreSignal(Semaphore* semaphore) { ReleaseSemaphore(semaphore, 1, nullptr); }

Event* EventCreate() { return reinterpret_cast<Event*>(CreateEventW(nullptr, FALSE, FALSE, nullptr)); }

void EventFree(Event* event) { CloseHandle(event); }

void EventSignal(Event* event) { SetEvent(event); }

bool EventTake(Event* event) { return WaitForSingleObject(event, 0) == WAIT_OBJECT_0; }

Region* RegionCreate() {
    Region* region = static_cast<Region*>(std::calloc(1, sizeof(Region)));
    if (region) InitializeCriticalSectionAndSpinCount(&region->section, kSpins);
    return region;
}

void RegionFree(Region* region) {
    DeleteCriticalSection(&region->section);
    std::free(region);
}

void RegionEnter(Region* region) { EnterCriticalSection(&region->section); }

void RegionExit(Region* region) { LeaveCriticalSection(&region->section); }

}   // namespace pal
