// Outlines, kerning and opening against stb_truetype and FreeType, on DejaVu Sans from one reading of the same file.
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include <sys/mman.h>

#include "bench/Bench.h"
#include "kq/environment.h"
#include "kq/font.h"
#include "kq/memory.h"

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-function"
#define STB_TRUETYPE_IMPLEMENTATION
#define STBTT_STATIC
#include <stb/stb_truetype.h>
#pragma GCC diagnostic pop

#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_OUTLINE_H

namespace {

std::vector<u8> ReadFile(const char* path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// The same font in the three readers.
struct Readers {
    KQFont* ours;
    stbtt_fontinfo stb;
    FT_Face free;
};

void OurOutlines(KQFont* font, const std::vector<u8>& text) {
    for (u8 c : text) {
        KQOutlineCommand* block = GetFontOutlineKQ(c, font, 0.0, 0.0);
        bench::Keep(block);
        FreeMemoryKQ(block);
    }
}

size_t BytesOf(const KQOutlineCommand* block) {
    const KQOutlineCommand* end = block;
    while (end->kind != KQOUTLINE_END) end = KQNextOutline(end);
    return size_t(reinterpret_cast<const u8*>(end + 1) - reinterpret_cast<const u8*>(block));
}

// What the outlines' blocks cost without the outlines.
std::vector<size_t> BlockSizes(KQFont* font, const std::vector<u8>& text) {
    std::vector<size_t> sizes;
    for (u8 c : text) {
        KQOutlineCommand* block = GetFontOutlineKQ(c, font, 0.0, 0.0);
        sizes.push_back(BytesOf(block));
        FreeMemoryKQ(block);
    }
    return sizes;
}

void BlocksAlone(const std::vector<size_t>& sizes) {
    for (size_t size : sizes) {
        void* block = AllocMemoryKQ(size, 0);
        bench::Keep(block);
        FreeMemoryKQ(block);
    }
}

void StbOutlines(const stbtt_fontinfo* font, const std::vector<u8>& text) {
    for (u8 c : text) {
        stbtt_vertex* vertices = nullptr;
        stbtt_GetGlyphShape(font, stbtt_FindGlyphIndex(font, c), &vertices);
        bench::Keep(vertices);
        stbtt_FreeShape(font, vertices);
    }
}

// Gathers what FreeType decomposes as commands, without storing them.
struct Sink {
    f64 sum = 0;
};

int OnPoint(const FT_Vector* to, void* user) {
    static_cast<Sink*>(user)->sum += f64(to->x) + f64(to->y);
    return 0;
}

int OnConic(const FT_Vector* control, const FT_Vector* to, void* user) {
    OnPoint(control, user);
    return OnPoint(to, user);
}

int OnCubic(const FT_Vector*, const FT_Vector*, const FT_Vector*, void*) { return 0; }

void FreeOutlines(FT_Face face, const std::vector<u8>& text) {
    const FT_Outline_Funcs functions = {OnPoint, OnPoint, OnConic, OnCubic, 0, 0};
    Sink sink;
    for (u8 c : text)
        if (FT_Load_Glyph(face, FT_Get_Char_Index(face, c), FT_LOAD_NO_SCALE | FT_LOAD_NO_HINTING) == 0)
            FT_Outline_Decompose(&face->glyph->outline, &functions, &sink);
    bench::Keep(&sink);
}

void OutlineRow(const char* work, const Readers& readers, const std::vector<u8>& text) {
    std::vector<size_t> sizes = BlockSizes(readers.ours, text);
    bench::Row(work, f64(text.size()), "call",
               {{"GetFontOutlineKQ", [&] { OurOutlines(readers.ours, text); }},
                {"stb_truetype glyph shapes", [&] { StbOutlines(&readers.stb, text); }},
                {"FreeType unscaled, decomposed", [&] { FreeOutlines(readers.free, text); }},
                {"our blocks alone, taken and given back", [&] { BlocksAlone(sizes); }}},
               {{1, 1.5}, {2, 2.0}});
}

// A kern table decoded once: what the search itself costs.
struct DecodedPair {
    u32 key;
    i16 value;
};

std::vector<DecodedPair> DecodePairs(const KQFont* font) {
    std::vector<DecodedPair> pairs;
    const u8* kern = font->kernTable;
    auto word = [](const u8* at) { return u32(at[0] << 8 | at[1]); };
    for (u32 i = 0; kern && i < word(kern + 10); ++i) {
        const u8* at = kern + 18 + i * 6;
        pairs.push_back({word(at) << 16 | word(at + 2), i16(word(at + 4))});
    }
    return pairs;
}

void KerningRow(const Readers& readers) {
    std::vector<DecodedPair> pairs = DecodePairs(readers.ours);
    u32 glyphs[127];
    for (u32 c = 32; c < 127; ++c) glyphs[c] = FT_Get_Char_Index(readers.free, c);
    auto all = [](auto pair) {
        for (u32 left = 32; left < 127; ++left)
            for (u32 right = 32; right < 127; ++right) pair(left, right);
    };
    auto ours = [&](u32 left, u32 right) {
        f64 x, y;
        GetKernKQ(readers.ours, u8(left), u8(right), &x, &y);
        bench::Keep(&x);
    };
    auto theirs = [&](u32 left, u32 right) {
        FT_Vector kerning;
        FT_Get_Kerning(readers.free, glyphs[left], glyphs[right], FT_KERNING_UNSCALED, &kerning);
        bench::Keep(&kerning);
    };
    auto decoded = [&](u32 left, u32 right) {
        u32 key = glyphs[left] << 16 | glyphs[right];
        auto less = [](const DecodedPair& pair, u32 wanted) { return pair.key < wanted; };
        auto found = std::lower_bound(pairs.begin(), pairs.end(), key, less);
        i16 value = found != pairs.end() && found->key == key ? found->value : i16(0);
        bench::Keep(&value);
    };
    bench::Row("kerning of all pairs of 95 characters", 95 * 95, "call",
               {{"GetKernKQ, from characters", [&] { all(ours); }},
                {"FT_Get_Kerning, from glyphs", [&] { all(theirs); }},
                {"binary search over decoded pairs, from glyphs", [&] { all(decoded); }}},
               {{1, 2.0}});
}

void OpenRow(const char* path, KQFont* font) {
    size_t length = ReadFile(path).size();
    auto readInto = [&](u8* bytes) {
        std::ifstream file;
        file.rdbuf()->pubsetbuf(nullptr, 0);
        file.open(path, std::ios::binary);
        file.read(reinterpret_cast<char*>(bytes), std::streamsize(length));
        bench::Keep(bytes);
    };
    std::vector<u8> kept(length);
    auto read = [&] { readInto(kept.data()); };
    // What a font's block costs when its pages are new, as they are for a large block of the memory manager.
    auto readFresh = [&] {
        void* pages = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        readInto(static_cast<u8*>(pages));
        munmap(pages, length);
    };
    auto open = [&] {
        OpenFontKQ(font, 0, 12, 96, 96);
        FreeMemoryKQ(GetFontOutlineKQ('A', font, 0.0, 0.0));
        CloseFontKQ(font);
    };
    bench::Row("opening a font and its first outline", 1, "call",
               {{"OpenFontKQ", open}, {"reading the file", read}, {"reading the file into new pages", readFresh}},
               {{1, 1 / 1.2}});
}

int Run(KQFont* font) {
    std::vector<u8> bytes = ReadFile(font->fontFile);
    Readers readers = {font, {}, nullptr};
    FT_Library library;
    if (!OpenFontKQ(font, 0, 12, 96, 96) || !stbtt_InitFont(&readers.stb, bytes.data(), 0) ||
        FT_Init_FreeType(&library) ||
        FT_New_Memory_Face(library, bytes.data(), FT_Long(bytes.size()), 0, &readers.free))
        return 1;
    std::vector<u8> all, text;
    for (u32 c = 0; c < 256; ++c) all.push_back(u8(c));
    const char* sentence = "The quick brown fox jumps over the lazy dog, 1234567890 times. ";
    for (u32 i = 0; i < 1000; ++i) text.push_back(u8(sentence[i % std::strlen(sentence)]));
    OutlineRow("outlines of all 8-bit characters of DejaVu Sans (ns a character)", readers, all);
    OutlineRow("outlines of a text of 1,000 characters (ns a character)", readers, text);
    KerningRow(readers);
    FT_Done_FreeType(library);
    CloseFontKQ(font);
    OpenRow(font->fontFile, font);
    return 0;
}

}   // namespace

int main() {
    TagItem tags[] = {{KQTAG_InitNoWindow, 0}, {KQTAG_End, 0}};
    if (!InitKQ(nullptr, nullptr, nullptr, nullptr, nullptr, tags)) return 1;
    List fonts = {};
    GetAvailableFontsKQ(&fonts);
    Node* node = Find_Name(&fonts, "DejaVu Sans");
    int result = node ? Run(KQFontOfNode(node)) : 1;
    if (result) std::printf("DejaVu Sans cannot be opened; install fonts-dejavu\n");
    FreeFontListKQ(&fonts);
    CleanUpKQ();
    return result;
}
