// From a glyph's bytes to commands.
//
// A plan tells the pieces of a character, one for a simple glyph and one for each component of a compound that shows
// something, with where their runs lie, their transforms and the bytes that the commands come to. It is made once for
// a character and kept in the font's index; an outline is then one block of just that size and one walk over the runs.
// A compound of more pieces than a plan has room for is written while it is read, into a block that grows.
#define KQ_MODULE "Source/TrueTypeOutline"
#include "Source/TrueTypeOutline.h"

#include <cstddef>
#include <cstring>

#include "Source/Alloc.h"
#include "Source/TrueTypeRuns.h"
#include "kq/environment.h"

namespace kq::truetype {

namespace {

// x and y side by side.
typedef f64 Pair __attribute__((vector_size(16)));

Pair Both(f64 value) { return Pair{value, value}; }

Pair Middle(Pair p, Pair q) { return (p + q) * Both(0.5); }

constexpr f64 kSlant = 0.175;

// One simple glyph and where its points go.
struct Piece {
    Runs runs;
    f64 a, b, d, e;       // the matrix, scales included
    f64 shiftX, shiftY;   // from the character's origin, pixels
    u32 left, top;        // what is taken off x, and what y is taken off; 32 bits that wrap
    bool oblique;
    bool straight;   // the matrix only scales
};

}   // namespace

// The most pieces of a plan. Accented letters have two or three.
inline constexpr u32 kMostPlanned = 8;

struct OutlinePlan {
    size_t bytes;   // of the block, its end included
    u32 pieces;
    Piece piece[kMostPlanned];   // a plan that is kept ends behind its last piece
};

namespace {

// A block that is as large as the outline will be. What would run over it is left out all the same: the font's bytes
// are the caller's to see, and may have been written to since they were counted.
class WholeBlock {
public:
    WholeBlock(u8* block, size_t bytes) : at_(block), end_(block + bytes - sizeof(KQOutlineCommand)) {}

    // Writes a command's head; returns where its values go, or null.
    template <u32 kKind>
    u8* Take() {
        const KQOutlineCommand head = {kKind, 0};
        constexpr size_t bytes = sizeof head + KQOutlineCount(kKind) * sizeof(f64);
        if (size_t(end_ - at_) < bytes) [[unlikely]]
            return nullptr;
        u8* values = at_ + sizeof head;
        std::memcpy(at_, &head, sizeof head);
        at_ += bytes;
        return values;
    }

    // Writes the end mark, whose room is kept.
    void Finish() {
        const KQOutlineCommand head = {KQOUTLINE_END, 0};
        std::memcpy(at_, &head, sizeof head);
    }

private:
    u8* at_;
    u8* end_;
};

// A block that grows. A command that finds no room is left out.
class GrowingBlock {
public:
    GrowingBlock() = default;
    ~GrowingBlock() { KQ_FREE(block_); }
    GrowingBlock(const GrowingBlock&) = delete;
    GrowingBlock& operator=(const GrowingBlock&) = delete;

    // Writes a command's head; returns where its values go, or null.
    template <u32 kKind>
    u8* Take() {
        const KQOutlineCommand head = {kKind, 0};
        size_t bytes = sizeof head + KQOutlineCount(kKind) * sizeof(f64);
        if (bytes > room_ - used_ && !Grow()) return nullptr;
        u8* at = block_ + used_;
        std::memcpy(at, &head, sizeof head);
        used_ += bytes;
        return at + sizeof head;
    }

    // Ends the block and gives it to the caller; null when not even its end fits.
    KQOutlineCommand* Finish() {
        if (!Take<KQOUTLINE_END>()) return nullptr;
        u8* block = block_;
        block_ = nullptr;
        return reinterpret_cast<KQOutlineCommand*>(block);
    }

private:
    static constexpr size_t kStep = 1024;

    // To twice the size, so that a large outline is not moved at every step; by one step where memory is short.
    bool Grow() {
        u32 error = KQEnv->Error;
        if (room_ > kStep && Resize(room_ * 2)) return true;
        if (!Resize(room_ + kStep)) return false;
        KQEnv->Error = error;
        return true;
    }

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

    u8* block_ = nullptr;
    size_t used_ = 0;
    size_t room_ = 0;
};

void Put(u8* at, Pair pair) { std::memcpy(at, &pair, sizeof pair); }

// From steps to pixels. A straight piece leaves out what would be multiplied by zero.
template <bool kStraight>
class PointWalk {
public:
    PointWalk(const Piece& piece, f64 x, f64 y)
        : steps_(piece.runs),
          u_(0u - piece.left),
          v_(piece.top),
          first_(kStraight ? Pair{piece.a, piece.e} : Pair{piece.a, piece.d}),
          second_{piece.b, piece.e},
          origin_{x + piece.shiftX, y - piece.shiftY},
          oblique_(piece.oblique) {}

    // The next point; `*on` tells whether it lies on the curve.
    Pair Next(bool* on) {
        *on = steps_.Next(&u_, &v_);
        f64 u = i32(u_), v = i32(v_);
        if constexpr (kStraight) return Pair{u, v} * first_ + origin_;
        if (oblique_) u = u - v * kSlant;
        return Both(u) * first_ + Both(v) * second_ + origin_;
    }

private:
    StepReader steps_;
    u32 u_, v_;
    Pair first_, second_, origin_;
    bool oblique_;
};

// The pen within one contour: where the curve stands, and the control point that waits for its end.
template <class Block>
struct Pen {
    Block& block;
    Pair at;
    Pair control{};
    bool waiting = false;

    void Line(Pair p) {
        if (u8* values = block.template Take<KQOUTLINE_LINE>()) Put(values, p);
        at = p;
    }

    void Curve(Pair p) {
        if (u8* values = block.template Take<KQOUTLINE_CURVE>()) {
            Put(values, p);
            Put(values + 16, Both(2.0) * (control - at));
            Put(values + 32, Both(2.0) * (p - control));
        }
        at = p;
        waiting = false;
    }

    void OnCurve(Pair p) { waiting ? Curve(p) : Line(p); }

    // Between two controls in a row the curve passes their middle.
    void OffCurve(Pair p) {
        if (waiting) Curve(Middle(control, p));
        Hold(p);
    }

    void Hold(Pair p) {
        control = p;
        waiting = true;
    }
};

// Takes the pen through `left` points. Lines and curves have a loop each, so that each point asks one question: what it
// is itself, and not what the one before was.
template <class Block, class Walk>
void WritePoints(Pen<Block>& pen, Walk& walk, u32 left) {
    bool on;
    for (;;) {
        while (!pen.waiting) {
            if (left-- == 0) return;
            Pair p = walk.Next(&on);
            on ? pen.Line(p) : pen.Hold(p);
        }
        do {
            if (left-- == 0) return;
            Pair p = walk.Next(&on);
            pen.Curve(on ? p : Middle(pen.control, p));
            if (!on) pen.Hold(p);
        } while (!on);
    }
}

// Writes one contour of `count` points. One that begins with a control is begun at the next point on the curve, which
// may be the middle of the first two, and that control bends the way back to it.
template <class Block, class Walk>
void WriteContour(Block& block, Walk& walk, u32 count) {
    bool on;
    Pair first = walk.Next(&on);
    bool held = !on;
    if (held && count == 1) return;
    Pen<Block> pen{block, first};
    u32 done = 1;
    if (held) {
        Pair second = walk.Next(&on);
        done = 2;
        pen.at = on ? second : Middle(first, second);
        pen.control = second;
        pen.waiting = !on;
    }
    Pair start = pen.at;
    if (u8* values = block.template Take<KQOUTLINE_MOVE>()) Put(values, start);
    WritePoints(pen, walk, count - done);
    if (held) pen.OffCurve(first);
    pen.OnCurve(start);
    block.template Take<KQOUTLINE_CLOSE>();
}

template <bool kStraight, class Block>
void WriteRuns(Block& block, const Piece& piece, f64 x, f64 y) {
    PointWalk<kStraight> walk(piece, x, y);
    u32 done = 0;
    for (u32 i = 0; i < piece.runs.contours; ++i) {
        u32 past = Big16(piece.runs.ends + i * 2) + 1u;
        if (past > done) WriteContour(block, walk, past - done);
        done = past;
    }
}

void WritePiece(WholeBlock& block, const Piece& piece, f64 x, f64 y) {
    if (piece.straight)
        WriteRuns<true>(block, piece, x, y);
    else
        WriteRuns<false>(block, piece, x, y);
}

void WritePiece(GrowingBlock& block, const Piece& piece, f64 x, f64 y) { WriteRuns<false>(block, piece, x, y); }

// ---- The pieces of a glyph

constexpr Component kWhole = {0, 0, 0, 0, 1.0, 0.0, 0.0, 1.0};

// Fills `piece` for the simple glyph `bytes`; false when it makes no sense. A component brings its own bearing and
// least x.
bool MakePiece(const KQFont* font, u32 glyph, const Table& bytes, const Component& component, Piece* piece) {
    i16 bearing;
    if (!FindRuns(bytes, &piece->runs) || !BearingOf(font, glyph, &bearing)) return false;
    bool offset = component.flags & kArgumentsAreOffset;
    piece->a = component.a * font->scaleX;
    piece->b = component.b * font->scaleY;
    piece->d = component.d * font->scaleX;
    piece->e = component.e * font->scaleY;
    piece->shiftX = offset ? component.argument1 * font->scaleX : 0.0;
    piece->shiftY = offset ? component.argument2 * font->scaleY : 0.0;
    piece->left = u32(bytes.I16(2) - bearing);
    piece->top = u32(i16(Big16(font->headTable + 38)) - i16(Big16(font->hheaTable + 6)));
    piece->oblique = font->style & KQFONT_Oblique;
    piece->straight = !piece->oblique && component.b == 0.0 && component.d == 0.0;
    return true;
}

// Calls `take` for each piece of the glyph, until it returns false. Components that are compounds themselves are passed
// over, and so are those that show nothing. False when the glyph makes no sense or has too many points.
template <class Take>
bool EachPiece(const KQFont* font, u32 glyph, Take take) {
    Table whole;
    if (!FindGlyph(font, glyph, &whole)) return false;
    if (whole.size == 0) return true;
    Piece piece;
    if (!IsCompound(whole)) return MakePiece(font, glyph, whole, kWhole, &piece) && take(piece);
    size_t at = kGlyphHead, points = 0;
    Component component = {};
    component.flags = kMoreComponents;
    for (u32 i = 0; component.flags & kMoreComponents; ++i) {
        Table bytes;
        if (i == KQFONT_MostComponents || !ReadComponent(whole, &at, &component)) return false;
        if (!FindGlyph(font, component.glyph, &bytes)) return false;
        if (bytes.size == 0 || IsCompound(bytes)) continue;
        if (!MakePiece(font, component.glyph, bytes, component, &piece)) return false;
        points += piece.runs.points;
        if (points > KQFONT_MostPoints || !take(piece)) return false;
    }
    return true;
}

// Makes the plan of a glyph; false when there is none, or when it is too long and `*tooLong` is set.
bool MakePlan(const KQFont* font, u32 glyph, OutlinePlan* plan, bool* tooLong) {
    plan->pieces = 0;
    plan->bytes = sizeof(KQOutlineCommand);
    return EachPiece(font, glyph, [plan, tooLong](const Piece& piece) {
        *tooLong = plan->pieces == kMostPlanned;
        if (*tooLong) return false;
        plan->piece[plan->pieces++] = piece;
        plan->bytes += piece.runs.bytes;
        return true;
    });
}

// A copy of the plan in a block of its own; null, with `Error` as it was, when there is no memory for it.
OutlinePlan* KeepPlan(const OutlinePlan& plan) {
    u32 error = KQEnv->Error;
    size_t bytes = offsetof(OutlinePlan, piece) + plan.pieces * sizeof(Piece);
    auto* kept = static_cast<OutlinePlan*>(AllocMemoryKQ(bytes, 0));
    if (kept)
        std::memcpy(static_cast<void*>(kept), &plan, bytes);
    else
        KQEnv->Error = error;
    return kept;
}

// Writes the plan into a block that grows, where memory is too short for the whole at once.
KQOutlineCommand* DrawInSteps(const OutlinePlan& plan, f64 x, f64 y) {
    GrowingBlock block;
    for (u32 i = 0; i < plan.pieces; ++i) WritePiece(block, plan.piece[i], x, y);
    return block.Finish();
}

KQOutlineCommand* DrawPlan(const OutlinePlan& plan, f64 x, f64 y) {
    u32 error = KQEnv->Error;
    // The bare form, because of its speed.
    u8* bytes = static_cast<u8*>(AllocMemoryKQ(plan.bytes, 0));
    if (!bytes) {
        KQEnv->Error = error;
        return DrawInSteps(plan, x, y);
    }
    WholeBlock block(bytes, plan.bytes);
    for (u32 i = 0; i < plan.pieces; ++i) WritePiece(block, plan.piece[i], x, y);
    block.Finish();
    return reinterpret_cast<KQOutlineCommand*>(bytes);
}

KQOutlineCommand* DrawWithoutPlan(const KQFont* font, u32 glyph, f64 x, f64 y) {
    GrowingBlock block;
    bool whole = EachPiece(font, glyph, [&](const Piece& piece) {
        WritePiece(block, piece, x, y);
        return true;
    });
    return whole ? block.Finish() : nullptr;
}

}   // namespace

KQOutlineCommand* OutlineOf(KQFont* font, u8 character, f64 x, f64 y) {
    CharacterIndex* index = IndexOf(font);
    if (index && index->plans[character]) return DrawPlan(*index->plans[character], x, y);
    i32 glyph = GlyphBy(index, font, character);
    if (glyph < 0) return nullptr;
    OutlinePlan plan;
    bool tooLong = false;
    if (!MakePlan(font, u32(glyph), &plan, &tooLong))
        return tooLong ? DrawWithoutPlan(font, u32(glyph), x, y) : nullptr;
    if (index) index->plans[character] = KeepPlan(plan);
    return DrawPlan(plan, x, y);
}

}   // namespace kq::truetype
