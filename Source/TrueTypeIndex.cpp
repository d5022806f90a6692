// Making and freeing the index; the modules that use it fill it.
#define KQ_MODULE "Source/TrueTypeIndex"
#include "Source/TrueTypeIndex.h"

#include <algorithm>

#include "Source/Alloc.h"
#include "kq/environment.h"

namespace kq::truetype {

CharacterIndex* IndexOf(KQFont* font) {
    if (font->index) return static_cast<CharacterIndex*>(font->index);
    u32 error = KQEnv->Error;
    // The bare form: the guarded one fills the block before it is filled here.
    auto* index = static_cast<CharacterIndex*>(AllocMemoryKQ(sizeof(CharacterIndex), 0));
    if (!index) {
        KQEnv->Error = error;
        return nullptr;
    }
    std::fill(std::begin(index->glyphs), std::end(index->glyphs), kUnknownGlyph);
    std::fill(std::begin(index->plans), std::end(index->plans), nullptr);
    index->kernReady = false;
    font->index = index;
    return index;
}

void FreeIndex(KQFont* font) {
    auto* index = static_cast<CharacterIndex*>(font->index);
    if (!index) return;
    for (OutlinePlan* plan : index->plans) KQ_FREE(plan);
    KQ_FREE(index);
    font->index = nullptr;
}

}   // namespace kq::truetype
