// Threads on Linux, and locks on the futex: uncontended they are one atomic operation and no call of the kernel.
//
// Who waits for a region spins for a moment before it sleeps, because regions are held for less time than a sleep
// costs; where only one processor is there, spinning would only keep the holder from going on. Who waits for a
// semaphore sleeps at once, because the thread that signals it may need the processor; only who says that it expects to
// be let through soon looks first.
//
// A region that one thread enters again and again comes to favour that thread, which then enters and leaves with plain
// stores: an atomic operation would wait until all its earlier stores have reached the cache. It announces itself and
// looks whether it is favoured still; another thread takes the favour away and looks whether it has announced itself.
// That one of the two sees the other takes a barrier between the store and the load on both sides. The favoured thread
// has none: the other, which comes rarely, has the kernel execute one on all processors.
#include "pal/thread.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <climits>
#include <cstdlib>
#include <iterator>
#include <new>

#include <linux/futex.h>
#include <linux/membarrier.h>
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

// The entries of one thread while a region favours it. It is that thread's for good: nobody else ever writes `depth`.
struct Favoured {
    std::atomic<const void*> thread;   // its mark
    std::atomic<u32> depth;            // its entries; more than 0 while it holds the region
};

struct Region {
    std::atomic<Favoured*> favoured;   // whom the region favours at present, or null
    std::atomic<u32> state;            // one of kFree, kHeld, kWanted; what all other entries go by
    u32 depth;                         // entries of the holder
    std::atomic<const void*> holder;   // the holder's mark; only the holder itself finds its own here

    // Used by the holder alone.
    const void* last;   // who held it before
    u32 streak;         // how often in a row
    u32 streakToFavour;
    u32 threads;       // used entries of `all`
    Favoured all[4];   // threads that were ever favoured; the first few that come often enough
};

namespace {

constexpr u32 kFree = 0, kHeld = 1, kWanted = 2;   // wanted: held, and somebody may sleep
constexpr u64 kSleeper = u64(1) << 32;

// A favour is taken away at the cost of some hundred entries, so it is given after as many, and each that was taken
// away doubles the number for the next.
constexpr u32 kLeastStreak = 500, kMostStreak = 1 << 16;

// What the host needs of a thread's stack besides the routine: thread-local storage, saved vector registers of the
// dynamic linker, the C library's formatting.
constexpr size_t kHostStack = 112 * 1024;

// Its address tells threads apart. Kept where the thread pointer finds it without a call.
thread_local char threadMark __attribute__((tls_model("initial-exec")));

static_assert(std::endian::native == std::endian::little, "the count must be the first half of the semaphore's word");

// Taken when the library is loaded, because a thread that has been placed counts its own processor alone.
const int spinLooks = ProcessorCount() > 1 ? 20 : 0;

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

// ---- Regions

bool TryEnter(Region* region) {
    u32 expected = kFree;
    return region->state.compare_exchange_strong(expected, kHeld, std::memory_order_acquire, std::memory_order_relaxed);
}

// Spins, then sleeps. The turns between two looks grow: who holds the region shall go on at full speed for a while,
// with all that it needs in its cache. Who has slept enters as "wanted", because others may sleep still.
void EnterContended(Region* region) {
    for (int look = 0; look < spinLooks; ++look) {
        if (region->state.load(std::memory_order_relaxed) == kFree && TryEnter(region)) return;
        for (int turn = 0; turn < 1 << std::min(look, 5); ++turn) Pause();
    }
    while (region->state.exchange(kWanted, std::memory_order_acquire) != kFree) FutexWait(&region->state, kWanted);
}

// The kernel may refuse later what it granted at first, to a program that has locked itself in meanwhile. Then time
// does it: a store reaches the others within microseconds.
void BarrierEverywhere() {
    if (syscall(SYS_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0, 0) == 0) return;
    timespec nap = {0, 10000000};
    nanosleep(&nap, nullptr);
}

// Whether the kernel has the barrier; the process has asked for it then.
bool BarrierIsThere() {
    static const bool there = syscall(SYS_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0, 0) == 0;
    return there;
}

bool IsOwn(const Favoured* one) { return one->thread.load(std::memory_order_relaxed) == &threadMark; }

// The thread's own record, null when the region never favoured it.
Favoured* FindFavoured(Region* region) {
    for (Favoured& one : region->all)
        if (IsOwn(&one)) return &one;
    return nullptr;
}

// Enters if the region favours the caller, or did when it entered the first time.
bool EnterFavoured(Region* region, Favoured* own) {
    u32 depth = own->depth.load(std::memory_order_relaxed);
    own->depth.store(depth + 1, std::memory_order_relaxed);
    std::atomic_signal_fence(std::memory_order_seq_cst);   // the other half is BarrierEverywhere
    if (depth > 0 || region->favoured.load(std::memory_order_relaxed) == own) return true;
    own->depth.store(0, std::memory_order_release);
    return false;
}

// The caller holds the region's state; it waits until the favoured thread, if that is another, has left.
void TakeFavourAway(Region* region) {
    Favoured* other = region->favoured.load(std::memory_order_relaxed);
    if (!other) return;
    region->favoured.store(nullptr, std::memory_order_relaxed);
    BarrierEverywhere();
    region->streakToFavour = std::min(region->streakToFavour * 2, kMostStreak);
    for (int look = 0; other->depth.load(std::memory_order_acquire) > 0; ++look) {
        if (look < 100) {
            Pause();
            continue;
        }
        timespec nap = {0, 50000};
        nanosleep(&nap, nullptr);
    }
}

// Counts how often in a row the caller was the holder; often enough, and the region favours it. The caller leaves.
void CountForFavour(Region* region) {
    if (region->last != &threadMark) {
        region->last = &threadMark;
        region->streak = 0;
    }
    if (++region->streak < region->streakToFavour) return;
    region->streak = 0;
    if (!BarrierIsThere()) return;
    Favoured* own = FindFavoured(region);
    if (!own && region->threads < std::size(region->all)) {
        own = &region->all[region->threads++];
        own->thread.store(&threadMark, std::memory_order_relaxed);
    }
    region->favoured.store(own, std::memory_order_relaxed);
}

// An exit without an entry, the caller's fault, changes nothing.
void LeaveFavoured(Favoured* own) {
    if (!own || own->depth.load(std::memory_order_relaxed) == 0) return;
    own->depth.store(own->depth.load(std::memory_order_relaxed) - 1, std::memory_order_release);
}

void EnterSlowly(Region* region) {
    if (region->holder.load(std::memory_order_relaxed) == &threadMark) {
        ++region->depth;
        return;
    }
    // Who takes our favour away waits for us: we are in, and may enter again.
    Favoured* own = FindFavoured(region);
    if (own && own->depth.load(std::memory_order_relaxed) > 0) {
        EnterFavoured(region, own);
        return;
    }
    if (!TryEnter(region)) EnterContended(region);
    TakeFavourAway(region);
    region->holder.store(&threadMark, std::memory_order_relaxed);
    region->depth = 1;
}

void ExitSlowly(Region* region) {
    if (region->holder.load(std::memory_order_relaxed) != &threadMark) {
        LeaveFavoured(FindFavoured(region));   // the favour was taken away while we were in
        return;
    }
    if (--region->depth > 0) return;
    CountForFavour(region);
    region->holder.store(nullptr, std::memory_order_relaxed);
    if (region->state.exchange(kFree, std::memory_order_release) == kWanted) FutexWakeOne(&region->state);
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

namespace {

// Of the thread that started the pool: one that has been placed counts its own alone.
cpu_set_t allowed;

}   // namespace

void NoteProcessors() {
    if (sched_getaffinity(0, sizeof allowed, &allowed) != 0) CPU_ZERO(&allowed);
}

// The host spreads threads when it wakes them up or at its clock's tick, some milliseconds apart: too late for threads
// that stay awake between works of a hundred microseconds.
void ThreadPlace(Thread* thread, i32 index) {
    cpu_set_t chosen;
    if (CPU_COUNT(&allowed) == 0) return;
    i32 left = index % CPU_COUNT(&allowed);
    int processor = 0;
    while (!CPU_ISSET(processor, &allowed) || left-- > 0) ++processor;
    CPU_ZERO(&chosen);
    CPU_SET(processor, &chosen);
    pthread_setaffinity_np(thread->handle, sizeof chosen, &chosen);
}

void ThreadRoam(Thread* thread) {
    if (CPU_COUNT(&allowed) > 0) pthread_setaffinity_np(thread->handle, sizeof allowed, &allowed);
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

// A sleeper that has been woken takes its 1 only when it runs; until then its place counts as room, as if it had been
// let through at once.
void SemaphoreSignal(Semaphore* semaphore) {
    u64 word = semaphore->word.load(std::memory_order_relaxed);
    do
        if (u32(word) >= semaphore->maximum + (word >> 32)) return;
    while (
        !semaphore->word.compare_exchange_weak(word, word + 1, std::memory_order_release, std::memory_order_relaxed));
    if (word >= kSleeper) FutexWakeOne(&semaphore->word);
}

Event* EventCreate() { return Make<Event>(); }

void EventFree(Event* event) { std::free(event); }

void EventSignal(Event* event) { event->signalled.store(1, std::memory_order_release); }

bool EventTake(Event* event) { return event->signalled.exchange(0, std::memory_order_acq_rel) != 0; }

Region* RegionCreate() {
    Region* region = Make<Region>();
    if (region) region->streakToFavour = kLeastStreak;
    return region;
}

void RegionFree(Region* region) { std::free(region); }

void RegionEnter(Region* region) {
    Favoured* favoured = region->favoured.load(std::memory_order_relaxed);
    if (favoured && IsOwn(favoured) && EnterFavoured(region, favoured)) return;
    EnterSlowly(region);
}

void RegionExit(Region* region) {
    Favoured* favoured = region->favoured.load(std::memory_order_relaxed);
    if (favoured && IsOwn(favoured))
        LeaveFavoured(favoured);
    else
        ExitSlowly(region);
}

}   // namespace pal
