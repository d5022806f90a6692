// The fault switches of the test build. Counting is atomic, so that worker threads may allocate while a test counts.
#include "Source/Faults.h"

#if defined(KQ_TESTING)

#include <atomic>

#include "pal/allocate.h"

namespace kq {

FaultSwitch allocationFaults;
FaultSwitch fileFaults;
FaultSwitch threadFaults;

bool FaultSwitch::Fails() {
    i64 number = std::atomic_ref(calls).fetch_add(1, std::memory_order_relaxed) + 1;
    if (failAt == 0 || number < failAt || (once && number >= failAt + span)) return false;
    std::atomic_ref(failures).fetch_add(1, std::memory_order_relaxed);
    return true;
}

namespace {

// The platform layer's own allocations fail with the others, from the moment that the library is loaded.
[[maybe_unused]] const bool gateIsSet = (pal::allocationGate = AllocationFails, true);

}   // namespace

}   // namespace kq

#endif
