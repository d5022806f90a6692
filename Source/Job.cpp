// Cooperative jobs, and the round that gives each running one a step.
//
// Any routine may remove any job, its own too, whatever it is told. So the round keeps no pointer to a next job: it
// marks all jobs first and takes the first marked one from the head each time. And a job is touched after its routine
// ran only when it still stands in the list. Its serial number tells it from a new job that got the memory of a removed
// one.
#define KQ_MODULE "Source/Job"
#include "Source/Job.h"

#include "Source/Alloc.h"
#include "Source/Startup.h"
#include "kq/environment.h"
#include "kq/jobs.h"

namespace {

// Marks in Pending: the job awaits its step in the round; its routine is being told of an abort.
constexpr u32 kToStep = 1, kInAbort = 2;

// The first job for which `wanted` is true, or null.
template <class Wanted>
KQJob* FindJob(Wanted wanted) {
    for (Node* node = KQEnv->JobList.Head; node->Succ; node = node->Succ) {
        KQJob* job = reinterpret_cast<KQJob*>(node);
        if (wanted(job)) return job;
    }
    return nullptr;
}

// Calls the routine. `result` is 0 when the job is gone afterwards: what a routine says of a job that it has removed
// counts for nothing. True when the job still stands.
bool Tell(KQJob* job, u32 message, int* result = nullptr) {
    u32 serial = job->Reserved;
    int said = job->Routine(job, message);
    bool stands = FindJob([=](KQJob* other) { return other == job && other->Reserved == serial; }) != nullptr;
    if (result) *result = stands && said;
    return stands;
}

// Ends a running or waiting job; false when it is gone afterwards. A routine that aborts its job while it is being told
// of an abort is not told again.
bool Abort(KQJob* job) {
    if ((job->Flags & KQJOB_Running) && !(job->Pending & kInAbort)) {
        job->Pending |= kInAbort;
        if (!Tell(job, KQJOB_MsgAbort)) return false;
        job->Pending &= ~kInAbort;
        job->Flags |= KQJOB_Aborted;
    }
    job->Flags &= ~(KQJOB_Waiting | KQJOB_Running);
    return true;
}

}   // namespace

KQJob* AddJobKQ(int (*routine)(KQJob*, u32)) {
    KQJob* job = KQ_NEW(KQJob);
    if (!job) return nullptr;
    job->Routine = routine;
    job->Reserved = ++KQEnv->nextJobSerial;
    AddTail(&KQEnv->JobList, &job->Node);
    return job;
}

void RemoveJobKQ(KQJob* job) {
    if (!job) return;
    if ((job->Flags & KQJOB_Running) && !Abort(job)) return;
    Remove(&job->Node);
    KQ_FREE(job);
}

void StartJobKQ(KQJob* job, i32 delay) {
    if (!job) return;
    if ((job->Flags & KQJOB_Running) && !Abort(job)) return;
    if (delay != 0) {
        job->Delay = delay;
        job->Flags |= KQJOB_Waiting;
        return;
    }
    int agrees;
    Tell(job, KQJOB_MsgStart, &agrees);
    if (!agrees) return;
    job->Count = 0;
    job->Flags &= ~KQJOB_Waiting;
    job->Flags |= KQJOB_Running | KQJOB_Started;
}

void AbortJobKQ(KQJob* job) {
    if (job) Abort(job);
}

int AnyMsgsWaitingKQ() { return kq::InputWaits(); }

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
        job->Pending |= kToStep;
        return false;
    });
    while (KQJob* job = FindJob([](KQJob* j) { return (j->Pending & kToStep) != 0; })) {
        job->Pending &= ~kToStep;
        if ((job->Flags & KQJOB_Running) && Tell(job, KQJOB_MsgStep)) ++job->Count;
    }
}

}   // namespace kq
