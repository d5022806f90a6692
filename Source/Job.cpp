// Cooperative jobs, and the round that gives each running one a step.
//
// Any routine may remove any job, its own too, so the round keeps no pointer to a next job. It marks all jobs first,
// takes the first marked one from the head each time, and touches a job after its step only when it still stands in
// the list with the mark of that step. The mark tells it from a new job that got the memory of a removed one.
#define KQ_MODULE "Source/Job"
#include "Source/Job.h"

#include "Source/Alloc.h"
#include "kq/environment.h"
#include "kq/jobs.h"

namespace {

constexpr u32 kIdle = 0, kToStep = 1, kInStep = 2;   // values of Pending

// The first job for which `wanted` is true, or null.
template <class Wanted>
KQJob* FindJob(Wanted wanted) {
    for (Node* node = KQEnv->JobList.Head; node->Succ; node = node->Succ) {
        KQJob* job = reinterpret_cast<KQJob*>(node);
        if (wanted(job)) return job;
    }
    return nullptr;
}

bool Stands(KQJob* job) {
    return FindJob([job](KQJob* other) { return other == job; }) != nullptr;
}

void Step(KQJob* job) {
    job->Pending = kInStep;
    job->Routine(job, KQJOB_MsgStep);
    if (!Stands(job) || job->Pending != kInStep) return;
    job->Pending = kIdle;
    ++job->Count;
}

}   // namespace

KQJob* AddJobKQ(int (*routine)(KQJob*, u32)) {
    KQJob* job = KQ_NEW(KQJob);
    if (!job) return nullptr;
    job->Routine = routine;
    AddTail(&KQEnv->JobList, &job->Node);
    return job;
}

void RemoveJobKQ(KQJob* job) {
    if (!job) return;
    if (job->Flags & KQJOB_Running) AbortJobKQ(job);
    Remove(&job->Node);
    KQ_FREE(job);
}

void StartJobKQ(KQJob* job, i32 delay) {
    if (!job) return;
    if (job->Flags & KQJOB_Running) AbortJobKQ(job);
    if (delay != 0) {
        job->Delay = delay;
        job->Flags |= KQJOB_Waiting;
        return;
    }
    // A routine that agrees to run a job it has removed is not believed.
    if (!job->Routine(job, KQJOB_MsgStart) || !Stands(job)) return;
    job->Count = 0;
    job->Flags &= ~KQJOB_Waiting;
    job->Flags |= KQJOB_Running | KQJOB_Started;
}

void AbortJobKQ(KQJob* job) {
    if (!job) return;
    if (job->Flags & KQJOB_Running) {
        job->Routine(job, KQJOB_MsgAbort);
        job->Flags |= KQJOB_Aborted;
    }
    job->Flags &= ~(KQJOB_Waiting | KQJOB_Running);
}

int AnyJobsBusyKQ() {
    return FindJob([](KQJob* job) { return (job->Flags & (KQJOB_Waiting | KQJOB_Running)) != 0; }) != nullptr;
}

int JobAbortedKQ(KQJob* job) {
    if (!job || !(job->Flags & KQJOB_Aborted)) return 0;
    job->Flags &= ~KQJOB_Aborted;
    return 1;
}

namespace kq {

void RunJobs() {
    FindJob([](KQJob* job) {
        job->Pending = kToStep;
        return false;
    });
    while (KQJob* job = FindJob([](KQJob* j) { return j->Pending == kToStep; })) {
        job->Pending = kIdle;
        if (job->Flags & KQJOB_Running) Step(job);
    }
}

}   // namespace kq
