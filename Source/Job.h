// The round of steps that the outermost event pump makes when no message waits.
#pragma once

namespace kq {

// One step for each running job. Jobs that are added meanwhile wait for the next round. The pump calls it only when no
// message waits, PumpDepth is 1 and AdvanceDepth is 0: neither while a modal palette runs a pump of its own nor from
// inside AdvanceGUIKQ. Not to be called from a job's routine.
void RunJobs();

}   // namespace kq
