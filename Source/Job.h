// The round of steps that the outermost event pump makes when no message waits.
#pragma once

namespace kq {

// One step for each running job. Jobs that are added meanwhile wait for the next round.
void RunJobs();

}   // namespace kq
