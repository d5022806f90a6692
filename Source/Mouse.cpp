// The ring of pointer messages that keeps every point of a fast stroke.
#define KQ_MODULE "Source/Mouse"
#include "Source/Alloc.h"
#include "Source/Startup.h"
#include "kq/environment.h"

namespace {

constexpr size_t kSlots = 200;

// One native message record: window, message, two parameters, time and position.
struct RawMessage {
    uptr words[7];
};

}   // namespace

namespace kq {

int CreateMouseQueue() {
    RawMessage* ring = static_cast<RawMessage*>(KQ_ALLOC(kSlots * sizeof(RawMessage), KQMEM_Clear));
    if (!ring) return 0;
    KQEnv->MouseQueue = {ring, ring, ring + kSlots, ring};
    return 1;
}

void FreeMouseQueue() {
    KQ_FREE(KQEnv->MouseQueue.Base);
    KQEnv->MouseQueue = {};
}

}   // namespace kq
