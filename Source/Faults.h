// The switches of the test build that make the n-th allocation, the n-th file call or the n-th thread call fail.
//
// The memory manager, the file layer and the tasks ask here before each call of theirs. Without KQ_TESTING the
// questions are constants and cost nothing.
#pragma once

#include "kq/types.h"

namespace kq {

#if defined(KQ_TESTING)

// One switch: counts the calls, and fails number `failAt` (counted from 1; 0: none), once or from then on.
struct FaultSwitch {
    i64 calls = 0;
    i64 failAt = 0;
    bool once = true;
    i64 failures = 0;   // calls failed since the switch was set
    i64 span = 1;       // calls that "once" means

    // Starts counting anew.
    void Set(i64 n, bool onlyOnce) { *this = FaultSwitch{0, n, onlyOnce, 0, 1}; }

    // The same; calls n to n + count - 1 fail, the others succeed.
    void SetSpan(i64 n, i64 count) { *this = FaultSwitch{0, n, true, 0, count}; }

    void Clear() { Set(0, true); }

    // Counts a call; true when it shall fail.
    bool Fails();
};

extern FaultSwitch allocationFaults;
extern FaultSwitch fileFaults;
extern FaultSwitch threadFaults;   // making of threads, events, semaphores and regions

inline bool AllocationFails() { return allocationFaults.Fails(); }

inline bool FileCallFails() { return fileFaults.Fails(); }

inline bool ThreadCallFails() { return threadFaults.Fails(); }

#else

constexpr bool AllocationFails() { return false; }

constexpr bool FileCallFails() { return false; }

constexpr bool ThreadCallFails() { return false; }

#endif

}   // namespace kq
