#include "kq/tasks.h"

#include <atomic>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <thread>
#include <vector>

#if defined(__linux__)
#include <unistd.h>
#endif

#include "Source/Startup.h"
#include "Source/Threads.h"
#include "pal/program.h"
#include "support/Fixture.h"

namespace {

class Threads : public kqtest::KQTest {
protected:
    void TearDown() override {
        kq::threadFaults.Clear();
        if (poolChanged_) {
            // The pool goes as it came, before the blocks are counted.
            kq::StopTaskPool();
            KQEnv->Processors = processors_;
            kq::StartTaskPool();
        }
        KQTest::TearDown();
    }

    // Makes the pool anew for this count of processors.
    void SetProcessors(i32 count) {
        processors_ = KQEnv->Processors;
        poolChanged_ = true;
        kq::StopTaskPool();
        KQEnv->Processors = count;
        kq::StartTaskPool();
    }

    static bool InPool(TaskInfoKQ* task) {
        for (Node* node = KQEnv->TaskPool.Head; node->Succ; node = node->Succ)
            if (reinterpret_cast<kq::PoolEntry*>(node)->Task == task) return true;
        return false;
    }

private:
    i32 processors_ = 0;
    bool poolChanged_ = false;
};

struct Call {
    std::thread::id thread;
    i32 slice, slices;
};

struct Calls {
    std::atomic<int> count{0};
    Call seen[16];
    std::atomic<int> refuse{0};   // the slice that gives 0
};

int NoteCall(i32 slice, i32 slices, void* data) {
    Calls* calls = static_cast<Calls*>(data);
    calls->seen[calls->count++] = {std::this_thread::get_id(), slice, slices};
    return slice == calls->refuse ? 0 : 7;
}

void AddOne(void* data) { ++*static_cast<std::atomic<int>*>(data); }

// Work that ends when it is told to.
struct Gate {
    void* open = CreateSemaphoreKQ(0, 100);
    std::atomic<int> passed{0};
    ~Gate() { FreeSemaphoreKQ(open); }
};

void PassGate(void* data) {
    Gate* gate = static_cast<Gate*>(data);
    WaitSemaphoreKQ(gate->open);
    ++gate->passed;
}

TEST_F(Threads, ForkOnOneProcessorRunsTheOnlySliceInTheCallingThread) {
    SetProcessors(1);
    Calls calls;
    EXPECT_EQ(MPForkKQ(NoteCall, &calls, 8), 7);
    ASSERT_EQ(calls.count, 1);
    EXPECT_EQ(calls.seen[0].thread, std::this_thread::get_id());
    EXPECT_EQ(calls.seen[0].slice, 1);
    EXPECT_EQ(calls.seen[0].slices, 1);
}

TEST_F(Threads, ForkInOneSliceRunsInTheCallingThread) {
    SetProcessors(4);
    for (i32 most : {1, 0, -3}) {
        Calls calls;
        EXPECT_EQ(MPForkKQ(NoteCall, &calls, most), 7) << most;
        ASSERT_EQ(calls.count, 1) << most;
        EXPECT_EQ(calls.seen[0].thread, std::this_thread::get_id()) << most;
        EXPECT_EQ(calls.seen[0].slices, 1) << most;
    }
}

TEST_F(Threads, ForkUsesNoMoreSlicesThanProcessors) {
    SetProcessors(3);
    Calls calls;
    EXPECT_EQ(MPForkKQ(NoteCall, &calls, 9), 1);
    ASSERT_EQ(calls.count, 3);
    int sum = 0;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(calls.seen[i].slices, 3);
        sum += 1 << calls.seen[i].slice;
    }
    EXPECT_EQ(sum, 2 + 4 + 8);
}

TEST_F(Threads, ForkRunsEverySliceOnAnotherThread) {
    SetProcessors(3);
    Calls calls;
    MPForkKQ(NoteCall, &calls, 3);
    for (int i = 0; i < 3; ++i) EXPECT_NE(calls.seen[i].thread, std::this_thread::get_id());
}

TEST_F(Threads, ForkGivesZeroWhenOneSliceDoes) {
    SetProcessors(4);
    for (int refuse = 1; refuse <= 4; ++refuse) {
        Calls calls;
        calls.refuse = refuse;
        EXPECT_EQ(MPForkKQ(NoteCall, &calls, 4), 0) << refuse;
        EXPECT_EQ(calls.count, 4) << refuse;
    }
}

TEST_F(Threads, SliceWithoutAThreadRunsInTheCallingThread) {
    SetProcessors(4);
    kq::StopTaskPool();   // so that each slice asks for a fresh thread
    Calls calls;
    calls.refuse = 3;
    kq::threadFaults.Set(1, false);
    EXPECT_EQ(MPForkKQ(NoteCall, &calls, 4), 0);
    EXPECT_GT(kq::threadFaults.failures, 0);
    ASSERT_EQ(calls.count, 4);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(calls.seen[i].thread, std::this_thread::get_id());
        EXPECT_EQ(calls.seen[i].slices, 4);
    }
}

TEST_F(Threads, ForkThatFallsBackLeavesTheErrorAlone) {
    SetProcessors(4);
    kq::StopTaskPool();
    for (bool threads : {true, false}) {
        Calls calls;
        KQEnv->Error = KQERR_BADDATA;
        (threads ? kq::threadFaults : kq::allocationFaults).Set(1, false);
        EXPECT_EQ(MPForkKQ(NoteCall, &calls, 4), 1);
        EXPECT_GT((threads ? kq::threadFaults : kq::allocationFaults).failures, 0);
        kq::threadFaults.Clear();
        kq::allocationFaults.Clear();
        EXPECT_EQ(calls.count, 4);
        EXPECT_EQ(GetErrorKQ(), u32(KQERR_BADDATA));
    }
}

TEST_F(Threads, TaskWithoutAThreadIsNullWithErrorOne) {
    SetProcessors(1);
    kq::StopTaskPool();
    std::atomic<int> calls{0};
    KQEnv->Error = KQERR_NONE;
    kq::threadFaults.Set(1, false);
    EXPECT_EQ(CreateTaskKQ(AddOne, &calls), nullptr);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_NOMEM));
    kq::threadFaults.Clear();
    EXPECT_EQ(calls, 0);
}

TEST_F(Threads, ForkSurvivesEveryFailedAllocation) {
    SetProcessors(4);
    kq::StopTaskPool();
    kqtest::FailEveryAllocation([] {
        Calls calls;
        EXPECT_EQ(MPForkKQ(NoteCall, &calls, 4), 1);
        EXPECT_EQ(calls.count, 4);
    });
}

TEST_F(Threads, ForkSurvivesEveryFailedThreadCall) {
    SetProcessors(3);
    kq::StopTaskPool();
    for (i64 n = 1;; ++n) {
        i64 before = kqtest::LiveBlocks();
        kq::threadFaults.Set(n, true);
        Calls calls;
        EXPECT_EQ(MPForkKQ(NoteCall, &calls, 3), 1);
        EXPECT_EQ(calls.count, 3);
        EXPECT_EQ(kqtest::LiveBlocks(), before) << n;
        if (kq::threadFaults.failures == 0) break;
        ASSERT_LT(n, 100);
    }
}

TEST_F(Threads, ForkedRowsAddUpToTheWhole) {
    SetProcessors(4);
    u32 seed = std::random_device{}();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    for (int run = 0; run < 50; ++run) {
        std::vector<u32> rows(random() % 1000);
        MPForkKQ(
            [](i32 slice, i32 slices, void* data) {
                std::vector<u32>& all = *static_cast<std::vector<u32>*>(data);
                for (size_t y = size_t(slice - 1); y < all.size(); y += size_t(slices)) all[y] = u32(y) * 3 + 1;
                return 1;
            },
            &rows, i32(random() % 6));
        for (size_t y = 0; y < rows.size(); ++y) ASSERT_EQ(rows[y], y * 3 + 1);
    }
}

TEST_F(Threads, PoolHasOneEntryForEachProcessor) {
    SetProcessors(3);
    EXPECT_EQ(List_Entries(&KQEnv->TaskPool), 3);
}

TEST_F(Threads, OneProcessorNeedsNoPool) {
    SetProcessors(1);
    EXPECT_EQ(List_Entries(&KQEnv->TaskPool), 0);
}

TEST_F(Threads, ThirdTaskOfTwoProcessorsGetsAFreshThread) {
    SetProcessors(2);
    Gate gate;
    TaskInfoKQ* first = CreateTaskKQ(PassGate, &gate);
    TaskInfoKQ* second = CreateTaskKQ(PassGate, &gate);
    EXPECT_TRUE(InPool(first));
    EXPECT_TRUE(InPool(second));
    EXPECT_NE(first, second);
    i64 before = kqtest::LiveBlocks();
    TaskInfoKQ* third = CreateTaskKQ(PassGate, &gate);
    ASSERT_NE(third, nullptr);
    EXPECT_FALSE(InPool(third));
    EXPECT_GT(kqtest::LiveBlocks(), before);
    for (int i = 0; i < 3; ++i) SignalSemaphoreKQ(gate.open);
    TaskWaitKQ(third);
    EXPECT_EQ(kqtest::LiveBlocks(), before);
    TaskWaitKQ(first);
    TaskWaitKQ(second);
    EXPECT_EQ(gate.passed, 3);
}

TEST_F(Threads, WaitedTaskGivesItsEntryBack) {
    SetProcessors(2);
    std::atomic<int> count{0};
    for (int i = 0; i < 100; ++i) {
        TaskInfoKQ* task = CreateTaskKQ(AddOne, &count);
        EXPECT_TRUE(InPool(task));
        TaskWaitKQ(task);
    }
    EXPECT_EQ(count, 100);
}

TEST_F(Threads, TaskTakesARoutineByItsAddress) {
    std::atomic<int> count{0};
    TaskWaitKQ(CreateTaskKQ(reinterpret_cast<void*>(AddOne), &count));
    EXPECT_EQ(count, 1);
}

TEST_F(Threads, PoolStopsThoughNobodyWaitedForATask) {
    SetProcessors(2);
    std::atomic<int> count{0};
    ASSERT_NE(CreateTaskKQ(AddOne, &count), nullptr);
    SetProcessors(2);
    EXPECT_EQ(count, 1);
}

TEST_F(Threads, PoolStaysAsFarAsItGot) {
    SetProcessors(1);
    KQEnv->Processors = 4;
    kq::threadFaults.Set(1, false);
    for (i64 good : {0, 3, 4, 7, 8, 11}) {
        kq::threadFaults.Set(good + 1, false);
        kq::StartTaskPool();
        EXPECT_EQ(List_Entries(&KQEnv->TaskPool), good / 4);
        kq::StopTaskPool();
    }
    kq::threadFaults.Clear();
}

TEST_F(Threads, FailedPoolLeavesNoMemory) {
    SetProcessors(1);
    KQEnv->Processors = 2;
    kqtest::FailEveryAllocation([] {
        kq::StartTaskPool();
        kq::StopTaskPool();
    });
}

TEST_F(Threads, TaskIsNullWhenNoThreadCanBeHad) {
    SetProcessors(1);
    std::atomic<int> count{0};
    for (i64 n = 1; n <= 4; ++n) {
        i64 before = kqtest::LiveBlocks();
        KQEnv->Error = KQERR_NONE;
        kq::threadFaults.Set(n, true);
        EXPECT_EQ(CreateTaskKQ(AddOne, &count), nullptr) << n;
        EXPECT_EQ(GetErrorKQ(), KQERR_NOMEM);
        EXPECT_EQ(kqtest::LiveBlocks(), before);
    }
    EXPECT_EQ(count, 0);
}

TEST_F(Threads, NullRoutineAndNullTaskAreRefused) {
    EXPECT_EQ(CreateTaskKQ(static_cast<void*>(nullptr), nullptr), nullptr);
    TaskWaitKQ(nullptr);
    SetEventKQ(nullptr);
    EXPECT_EQ(CheckForEventKQ(nullptr), 0);
    TaskInfoKQ empty{};
    SetEventKQ(&empty);
    EXPECT_EQ(CheckForEventKQ(&empty), 0);
}

TEST_F(Threads, CheckingAnEventResetsIt) {
    Gate gate;
    TaskInfoKQ* task = CreateTaskKQ(PassGate, &gate);
    EXPECT_EQ(CheckForEventKQ(task), 0);
    SetEventKQ(task);
    SetEventKQ(task);
    EXPECT_NE(CheckForEventKQ(task), 0);
    EXPECT_EQ(CheckForEventKQ(task), 0);
    SignalSemaphoreKQ(gate.open);
    TaskWaitKQ(task);
}

TEST_F(Threads, PooledTaskStartsWithItsEventReset) {
    SetProcessors(2);
    std::atomic<int> count{0};
    TaskInfoKQ* task = CreateTaskKQ(AddOne, &count);
    TaskWaitKQ(task);
    SetEventKQ(task);
    TaskInfoKQ* again = CreateTaskKQ(AddOne, &count);
    EXPECT_EQ(again, task);
    EXPECT_EQ(CheckForEventKQ(again), 0);
    TaskWaitKQ(again);
}

TEST_F(Threads, EventIsSeenByTheTask) {
    struct Watch {
        TaskInfoKQ* task;
        void* go = CreateSemaphoreKQ(0, 1);
        int seen = 0;
    } watch;
    watch.task = CreateTaskKQ(
        [](void* data) {
            Watch* w = static_cast<Watch*>(data);
            WaitSemaphoreKQ(w->go);
            w->seen = CheckForEventKQ(w->task);
        },
        &watch);
    SetEventKQ(watch.task);
    SignalSemaphoreKQ(watch.go);
    TaskWaitKQ(watch.task);
    EXPECT_NE(watch.seen, 0);
    FreeSemaphoreKQ(watch.go);
}

TEST_F(Threads, SemaphoreHoldsNoMoreThanItsMaximum) {
    struct Count {
        void* semaphore = CreateSemaphoreKQ(1, 2);
        std::atomic<int> passed{0};
    } count;
    for (int i = 0; i < 5; ++i) SignalSemaphoreKQ(count.semaphore);
    TaskInfoKQ* task = CreateTaskKQ(
        [](void* data) {
            Count* c = static_cast<Count*>(data);
            for (int i = 0; i < 3; ++i) {
                WaitSemaphoreKQ(c->semaphore);
                ++c->passed;
            }
        },
        &count);
    while (count.passed < 2) std::this_thread::yield();
    for (int i = 0; i < 1000; ++i) std::this_thread::yield();
    EXPECT_EQ(count.passed, 2);
    SignalSemaphoreKQ(count.semaphore);
    TaskWaitKQ(task);
    EXPECT_EQ(count.passed, 3);
    FreeSemaphoreKQ(count.semaphore);
}

#if defined(__linux__)
// Whether the kernel has put the thread to sleep.
bool Sleeps(int thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string text((std::istreambuf_iterator<char>(file)), {});
    size_t name = text.rfind(')');
    return name != std::string::npos && text.compare(name, 3, ") S") == 0;
}

// A sleeper that has been let through but has not run yet takes no other's place.
TEST_F(Threads, EverySignalLetsASleeperThrough) {
    for (int round = 0; round < 100; ++round) {
        void* semaphore = CreateSemaphoreKQ(0, 1);
        std::atomic<int> threads[2] = {};
        std::vector<std::thread> sleepers;
        for (auto& thread : threads)
            sleepers.emplace_back([&] {
                thread = int(gettid());
                WaitSemaphoreKQ(semaphore);
            });
        for (auto& thread : threads)
            while (!thread || !Sleeps(thread)) std::this_thread::yield();
        SignalSemaphoreKQ(semaphore);
        SignalSemaphoreKQ(semaphore);
        for (auto& sleeper : sleepers) sleeper.join();
        FreeSemaphoreKQ(semaphore);
    }
}
#endif

TEST_F(Threads, SemaphoreRefusesImpossibleCounts) {
    EXPECT_EQ(CreateSemaphoreKQ(0, 0), nullptr);
    EXPECT_EQ(CreateSemaphoreKQ(-1, 1), nullptr);
    EXPECT_EQ(CreateSemaphoreKQ(2, 1), nullptr);
    EXPECT_EQ(CreateSemaphoreKQ(0, -1), nullptr);
}

TEST_F(Threads, NullSemaphoreIsIgnored) {
    WaitSemaphoreKQ(nullptr);
    SignalSemaphoreKQ(nullptr);
    FreeSemaphoreKQ(nullptr);
    SUCCEED() << "came back from the wait";
}

TEST_F(Threads, SemaphoreLetsThroughAsManyAsItIsSignalled) {
    struct Shared {
        void* semaphore = CreateSemaphoreKQ(0, 1 << 30);
        std::atomic<int> passed{0};
    } shared;
    constexpr int kThreads = 4, kTurns = 2000;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&shared] {
            for (int i = 0; i < kTurns; ++i) {
                WaitSemaphoreKQ(shared.semaphore);
                ++shared.passed;
            }
        });
    for (int i = 0; i < kThreads * kTurns; ++i) SignalSemaphoreKQ(shared.semaphore);
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(shared.passed, kThreads * kTurns);
    FreeSemaphoreKQ(shared.semaphore);
}

TEST_F(Threads, NullRegionIsIgnored) {
    EnterCriticalRegionKQ(nullptr);
    ExitCriticalRegionKQ(nullptr);
    FreeCriticalRegionKQ(nullptr);
    SUCCEED() << "came back";
}

TEST_F(Threads, RegionIsRecursive) {
    KQCriticalRegion* region = CreateCriticalRegionKQ();
    ASSERT_NE(region, nullptr);
    for (int i = 0; i < 3; ++i) EnterCriticalRegionKQ(region);
    for (int i = 0; i < 2; ++i) ExitCriticalRegionKQ(region);
    std::atomic<bool> entered{false};
    std::thread other([&] {
        EnterCriticalRegionKQ(region);
        entered = true;
        ExitCriticalRegionKQ(region);
    });
    for (int i = 0; i < 1000; ++i) std::this_thread::yield();
    EXPECT_FALSE(entered) << "one entry is still held";
    ExitCriticalRegionKQ(region);
    other.join();
    EXPECT_TRUE(entered);
    FreeCriticalRegionKQ(region);
}

TEST_F(Threads, RegionKeepsThreadsApart) {
    KQCriticalRegion* region = CreateCriticalRegionKQ();
    i64 plain = 0;   // not atomic: the region is what makes the sum right
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 5000; ++i) {
                EnterCriticalRegionKQ(region);
                EnterCriticalRegionKQ(region);
                ++plain;
                ExitCriticalRegionKQ(region);
                ExitCriticalRegionKQ(region);
            }
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(plain, 8 * 5000);
    FreeCriticalRegionKQ(region);
}

// A thread that enters again and again is favoured; the tests below give it time for that and then come in between.
constexpr int kManyEntries = 3000;

struct SharedCount {
    KQCriticalRegion* region = CreateCriticalRegionKQ();
    int count = 0;   // no atomic: the region is what keeps it

    ~SharedCount() { FreeCriticalRegionKQ(region); }

    void Add(int times, int depth) {
        for (int i = 0; i < times; ++i) {
            for (int k = 0; k < depth; ++k) EnterCriticalRegionKQ(region);
            ++count;
            for (int k = 0; k < depth; ++k) ExitCriticalRegionKQ(region);
        }
    }
};

TEST_F(Threads, FavouredThreadAndRareOthersKeepApart) {
    SharedCount shared;
    std::atomic<bool> done{false};
    std::vector<std::thread> others;
    std::atomic<int> visits{0};
    for (int i = 0; i < 3; ++i)
        others.emplace_back([&] {
            while (!done) {
                shared.Add(1, 2);
                ++visits;
                for (int k = 0; k < 50; ++k) std::this_thread::yield();
            }
        });
    for (int i = 0; i < 100; ++i) {
        shared.Add(kManyEntries, 1 + i % 3);
        std::this_thread::yield();
    }
    done = true;
    for (std::thread& t : others) t.join();
    EXPECT_EQ(shared.count, 100 * kManyEntries + visits);
}

TEST_F(Threads, FavouredHolderMayEnterAgainWhileAnotherWaits) {
    for (int round = 0; round < 20; ++round) {
        SharedCount shared;
        shared.Add(kManyEntries, 1);
        EnterCriticalRegionKQ(shared.region);
        std::thread other([&] { shared.Add(1, 1); });
        for (int i = 0; i < 200; ++i) {
            EnterCriticalRegionKQ(shared.region);
            std::this_thread::yield();
            ExitCriticalRegionKQ(shared.region);
        }
        EXPECT_EQ(shared.count, kManyEntries);
        ExitCriticalRegionKQ(shared.region);
        other.join();
        EXPECT_EQ(shared.count, kManyEntries + 1);
    }
}

TEST_F(Threads, RegionOfAFavouredThreadThatEndedIsFree) {
    SharedCount shared;
    for (int i = 0; i < 10; ++i) std::thread([&] { shared.Add(kManyEntries, 1); }).join();
    shared.Add(kManyEntries, 1);
    EXPECT_EQ(shared.count, 11 * kManyEntries);
}

TEST_F(Threads, MoreThreadsThanARegionFavoursShareIt) {
    SharedCount shared;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) threads.emplace_back([&] { shared.Add(4 * kManyEntries, 1); });
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(shared.count, 32 * kManyEntries);
}

TEST_F(Threads, RegionComesFromThePlatform) {
    i64 before = kqtest::LiveBlocks();
    KQCriticalRegion* region = CreateCriticalRegionKQ();
    void* semaphore = CreateSemaphoreKQ(0, 1);
    EXPECT_EQ(kqtest::LiveBlocks(), before);
    FreeSemaphoreKQ(semaphore);
    FreeCriticalRegionKQ(region);
}

TEST_F(Threads, RegionThatCannotBeHadIsNull) {
    kq::threadFaults.Set(1, true);
    EXPECT_EQ(CreateCriticalRegionKQ(), nullptr);
    kq::threadFaults.Set(1, true);
    EXPECT_EQ(CreateSemaphoreKQ(0, 1), nullptr);
}

TEST_F(Threads, MemoryLockIsThereWhileTheLibraryRuns) { EXPECT_NE(KQEnv->MemoryLock, nullptr); }

TEST_F(Threads, EightThreadsAllocateAndFree) {
    std::vector<std::thread> threads;
    std::atomic<int> damaged{0};
    for (u32 t = 0; t < 8; ++t)
        threads.emplace_back([t, &damaged] {
            std::mt19937 random(t);
            u8* blocks[16] = {};
            size_t sizes[16] = {};
            for (int i = 0; i < 2000; ++i) {
                size_t at = random() % 16;
                for (size_t k = 0; blocks[at] && k < sizes[at]; ++k) damaged += blocks[at][k] != u8(t + at);
                FreeMemoryKQ(blocks[at], __FILE__, __LINE__);
                sizes[at] = random() % 300;
                blocks[at] = static_cast<u8*>(AllocMemoryKQ(sizes[at], 0, __FILE__, __LINE__));
                if (blocks[at]) std::memset(blocks[at], int(t + at), sizes[at]);
            }
            for (u8* block : blocks) FreeMemoryKQ(block, __FILE__, __LINE__);
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(damaged, 0);
    EXPECT_TRUE(messages.empty());
}

TEST_F(Threads, RoutineMayHold16384BytesOnItsStack) {
    struct Filled {
        u32 sum = 0;
    } filled;
    TaskInfoKQ* task = CreateTaskKQ(
        [](void* data) {
            volatile u8 held[16000];
            for (size_t i = 0; i < sizeof held; ++i) held[i] = 1;
            for (size_t i = 0; i < sizeof held; ++i) static_cast<Filled*>(data)->sum += held[i];
        },
        &filled);
    TaskWaitKQ(task);
    EXPECT_EQ(filled.sum, 16000u);
}

TEST_F(Threads, ElapsedTimeCountsFromTheTimer) {
    i32 timer;
    StartTimerKQ(&timer);
    EXPECT_GE(ElapsedTimeKQ(i32(u32(timer) - 1000)), 1000);
    EXPECT_GE(ElapsedTimeKQ(timer), 0);
}

TEST_F(Threads, ElapsedTimeIsRightAcrossTheWrapOfTheClock) {
    EXPECT_EQ(kq::MillisecondsBetween(0xFFFFFFF0u, 0x10u), 0x20u);
    EXPECT_EQ(kq::MillisecondsBetween(0x7FFFFFF0u, 0x80000010u), 0x20u);
    // A timer "ahead" of the clock by all but 500 is one that was started 500 ms before the wrap.
    u32 now = pal::MillisecondClock();
    EXPECT_GE(ElapsedTimeKQ(i32(now - 500u)), 500);
}

TEST_F(Threads, BusyTwiceAndNotBusyOnceLeavesTheWaitCursor) {
    BusyKQ();
    BusyKQ();
    NotBusyKQ();
    EXPECT_EQ(KQEnv->Cursor, 4);
    EXPECT_EQ(KQEnv->BusyCount, 1);
    NotBusyKQ();
    EXPECT_EQ(KQEnv->Cursor, 0);
    EXPECT_EQ(KQEnv->BusyCount, 0);
}

TEST_F(Threads, ProcessorsAreThePlatforms) {
    EXPECT_EQ(GetProcessorsKQ(), KQEnv->Processors);
    EXPECT_GE(GetProcessorsKQ(), 1);
}

}   // namespace
