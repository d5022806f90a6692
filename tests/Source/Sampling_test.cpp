// The fast kernels against the plain form, on random work between guard pages: nothing outside the source may be read,
// nothing outside the target be written. The public calls are held to loops that follow their description.
#include "Source/Sampling.h"

#include <cstdio>
#include <cstring>
#include <random>

#include "Source/ByteRows.h"
#include "Source/Words555.h"
#include "support/Fixture.h"
#include "support/Guarded.h"

namespace {

using kq::Form;
using kq::Simd;
using kqtest::Guarded;
using Sampling = kqtest::KQTest;

class Random {
public:
    Random() : seed_(std::random_device()()), engine_(seed_) { std::printf("seed %u\n", seed_); }

    i64 From(i64 least, i64 most) { return std::uniform_int_distribution<i64>(least, most)(engine_); }
    bool Coin() { return From(0, 1) == 1; }

    void Fill(u8* bytes, size_t count) {
        for (size_t i = 0; i < count; ++i) bytes[i] = u8(engine_());
    }

private:
    unsigned seed_;
    std::mt19937 engine_;
};

std::vector<Simd> Levels() {
    std::vector<Simd> levels{Simd::Plain};
    if (kq::BestSimd() != Simd::Plain) levels.push_back(Simd::Avx2);
    if (kq::BestSimd() == Simd::Avx512) levels.push_back(Simd::Avx512);
    return levels;
}

// Two targets in guarded memory that start alike, with random bytes or, without `random`, all the same ones.
struct TargetPair {
    Guarded plain, fast;

    TargetPair(size_t size, bool atEnd, Random* random) : plain(size, atEnd), fast(size, atEnd) {
        if (random)
            random->Fill(plain.Data(), size);
        else
            std::memset(plain.Data(), 0xEE, size);
        std::memcpy(fast.Data(), plain.Data(), size);
    }

    bool Same() const { return std::memcmp(plain.Data(), fast.Data(), plain.Size()) == 0; }
};

constexpr Form kForms[] = {Form::Argb, Form::Rgb555, Form::Bgr, Form::Bgrx};

// Bytes from a row to the next and from the block's start to the top row, rows in either direction.
struct Rows {
    i64 step, first;

    Rows(i64 length, i64 rows, Random* random) {
        i64 stride = length + random->From(0, 1) * random->From(0, 70);
        if (random->From(0, 3) == 0) stride = (length + 63) / 64 * 64;
        bool down = random->Coin();
        step = down ? stride : -stride;
        first = down ? 0 : stride * (rows - 1);
        size = stride * (rows - 1) + length;
    }

    i64 size;
};

// Where a work takes its columns and rows.
struct Steps {
    i64 startX, stepX, startY, stepY;
};

// One work on random bytes, whose source rows have `spare` columns behind the last one that is taken, checked at every
// level.
void CheckWork(Random* random, Form from, Form to, i64 fromBytes, i64 width, i64 rows, const Steps& steps, i64 spare) {
    i64 columns = ((steps.startX + (width - 1) * steps.stepX) >> 16) + 1 + spare;
    i64 lines = ((steps.startY + (rows - 1) * steps.stepY) >> 16) + 1;
    Rows source(columns * fromBytes, lines, random), target(width * kq::PixelBytes(to), rows, random);
    Guarded sourceBytes(size_t(source.size), random->Coin());
    random->Fill(sourceBytes.Data(), sourceBytes.Size());
    bool atEnd = random->Coin();
    for (Simd level : Levels()) {
        TargetPair pair(size_t(target.size), atEnd, target.size < 1000000 ? random : nullptr);
        kq::Sampling work{sourceBytes.Data() + source.first,
                          source.step,
                          columns * fromBytes,
                          i32(fromBytes),
                          pair.plain.Data() + target.first,
                          target.step,
                          width,
                          rows,
                          steps.startX,
                          steps.stepX,
                          steps.startY,
                          steps.stepY};
        kq::SamplePlain(work, from, to);
        work.to = pair.fast.Data() + target.first;
        kq::SamplePixels(work, from, to, level);
        ASSERT_TRUE(pair.Same()) << "form " << int(from) << " to " << int(to) << " level " << int(level) << ' ' << width
                                 << " x " << rows << " start " << steps.startX << " step " << steps.stepX;
    }
}

// One random work of up to `mostWidth` target columns.
void CheckRandomWork(Random* random, Form from, Form to, i64 mostWidth, i64 mostRows) {
    i64 width = random->From(1, mostWidth), rows = random->From(1, mostRows);
    i64 fromBytes = kq::PixelBytes(from);
    if (from == Form::Bgr && random->Coin()) fromBytes = random->Coin() ? 4 : 3;
    i64 stepX = random->From(0, 2) ? random->From(0, 4 * 65536) : 65536;
    i64 stepY = random->Coin() ? 65536 : random->From(0, 3 * 65536);
    i64 startX = random->Coin() ? 0 : random->From(0, 5 * 65536), startY = random->From(0, 65536);
    CheckWork(random, from, to, fromBytes, width, rows, {startX, stepX, startY, stepY}, random->From(0, 3));
}

TEST_F(Sampling, EveryPairOfFormsEqualsThePlainOneOnRandomWork) {
    Random random;
    for (Form from : kForms)
        for (Form to : kForms)
            for (int i = 0; i < 150; ++i) CheckRandomWork(&random, from, to, 300, 12);
    for (int i = 0; i < 300; ++i) CheckRandomWork(&random, Form::Byte, Form::Byte, 300, 12);
}

TEST_F(Sampling, Widths1To70EqualThePlainOnes) {
    Random random;
    for (i64 width = 1; width <= 70; ++width)
        for (Form from : kForms)
            for (Form to : kForms) {
                i64 fromBytes = kq::PixelBytes(from), length = width * fromBytes;
                Guarded source(size_t(length * 4), true);
                random.Fill(source.Data(), source.Size());
                for (Simd level : Levels()) {
                    TargetPair pair(size_t(width * kq::PixelBytes(to) * 4), true, &random);
                    kq::Sampling work{source.Data(),
                                      length,
                                      length,
                                      i32(fromBytes),
                                      pair.plain.Data(),
                                      width * kq::PixelBytes(to),
                                      width,
                                      4,
                                      0,
                                      65536,
                                      0,
                                      65536};
                    kq::SamplePlain(work, from, to);
                    work.to = pair.fast.Data();
                    kq::SamplePixels(work, from, to, level);
                    ASSERT_TRUE(pair.Same()) << width << " form " << int(from) << " to " << int(to);
                }
            }
}

TEST_F(Sampling, RowsLongerThanAStripEqualThePlainOnes) {
    Random random;
    for (Form from : kForms)
        for (Form to : kForms)
            for (int i = 0; i < 3; ++i) CheckRandomWork(&random, from, to, 9000, 5);
    CheckRandomWork(&random, Form::Byte, Form::Byte, 60000, 5);
}

TEST_F(Sampling, BigTargetsEqualThePlainOnes) {
    Random random;
    for (Form from : kForms)
        for (Form to : kForms) CheckRandomWork(&random, from, to, 700, 200);
    for (int i = 0; i < 4; ++i) CheckRandomWork(&random, Form::Byte, Form::Byte, 6000, 1800);
}

// A target that goes past the caches, with rows that are aligned or not.
void CheckStreamed(Random* random, Form from, Form to, i64 width, i64 rows) {
    i64 fromBytes = kq::PixelBytes(from), bytes = kq::PixelBytes(to);
    Guarded source(size_t(width * fromBytes), random->Coin());
    random->Fill(source.Data(), source.Size());
    bool atEnd = random->Coin();
    for (Simd level : Levels()) {
        TargetPair pair(size_t(width * bytes * rows), atEnd, nullptr);
        kq::Sampling work{source.Data(),
                          0,
                          width * fromBytes,
                          i32(fromBytes),
                          pair.plain.Data(),
                          width * bytes,
                          width,
                          rows,
                          0,
                          65536,
                          0,
                          0};
        kq::SamplePlain(work, from, to);
        work.to = pair.fast.Data();
        kq::SamplePixels(work, from, to, level);
        ASSERT_TRUE(pair.Same()) << "form " << int(from) << " to " << int(to) << ' ' << width;
    }
}

TEST_F(Sampling, TargetsThatGoPastTheCachesEqualThePlainOnes) {
    Random random;
    for (i64 width : {4096, 4099})
        for (auto [from, to] : {std::pair{Form::Argb, Form::Argb},
                                {Form::Bgr, Form::Argb},
                                {Form::Bgrx, Form::Argb},
                                {Form::Rgb555, Form::Argb}})
            CheckStreamed(&random, from, to, width, 1040);
    CheckStreamed(&random, Form::Argb, Form::Bgr, 5461, 1040);
    CheckStreamed(&random, Form::Argb, Form::Rgb555, 8192, 1040);
    CheckStreamed(&random, Form::Byte, Form::Byte, 16384, 1040);
}

TEST_F(Sampling, BigSharedTargetsEqualThePlainOnes) {
    Random random;
    KQEnv->Processors = 3;
    for (Form to : kForms) {
        i64 width = 1280 + random.From(0, 40), rows = 800, bytes = kq::PixelBytes(to);
        Guarded source(size_t(width * 4 * rows), false);
        random.Fill(source.Data(), source.Size());
        TargetPair pair(size_t(width * bytes * rows), true, &random);
        kq::Sampling work{source.Data(), width * 4, width * 4, 4, pair.plain.Data(), width * bytes, width, rows, 0,
                          65536,         0,         65536};
        kq::SamplePlain(work, Form::Argb, to);
        work.to = pair.fast.Data();
        kq::SamplePixels(work, Form::Argb, to);
        ASSERT_TRUE(pair.Same()) << int(to);
    }
}

// Every second pixel or every pixel twice, from any half pixel on, with rows that end where the last pixel does.
void CheckEven(Random* random, Form form, i64 width, i64 rows, i64 stepX) {
    i64 startX = random->From(0, 6) * 32768 + random->From(0, 1) * 77, startY = random->From(0, 65535);
    Steps steps{startX, stepX, startY, random->Coin() ? stepX : 65536};
    CheckWork(random, form, form, kq::PixelBytes(form), width, rows, steps, 0);
}

TEST_F(Sampling, HalvesAndDoublesEqualThePlainOnes) {
    Random random;
    for (i64 stepX : {131072, 32768})
        for (Form form : {Form::Byte, Form::Argb})
            for (i64 width = 1; width <= 300; ++width)
                for (int i = 0; i < 3; ++i) CheckEven(&random, form, width, random.From(1, 5), stepX);
}

TEST_F(Sampling, HalvesAndDoublesThatGoPastTheCachesEqualThePlainOnes) {
    Random random;
    for (i64 stepX : {131072, 32768}) {
        CheckEven(&random, Form::Argb, 4096 + random.From(0, 40), 1100, stepX);
        CheckEven(&random, Form::Byte, 16384 + random.From(0, 40), 1100, stepX);
    }
}

TEST_F(Sampling, EmptyWorkTouchesNothing) {
    kq::Sampling work{};
    for (Simd level : Levels()) kq::SamplePixels(work, Form::Argb, Form::Bgr, level);
    work.width = 5;
    for (Simd level : Levels()) kq::SamplePixels(work, Form::Argb, Form::Bgr, level);
}

TEST_F(Sampling, CopiesOfByteRowsEqualMemcpy) {
    Random random;
    for (int i = 0; i < 200; ++i) {
        bool big = i % 20 == 0;
        i64 bytes = random.From(1, big ? 9000 : 400), rows = random.From(1, big ? 300 : 8);
        Rows source(bytes, rows, &random), target(bytes, rows, &random);
        Guarded sourceBytes(size_t(source.size), random.Coin());
        random.Fill(sourceBytes.Data(), sourceBytes.Size());
        for (Simd level : Levels()) {
            TargetPair pair(size_t(target.size), random.Coin(), &random);
            for (i64 y = 0; y < rows; ++y)
                std::memcpy(pair.plain.Data() + target.first + y * target.step,
                            sourceBytes.Data() + source.first + y * source.step, size_t(bytes));
            kq::CopyByteRows({sourceBytes.Data() + source.first, source.step, pair.fast.Data() + target.first,
                              target.step, bytes, rows},
                             level);
            ASSERT_TRUE(pair.Same()) << bytes << " x " << rows;
        }
    }
}

TEST_F(Sampling, FillsEqualAByteLoop) {
    Random random;
    for (int i = 0; i < 400; ++i) {
        i64 bytes = i % 40 ? random.From(0, 700) : random.From(10000, 300000);
        u32 pattern = u32(random.From(0, 0xFFFFFFFF));
        if (random.Coin()) pattern = (pattern & 255) * 0x01010101u;
        for (Simd level : Levels()) {
            TargetPair pair(size_t(bytes), random.Coin(), &random);
            for (i64 k = 0; k < bytes; ++k) pair.plain.Data()[k] = u8(pattern >> k % 4 * 8);
            kq::FillBlock(pair.fast.Data(), bytes, pattern, level);
            ASSERT_TRUE(pair.Same()) << bytes;
            i64 pixels = bytes / 4;
            for (i64 k = 0; k < pixels; ++k) pair.plain.Data()[k * 4] = u8(i);
            kq::FillFirstBytes(pair.fast.Data(), pixels, u8(i), level);
            ASSERT_TRUE(pair.Same()) << bytes;
        }
    }
}

TEST_F(Sampling, FillsOfPixelRowsEqualAByteLoop) {
    Random random;
    for (int i = 0; i < 400; ++i) {
        i64 pixelBytes = random.From(1, 4), bytes = random.From(1, 200) * pixelBytes, rows = random.From(1, 9);
        Rows target(bytes, rows, &random);
        u8 pixel[4];
        random.Fill(pixel, 4);
        for (Simd level : Levels()) {
            TargetPair pair(size_t(target.size), random.Coin(), &random);
            for (i64 y = 0; y < rows; ++y)
                for (i64 k = 0; k < bytes; ++k)
                    pair.plain.Data()[target.first + y * target.step + k] = pixel[k % pixelBytes];
            kq::FillPixelRows(pair.fast.Data() + target.first, target.step, bytes, rows, pixel, pixelBytes, level);
            ASSERT_TRUE(pair.Same()) << bytes << " x " << rows;
        }
    }
}

TEST_F(Sampling, LongFillsEqualAByteLoop) {
    Random random;
    for (i64 bytes : {2047, 2048, 5000, 400000, 393216, 589824, 600001})
        for (i64 pixelBytes : {1, 2, 3, 4}) {
            i64 length = bytes / pixelBytes * pixelBytes, rows = random.From(1, 4);
            Rows target(length, rows, &random);
            u8 pixel[4];
            random.Fill(pixel, 4);
            for (Simd level : Levels()) {
                TargetPair pair(size_t(target.size), random.Coin(), nullptr);
                for (i64 y = 0; y < rows; ++y)
                    for (i64 k = 0; k < length; ++k)
                        pair.plain.Data()[target.first + y * target.step + k] = pixel[k % pixelBytes];
                kq::FillPixelRows(pair.fast.Data() + target.first, target.step, length, rows, pixel, pixelBytes, level);
                ASSERT_TRUE(pair.Same()) << length << " x " << rows << " of " << pixelBytes;
            }
        }
}

TEST_F(Sampling, CopiesOfBigByteRowsEqualMemcpy) {
    Random random;
    for (auto [bytes, rows] : {std::pair<i64, i64>{4003, 300}, {2048, 520}, {17000, 1000}}) {
        Guarded source(size_t(bytes * rows), true);
        random.Fill(source.Data(), source.Size());
        for (Simd level : Levels()) {
            Guarded target(size_t(bytes * rows), random.Coin());
            kq::CopyByteRows({source.Data(), bytes, target.Data() + bytes * (rows - 1), -bytes, bytes, rows}, level);
            for (i64 y = 0; y < rows; ++y)
                ASSERT_EQ(std::memcmp(target.Data() + bytes * (rows - 1 - y), source.Data() + bytes * y, size_t(bytes)),
                          0);
        }
    }
}

// --- the public calls, on bitmaps whose pixels lie between guard pages

KQBitmap Portable(i32 width, i32 height, i32 depth, u8* data) {
    KQBitmap bitmap{};
    bitmap.width = width;
    bitmap.height = height;
    bitmap.depth = depth;
    bitmap.pixelBytes = depth / 8;
    bitmap.rowBytes = width * bitmap.pixelBytes;
    bitmap.dataSize = bitmap.rowBytes * height;
    bitmap.data = data;
    return bitmap;
}

KQNativeBitmap Native(i32 width, i32 height, i32 depth, u8* data) {
    KQNativeBitmap bitmap{};
    bitmap.width = width;
    bitmap.height = height;
    bitmap.depth = depth;
    bitmap.pixelBytes = depth / 8;
    i32 stride = (width * bitmap.pixelBytes + 3) & ~3;
    bitmap.rowBytes = -stride;
    bitmap.dataSize = stride * height;
    bitmap.firstRowOffset = bitmap.dataSize - stride;
    bitmap.nativeFlag = 1;
    bitmap.data = data;
    return bitmap;
}

i32 BytesOf(i32 width, i32 height, i32 depth, bool native) {
    i32 row = width * depth / 8;
    return (native ? (row + 3) & ~3 : row) * height;
}

template <class Bitmap>
Bitmap MakeBitmap(i32 width, i32 height, i32 depth, u8* data) {
    if constexpr (std::is_same_v<Bitmap, KQBitmap>)
        return Portable(width, height, depth, data);
    else
        return Native(width, height, depth, data);
}

template <class Bitmap>
Form FormOf(const Bitmap& bitmap) {
    if (!bitmap.nativeFlag) return bitmap.depth == 8 ? Form::Byte : Form::Argb;
    return bitmap.depth == 16 ? Form::Rgb555 : bitmap.depth == 24 ? Form::Bgr : Form::Bgrx;
}

template <class Bitmap>
u8* At(const Bitmap& bitmap, i64 x, i64 y) {
    return bitmap.data + bitmap.firstRowOffset + y * bitmap.rowBytes + x * bitmap.pixelBytes;
}

// The scaling as it is described, in 32-bit words.
template <class Source, class Target>
void ScaleAsDescribed(const Source& source, const Target& target, KQRectT<long> from, KQRectT<long> to) {
    i32 stepX = i32(from.width << 16) / i32(to.width), stepY = i32(from.height << 16) / i32(to.height);
    i32 startX = i32(from.x << 16), startY = i32(from.y << 16);
    i32 right = std::min(i32(to.x + to.width), target.width), bottom = std::min(i32(to.y + to.height), target.height);
    i32 left = i32(to.x), top = i32(to.y);
    if (left < 0) startX += -left * stepX, left = 0;
    if (top < 0) startY += -top * stepY, top = 0;
    kq::PixelMove move = kq::PlainMove(FormOf(source), FormOf(target));
    i32 sourceY = startY;
    for (i32 y = top; y < bottom; ++y, sourceY += stepY) {
        i32 sourceX = startX;
        for (i32 x = left; x < right; ++x, sourceX += stepX)
            move(At(source, sourceX >> 16, sourceY >> 16), At(target, x, y));
    }
}

// A rectangle inside the source, and one that may stick out of the target on every side.
KQRectT<long> InnerRect(Random* random, i32 width, i32 height) {
    long w = long(random->From(1, width)), h = long(random->From(1, height));
    return {long(random->From(0, width - w)), long(random->From(0, height - h)), w, h};
}

KQRectT<long> OuterRect(Random* random, i32 width, i32 height) {
    return {long(random->From(-width, width)), long(random->From(-height, height)), long(random->From(1, 3 * width)),
            long(random->From(1, 3 * height))};
}

template <class Source, class Target>
void CheckScale(Random* random, i32 sourceDepth, i32 targetDepth) {
    i32 sw = i32(random->From(1, 90)), sh = i32(random->From(1, 20)), tw = i32(random->From(1, 150)),
        th = i32(random->From(1, 30));
    bool sourceNative = std::is_same_v<Source, KQNativeBitmap>, targetNative = std::is_same_v<Target, KQNativeBitmap>;
    Guarded pixels(size_t(BytesOf(sw, sh, sourceDepth, sourceNative)), random->Coin());
    random->Fill(pixels.Data(), pixels.Size());
    TargetPair pair(size_t(BytesOf(tw, th, targetDepth, targetNative)), random->Coin(), random);
    Source source = MakeBitmap<Source>(sw, sh, sourceDepth, pixels.Data());
    Target plain = MakeBitmap<Target>(tw, th, targetDepth, pair.plain.Data());
    Target fast = MakeBitmap<Target>(tw, th, targetDepth, pair.fast.Data());
    KQRectT<long> from = InnerRect(random, sw, sh), to = OuterRect(random, tw, th);
    ScaleAsDescribed(source, plain, from, to);
    ScaleBitmapKQ(&source, &fast, &from, &to);
    ASSERT_TRUE(pair.Same()) << sourceDepth << " to " << targetDepth << ": " << from.width << " x " << from.height
                             << " to " << to.x << ' ' << to.y << ' ' << to.width << ' ' << to.height << " in " << tw
                             << " x " << th;
}

TEST_F(Sampling, ScalingsEqualTheirDescriptionWithTargetsThatStickOut) {
    Random random;
    for (int i = 0; i < 1500; ++i) {
        CheckScale<KQBitmap, KQBitmap>(&random, 32, 32);
        CheckScale<KQBitmap, KQBitmap>(&random, 8, 8);
        for (i32 depth : {16, 24, 32}) CheckScale<KQBitmap, KQNativeBitmap>(&random, 32, depth);
        for (i32 depth : {24, 32}) CheckScale<KQNativeBitmap, KQBitmap>(&random, depth, 32);
    }
}

TEST_F(Sampling, ScalingsBetweenNativeBitmapsEqualTheirDescription) {
    Random random;
    for (int i = 0; i < 300; ++i)
        for (i32 from : {16, 24, 32})
            for (i32 to : {16, 24, 32}) CheckScale<KQNativeBitmap, KQNativeBitmap>(&random, from, to);
}

// The copy as it is described, of pixels that the source holds.
template <class Source, class Target>
void CopyAsDescribed(const Source& source, const Target& target, i32 x, i32 y, i32 width, i32 height, i32 toX,
                     i32 toY) {
    if (width < 0) width = source.width;
    if (height < 0) height = source.height;
    if (toX < 0) x -= toX, width -= toX, toX = 0;
    if (toY < 0) y -= toY, height -= toY, toY = 0;
    width = std::min(width, target.width - toX);
    height = std::min(height, target.height - toY);
    kq::PixelMove move = kq::PlainMove(FormOf(source), FormOf(target));
    i64 bytes = kq::PixelBytes(FormOf(source));
    for (i32 row = 0; row < height; ++row)
        for (i32 column = 0; column < width; ++column) {
            i64 offset = source.firstRowOffset + i64(y + row) * source.rowBytes + i64(x + column) * source.pixelBytes;
            bool held = y + row >= 0 && y + row < source.height && offset >= 0 && offset + bytes <= source.dataSize;
            bool padded = std::abs(source.rowBytes) != source.width * source.pixelBytes;
            if (padded && (x + column < 0 || x + column >= source.width)) held = false;
            if (held) move(source.data + offset, At(target, toX + column, toY + row));
        }
}

template <class Source, class Target>
void CheckCopy(Random* random, i32 sourceDepth, i32 targetDepth) {
    i32 sw = i32(random->From(1, 90)), sh = i32(random->From(1, 12)), tw = i32(random->From(1, 90)),
        th = i32(random->From(1, 12));
    if (random->From(0, 3) == 0) tw = sw, th = sh;
    bool sourceNative = std::is_same_v<Source, KQNativeBitmap>, targetNative = std::is_same_v<Target, KQNativeBitmap>;
    Guarded pixels(size_t(BytesOf(sw, sh, sourceDepth, sourceNative)), random->Coin());
    random->Fill(pixels.Data(), pixels.Size());
    TargetPair pair(size_t(BytesOf(tw, th, targetDepth, targetNative)), random->Coin(), random);
    Source source = MakeBitmap<Source>(sw, sh, sourceDepth, pixels.Data());
    Target plain = MakeBitmap<Target>(tw, th, targetDepth, pair.plain.Data());
    Target fast = MakeBitmap<Target>(tw, th, targetDepth, pair.fast.Data());
    bool exact = random->From(0, 3) == 0;
    i32 x = exact ? 0 : i32(random->From(-5, sw)), y = exact ? 0 : i32(random->From(-3, sh));
    i32 width = i32(random->From(-1, sw + 5)), height = i32(random->From(-1, sh + 3));
    i32 toX = exact ? 0 : i32(random->From(-sw, tw)), toY = exact ? 0 : i32(random->From(-sh, th));
    CopyAsDescribed(source, plain, x, y, width, height, toX, toY);
    CopyBitmapKQ(&source, &fast, x, y, width, height, toX, toY);
    ASSERT_TRUE(pair.Same()) << sourceDepth << " to " << targetDepth << ": " << x << ' ' << y << ' ' << width << ' '
                             << height << " to " << toX << ' ' << toY;
}

TEST_F(Sampling, CopiesEqualTheirDescriptionWithRectanglesThatStickOut) {
    Random random;
    for (int i = 0; i < 1500; ++i) {
        CheckCopy<KQBitmap, KQBitmap>(&random, 32, 32);
        CheckCopy<KQBitmap, KQBitmap>(&random, 8, 8);
        for (i32 depth : {16, 24, 32}) {
            CheckCopy<KQBitmap, KQNativeBitmap>(&random, 32, depth);
            CheckCopy<KQNativeBitmap, KQBitmap>(&random, depth, 32);
        }
    }
}

// The copy between native bitmaps as it is described: no clip, equal depths as they are, limited to a rectangle of the
// source, of pixels that both bitmaps hold.
void CheckNativeCopy(Random* random, i32 sourceDepth, i32 targetDepth) {
    i32 sw = i32(random->From(1, 60)), sh = i32(random->From(1, 9)), tw = i32(random->From(1, 60)),
        th = i32(random->From(1, 9));
    Guarded pixels(size_t(BytesOf(sw, sh, sourceDepth, true)), random->Coin());
    random->Fill(pixels.Data(), pixels.Size());
    TargetPair pair(size_t(BytesOf(tw, th, targetDepth, true)), random->Coin(), random);
    KQNativeBitmap source = Native(sw, sh, sourceDepth, pixels.Data());
    KQNativeBitmap plain = Native(tw, th, targetDepth, pair.plain.Data());
    KQNativeBitmap fast = Native(tw, th, targetDepth, pair.fast.Data());
    i32 width = i32(random->From(1, std::min(sw, tw))), height = i32(random->From(1, std::min(sh, th)));
    i32 x = i32(random->From(0, sw - width)), y = i32(random->From(0, sh - height));
    i32 toX = i32(random->From(0, tw - width)), toY = i32(random->From(0, th - height));
    KQRectT<long> rect = OuterRect(random, sw, sh);
    bool limited = random->Coin();
    kq::PixelMove move = kq::PlainMove(FormOf(source), FormOf(plain));
    for (i32 row = 0; row < height; ++row)
        for (i32 column = 0; column < width; ++column) {
            i32 fromX = x + column, fromY = y + row;
            bool inside =
                fromX >= rect.x && fromX < rect.x + rect.width && fromY >= rect.y && fromY < rect.y + rect.height;
            if (limited && !inside) continue;
            u8 *from = At(source, fromX, fromY), *to = At(plain, toX + column, toY + row);
            sourceDepth == targetDepth ? void(std::memcpy(to, from, size_t(source.pixelBytes))) : move(from, to);
        }
    CopyBitmapKQ(&source, &fast, limited ? &rect : nullptr, x, y, width, height, toX, toY);
    ASSERT_TRUE(pair.Same()) << sourceDepth << " to " << targetDepth << ": " << x << ' ' << y << ' ' << width << ' '
                             << height << " to " << toX << ' ' << toY;
}

TEST_F(Sampling, CopiesBetweenNativeBitmapsEqualTheirDescription) {
    Random random;
    for (int i = 0; i < 400; ++i)
        for (i32 from : {16, 24, 32})
            for (i32 to : {16, 24, 32}) CheckNativeCopy(&random, from, to);
}

// A source whose padding is behind a wall: pixels with a mark, padding with another one that no target may show.
TEST_F(Sampling, PaddingOfASourceIsNeverRead) {
    constexpr i32 kWidth = 5, kHeight = 4;
    for (i32 depth : {16, 24}) {
        i32 row = kWidth * depth / 8;
        Guarded pixels(size_t(BytesOf(kWidth, kHeight, depth, true)), true);
        KQNativeBitmap source = Native(kWidth, kHeight, depth, pixels.Data());
        std::memset(pixels.Data(), 0xFF, pixels.Size());
        for (i32 y = 0; y < kHeight; ++y) std::memset(At(source, 0, y), 0, size_t(row));
        Guarded wide(size_t(BytesOf(12, kHeight, 32, false)), true),
            same(size_t(BytesOf(12, kHeight, depth, true)), true);
        KQBitmap portable = Portable(12, kHeight, 32, wide.Data());
        KQNativeBitmap native = Native(12, kHeight, depth, same.Data());
        std::memset(wide.Data(), 0x11, wide.Size());
        std::memset(same.Data(), 0x11, same.Size());
        CopyBitmapKQ(&source, &portable, -2, 0, 12, kHeight, 0, 0);
        CopyBitmapKQ(&source, &portable, 0, 0, -1, -1, -3, 0);
        CopyBitmapKQ(&source, &native, -1, 0, 9, kHeight, 0, 0);
        KQRectT<long> outside{-2, 0, 9, kHeight};
        ScaleBitmapKQ(&source, &portable, &outside, nullptr);
        ScaleBitmapKQ(&source, &native, &outside, nullptr);
        for (i32 i = 0; i < portable.dataSize; ++i)
            ASSERT_TRUE(portable.data[i] != 0xFF || i % 4 == 0) << depth << ": padding came to byte " << i;
        for (i32 i = 0; i < native.dataSize; ++i) ASSERT_NE(native.data[i], 0xFF) << depth << " at " << i;
    }
}

TEST_F(Sampling, WorkAfterCleanUpStaysInItsThread) {
    std::vector<u8> bytes(8000000);
    CleanUpKQ();
    kq::FillBlock(bytes.data(), i64(bytes.size()), 0x01020304);
    kqtest::InitWithoutWindow();
    EXPECT_EQ(bytes.front(), 4);
    EXPECT_EQ(bytes.back(), 1);
}

}   // namespace
