// Kerning and advances of characters, and the calls of include/kq/font.h that look into an open font.
#include "Source/TrueTypeOutline.h"

namespace kq::truetype {

namespace {

// The glyph whose advance counts: a component may lend its own.
u32 MetricsGlyph(const KQFont* font, u32 glyph) {
    Table bytes;
    if (!FindGlyph(font, glyph, &bytes) || !IsCompound(bytes)) return glyph;
    size_t at = kGlyphHead;
    Component component;
    for (u32 i = 0; i < KQFONT_MostComponents && ReadComponent(bytes, &at, &component); ++i) {
        if (component.flags & kUseMyMetrics) glyph = component.glyph;
        if (!(component.flags & kMoreComponents)) break;
    }
    return glyph;
}

constexpr size_t kKernPairs = 18, kKernPair = 6;

// The pairs of the first subtable, as many as there are room for.
struct KernPairs {
    const u8* pairs;
    u32 count;

    u32 Key(u32 i) const { return kq::Big32(pairs + i * kKernPair); }

    i16 Value(u32 i) const { return i16(kq::Big16(pairs + i * kKernPair + 4)); }

    // The value of `key` among the pairs from `low` to in front of `high`.
    i16 Find(u32 key, u32 low, u32 high) const {
        while (low < high) {
            u32 middle = (low + high) / 2, pair = Key(middle);
            if (pair == key) return Value(middle);
            pair < key ? low = middle + 1 : high = middle;
        }
        return 0;
    }
};

KernPairs PairsOf(const KQFont* font) {
    Table kern = {font->kernTable, font->sizes.kern};
    if (!kern.data || !kern.Has(0, kKernPairs) || kern.U16(2) == 0) return {nullptr, 0};
    u32 claimed = kern.U16(10), room = u32((kern.size - kKernPairs) / kKernPair);
    return {kern.data + kKernPairs, claimed < room ? claimed : room};
}

// Whether every key is larger than the one before. Only then a narrowed search finds what a whole one finds.
bool IsOrdered(const KernPairs& pairs) {
    for (u32 i = 1; i < pairs.count; ++i)
        if (pairs.Key(i) <= pairs.Key(i - 1)) return false;
    return true;
}

// The first pair whose key is not below `key`.
u32 LowerBound(const KernPairs& pairs, u64 key) {
    u32 low = 0, high = pairs.count;
    while (low < high) {
        u32 middle = (low + high) / 2;
        pairs.Key(middle) < key ? low = middle + 1 : high = middle;
    }
    return low;
}

// Fills the index' ranges. A table out of order gives every character all pairs, so that the search takes the way of a
// search over the whole.
void FillKernRanges(const KQFont* font, const KernPairs& pairs, CharacterIndex* index) {
    bool ordered = IsOrdered(pairs);
    for (u32 c = 0; c < 256; ++c) {
        i32 glyph = GlyphBy(index, font, u8(c));
        u32 first = 0, end = pairs.count;
        if (glyph < 0) {
            end = 0;
        } else if (ordered) {
            first = LowerBound(pairs, u64(glyph) << 16);
            end = LowerBound(pairs, u64(glyph + 1) << 16);
        }
        index->kernFirst[c] = u16(first);
        index->kernCount[c] = u16(end - first);
    }
    index->kernReady = true;
}

// The kerning of two characters in font units.
i16 KernOf(KQFont* font, u8 left, u8 right) {
    KernPairs pairs = PairsOf(font);
    if (pairs.count == 0) return 0;
    CharacterIndex* index = IndexOf(font);
    i32 first = GlyphBy(index, font, left), second = GlyphBy(index, font, right);
    if (first < 0 || second < 0) return 0;
    u32 key = u32(first) << 16 | u32(second);
    if (!index) return pairs.Find(key, 0, pairs.count);
    if (!index->kernReady) FillKernRanges(font, pairs, index);
    return pairs.Find(key, index->kernFirst[left], u32(index->kernFirst[left]) + index->kernCount[left]);
}

bool IsOpen(const KQFont* font) { return font && (font->state & KQFONT_Open); }

// Sets an output that may be null.
void Set(f64* out, f64 value) {
    if (out) *out = value;
}

}   // namespace

}   // namespace kq::truetype

using namespace kq::truetype;

KQOutlineCommand* GetFontOutlineKQ(u8 character, KQFont* font, f64 x, f64 y) {
    return IsOpen(font) ? OutlineOf(font, character, x, y) : nullptr;
}

void GetKernKQ(KQFont* font, u8 left, u8 right, f64* x, f64* y) {
    Set(x, 0.0);
    Set(y, 0.0);
    if (IsOpen(font)) Set(x, KernOf(font, left, right) * font->scaleX);
}

void GetCursorAdvanceKQ(u8 character, KQFont* font, f64* x, f64* y) {
    Set(x, 0.0);
    Set(y, 0.0);
    i32 glyph = IsOpen(font) ? GlyphBy(IndexOf(font), font, character) : -1;
    if (glyph >= 0) Set(x, AdvanceOf(font, MetricsGlyph(font, u32(glyph))) * font->scaleX);
}

f64 GetLineAdvanceKQ(KQFont* font) {
    if (!IsOpen(font)) return 0.0;
    auto word = [font](size_t offset) { return i32(i16(kq::Big16(font->hheaTable + offset))); };
    return (word(8) + word(4) - word(6)) * font->scaleY;
}
