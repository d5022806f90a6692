// Threads on Linux, and locks on the futex: uncontended they are one atomic operation and no call of the kernel.
//
// Who waits for a region spins for a moment before it sleeps, because regions are held for less time than a sleep
// costs; where only one processor is there, spinning would only keep the holder from going on. Who waits for a
// semaphore sleeps at once, because the thread that signals it may need the processor; only who says that it expects to
// be let through soon looks first.
#include "pal/thread.h"

#include <atomic>
#include <bit>
#include <climits>
#include <cstdlib>
#include <new>

#include <linux/futex.h>
#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include "pal/program.h"

namespace pal {

struct Thread {
    pthread_t handle;
    void (*routine)(void*);
    void* argument;
};

// Count and sleepers in one word: who signals learns of sleepers in the very operation that lets one of them through,
// and touches nothing afterwards that the other might have freed.
struct Semaphore {
    std::atomic<u64> word;   // low half: the count, which is what sleepers look at; high half: the sleepers
    u32 maximum;
};

struct Event {
    std::atomic<u32> signalled;
};

struct Region {
    std::atomic<u32> state;            // one of kFree, kHeld, kWanted
    u32 depth;                         // entries of the holder
    std::atomic<const void*> holder;   // the holder's mark; only the holder itself finds its own here
};

namespace {

constexpr u32 kFree = 0, kHeld = 1, kWanted = 2;   // wanted: held, and somebody may sleep
constexpr u64 kSleeper = u64(1) << 32;

// What the host needs of a thread's stack besides the routine: thread-local storage, saved vector registers of the
// dynamic linker, the C library's formatting.
constexpr size_t kHostStack = 112 * 1024;

// Its address tells threads apart. Kept where the thread pointer finds it without a call.
thread_local char threadMark __attribute__((tls_model("initial-exec")));

static_assert(std::endian::native == std::endian::little, "the count must be the first half of the semaphore's word");

// Taken when the library is loaded, because a thread that has been placed counts its own processor alone.
const int spinTurns = ProcessorCount() > 1 ? 40 : 0;

void Pause() {
#if defined(__x86_64__)
    __builtin_ia32_pause();
#endif
}

// Sleeps while the word at `address` is `value`; may wake for no reason.
void FutexWait(void* address, u32 value) {
    syscall(SYS_futex, address, FUTEX_WAIT_PRIVATE, value, nullptr, nullptr, 0);
}

void FutexWakeOne(void* address) { syscall(SYS_futex, address, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0); }

// A zeroed record of the host's memory.
template <class T>
T* Make() {
    void* memory = std::calloc(1, sizeof(T));
    return memory ? new (memory) T{} : nullptr;
}

void* ThreadEntry(void* data) {
    Thread* thread = static_cast<Thread*>(data);
    thread->routine(thread->argument);
    return nullptr;
}

size_t StackSize(size_t stackBytes) {
    size_t page = size_t(sysconf(_SC_PAGESIZE));
    size_t size = stackBytes + kHostStack;
    if (size < size_t(PTHREAD_STACK_MIN)) size = size_t(PTHREAD_STACK_MIN);
    return (size + page - 1) / page * page;
}

// How long an alert thread looks. To wake a halted processor up takes some 30 microseconds on a virtual machine.
constexpr i64 kAlertNanoseconds = 200000;

i64 NanosecondClock() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return i64(now.tv_sec) * 1000000000 + now.tv_nsec;
}

// Takes 1 from the count, and one sleeper when `sleeper` is kSleeper; false when the count is 0.
bool TryTake(Semaphore* semaphore, u64 sleeper) {
    u64 word = semaphore->word.load(std::memory_order_relaxed);
    while (u32(word) > 0)
        if (semaphore->word.compare_exchange_weak(word, word - 1 - sleeper, std::memory_order_acquire,
                                                  std::memory_order_relaxed))
            return true;
    return false;
}

bool TryEnter(Region* region) {
    u32 expected = kFree;
    return region->state.compare_exchange_strong(expected, kHeld, std::memory_order_acquire, std::memory_order_relaxed);
}

// Spins, then sleeps. Who has slept enters as "wanted", because others may sleep still.
void EnterContended(Region* region) {
    for (int turn = spinTurns; turn > 0; --turn) {
        if (region->state.load(std::memory_order_relaxed) == kFree && TryEnter(region)) return;
        Pause();
    }
    while (region->state.exchange(kWanted, std::memory_order_acquire) != kFree) FutexWait(&region->state, kWanted);
}

}   // namespace

Thread* ThreadStart(void (*routine)(void*), void* argument, size_t stackBytes) {
    Thread* thread = Make<Thread>();
    if (!thread) return nullptr;
    thread->routine = routine;
    thread->argument = argument;
    pthread_attr_t attributes;
    bool started = pthread_attr_init(&attributes) == 0;
    if (started) {
        started = pthread_attr_setstacksize(&attributes, StackSize(stackBytes)) == 0 &&
                  pthread_create(&thread->handle, &attributes, ThreadEntry, thread) == 0;
        pthread_attr_destroy(&attributes);
    }
    if (started) return thread;
    std::free(thread);
    return nullptr;
}

// The host spreads threads when it wakes them up or at its clock's tick, some milliseconds apart: too late for threads
// that stay awake between works of a hundred microseconds.
void ThreadPlace(Thread* thread, i32 index) {
    cpu_set_t allowed, chosen;
    if (sched_getaffinity(0, sizeof allowed, &allowed) != 0) return;
    i32 left = index % CPU_COUNT(&allowed);
    int processor = 0;
    while (!CPU_ISSET(processor, &allowed) || left-- > 0) ++processor;
    CPU_ZERO(&chosen);
    CPU_SET(processor, &chosen);
    pthread_setaffinity_np(thread->handle, sizeof chosen, &chosen);
}

i32 CurrentProcessor() { return sched_getcpu(); }

void ThreadJoin(Thread* thread) {
    pthread_join(thread->handle, nullptr);
    std::free(thread);
}

Semaphore* SemaphoreCreate(i32 initial, i32 maximum) {
    if (maximum < 1 || initial < 0 || initial > maximum) return nullptr;
    Semaphore* semaphore = Make<Semaphore>();
    if (!semaphore) return nullptr;
    semaphore->word = u64(initial);
    semaphore->maximum = u32(maximum);
    return semaphore;
}

void SemaphoreFree(Semaphore* semaphore) { std::free(semaphore); }

void SemaphoreWait(Semaphore* semaphore) {
    if (TryTake(semaphore, 0)) return;
    semaphore->word.fetch_add(kSleeper, std::memory_order_relaxed);
    while (!TryTake(semaphore, kSleeper)) FutexWait(&semaphore->word, 0);
}

void SemaphoreWaitAlert(Semaphore* semaphore) {
    for (i64 end = NanosecondClock() + kAlertNanoseconds; NanosecondClock() < end; Pause())
        if (TryTake(semaphore, 0)) return;
    SemaphoreWait(semaphore);
}

void SemaphoreSignal(Semaphore* semaphore) {
    u64 word = semaphore->word.load(std::memory_order_relaxed);
    do
        if (u32(word) >= semaphore->maximum) return;
    while (
        !semaphore->word.compare_exchange_weak(word, word + 1, std::memory_order_release, std::memory_order_relaxed));
    if (word >= kSleeper) FutexWakeOne(&semaphore->word);
}

Event* EventCreate() { return Make<Event>(); }

void EventFree(Event* event) { std::free(event); }

void EventSignal(Event* event) { event->signalled.store(1, std::memory_order_release); }

bool EventTake(Event* event) { return event->signalled.exchange(0, std::memory_order_acq_rel) != 0; }

Region* RegionCreate() { return Make<Region>(); }

void RegionFree(Region* region) { std::free(region); }

void RegionEnter(Region* region) {
    if (region->holder.load(std::memory_order_relaxed) == &threadMark) {
        ++region->depth;
        return;
    }
    if (!TryEnter(region)) EnterContended(region);
    region->holder.store(&threadMark, std::memory_order_relaxed);
    region->depth = 1;
}

void RegionExit(Region* region) {
    if (--region->depth > 0) return;
    region->holder.store(nullptr, std::memory_order_relaxed);
    if (region->state.exchange(kFree, std::memory_order_release) == kWanted) FutexWakeOne(&region->state);
}

}   // namespace pal
