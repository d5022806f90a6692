// Outlines, kerning and advances of characters.
//
// A simple glyph is three runs of bytes: flags, x steps and y steps. One pass over the flags finds where the steps
// begin, checks that all of them are there, and counts what the outline can take at most; the second pass walks all
// three runs side by side and writes commands.
#define KQ_MODULE "Source/TrueType"
#include <cstring>

#include "Source/Alloc.h"
#include "Source/TrueTypeTables.h"
#include "kq/environment.h"

namespace kq::truetype {

namespace {

constexpr f64 kSlant = 0.175;

// The most points of one character, components together.
constexpr u32 kMostPoints = 1 << 18;

// Flags of a point.
enum : u8 { kOnCurve = 1, kShortX = 2, kShortY = 4, kRepeat = 8, kSameX = 16, kSameY = 32 };

struct Point {
    f64 x, y;
};

Point Middle(Point p, Point q) { return {(p.x + q.x) * 0.5, (p.y + q.y) * 0.5}; }

// The block under construction. It is made as large as the outline can get when that is known and memory allows; it
// grows in steps of 1024 bytes otherwise, and a command that finds no room is left out.
class OutlineBlock {
public:
    OutlineBlock() = default;
    ~OutlineBlock() { KQ_FREE(block_); }
    OutlineBlock(const OutlineBlock&) = delete;
    OutlineBlock& operator=(const OutlineBlock&) = delete;

    // Makes room for `bytes` more, if there is memory. What is short here is tried again in small steps.
    void Expect(size_t bytes) {
        u32 error = KQEnv->Error;
        size_t wanted = used_ + bytes;
        if (wanted > room_ && !Resize((wanted + kStep - 1) / kStep * kStep)) KQEnv->Error = error;
    }

    void Mark(u32 kind) {
        if (f64* at = Take(kind, 0)) (void)at;
    }

    void To(u32 kind, Point p) {
        if (f64* at = Take(kind, 2)) {
            at[0] = p.x;
            at[1] = p.y;
        }
    }

    // A quadratic curve from `start` over `control` to `end`.
    void Curve(Point start, Point control, Point end) {
        if (f64* at = Take(KQOUTLINE_CURVE, 6)) {
            at[0] = end.x;
            at[1] = end.y;
            at[2] = 2.0 * (control.x - start.x);
            at[3] = 2.0 * (control.y - start.y);
            at[4] = 2.0 * (end.x - control.x);
            at[5] = 2.0 * (end.y - control.y);
        }
    }

    // Ends the block and gives it to the caller; null when not even its end fits.
    KQOutlineCommand* Finish() {
        if (!Take(KQOUTLINE_END, 0)) return nullptr;
        u8* block = block_;
        block_ = nullptr;
        return reinterpret_cast<KQOutlineCommand*>(block);
    }

private:
    static constexpr size_t kStep = 1024;

    bool Resize(size_t room) {
        // The bare form: the guarded one fills the block twice, which costs more than the whole outline.
        u8* larger = static_cast<u8*>(AllocMemoryKQ(room, 0));
        if (!larger) return false;
        if (used_) std::memcpy(larger, block_, used_);
        KQ_FREE(block_);
        block_ = larger;
        room_ = room;
        return true;
    }

    // Writes a command's head; returns where its values go, or null when there is no room.
    f64* Take(u32 kind, size_t values) {
        size_t bytes = sizeof(KQOutlineCommand) + values * sizeof(f64);
        if (bytes > room_ - used_ && !Resize(room_ + kStep)) return nullptr;
        auto* command = reinterpret_cast<KQOutlineCommand*>(block_ + used_);
        command->kind = kind;
        command->zero = 0;
        used_ += bytes;
        return reinterpret_cast<f64*>(command + 1);
    }

    u8* block_ = nullptr;
    size_t used_ = 0;
    size_t room_ = 0;
};

// From font units to pixels.
struct Transform {
    f64 a, b, d, e;   // scales included
    f64 tx, ty;
    f64 left, top;   // what is taken off x, and what y is taken off
    bool oblique;

    Point operator()(i32 px, i32 py) const {
        f64 u = px - left;
        f64 v = top - py;
        if (oblique) u = u - v * kSlant;
        return {u * a + v * b + tx, u * d + v * e + ty};
    }
};

// The runs of a simple glyph, all of whose bytes are known to be there.
struct SimpleGlyph {
    const u8* ends;
    u32 contours;
    u32 points;
    const u8* flags;
    const u8* xs;
    const u8* ys;
    size_t mostBytes;   // the outline takes no more, its end apart
};

size_t StepBytes(u8 flag, u8 isShort, u8 isSame) { return flag & isShort ? 1 : flag & isSame ? 0 : 2; }

// Walks the flags; false when a run ends outside the glyph.
bool FindRuns(const Table& glyph, size_t at, SimpleGlyph* simple) {
    simple->flags = glyph.data + at;
    size_t xBytes = 0, yBytes = 0, on = 0;
    for (u32 left = simple->points; left > 0;) {
        if (at == glyph.size) return false;
        u8 flag = glyph.data[at++];
        u32 count = 1;
        if (flag & kRepeat) {
            if (at == glyph.size) return false;
            count += glyph.data[at++];
        }
        if (count > left) return false;
        left -= count;
        xBytes += count * StepBytes(flag, kShortX, kSameX);
        yBytes += count * StepBytes(flag, kShortY, kSameY);
        on += count * (flag & kOnCurve);
    }
    if (!glyph.Has(at, xBytes + yBytes)) return false;
    simple->xs = glyph.data + at;
    simple->ys = simple->xs + xBytes;
    // A contour has a start and a close; each point ends a line or controls a curve.
    simple->mostBytes = simple->contours * size_t(32) + on * 24 + (simple->points - on) * 56;
    return true;
}

// Takes a simple glyph apart; false when it does not hold together.
bool ReadSimple(const Table& glyph, SimpleGlyph* simple) {
    if (!glyph.Has(0, kGlyphHead)) return false;
    simple->contours = u16(glyph.I16(0));
    simple->ends = glyph.data + kGlyphHead;
    size_t at = kGlyphHead + simple->contours * size_t(2);
    if (simple->contours == 0) {
        simple->points = 0;
        simple->mostBytes = 0;
        return true;
    }
    if (!glyph.Has(at, 2)) return false;
    i32 last = -1;
    for (u32 i = 0; i < simple->contours; ++i) {
        i32 end = Big16(simple->ends + i * 2);
        if (end < last) return false;
        last = end;
    }
    simple->points = u32(last + 1);
    at += 2 + size_t(glyph.U16(at));
    return at <= glyph.size && FindRuns(glyph, at, simple);
}

// Walks the points of a simple glyph.
class PointWalk {
public:
    PointWalk(const SimpleGlyph& simple, const Transform& transform)
        : flags_(simple.flags), xs_(simple.xs), ys_(simple.ys), transform_(transform) {}

    // The next point; `*on` tells whether it lies on the curve.
    Point Next(bool* on) {
        if (repeat_ > 0) {
            --repeat_;
        } else {
            flag_ = *flags_++;
            if (flag_ & kRepeat) repeat_ = *flags_++;
        }
        x_ += Step(&xs_, flag_ & kShortX, flag_ & kSameX);
        y_ += Step(&ys_, flag_ & kShortY, flag_ & kSameY);
        *on = flag_ & kOnCurve;
        return transform_(x_, y_);
    }

private:
    static i32 Step(const u8** at, bool isShort, bool same) {
        if (isShort) return same ? *(*at)++ : -i32(*(*at)++);
        if (same) return 0;
        i32 step = i16(Big16(*at));
        *at += 2;
        return step;
    }

    const u8 *flags_, *xs_, *ys_;
    const Transform& transform_;
    i32 x_ = 0, y_ = 0;
    u8 flag_ = 0;
    u32 repeat_ = 0;
};

// The pen within one contour: where the curve stands, and the control point that waits for its end.
struct Pen {
    OutlineBlock& block;
    Point at{};
    Point control{};
    bool waiting = false;

    void Line(Point p) {
        block.To(KQOUTLINE_LINE, p);
        at = p;
    }

    void Curve(Point p) {
        block.Curve(at, control, p);
        at = p;
        waiting = false;
    }

    void OnCurve(Point p) { waiting ? Curve(p) : Line(p); }

    // Between two controls in a row the curve passes their middle.
    void OffCurve(Point p) {
        if (waiting) Curve(Middle(control, p));
        control = p;
        waiting = true;
    }
};

// Writes one contour of `count` points. One that begins with a control is begun at the next point on the curve, which
// may be the middle of the first two, and that control bends the way back to it.
void WriteContour(OutlineBlock& block, PointWalk& walk, u32 count) {
    bool on;
    Point first = walk.Next(&on);
    bool held = !on;
    if (held && count == 1) return;
    Pen pen{block};
    Point start = first;
    u32 done = 1;
    if (held) {
        Point second = walk.Next(&on);
        done = 2;
        start = on ? second : Middle(first, second);
        pen.control = second;
        pen.waiting = !on;
    }
    block.To(KQOUTLINE_MOVE, start);
    pen.at = start;
    for (; done < count; ++done) {
        Point p = walk.Next(&on);
        on ? pen.OnCurve(p) : pen.OffCurve(p);
    }
    if (held) pen.OffCurve(first);
    pen.OnCurve(start);
    block.Mark(KQOUTLINE_CLOSE);
}

// What one character's outline is made with.
struct Drawing {
    KQFont* font;
    OutlineBlock block{};
    u32 points = 0;
};

// Where the glyph's own coordinates go. A component brings its own bearing and least x.
bool MakeTransform(const KQFont* font, u32 glyph, const Table& bytes, const Component& component, f64 tx, f64 ty,
                   Transform* transform) {
    i16 bearing;
    if (!BearingOf(font, glyph, &bearing)) return false;
    i32 leastX = bytes.I16(2), leastY = i16(Big16(font->headTable + 38)), descender = i16(Big16(font->hheaTable + 6));
    *transform = {component.a * font->scaleX,
                  component.b * font->scaleY,
                  component.d * font->scaleX,
                  component.e * font->scaleY,
                  tx,
                  ty,
                  f64(leastX - bearing),
                  f64(leastY - descender),
                  (font->style & KQFONT_Oblique) != 0};
    return true;
}

// Writes a glyph that is simple; false when it makes no sense or is too large.
bool DrawSimple(Drawing& drawing, u32 glyph, const Table& bytes, const Component& component, f64 tx, f64 ty) {
    SimpleGlyph simple;
    Transform transform;
    if (!ReadSimple(bytes, &simple)) return false;
    if (simple.points > kMostPoints - drawing.points) return false;
    if (!MakeTransform(drawing.font, glyph, bytes, component, tx, ty, &transform)) return false;
    drawing.points += simple.points;
    drawing.block.Expect(simple.mostBytes + sizeof(KQOutlineCommand));
    PointWalk walk(simple, transform);
    i32 last = -1;
    for (u32 i = 0; i < simple.contours; ++i) {
        i32 end = Big16(simple.ends + i * 2);
        if (end > last) WriteContour(drawing.block, walk, u32(end - last));
        last = end;
    }
    return true;
}

// Writes one component. One that is a compound itself is passed over, and so is one that shows nothing.
bool DrawComponent(Drawing& drawing, const Component& component, f64 x, f64 y) {
    Table bytes;
    if (!FindGlyph(drawing.font, component.glyph, &bytes)) return false;
    if (bytes.size == 0 || IsCompound(bytes)) return true;
    bool offset = component.flags & kArgumentsAreOffset;
    f64 tx = offset ? x + component.argument1 * drawing.font->scaleX : x;
    f64 ty = offset ? y - component.argument2 * drawing.font->scaleY : y;
    return DrawSimple(drawing, component.glyph, bytes, component, tx, ty);
}

bool DrawCompound(Drawing& drawing, const Table& glyph, f64 x, f64 y) {
    size_t at = kGlyphHead;
    for (u32 i = 0; i < kMostComponents; ++i) {
        Component component;
        if (!ReadComponent(glyph, &at, &component) || !DrawComponent(drawing, component, x, y)) return false;
        if (!(component.flags & kMoreComponents)) return true;
    }
    return false;
}

constexpr Component kWhole = {0, 0, 0, 0, 1.0, 0.0, 0.0, 1.0};

bool DrawGlyph(Drawing& drawing, u32 glyph, f64 x, f64 y) {
    Table bytes;
    if (!FindGlyph(drawing.font, glyph, &bytes)) return false;
    if (bytes.size == 0) return true;
    if (IsCompound(bytes)) return DrawCompound(drawing, bytes, x, y);
    return DrawSimple(drawing, glyph, bytes, kWhole, x, y);
}

// The glyph whose advance counts: a component may lend its own.
u32 MetricsGlyph(const KQFont* font, u32 glyph) {
    Table bytes;
    if (!FindGlyph(font, glyph, &bytes) || !IsCompound(bytes)) return glyph;
    size_t at = kGlyphHead;
    Component component;
    for (u32 i = 0; i < kMostComponents && ReadComponent(bytes, &at, &component); ++i) {
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

// Where the search for a pair of characters may begin and end. It narrows the search and holds no value.
struct KernIndex {
    i32 glyphs[256];
    u16 first[256];   // of the pairs with this character on the left
    u16 count[256];
};

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

void FillIndex(const KQFont* font, const KernPairs& pairs, KernIndex* index) {
    bool ordered = IsOrdered(pairs);
    for (u32 c = 0; c < 256; ++c) {
        i32 glyph = GlyphOf(font, u8(c));
        u32 first = 0, end = pairs.count;
        if (glyph < 0) {
            end = 0;
        } else if (ordered) {
            first = LowerBound(pairs, u64(glyph) << 16);
            end = LowerBound(pairs, u64(glyph + 1) << 16);
        }
        index->glyphs[c] = glyph;
        index->first[c] = u16(first);
        index->count[c] = u16(end - first);
    }
}

// The font's index, made at the first use; null when there is no memory for it.
const KernIndex* IndexOf(KQFont* font, const KernPairs& pairs) {
    if (font->kernIndex) return static_cast<KernIndex*>(font->kernIndex);
    u32 error = KQEnv->Error;
    auto* index = static_cast<KernIndex*>(KQ_ALLOC(sizeof(KernIndex), 0));
    if (index)
        FillIndex(font, pairs, index);
    else
        KQEnv->Error = error;
    font->kernIndex = index;
    return index;
}

// The kerning of two characters in font units.
i16 KernOf(KQFont* font, u8 left, u8 right) {
    KernPairs pairs = PairsOf(font);
    if (pairs.count == 0) return 0;
    const KernIndex* index = IndexOf(font, pairs);
    i32 first = index ? index->glyphs[left] : GlyphOf(font, left);
    i32 second = index ? index->glyphs[right] : GlyphOf(font, right);
    if (first < 0 || second < 0) return 0;
    u32 key = u32(first) << 16 | u32(second);
    if (!index) return pairs.Find(key, 0, pairs.count);
    return pairs.Find(key, index->first[left], u32(index->first[left]) + index->count[left]);
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
    if (!IsOpen(font)) return nullptr;
    i32 glyph = GlyphOf(font, character);
    if (glyph < 0) return nullptr;
    Drawing drawing{font};
    return DrawGlyph(drawing, u32(glyph), x, y) ? drawing.block.Finish() : nullptr;
}

void GetKernKQ(KQFont* font, u8 left, u8 right, f64* x, f64* y) {
    Set(x, 0.0);
    Set(y, 0.0);
    if (IsOpen(font)) Set(x, KernOf(font, left, right) * font->scaleX);
}

void GetCursorAdvanceKQ(u8 character, KQFont* font, f64* x, f64* y) {
    Set(x, 0.0);
    Set(y, 0.0);
    i32 glyph = IsOpen(font) ? GlyphOf(font, character) : -1;
    if (glyph >= 0) Set(x, AdvanceOf(font, MetricsGlyph(font, u32(glyph))) * font->scaleX);
}

f64 GetLineAdvanceKQ(KQFont* font) {
    if (!IsOpen(font)) return 0.0;
    auto word = [font](size_t offset) { return i32(i16(kq::Big16(font->hheaTable + offset))); };
    return (word(8) + word(4) - word(6)) * font->scaleY;
}
