// The small allocations of the platform layer itself, which stands below the memory manager.
//
// The test build's library puts its fault switch into `allocationGate`, so that these fail in turn like all others.
#pragma once

#include <cstdlib>

#include "kq/types.h"

namespace pal {

// Asked before each allocation of the layer; true makes it fail. Null asks nobody.
extern bool (*allocationGate)();

// Memory from the language's library, contents undefined; null when there is none.
inline void* Allocate(size_t bytes) { return allocationGate && allocationGate() ? nullptr : std::malloc(bytes); }

// The same for one cleared record.
template <class T>
T* AllocateRecord() {
    return allocationGate && allocationGate() ? nullptr : static_cast<T*>(std::calloc(1, sizeof(T)));
}

// Gives memory back; null is ignored.
inline void Free(void* memory) { std::free(memory); }

}   // namespace pal
