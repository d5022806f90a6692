// Font files: whatever the bytes say, listing, opening and every call on all characters end without a fault.
#include <cstdlib>
#include <cstring>

#include "Source/FontFiles.h"
#include "Source/TrueTypeIndex.h"
#include "kq/environment.h"
#include "kq/font.h"
#include "kq/memory.h"

namespace {

void Start() {
    if (KQEnv) return;
    static TagItem tags[] = {{KQTAG_InitNoWindow, 0}, {KQTAG_End, 0}};
    if (!InitKQ(nullptr, nullptr, nullptr, nullptr, nullptr, tags)) std::abort();
    std::atexit(CleanUpKQ);
}

// Walks the whole block, which must end within what was allocated for it.
void Walk(const KQOutlineCommand* command) {
    f64 sum = 0;
    const KQOutlineCommand* block = command;
    for (; command && command->kind != KQOUTLINE_END; command = KQNextOutline(command))
        for (u32 i = 0; i < KQOutlineCount(command->kind); ++i) sum += KQOutlineValues(command)[i];
    if (block &&
        size_t(command + 1 - block) * sizeof *block > (reinterpret_cast<const KQBlockHeader*>(block) - 1)->Size)
        std::abort();
    volatile f64 keep = sum;
    (void)keep;
}

void UseAll(KQFont* font) {
    f64 x, y;
    for (int c = 0; c < 256; ++c) {
        KQOutlineCommand* block = GetFontOutlineKQ(u8(c), font, 1.0, 2.0);
        Walk(block);
        FreeMemoryKQ(block);
        // Once more by what the font has learnt.
        block = GetFontOutlineKQ(u8(c), font, -1.0, 0.0);
        Walk(block);
        FreeMemoryKQ(block);
        GetCursorAdvanceKQ(u8(c), font, &x, &y);
        GetKernKQ(font, u8(c), u8(c * 7), &x, &y);
    }
    GetLineAdvanceKQ(font);
}

}   // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
    Start();
    // A copy of exactly this size, so that a read behind it is seen.
    u8* copy = static_cast<u8*>(std::malloc(size ? size : 1));
    std::memcpy(copy, data, size);
    kq::EnumerateFontFaces(
        {copy, size}, "", [](const pal::FontFace&, void*) { return true; }, nullptr);
    for (u32 face = 0; face < 2; ++face) {
        KQFont font = {};
        font.fontData = copy;
        font.fontBytes = size;
        font.pointSize = 12;
        font.resolutionX = font.resolutionY = 96;
        font.style = i32(face) * KQFONT_Oblique;
        size_t directory;
        if (!kq::truetype::FindDirectory({copy, size}, face, &directory)) break;
        if (!kq::truetype::UseFontData(&font, directory)) continue;
        font.state = KQFONT_Open;
        UseAll(&font);
        kq::truetype::FreeIndex(&font);
    }
    std::free(copy);
    return 0;
}
