// The library's own way to the memory manager: guarded, with the module's name and the line.
#pragma once

#include "kq/memory.h"

// Each source defines KQ_MODULE, its name as reports show it ("Source/Lists"), before it includes this header.
#define KQ_ALLOC(size, flags) AllocMemoryKQ((size), (flags), KQ_MODULE, static_cast<i16>(__LINE__))
#define KQ_FREE(block) FreeMemoryKQ((block), KQ_MODULE, static_cast<i16>(__LINE__))

// A cleared record of type T, null when out of memory.
#define KQ_NEW(T) static_cast<T*>(KQ_ALLOC(sizeof(T), KQMEM_Clear))
