#include "Source/Job.h"

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>

#include "kq/jobs.h"
#include "support/Fixture.h"

namespace {

// What each job was told, and what it does then.
struct Script {
    std::string told;
    int agrees = 1;
    std::function<void(KQJob*)> step, start, abort;
};

std::map<KQJob*, Script> scripts;

int Obey(KQJob* job, u32 message) {
    Script& script = scripts[job];
    script.told += char('0' + message);
    int agrees = script.agrees;
    auto act = message == KQJOB_MsgStep ? script.step : message == KQJOB_MsgStart ? script.start : script.abort;
    if (act) act(job);
    return agrees;
}

class Job : public kqtest::KQTest {
protected:
    void TearDown() override {
        while (KQEnv && !List_Empty(&KQEnv->JobList)) RemoveJobKQ(reinterpret_cast<KQJob*>(KQEnv->JobList.Head));
        scripts.clear();
        KQTest::TearDown();
    }

    static KQJob* Add() {
        KQJob* job = AddJobKQ(Obey);
        scripts[job] = {};
        return job;
    }

    static KQJob* AddRunning() {
        KQJob* job = Add();
        StartJobKQ(job, 0);
        return job;
    }

    static const std::string& Told(KQJob* job) { return scripts[job].told; }
};

TEST_F(Job, NewJobIsIdle) {
    KQJob* job = Add();
    EXPECT_EQ(job->Flags, 0u);
    EXPECT_EQ(job->Count, 0u);
    EXPECT_EQ(job->UserData, 0u);
    EXPECT_EQ(AnyJobsBusyKQ(), 0);
}

TEST_F(Job, NoJobsAreNotBusy) { EXPECT_EQ(AnyJobsBusyKQ(), 0); }

TEST_F(Job, JobsStandInTheOrderInWhichTheyWereAdded) {
    KQJob* a = Add();
    KQJob* b = Add();
    EXPECT_EQ(reinterpret_cast<KQJob*>(KQEnv->JobList.Head), a);
    EXPECT_EQ(reinterpret_cast<KQJob*>(KQEnv->JobList.TailPred), b);
}

TEST_F(Job, StartAsksTheRoutineAndRuns) {
    KQJob* job = AddRunning();
    EXPECT_EQ(Told(job), "1");
    EXPECT_EQ(job->Flags, KQJOB_Running | KQJOB_Started);
    EXPECT_NE(AnyJobsBusyKQ(), 0);
}

TEST_F(Job, RefusedStartLeavesTheJobIdle) {
    KQJob* job = Add();
    scripts[job].agrees = 0;
    job->Count = 5;
    StartJobKQ(job, 0);
    EXPECT_EQ(Told(job), "1");
    EXPECT_EQ(job->Flags, 0u);
    EXPECT_EQ(job->Count, 5u);
}

TEST_F(Job, RefusedStartChangesNoFlag) {
    KQJob* job = AddRunning();
    AbortJobKQ(job);
    StartJobKQ(job, 3);
    u32 before = job->Flags;
    scripts[job].agrees = 0;
    StartJobKQ(job, 0);
    EXPECT_EQ(job->Flags, before);
}

TEST_F(Job, StartOfARunningJobSendsAbortThenStart) {
    KQJob* job = AddRunning();
    StartJobKQ(job, 0);
    EXPECT_EQ(Told(job), "131");
    EXPECT_NE(job->Flags & KQJOB_Running, 0u);
}

TEST_F(Job, RestartKeepsTheAbortToBeNoticed) {
    KQJob* job = AddRunning();
    StartJobKQ(job, 0);
    EXPECT_NE(JobAbortedKQ(job), 0);
}

TEST_F(Job, RestartCountsStepsAnew) {
    KQJob* job = AddRunning();
    kq::RunJobs();
    kq::RunJobs();
    EXPECT_EQ(job->Count, 2u);
    StartJobKQ(job, 0);
    EXPECT_EQ(job->Count, 0u);
}

TEST_F(Job, DelayedJobIsBusyButNeverSteps) {
    KQJob* job = Add();
    StartJobKQ(job, 50);
    EXPECT_EQ(job->Delay, 50);
    EXPECT_EQ(job->Flags, KQJOB_Waiting);
    EXPECT_NE(AnyJobsBusyKQ(), 0);
    for (int i = 0; i < 100; ++i) kq::RunJobs();
    EXPECT_EQ(Told(job), "");
    EXPECT_EQ(job->Delay, 50);
    EXPECT_EQ(job->Flags, KQJOB_Waiting);
}

TEST_F(Job, DelayedStartOfARunningJobAbortsIt) {
    KQJob* job = AddRunning();
    StartJobKQ(job, 5);
    EXPECT_EQ(Told(job), "13");
    EXPECT_EQ(job->Flags & (KQJOB_Waiting | KQJOB_Running), KQJOB_Waiting);
}

TEST_F(Job, WaitingJobRunsWhenItIsStartedWithoutDelay) {
    KQJob* job = Add();
    StartJobKQ(job, 5);
    StartJobKQ(job, 0);
    EXPECT_EQ(job->Flags, KQJOB_Running | KQJOB_Started);
    kq::RunJobs();
    EXPECT_EQ(Told(job), "12");
}

TEST_F(Job, AbortTellsARunningJob) {
    KQJob* job = AddRunning();
    AbortJobKQ(job);
    EXPECT_EQ(Told(job), "13");
    EXPECT_EQ(job->Flags & (KQJOB_Running | KQJOB_Waiting), 0u);
    EXPECT_EQ(AnyJobsBusyKQ(), 0);
}

TEST_F(Job, AbortIsNoticedOnce) {
    KQJob* job = AddRunning();
    AbortJobKQ(job);
    EXPECT_NE(JobAbortedKQ(job), 0);
    EXPECT_EQ(JobAbortedKQ(job), 0);
}

TEST_F(Job, AbortOfAnIdleJobSendsNothingAndIsNotNoticed) {
    KQJob* job = Add();
    AbortJobKQ(job);
    EXPECT_EQ(Told(job), "");
    EXPECT_EQ(JobAbortedKQ(job), 0);
}

TEST_F(Job, AbortEndsWaitingWithoutAMessage) {
    KQJob* job = Add();
    StartJobKQ(job, 5);
    AbortJobKQ(job);
    EXPECT_EQ(Told(job), "");
    EXPECT_EQ(job->Flags, 0u);
}

TEST_F(Job, RemoveAbortsARunningJob) {
    KQJob* job = AddRunning();
    RemoveJobKQ(job);
    EXPECT_EQ(Told(job), "13");
    EXPECT_EQ(List_Entries(&KQEnv->JobList), 0);
}

TEST_F(Job, NullJobIsIgnored) {
    RemoveJobKQ(nullptr);
    StartJobKQ(nullptr, 0);
    AbortJobKQ(nullptr);
    EXPECT_EQ(JobAbortedKQ(nullptr), 0);
}

TEST_F(Job, AddFailsWithoutMemory) {
    kq::allocationFaults.Set(1, true);
    EXPECT_EQ(AddJobKQ(Obey), nullptr);
    EXPECT_EQ(GetErrorKQ(), KQERR_NOMEM);
    EXPECT_EQ(List_Entries(&KQEnv->JobList), 0);
}

TEST_F(Job, RoundGivesEachRunningJobOneStep) {
    KQJob* a = AddRunning();
    KQJob* idle = Add();
    KQJob* b = AddRunning();
    kq::RunJobs();
    EXPECT_EQ(Told(a), "12");
    EXPECT_EQ(Told(idle), "");
    EXPECT_EQ(Told(b), "12");
    EXPECT_EQ(a->Count, 1u);
    EXPECT_EQ(b->Count, 1u);
    EXPECT_EQ(idle->Count, 0u);
}

TEST_F(Job, JobAddedDuringARoundWaitsForTheNext) {
    KQJob* added = nullptr;
    KQJob* a = AddRunning();
    scripts[a].step = [&](KQJob*) {
        if (!added) added = AddRunning();
    };
    kq::RunJobs();
    ASSERT_NE(added, nullptr);
    EXPECT_EQ(Told(added), "1");
    kq::RunJobs();
    EXPECT_EQ(Told(added), "12");
}

TEST_F(Job, JobThatRemovesItselfIsNotTouchedAfterwards) {
    KQJob* a = AddRunning();
    KQJob* b = AddRunning();
    scripts[a].step = [](KQJob* self) { RemoveJobKQ(self); };
    kq::RunJobs();
    EXPECT_EQ(Told(a), "123");
    EXPECT_EQ(b->Count, 1u);
    EXPECT_EQ(List_Entries(&KQEnv->JobList), 1);
}

TEST_F(Job, NewJobInTheMemoryOfARemovedOneHasNoSteps) {
    KQJob* added = nullptr;
    KQJob* a = AddRunning();
    scripts[a].step = [&](KQJob* self) {
        RemoveJobKQ(self);
        added = AddRunning();
    };
    kq::RunJobs();
    ASSERT_NE(added, nullptr);
    EXPECT_EQ(added->Count, 0u);
}

TEST_F(Job, NewJobInTheMemoryOfOneThatItsStartRemovedStaysIdle) {
    KQJob* added = nullptr;
    KQJob* a = Add();
    scripts[a].start = [&](KQJob* self) {
        scripts[self].start = nullptr;
        RemoveJobKQ(self);
        added = Add();
    };
    StartJobKQ(a, 0);
    ASSERT_EQ(added, a);   // the memory manager gives the first block that fits
    EXPECT_EQ(added->Flags, 0u);
    EXPECT_EQ(AnyJobsBusyKQ(), 0);
}

TEST_F(Job, AbortInsideAnAbortIsNotToldAgain) {
    KQJob* job = AddRunning();
    scripts[job].abort = [](KQJob* self) { AbortJobKQ(self); };
    AbortJobKQ(job);
    EXPECT_EQ(Told(job), "13");
    EXPECT_EQ(AnyJobsBusyKQ(), 0);
    EXPECT_NE(JobAbortedKQ(job), 0);
    StartJobKQ(job, 0);
    AbortJobKQ(job);
    EXPECT_EQ(Told(job), "1313");
}

TEST_F(Job, StartInsideAnAbortEndsAndLeavesTheJobIdle) {
    KQJob* job = AddRunning();
    scripts[job].abort = [](KQJob* self) { StartJobKQ(self, 0); };
    AbortJobKQ(job);
    EXPECT_EQ(Told(job), "131");
    EXPECT_EQ(AnyJobsBusyKQ(), 0);
}

TEST_F(Job, JobThatRemovesItselfWhenItIsAbortedIsGone) {
    for (auto end : {AbortJobKQ, RemoveJobKQ, +[](KQJob* job) { StartJobKQ(job, 0); }}) {
        KQJob* job = AddRunning();
        scripts[job].abort = [](KQJob* self) { RemoveJobKQ(self); };
        end(job);
        EXPECT_EQ(Told(job), "13");
        EXPECT_EQ(List_Entries(&KQEnv->JobList), 0);
    }
}

TEST_F(Job, NoMessagesWaitWithoutAScreen) { EXPECT_EQ(AnyMsgsWaitingKQ(), 0); }

TEST_F(Job, JobThatAbortsItselfEnds) {
    KQJob* a = AddRunning();
    scripts[a].step = [](KQJob* self) { AbortJobKQ(self); };
    kq::RunJobs();
    kq::RunJobs();
    EXPECT_EQ(Told(a), "123");
    EXPECT_EQ(a->Count, 1u);
}

TEST_F(Job, JobsRemoveEachOtherInsideARound) {
    KQJob* a = AddRunning();
    KQJob* b = AddRunning();
    KQJob* c = AddRunning();
    scripts[b].step = [&](KQJob*) {
        RemoveJobKQ(a);
        RemoveJobKQ(c);
    };
    kq::RunJobs();
    EXPECT_EQ(Told(a), "123");
    EXPECT_EQ(Told(b), "12");
    EXPECT_EQ(Told(c), "13");
    EXPECT_EQ(b->Count, 1u);
    EXPECT_EQ(List_Entries(&KQEnv->JobList), 1);
}

TEST_F(Job, JobStartedByAnotherStepsInTheSameRoundWhenItIsStillMarked) {
    KQJob* a = AddRunning();
    KQJob* b = Add();
    scripts[a].step = [&](KQJob*) { StartJobKQ(b, 0); };
    kq::RunJobs();
    EXPECT_EQ(Told(b), "12");
}

TEST(JobLeftBehind, GoesInTheLeakReport) {
    ASSERT_NE(kqtest::InitWithoutWindow(), nullptr);
    ASSERT_NE(AddJobKQ(Obey), nullptr);
    CleanUpKQ();
    std::string path = std::getenv("KQLIB_LEAK_REPORT");
    std::vector<u8> report = kqtest::ReadWholeFile(path);
    std::remove(path.c_str());
    EXPECT_NE(std::string(report.begin(), report.end()).find("Source/Job Line: "), std::string::npos);
}

}   // namespace
