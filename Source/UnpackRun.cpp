// The unpacker.
//
// Packets are short and of any length, so that what costs is the guess at how long the next one is. While input and
// output have room for a whole packet the wide forms write at least one vector a packet whatever its length; the next
// packet writes over what was too much. The plain form goes to the value, and is what the wide ones are held to.
#include <cstring>

#include "Source/PackRun.h"

namespace kq {

namespace {

constexpr i32 kMostValues = 128;   // of a packet

// A whole packet's worth and a vector may be written and read ahead of what is used.
constexpr size_t kPacketRoom = kMostValues + 32;

// How a value of `kIn` bytes comes out: as it is, or as an opaque pixel.
template <i32 Size>
struct Value {
    static constexpr size_t kIn = Size, kOut = Size;
    static void Put(u8* out, const u8* value) { std::memcpy(out, value, Size); }
};

struct Grey {
    static constexpr size_t kIn = 1, kOut = 4;
    static void Put(u8* out, const u8* value) {
        const u8 pixel[4] = {255, *value, *value, *value};
        std::memcpy(out, pixel, 4);
    }
};

struct Triple {
    static constexpr size_t kIn = 3, kOut = 4;
    static void Put(u8* out, const u8* value) {
        const u8 pixel[4] = {255, value[0], value[1], value[2]};
        std::memcpy(out, pixel, 4);
    }
};

#if defined(KQ_SIMD_X86)

#define KQ_INLINE static inline __attribute__((always_inline))

inline u32 Load32(const u8* at) {
    u32 word;
    std::memcpy(&word, at, 4);
    return word;
}

// The wide forms: a vector of `kStep` values as they come out, of a literal packet's values or of one that repeats.
template <i32 Size>
struct Value256 : Value<Size> {
    static constexpr size_t kStep = Size == 3 ? 10 : 32 / Size;
    KQ_INLINE KQ_TARGET_AVX2 __m256i Literal(const u8* from) {
        return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from));
    }
    KQ_INLINE KQ_TARGET_AVX2 __m256i Run(const u8* value) {
        if constexpr (Size == 1) return _mm256_set1_epi8(char(*value));
        if constexpr (Size == 2) return _mm256_set1_epi16(short(Load32(value)));
        if constexpr (Size == 4) return _mm256_set1_epi32(i32(Load32(value)));
        const __m256i thirds = _mm256_setr_epi8(0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2,
                                                0, 1, 2, 0, 1, 2, 0, 1);
        return _mm256_shuffle_epi8(_mm256_set1_epi32(i32(Load32(value))), thirds);
    }
};

struct Grey256 : Grey {
    static constexpr size_t kStep = 8;
    KQ_INLINE KQ_TARGET_AVX2 __m256i Literal(const u8* from) {
        const __m256i spread = _mm256_setr_epi8(-1, 0, 0, 0, -1, 1, 1, 1, -1, 2, 2, 2, -1, 3, 3, 3, -1, 4, 4, 4, -1, 5,
                                                5, 5, -1, 6, 6, 6, -1, 7, 7, 7);
        long long eight;
        std::memcpy(&eight, from, 8);
        return _mm256_or_si256(_mm256_shuffle_epi8(_mm256_set1_epi64x(eight), spread), _mm256_set1_epi32(255));
    }
    KQ_INLINE KQ_TARGET_AVX2 __m256i Run(const u8* value) { return _mm256_set1_epi32(i32(*value * 0x01010100u | 255)); }
};

struct Triple256 : Triple {
    static constexpr size_t kStep = 8;
    KQ_INLINE KQ_TARGET_AVX2 __m256i Literal(const u8* from) {
        const __m256i spread = _mm256_setr_epi8(-1, 0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1, 0, 1, 2, -1,
                                                3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11);
        __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
        __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + 12));
        __m256i both = _mm256_inserti128_si256(_mm256_castsi128_si256(low), high, 1);
        return _mm256_or_si256(_mm256_shuffle_epi8(both, spread), _mm256_set1_epi32(255));
    }
    KQ_INLINE KQ_TARGET_AVX2 __m256i Run(const u8* value) { return _mm256_set1_epi32(i32(Load32(value) << 8 | 255)); }
};

template <i32 Size>
struct Value512 : Value<Size> {
    static constexpr size_t kStep = 64 / Size;
    KQ_INLINE KQ_TARGET_AVX512 __m512i Literal(const u8* from) { return _mm512_loadu_si512(from); }
    KQ_INLINE KQ_TARGET_AVX512 __m512i Run(const u8* value) {
        if constexpr (Size == 1) return _mm512_set1_epi8(char(*value));
        return _mm512_set1_epi32(i32(Load32(value)));
    }
};

struct Grey512 : Grey {
    static constexpr size_t kStep = 16;
    KQ_INLINE KQ_TARGET_AVX512 __m512i Literal(const u8* from) {
        const __m512i ones = _mm512_set1_epi32(0x01010100);
        __m128i sixteen = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
        return _mm512_or_si512(_mm512_mullo_epi32(_mm512_cvtepu8_epi32(sixteen), ones), _mm512_set1_epi32(255));
    }
    KQ_INLINE KQ_TARGET_AVX512 __m512i Run(const u8* value) {
        return _mm512_set1_epi32(i32(*value * 0x01010100u | 255));
    }
};

struct Triple512 : Triple {
    static constexpr size_t kStep = 16;
    // Byte k of pixel p is byte 3p + k - 1 of the values; that of alpha is overwritten.
    KQ_INLINE KQ_TARGET_AVX512 __m512i Literal(const u8* from) {
        const __m512i spread = _mm512_setr_epi32(0x02010000, 0x05040300, 0x08070600, 0x0B0A0900, 0x0E0D0C00, 0x11100F00,
                                                 0x14131200, 0x17161500, 0x1A191800, 0x1D1C1B00, 0x201F1E00, 0x23222100,
                                                 0x26252400, 0x29282700, 0x2C2B2A00, 0x2F2E2D00);
        __m512i triples = _mm512_loadu_si512(from);
        return _mm512_or_si512(_mm512_permutexvar_epi8(spread, triples), _mm512_set1_epi32(255));
    }
    KQ_INLINE KQ_TARGET_AVX512 __m512i Run(const u8* value) { return _mm512_set1_epi32(i32(Load32(value) << 8 | 255)); }
};

KQ_INLINE KQ_TARGET_AVX2 void Store(u8* to, __m256i vector) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), vector);
}

KQ_INLINE KQ_TARGET_AVX512 void Store(u8* to, __m512i vector) { _mm512_storeu_si512(to, vector); }

// Whole packets while input and output have room for any: the values written. The output may be written up to a vector
// behind each packet; the input left over holds enough values to write that part again.
#define KQ_PACKETS(name, target)                                                                 \
    template <class Form>                                                                        \
    target size_t name(const u8** in, const u8* end, u8* out, size_t want) {                     \
        constexpr size_t kStepIn = Form::kStep * Form::kIn, kStepOut = Form::kStep * Form::kOut; \
        constexpr size_t kRoomIn = 1 + kPacketRoom * Form::kIn + 128;                            \
        const u8* from = *in;                                                                    \
        size_t done = 0;                                                                         \
        while (want - done >= kPacketRoom && size_t(end - from) >= kRoomIn) {                    \
            u32 control = *from++;                                                               \
            size_t count = (control & 127) + 1;                                                  \
            u8 *to = out + done * Form::kOut, *stop = to + count * Form::kOut;                   \
            done += count;                                                                       \
            if (control & 128) {                                                                 \
                const u8* at = from;                                                             \
                from += count * Form::kIn;                                                       \
                for (; to < stop; to += kStepOut, at += kStepIn) Store(to, Form::Literal(at));   \
            } else {                                                                             \
                auto vector = Form::Run(from);                                                   \
                from += Form::kIn;                                                               \
                for (; to < stop; to += kStepOut) Store(to, vector);                             \
            }                                                                                    \
        }                                                                                        \
        *in = from;                                                                              \
        return done;                                                                             \
    }

KQ_PACKETS(Packets256, KQ_TARGET_AVX2)
KQ_PACKETS(Packets512, KQ_TARGET_AVX512)

#endif

// What is at hand of the packet that is open, up to `want` values.
template <class Form>
size_t UnpackOpenPacket(RunUnpacker* unpacker, const u8** in, const u8* end, u8* out, size_t want) {
    size_t count = size_t(unpacker->count) < want ? size_t(unpacker->count) : want;
    if (unpacker->run) {
        for (size_t i = 0; i < count; ++i) Form::Put(out + i * Form::kOut, unpacker->value);
    } else {
        size_t there = size_t(end - *in) / Form::kIn;
        if (there < count) count = there;
        for (size_t i = 0; i < count; ++i) Form::Put(out + i * Form::kOut, *in + i * Form::kIn);
        *in += count * Form::kIn;
    }
    unpacker->count -= i32(count);
    return count;
}

// Opens the next packet; false when the input does not hold its control byte and first value.
template <class Form>
bool OpenPacket(RunUnpacker* unpacker, const u8** in, const u8* end) {
    if (size_t(end - *in) < 1 + Form::kIn) return false;
    u32 control = *(*in)++;
    unpacker->count = i32(control & 127) + 1;
    unpacker->run = control < 128;
    if (!unpacker->run) return true;
    std::memcpy(unpacker->value, *in, Form::kIn);
    *in += Form::kIn;
    return true;
}

using Packets = size_t (*)(const u8** in, const u8* end, u8* out, size_t want);

// `packets` (may be null) takes whole packets where there is room for any.
template <class Form>
size_t Unpack(RunUnpacker* unpacker, Packets packets, const u8** in, const u8* end, u8* out, size_t want) {
    size_t done = 0;
    while (done < want) {
        if (unpacker->count == 0) {
            if (packets) done += packets(in, end, out + done * Form::kOut, want - done);
            if (done == want || !OpenPacket<Form>(unpacker, in, end)) break;
        }
        size_t got = UnpackOpenPacket<Form>(unpacker, in, end, out + done * Form::kOut, want - done);
        if (got == 0) break;
        done += got;
    }
    return done;
}

#if defined(KQ_SIMD_X86)
template <class Narrow, class Wide>
Packets PacketsFor(Simd level) {
    if (level == Simd::Avx512) return Packets512<Wide>;
    return level == Simd::Avx2 ? Packets256<Narrow> : nullptr;
}

// Values that no vector of 64 bytes holds a whole number of.
template <class Narrow>
Packets PacketsFor(Simd level) {
    return level == Simd::Plain ? nullptr : Packets256<Narrow>;
}
#define KQ_PACKETS_FOR(...) PacketsFor<__VA_ARGS__>(level)
#else
#define KQ_PACKETS_FOR(...) nullptr
#endif

}   // namespace

size_t UnpackRuns(RunUnpacker* unpacker, i32 size, const u8** in, const u8* end, u8* out, size_t want, Simd level) {
    (void)level;
    using One = Value<1>;
    switch (size) {
    case 1: return Unpack<One>(unpacker, KQ_PACKETS_FOR(Value256<1>, Value512<1>), in, end, out, want);
    case 2: return Unpack<Value<2>>(unpacker, KQ_PACKETS_FOR(Value256<2>), in, end, out, want);
    case 3: return Unpack<Value<3>>(unpacker, KQ_PACKETS_FOR(Value256<3>), in, end, out, want);
    default: return Unpack<Value<4>>(unpacker, KQ_PACKETS_FOR(Value256<4>, Value512<4>), in, end, out, want);
    }
}

size_t UnpackGreyPixels(RunUnpacker* unpacker, const u8** in, const u8* end, u8* pixels, size_t want, Simd level) {
    (void)level;
    return Unpack<Grey>(unpacker, KQ_PACKETS_FOR(Grey256, Grey512), in, end, pixels, want);
}

size_t UnpackTriplePixels(RunUnpacker* unpacker, const u8** in, const u8* end, u8* pixels, size_t want, Simd level) {
    (void)level;
    return Unpack<Triple>(unpacker, KQ_PACKETS_FOR(Triple256, Triple512), in, end, pixels, want);
}

}   // namespace kq
