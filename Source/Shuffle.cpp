// The tables of moves that only put bytes elsewhere, and the kernels that use them.
#include "Source/Shuffle.h"

#include <algorithm>

#include "Source/StringStores.h"

namespace kq {

namespace {

constexpr i32 kOpaque = -1;   // the byte becomes 255
constexpr i32 kStay = -2;     // the target's byte stays

// Where each byte of a target pixel comes from in the source pixel.
struct ByteMap {
    i32 from[4];
};

ByteMap MapOf(Form from, Form to) {
    if (from == to && from != Form::Bgrx) return {{0, 1, 2, 3}};
    bool argb = from == Form::Argb;
    if (to == Form::Argb) return {{kOpaque, 2, 1, 0}};
    return argb ? ByteMap{{3, 2, 1, kStay}} : ByteMap{{0, 1, 2, kStay}};
}

ByteRule RuleOf(const ByteMap& map, Form to) {
    ByteRule rule;
    std::memset(rule.keep, 255, 64);
    std::memset(rule.set, 0, 64);
    rule.stay = 0;
    i32 bytes = PixelBytes(to);
    for (i32 k = 0; k < 64 && bytes != 3; ++k) {
        i32 source = map.from[k % bytes];
        if (source == kOpaque) rule.set[k] = 255;
        if (source == kStay) rule.stay |= u64(1) << k;
        if (to == Form::Rgb555 && k % 2 == 1) rule.keep[k] = 127;
    }
    return rule;
}

void StorePlace(WideTable* table, i64 entry, i64 k, i64 place) { table->place[entry][k] = u8(place); }

void StorePlace(LaneTable* table, i64 entry, i64 k, i64 place) {
    table->place[entry][k] = place < 16 ? u8(place) : 0x80;
    table->place[entry][16 + k] = place < 16 ? 0x80 : u8(place - 16);
}

// Walks the target bytes of a strip with the source byte of each.
class ByteWalk {
public:
    ByteWalk(const Sampling& work, const ByteMap& map, i64 first, i32 targetBytes)
        : work_(work), map_(map), position_(work.startX + first * work.stepX), targetBytes_(targetBytes) {
        TakeColumn();
    }

    i64 PixelStart() const { return column_; }
    i64 Place() const { return column_ + std::max(map_.from[channel_], 0); }

    void Next() {
        if (++channel_ < targetBytes_) return;
        channel_ = 0;
        position_ += work_.stepX;
        TakeColumn();
    }

private:
    void TakeColumn() { column_ = (position_ >> 16) * work_.fromBytes; }

    const Sampling& work_;
    const ByteMap& map_;
    i64 position_;
    i64 column_ = 0;
    i32 targetBytes_;
    i32 channel_ = 0;
};

template <class Table>
bool FillTable(const Sampling& work, Form from, Form to, i64 first, i64 count, i64 head, i64 window, Table* table) {
    if (work.rowLength < window || work.stepX < 0) return false;
    ByteMap map = MapOf(from, to);
    i32 targetBytes = PixelBytes(to);
    table->rule = RuleOf(map, to);
    table->bytes = count * targetBytes;
    table->head = head;
    ByteWalk walk(work, map, first, targetBytes);
    i64 done = 0;
    for (i64 entry = 0; done < table->bytes; ++entry) {
        i64 bytes = std::min(entry == 0 ? head : Table::kSize, table->bytes - done);
        i64 start = std::min(walk.PixelStart(), work.rowLength - window);
        table->window[entry] = i32(start);
        std::memset(table->place[entry], 0, sizeof table->place[entry]);
        for (i64 k = 0; k < bytes; ++k, walk.Next()) {
            i64 place = walk.Place() - start;
            if (place >= window) return false;
            StorePlace(table, entry, k, place);
        }
        done += bytes;
    }
    return true;
}

}   // namespace

bool IsShuffle(Form from, Form to) {
    if (from == Form::Byte || to == Form::Byte || from == Form::Rgb555 || to == Form::Rgb555) return from == to;
    return true;
}

bool MakeTable(const Sampling& work, Form from, Form to, i64 first, i64 count, i64 head, i64 window, WideTable* table) {
    return FillTable(work, from, to, first, count, head, window, table);
}

bool MakeTable(const Sampling& work, Form from, Form to, i64 first, i64 count, i64 head, i64 window, LaneTable* table) {
    return FillTable(work, from, to, first, count, head, window, table);
}

#if defined(KQ_SIMD_X86)

namespace {

// The bytes of one entry, in place, out of a window of 1, 2 or 4 registers.
template <i32 registers>
KQ_TARGET_AVX512 inline __m512i Permuted(const WideTable& table, i64 entry, const u8* from) {
    const u8* window = from + table.window[entry];
    __m512i places = _mm512_load_si512(table.place[entry]);
    __m512i low = _mm512_loadu_si512(window);
    __m512i bytes;
    if constexpr (registers == 1)
        bytes = _mm512_permutexvar_epi8(places, low);
    else
        bytes = _mm512_permutex2var_epi8(low, places, _mm512_loadu_si512(window + 64));
    if constexpr (registers == 4) {
        __m512i high =
            _mm512_permutex2var_epi8(_mm512_loadu_si512(window + 128), places, _mm512_loadu_si512(window + 192));
        bytes = _mm512_mask_mov_epi8(bytes, _mm512_movepi8_mask(places), high);
    }
    bytes = _mm512_and_si512(bytes, _mm512_load_si512(table.rule.keep));
    return _mm512_or_si512(bytes, _mm512_load_si512(table.rule.set));
}

// An entry of fewer bytes, or one with bytes that stay.
template <i32 registers>
KQ_TARGET_AVX512 inline void PermutePart(const WideTable& table, i64 entry, i64 bytes, const u8* from, u8* to) {
    u64 written = (bytes == 64 ? ~u64(0) : (u64(1) << bytes) - 1) & ~table.rule.stay;
    _mm512_mask_storeu_epi8(to, written, Permuted<registers>(table, entry, from));
}

template <i32 registers>
inline void PrefetchWindow(const u8* window) {
    for (i32 k = 0; k < registers; ++k) PrefetchForRead(window + k * 64);
}

template <i32 registers, bool stream>
KQ_TARGET_AVX512 void PermuteRow(const WideTable& table, const SourceBytes& row, u8* to) {
    const u8* from = row.from;
    i64 head = std::min(table.head, table.bytes);
    PermutePart<registers>(table, 0, head, from, to);
    i64 whole = (table.bytes - head) / 64, entry = 1;
    u8* place = to + head;
    // Where bytes stay, the target is fetched whatever is done, and is asked for ahead.
    for (; table.rule.stay != 0 && entry <= whole; ++entry, place += 64) {
        PrefetchWindow<registers>(from + table.window[entry] + row.ahead);
        PrefetchForWrite(place + row.targetAhead);
        _mm512_mask_storeu_epi8(place, ~table.rule.stay, Permuted<registers>(table, entry, from));
    }
    for (; entry <= whole; ++entry, place += 64) {
        PrefetchWindow<registers>(from + table.window[entry] + row.ahead);
        __m512i bytes = Permuted<registers>(table, entry, from);
        if constexpr (stream)
            _mm512_stream_si512(reinterpret_cast<__m512i*>(place), bytes);
        else
            _mm512_storeu_si512(place, bytes);
    }
    i64 left = to + table.bytes - place;
    if (left > 0) PermutePart<registers>(table, entry, left, from, place);
}

}   // namespace

void ShuffleRowAvx512(const WideTable& table, i64 window, const SourceBytes& row, u8* to, bool stream) {
    if (window > 128)
        stream ? PermuteRow<4, true>(table, row, to) : PermuteRow<4, false>(table, row, to);
    else if (window > 64)
        stream ? PermuteRow<2, true>(table, row, to) : PermuteRow<2, false>(table, row, to);
    else
        stream ? PermuteRow<1, true>(table, row, to) : PermuteRow<1, false>(table, row, to);
}

namespace {

KQ_TARGET_AVX2 inline __m128i Lane(const LaneTable& table, i64 entry, const u8* from) {
    const u8* window = from + table.window[entry];
    const u8* places = table.place[entry];
    __m128i low = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(window)),
                                   _mm_load_si128(reinterpret_cast<const __m128i*>(places)));
    __m128i high = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(window + 16)),
                                    _mm_load_si128(reinterpret_cast<const __m128i*>(places + 16)));
    __m128i bytes =
        _mm_and_si128(_mm_or_si128(low, high), _mm_load_si128(reinterpret_cast<const __m128i*>(table.rule.keep)));
    return _mm_or_si128(bytes, _mm_load_si128(reinterpret_cast<const __m128i*>(table.rule.set)));
}

// An entry of fewer bytes, or one with bytes that stay.
KQ_TARGET_AVX2 void LanePart(const LaneTable& table, i64 entry, i64 bytes, const u8* from, u8* to) {
    alignas(16) u8 lane[16];
    _mm_store_si128(reinterpret_cast<__m128i*>(lane), Lane(table, entry, from));
    for (i64 k = 0; k < bytes; ++k)
        if (!(table.rule.stay >> k & 1)) to[k] = lane[k];
}

}   // namespace

KQ_TARGET_AVX2 void ShuffleRowAvx2(const LaneTable& table, const SourceBytes& row, u8* to, bool stream) {
    const u8* from = row.from;
    i64 head = std::min(table.head, table.bytes);
    LanePart(table, 0, head, from, to);
    i64 whole = (table.bytes - head) / 16, entry = 1;
    u8* place = to + head;
    // Of the lanes' bytes that stay, one in four or none do.
    __m128i stay = table.rule.stay ? _mm_set1_epi32(i32(0xFF000000)) : _mm_setzero_si128();
    for (; entry <= whole; ++entry, place += 16) {
        __m128i* target = reinterpret_cast<__m128i*>(place);
        PrefetchForRead(from + table.window[entry] + row.ahead);
        __m128i bytes = Lane(table, entry, from);
        if (table.rule.stay) bytes = _mm_blendv_epi8(bytes, _mm_loadu_si128(target), stay);
        if (stream)
            _mm_stream_si128(target, bytes);
        else
            _mm_storeu_si128(target, bytes);
    }
    i64 left = to + table.bytes - place;
    if (left > 0) LanePart(table, entry, left, from, place);
}

#else

void ShuffleRowAvx512(const WideTable&, i64, const SourceBytes&, u8*, bool) {}

void ShuffleRowAvx2(const LaneTable&, const SourceBytes&, u8*, bool) {}

#endif

}   // namespace kq
