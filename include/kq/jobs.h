// Jobs: cooperative background work in slices on the thread that called InitKQ, in the gaps between messages.
//
// While no message waits, the outermost event pump gives each running job one step after the other, and looks at
// messages again after each round. A step must be short, because messages wait for it. A routine may add, start,
// abort and remove jobs, its own included, whatever it is told; it must not call HandleGUIKQ. No steps run while a modal
// palette is open, nor inside AdvanceGUIKQ.
#pragma once

#include "kq/lists.h"
#include "kq/types.h"

// Flags of a job.
enum : u32 {
    KQJOB_Waiting = 1,   // started with a delay, not running
    KQJOB_Running = 2,   // started
    KQJOB_Aborted = 4,   // an abort took place and was not yet noticed
    KQJOB_Started = 8,   // set with KQJOB_Running at the start
};

// Messages to the routine of a job.
enum : u32 {
    KQJOB_MsgStart = 1,   // a non-zero result means that the job wants to run
    KQJOB_MsgStep = 2,    // do one slice of work; the result is not looked at
    KQJOB_MsgAbort = 3,   // the job is being aborted; the result is not looked at
};

// A job. The library owns the record from AddJobKQ to RemoveJobKQ.
struct KQJob {
    MinNode Node;   // in JobList
    u32 Pending;    // internal marks of the present round and of an abort
    u32 Reserved;   // internal serial number
    u32 Flags;   // KQJOB_ flags
    i32 Delay;   // the delay given to StartJobKQ
    u32 Count;   // steps done since the start
    int (*Routine)(KQJob* job, u32 message);
    uptr UserData;   // for the application
};

// Makes an idle job with this routine, last in the list. Null with `Error` 1 when out of memory. CleanUpKQ does not
// remove jobs: one that is left is a leak of the application and is reported as such.
KQ_API KQJob* AddJobKQ(int (*routine)(KQJob* job, u32 message));

// Aborts the job when it runs, and frees it. Null is ignored.
KQ_API void RemoveJobKQ(KQJob* job);

// Starts the job, after an abort when it runs already. With a `delay` of 0 its routine gets KQJOB_MsgStart, and the
// job runs when the routine agrees. Any other `delay` is stored, and the job waits: it counts as busy but gets no
// steps until it is started with 0. An abort that nobody has noticed yet stays to be noticed. Null is ignored.
KQ_API void StartJobKQ(KQJob* job, i32 delay);

// Tells the routine of a running job that it is aborted, and notes that for JobAbortedKQ. The job neither runs nor
// waits afterwards. A routine that is being told is not told again. Null is ignored.
KQ_API void AbortJobKQ(KQJob* job);

// Non-zero when a job runs or waits.
KQ_API int AnyJobsBusyKQ();

// Non-zero once after an abort: the answer clears KQJOB_Aborted. 0 for null.
KQ_API int JobAbortedKQ(KQJob* job);

// Non-zero when pointer or button messages are queued: a routine asks now and then, and gives up its slice early. 0
// where there is no screen.
KQ_API int AnyMsgsWaitingKQ();
