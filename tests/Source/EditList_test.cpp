// The list of edits beside a plain model of it, and the index of a long one.
#include "Source/EditList.h"

#include <gtest/gtest.h>

#include <climits>
#include <random>

#include "Source/Frames.h"
#include "support/EditTest.h"

namespace {

using namespace kqtest;

class EditList : public EditTest {};

// The plain model of the list, run by run as it is described.

struct Model {
    RunList runs;
    bool made = false;
    i32 capacity = 0, sourceFrames, frameCount, scratchCount = 0;

    void Make() {
        if (made) return;
        made = true;
        runs = {{0, sourceFrames}};
        capacity = 32;
    }

    static i32 Step(i32 start, i32 n) { return start >= 0 ? start + n : start - n; }

    bool Find(i32 frame, size_t* run, i32* base) const {
        *base = 0;
        for (*run = 0; *run < runs.size(); ++*run) {
            if (frame < *base + runs[*run].count) return true;
            *base += runs[*run].count;
        }
        return false;
    }

    // INT_MIN stands for no run.
    i32 Map(i32 frame) const {
        if (!made || frame >= sourceFrames) return frame;
        size_t run;
        i32 base;
        return Find(frame, &run, &base) ? Step(runs[run].start, frame - base) : INT_MIN;
    }

    void Grow() {
        if (i32(runs.size()) > capacity) capacity += 32;
    }

    void Compact() {
        if (runs.size() < 2) return;
        size_t read = 1, write = 1;
        i32 sum = runs[0].count, next = Step(runs[0].start, runs[0].count);
        while (read < runs.size() && sum < sourceFrames) {
            KQEditRun run = runs[read];
            if (run.start == next)
                runs[read - 1].count += run.count;
            else
                runs[write++] = run;
            sum += run.count;
            next = Step(run.start, run.count);
            ++read;
        }
        runs.erase(runs.begin() + i64(write), runs.begin() + i64(read));
        if (capacity - i32(runs.size()) >= 33) capacity = i32(runs.size());
    }

    void Put(size_t at, RunList pieces) {
        runs.erase(runs.begin() + i64(at));
        runs.insert(runs.begin() + i64(at), pieces.begin(), pieces.end());
        Grow();
    }

    int Set(i32 frame, i32 number) {
        if (Map(frame) == number) return 1;
        Make();
        size_t run;
        i32 base;
        if (!Find(frame, &run, &base)) return 0;
        KQEditRun old = runs[run];
        if (old.count == 1) {
            runs[run].start = number;
            return 1;
        }
        i32 offset = frame - base;
        RunList pieces;
        if (offset > 0) pieces.push_back({old.start, offset});
        pieces.push_back({number, 1});
        if (offset < old.count - 1) pieces.push_back({Step(old.start, offset + 1), old.count - offset - 1});
        Put(run, pieces);
        Compact();
        return 1;
    }

    int Modify(i32 frame) {
        size_t run;
        i32 base;
        Model whole = *this;
        whole.Make();
        if (!whole.Find(frame, &run, &base)) return 0;
        if (Map(frame) < 0) return 1;
        return Set(frame, -++scratchCount);
    }

    int Delete(i32 frame) {
        if (frame >= frameCount) return 0;
        Make();
        size_t run;
        i32 base;
        if (!Find(frame, &run, &base)) return 0;
        KQEditRun& old = runs[run];
        if (old.count == 1) {
            runs.erase(runs.begin() + i64(run));
        } else if (frame == base) {
            old.start = Step(old.start, 1);
            --old.count;
        } else if (frame == base + old.count - 1) {
            --old.count;
        } else {
            i32 head = frame - base;
            Put(run, {{old.start, head}, {Step(old.start, head + 1), old.count - head - 1}});
            Compact();
        }
        --frameCount;
        return 1;
    }

    int After(i32 frame) {
        if (frame >= frameCount) return 0;
        Make();
        i32 number = -++scratchCount;
        size_t run;
        i32 base;
        if (!Find(frame, &run, &base)) return 0;
        KQEditRun old = runs[run];
        i32 head = frame - base + 1;
        if (frame == 0 || frame > base)
            Put(run, {{old.start, head}, {number, 1}, {Step(old.start, head), old.count - head}});
        else
            Put(run, {old, {number, 1}});
        ++frameCount;
        return 1;
    }

    int Before(i32 frame) {
        if (frame >= frameCount) return 0;
        Make();
        i32 number = -++scratchCount;
        size_t run;
        i32 base;
        if (!Find(frame, &run, &base)) return 0;
        KQEditRun old = runs[run];
        i32 head = frame - base;
        if (head == 0)
            Put(run, {{number, 1}, old});
        else
            Put(run, {{old.start, head}, {number, 1}, {Step(old.start, head), old.count - head}});
        ++frameCount;
        return 1;
    }
};

// A list as an application might have made it, with runs that continue each other here and there.
RunList RandomRuns(std::mt19937& random) {
    RunList runs;
    i32 next = 0;
    for (u32 i = random() % 6 + 1; i > 0; --i) {
        i32 count = i32(random() % 4) + 1;
        i32 start = random() % 2 ? next : random() % 2 ? i32(random() % 20) : -i32(random() % 20) - 30;
        runs.push_back({start, count});
        next = Model::Step(start, count);
    }
    return runs;
}

TEST_F(EditList, TenThousandRandomSequencesFollowThePlainModel) {
    u32 seed = std::random_device{}();
    RecordProperty("seed", int(seed));
    std::mt19937 random(seed);
    module.width = module.height = 0;   // scratch files without a byte: the list is what counts
    KQClip* clip = Clip(1);
    for (int round = 0; round < 10000; ++round) {
        Model model;
        model.sourceFrames = model.frameCount = clip->sourceFrames = clip->frameCount = i32(random() % 12) + 1;
        clip->scratchCount = 0;
        FreeMemoryKQ(clip->editList);
        clip->editList = nullptr;
        clip->editCount = clip->editCapacity = 0;
        if (random() % 2) {
            model.runs = RandomRuns(random);
            model.made = true;
            model.capacity = i32(model.runs.size()) + i32(random() % 50);
            SetRuns(clip, model.runs, model.capacity);
        }
        for (u32 step = random() % 16 + 1; step > 0; --step) {
            i32 frame = i32(random() % u32(model.frameCount + 2));
            u32 kind = random() % 4;
            int expected = kind == 0   ? model.Modify(frame)
                           : kind == 1 ? model.Delete(frame)
                           : kind == 2 ? model.After(frame)
                                       : model.Before(frame);
            int done = kind == 0   ? Modify(clip, frame, 0xFF000000)
                       : kind == 1 ? Delete(clip, frame)
                       : kind == 2 ? After(clip, frame)
                                   : Before(clip, frame);
            ASSERT_EQ(done, expected) << "seed " << seed << " round " << round;
            ASSERT_EQ(clip->editList != nullptr, model.made) << "seed " << seed << " round " << round;
            ASSERT_EQ(Runs(clip), model.runs) << "seed " << seed << " round " << round;
            ASSERT_EQ(clip->editCapacity, model.capacity) << "seed " << seed << " round " << round;
            ASSERT_EQ(clip->frameCount, model.frameCount) << "seed " << seed << " round " << round;
            ASSERT_EQ(clip->scratchCount, model.scratchCount) << "seed " << seed << " round " << round;
            for (i32 i = 0; i < model.frameCount + 2; ++i) {
                i32 number;
                bool found = kq::MapFrame(clip, i, &number);
                ASSERT_EQ(found ? number : INT_MIN, model.Map(i)) << "seed " << seed << " round " << round;
            }
        }
    }
}

// Long lists.

TEST_F(EditList, LongListsAreLookedUpAsShortOnes) {
    u32 seed = std::random_device{}();
    std::mt19937 random(seed);
    module.width = module.height = 1;
    KQClip* clip = Clip(1);
    RunList runs;
    i32 total = 0;
    for (int i = 0; i < 3000; ++i) {
        runs.push_back({i32(random() % 100000), i32(random() % 4)});
        total += runs.back().count;
    }
    clip->sourceFrames = clip->frameCount = total + 5;
    SetRuns(clip, runs, 3000);
    Model model;
    model.runs = runs;
    model.made = true;
    model.sourceFrames = total + 5;
    auto compare = [&](const char* when) {
        for (i32 frame = 0; frame < total + 8; ++frame) {
            i32 number;
            bool found = kq::MapFrame(clip, frame, &number);
            ASSERT_EQ(found ? number : INT_MIN, model.Map(frame)) << when << ", seed " << seed << " frame " << frame;
        }
    };
    compare("fresh");
    for (int step = 0; step < 200; ++step) {
        i32 frame = i32(random() % u32(total - 300));
        if (step % 2) {
            kq::RemoveFrame(clip, frame);
            model.frameCount = INT_MAX;
            model.Delete(frame);
        } else {
            kq::SetFrame(clip, frame, -7);
            model.Set(frame, -7);
        }
        i32 number, probe = i32(random() % u32(total - 300));
        bool found = kq::MapFrame(clip, probe, &number);
        ASSERT_EQ(found ? number : INT_MIN, model.Map(probe)) << "seed " << seed;
    }
    compare("edited");
}

TEST_F(EditList, LongListReplacedByTheApplicationIsIndexedAgain) {
    KQClip* clip = Clip(5000);
    RunList runs(1000, KQEditRun{7, 2});
    SetRuns(clip, runs, 1000);
    i32 number;
    ASSERT_TRUE(kq::MapFrame(clip, 1001, &number));
    EXPECT_EQ(number, 8);
    runs.assign(2000, KQEditRun{9, 1});
    SetRuns(clip, runs, 2000);
    ASSERT_TRUE(kq::MapFrame(clip, 1001, &number));
    EXPECT_EQ(number, 9);
    EXPECT_FALSE(kq::MapFrame(clip, 2000, &number));
}

TEST_F(EditList, StartsWrittenInPlaceCountAtOnce) {
    KQClip* clip = Clip(5000);
    SetRuns(clip, RunList(1000, KQEditRun{7, 2}), 1000);
    i32 number;
    kq::MapFrame(clip, 1001, &number);
    clip->editList[500].start = 70;
    ASSERT_TRUE(kq::MapFrame(clip, 1001, &number));
    EXPECT_EQ(number, 71);
}

TEST_F(EditList, CountsWrittenInPlaceCountWhereTheyLie) {
    KQClip* clip = Clip(5000);
    SetRuns(clip, RunList(1000, KQEditRun{7, 2}), 1000);
    i32 number;
    kq::MapFrame(clip, 1001, &number);
    clip->editList[500] = {70, 1};
    ASSERT_TRUE(kq::MapFrame(clip, 1001, &number));
    EXPECT_EQ(number, 7) << "one frame fewer: the frame is the next run's first";
}

TEST_F(EditList, CountsWrittenInPlaceElsewhereCountOnceTheIndexIsGiven) {
    KQClip* clip = Clip(50000);
    SetRuns(clip, RunList(20000, KQEditRun{7, 2}), 20000);
    i32 number;
    kq::MapFrame(clip, 39001, &number);
    clip->editList[0].count = 1;
    FreeMemoryKQ(clip->editIndex);
    clip->editIndex = nullptr;
    ASSERT_TRUE(kq::MapFrame(clip, 39001, &number));
    EXPECT_EQ(number, 7);
}

TEST_F(EditList, CountsWrittenInPlaceElsewhereComeToLightByThemselves) {
    KQClip* clip = Clip(50000);
    SetRuns(clip, RunList(20000, KQEditRun{7, 2}), 20000);
    i32 number;
    kq::MapFrame(clip, 39001, &number);
    clip->editList[0].count = 1;
    for (int i = 0; i < 20000 / 32; ++i) kq::MapFrame(clip, 39001, &number);
    EXPECT_EQ(number, 7);
}

TEST_F(EditList, NegativeCountsInALongListAreWalked) {
    KQClip* clip = Clip(5000);
    RunList runs(1000, KQEditRun{7, 2});
    runs[10].count = -5;
    SetRuns(clip, runs, 1000);
    Model model;
    model.runs = runs;
    model.made = true;
    model.sourceFrames = 5000;
    for (i32 frame = 0; frame < 2000; ++frame) {
        i32 number;
        bool found = kq::MapFrame(clip, frame, &number);
        ASSERT_EQ(found ? number : INT_MIN, model.Map(frame));
    }
}

TEST_F(EditList, LongListIsWalkedWhenThereIsNoMemoryForItsIndex) {
    KQClip* clip = Clip(5000);
    SetRuns(clip, RunList(1000, KQEditRun{7, 2}), 1000);
    KQEnv->Error = 0;
    kq::allocationFaults.Set(1, false);
    i32 number;
    EXPECT_TRUE(kq::MapFrame(clip, 1001, &number));
    kq::allocationFaults.Clear();
    EXPECT_EQ(number, 8);
    EXPECT_EQ(GetErrorKQ(), 0u);
    EXPECT_EQ(clip->editIndex, nullptr);
}

}   // namespace
