// ElectricImage files: headers, packets and rates to the byte, and bad files.
#include <bit>

#include "Source/EIDI.h"
#include "Source/Startup.h"
#include "support/FormatTest.h"

using kqtest::Bytes;
using kqtest::FormatTest;

namespace {

// A frame record by its fields; what is not set is as our writer has it.
struct Record {
    f64 time = 0;
    int width = 4, height = 1;
    int depth = 24, indexed = 0, packed = 0, alphaDepth = 0;
    int colours = 1, colourIndex = 0;
    Bytes table = {};   // empty: a grey ramp
    Bytes data = {};
    i64 length = -1;   // -1: that of `data`

    Bytes Make() const {
        Bytes bytes;
        kqtest::Put32(bytes, std::bit_cast<u32>(float(time)));
        for (int word : {0, 0, height, width}) kqtest::Put16(bytes, u16(word));
        bytes.push_back(u8(depth));
        bytes.push_back(u8(indexed));
        for (int word : {0, 0, height, width}) kqtest::Put16(bytes, u16(word));
        bytes.push_back(u8(packed));
        bytes.push_back(u8(alphaDepth));
        kqtest::Put32(bytes, length < 0 ? u32(data.size()) : u32(length));
        kqtest::Put16(bytes, u16(colours));
        kqtest::Put16(bytes, u16(colourIndex));
        Bytes entries = table;
        for (size_t i = entries.size(); i < size_t(colours) * 3; ++i) entries.push_back(u8(i / 3));
        bytes.insert(bytes.end(), entries.begin(), entries.end());
        bytes.insert(bytes.end(), data.begin(), data.end());
        return bytes;
    }
};

Bytes FileOf(const std::vector<Record>& records, i64 frames = -1) {
    Bytes bytes;
    kqtest::Put16(bytes, 5);
    kqtest::Put32(bytes, frames < 0 ? u32(records.size()) : u32(frames));
    for (const Record& record : records) {
        Bytes made = record.Make();
        bytes.insert(bytes.end(), made.begin(), made.end());
    }
    return bytes;
}

// One pixel after the other.
Bytes Pixels(std::initializer_list<u32> argb) {
    Bytes bytes;
    for (u32 pixel : argb) kqtest::Put32(bytes, pixel);
    return bytes;
}

// The first `count` bytes again and again.
Bytes Repeat(const Bytes& bytes, size_t times) {
    Bytes result;
    for (size_t i = 0; i < times; ++i) result.insert(result.end(), bytes.begin(), bytes.end());
    return result;
}

class ElectricImage : public FormatTest {
protected:
    ElectricImage() : FormatTest(kq::MakeElectricImageModule, "x.ei") {}

    // The packed bytes that one frame of these pixels gives.
    Bytes Packed(i32 width, i32 height, i32 alphaMode, const Bytes& pixels) {
        clip->alphaMode = alphaMode;
        EXPECT_TRUE(Create(width, height));
        EXPECT_TRUE(Add(pixels, 0));
        Close();
        Bytes bytes = Read();
        return Bytes(bytes.begin() + 6 + 32 + (alphaMode == 1 ? 768 : 3), bytes.end());
    }

    // Pixels of which alpha mode 1 makes these grey bytes.
    static Bytes Greys(const Bytes& values) {
        Bytes pixels;
        for (u8 value : values) pixels.insert(pixels.end(), {value, 1, 2, 3});
        return pixels;
    }

    void SetPacking(u32 word) {
        FreeMemoryKQ(clip->options);
        clip->options = static_cast<KQClipOptions*>(AllocMemoryKQ(sizeof(KQClipOptions) + 4, 0));
        clip->options->data = reinterpret_cast<u8*>(clip->options + 1);
        clip->options->length = 4;
        std::memcpy(clip->options->data, &word, 4);
    }

    bool OpensWith(const Record& record) {
        Write(FileOf({record}));
        bool opened = Open();
        Close();
        return opened;
    }
};

}   // namespace

TEST_F(ElectricImage, TheModuleHasItsTableEntries) {
    EXPECT_STREQ(module->node.Name, "ElectricImage");
    EXPECT_EQ(module->fileType, KQCode4("EIDI"));
    EXPECT_EQ(module->fileCreator, KQCode4("EIAD"));
    ASSERT_EQ(module->importTypeCount, 1);
    EXPECT_EQ(module->importTypes[0].type, KQCode4("EIDI"));
    EXPECT_EQ(module->importTypes[0].creator, KQ_ANYCODE);
    EXPECT_EQ(module->importExts[0], 0x65690000u);
    EXPECT_EQ(module->maxWidth, 32767);
    EXPECT_EQ(module->ImportProperties(module), 15u);
    EXPECT_EQ(module->ExportProperties(module, clip), 15u);
    EXPECT_EQ(module->BeginIO(clip, 1), 1);
    EXPECT_EQ(module->EndIO(clip, 1), 1);
    EXPECT_EQ(module->GetGBuffers, nullptr);
    EXPECT_EQ(module->ClipOptions, nullptr);
}

// Opening.

TEST_F(ElectricImage, OpenTakesSizeDepthAndFramesFromTheFirstHeader) {
    Write(FileOf({{.width = 3, .height = 2, .alphaDepth = 8, .data = Bytes(24)}}));
    ASSERT_TRUE(Open());
    EXPECT_EQ(clip->width, 3);
    EXPECT_EQ(clip->height, 2);
    EXPECT_EQ(clip->depth, 32);
    EXPECT_EQ(clip->sourceFrames, 1);
    EXPECT_EQ(clip->sourceRate, 30.0);
}

TEST_F(ElectricImage, TwoFramesAt0And004GiveTheRate25) {
    Write(FileOf({{.time = 0.0}, {.time = 0.04}}));
    ASSERT_TRUE(Open());
    EXPECT_NEAR(clip->sourceRate, 25.0, 1e-5);
}

TEST_F(ElectricImage, TheLastTwoFramesGiveTheRate) {
    Write(FileOf({{.time = 0.0}, {.time = 0.5}, {.time = 0.75}}));
    ASSERT_TRUE(Open());
    EXPECT_EQ(clip->sourceRate, 4.0);
}

TEST_F(ElectricImage, TimesThatDoNotRiseLeaveTheRate) {
    clip->sourceRate = 12.5;
    Write(FileOf({{.time = 1.0}, {.time = 1.0}}));
    ASSERT_TRUE(Open());
    EXPECT_EQ(clip->sourceRate, 12.5);
    Close();
    Write(FileOf({{.time = 1.0}, {.time = 0.5}}));
    ASSERT_TRUE(Open());
    EXPECT_EQ(clip->sourceRate, 12.5);
}

TEST_F(ElectricImage, ASingleFrameLeavesTheRateWhateverItsTime) {
    Write(FileOf({{.time = 7.0}}));
    ASSERT_TRUE(Open());
    EXPECT_EQ(clip->sourceRate, 30.0);
}

TEST_F(ElectricImage, AnInfiniteTimeLeavesTheRate) {
    for (auto [before, last] : {std::pair{0.0, HUGE_VAL}, {HUGE_VAL, HUGE_VAL}, {HUGE_VAL, 1.0}}) {
        clip->sourceRate = 12.5;
        Write(FileOf({{.time = before}, {.time = last}}));
        ASSERT_TRUE(Open());
        EXPECT_EQ(clip->sourceRate, 12.5) << before << " to " << last;
        Close();
    }
}

TEST_F(ElectricImage, TimesAreDecodedByHand) {
    EXPECT_EQ(kq::EIDITime(0), 0.0);
    EXPECT_EQ(kq::EIDITime(0x80000000), 0.0);
    EXPECT_EQ(kq::EIDITime(0x3F800000), 1.0);
    EXPECT_EQ(kq::EIDITime(0xC0200000), -2.5);
    EXPECT_EQ(kq::EIDITime(0x7F800000), HUGE_VAL);
    EXPECT_EQ(kq::EIDITime(0xFFC00000), HUGE_VAL);
    EXPECT_EQ(kq::EIDITime(0x00400000), std::ldexp(1.5, -127));
    EXPECT_EQ(kq::EIDITime(0x7F7FFFFF), f64(std::bit_cast<float>(0x7F7FFFFF)));
}

TEST_F(ElectricImage, DepthsOutsideTheTableAreRefused) {
    for (int depth = 0; depth < 256; ++depth) {
        bool good = depth == 1 || depth == 2 || depth == 4 || depth == 8 || depth == 16 || depth == 24;
        EXPECT_EQ(OpensWith({.width = 8, .depth = depth}), good) << depth;
    }
}

TEST_F(ElectricImage, AlphaGoesWith24BitsAlone) {
    EXPECT_TRUE(OpensWith({.depth = 24, .alphaDepth = 8}));
    EXPECT_FALSE(OpensWith({.depth = 16, .alphaDepth = 8}));
    EXPECT_FALSE(OpensWith({.depth = 24, .alphaDepth = 1}));
}

TEST_F(ElectricImage, ColoursOutside1To256AreRefused) {
    EXPECT_FALSE(OpensWith({.colours = 0}));
    EXPECT_TRUE(OpensWith({.colours = 1}));
    EXPECT_TRUE(OpensWith({.colours = 256}));
    EXPECT_FALSE(OpensWith({.colours = 257}));
}

TEST_F(ElectricImage, ColourIndexMustBeBelowColours) {
    EXPECT_TRUE(OpensWith({.colours = 2, .colourIndex = 1}));
    EXPECT_FALSE(OpensWith({.colours = 2, .colourIndex = 2}));
    EXPECT_TRUE(OpensWith({.colours = 2, .colourIndex = -1}));
}

TEST_F(ElectricImage, IndexedAndPackedAbove1AreRefused) {
    EXPECT_TRUE(OpensWith({.indexed = 1, .packed = 1}));
    EXPECT_FALSE(OpensWith({.indexed = 2}));
    EXPECT_FALSE(OpensWith({.packed = 2}));
}

TEST_F(ElectricImage, TheVersionIsNotTested) {
    Bytes bytes = FileOf({{}});
    bytes[1] = 77;
    Write(bytes);
    EXPECT_TRUE(Open());
}

TEST_F(ElectricImage, AFileOf0FramesOpens) {
    Write(FileOf({{}}, 0));
    ASSERT_TRUE(Open());
    EXPECT_EQ(clip->sourceFrames, 0);
    EXPECT_EQ(clip->width, 4);
}

TEST_F(ElectricImage, OpensThroughTheRegistryByItsTwoLetters) {
    InitFormatModulesKQ(nullptr);
    Write(FileOf({{.data = Bytes(12)}}));
    KQClip* opened = OpenClipKQ(path.c_str(), KQTAG_CLIP_NOGUESS, 0, 0);
    ASSERT_NE(opened, nullptr);
    EXPECT_STREQ(opened->format->node.Name, "ElectricImage");
    CloseClipKQ(opened);
    FreeClipKQ(opened);
    kq::FreeFormatModules();
}

// Reading.

TEST_F(ElectricImage, PixelsOf24BitsAreOpaque) {
    Write(FileOf({{.width = 2, .data = {1, 2, 3, 4, 5, 6}}}));
    ASSERT_TRUE(Open());
    EXPECT_EQ(Frame(0), Pixels({0xFF010203, 0xFF040506}));
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_NONE));
}

TEST_F(ElectricImage, PixelsOf32BitsComeAsTheyLie) {
    Write(FileOf({{.width = 2, .alphaDepth = 8, .data = {1, 2, 3, 4, 5, 6, 7, 8}}}));
    ASSERT_TRUE(Open());
    EXPECT_EQ(Frame(0), Pixels({0x01020304, 0x05060708}));
}

TEST_F(ElectricImage, PixelsOf16BitsKeepLowBits0) {
    Write(FileOf({{.width = 4, .depth = 16, .data = {0x7F, 0xFF, 0x7C, 0x00, 0x83, 0xE0, 0x00, 0x1F}}}));
    ASSERT_TRUE(Open());
    EXPECT_EQ(Frame(0), Pixels({0xFFF8F8F8, 0xFFF80000, 0xFF00F800, 0xFF0000F8}));
}

TEST_F(ElectricImage, PixelsOf8BitsAreLookedUp) {
    Write(FileOf({{.width = 2, .depth = 8, .colours = 2, .table = {9, 8, 7, 6, 5, 4}, .data = {1, 0}}}));
    ASSERT_TRUE(Open());
    EXPECT_EQ(Frame(0), Pixels({0xFF060504, 0xFF090807}));
}

TEST_F(ElectricImage, AnIndexBehindTheTableIsBlackWhateverWasReadBefore) {
    Record full = {.width = 1, .depth = 8, .colours = 256, .data = {9}};
    Record one = {.width = 1, .depth = 8, .colours = 1, .data = {9}};
    Write(FileOf({full, one}));
    ASSERT_TRUE(Open());
    EXPECT_EQ(Frame(0), Pixels({0xFF090909}));
    EXPECT_EQ(Frame(1), Pixels({0xFF000000}));
}

TEST_F(ElectricImage, Bits4HaveTheLeftPixelOnTop) {
    Write(FileOf({{.width = 4, .depth = 4, .colours = 16, .data = {0x1F, 0x80}}}));
    ASSERT_TRUE(Open());
    EXPECT_EQ(Frame(0), Pixels({0xFF010101, 0xFF0F0F0F, 0xFF080808, 0xFF000000}));
}

TEST_F(ElectricImage, Bits2HaveTheLeftPixelOnTop) {
    Write(FileOf({{.width = 4, .depth = 2, .colours = 4, .data = {0x1B}}}));
    ASSERT_TRUE(Open());
    EXPECT_EQ(Frame(0), Pixels({0xFF000000, 0xFF010101, 0xFF020202, 0xFF030303}));
}

TEST_F(ElectricImage, Bits1HaveTheLeftPixelOnTop) {
    Write(FileOf({{.width = 8, .depth = 1, .colours = 2, .data = {0xA1}}}));
    ASSERT_TRUE(Open());
    const u32 o = 0xFF010101, z = 0xFF000000;
    EXPECT_EQ(Frame(0), Pixels({o, z, o, z, z, z, z, o}));
}

TEST_F(ElectricImage, PixelsBehindTheLastWholeByteOfARowStay) {
    Write(FileOf({{.width = 5, .height = 2, .depth = 4, .colours = 16, .data = {0x12, 0x34, 0x56, 0x78}}}));
    ASSERT_TRUE(Open());
    Bytes pixels = Frame(0);
    EXPECT_EQ(Bytes(pixels.begin() + 16, pixels.begin() + 24), (Bytes{0xA5, 0xA5, 0xA5, 0xA5, 255, 5, 5, 5}));
}

TEST_F(ElectricImage, PackedValuesOfAllSizesUnpack) {
    Write(FileOf({{.width = 5, .depth = 8, .packed = 1, .colours = 256, .data = {2, 9, 0x81, 4, 5}}}));
    ASSERT_TRUE(Open());
    EXPECT_EQ(Frame(0), Pixels({0xFF090909, 0xFF090909, 0xFF090909, 0xFF040404, 0xFF050505}));
    Close();
    Write(FileOf({{.width = 3, .depth = 16, .packed = 1, .data = {1, 0x7C, 0x00, 0x80, 0x00, 0x1F}}}));
    ASSERT_TRUE(Open());
    EXPECT_EQ(Frame(0), Pixels({0xFFF80000, 0xFFF80000, 0xFF0000F8}));
    Close();
    Write(FileOf({{.width = 3, .packed = 1, .data = {1, 1, 2, 3, 0x80, 4, 5, 6}}}));
    ASSERT_TRUE(Open());
    EXPECT_EQ(Frame(0), Pixels({0xFF010203, 0xFF010203, 0xFF040506}));
    Close();
    Write(FileOf({{.width = 3, .packed = 1, .alphaDepth = 8, .data = {1, 1, 2, 3, 4, 0x80, 5, 6, 7, 8}}}));
    ASSERT_TRUE(Open());
    EXPECT_EQ(Frame(0), Pixels({0x01020304, 0x01020304, 0x05060708}));
}

TEST_F(ElectricImage, APackedByteCarriesEightPixels) {
    Write(FileOf({{.width = 16, .depth = 1, .packed = 1, .colours = 2, .data = {1, 0x80}}}));
    ASSERT_TRUE(Open());
    Bytes row = Bytes{255, 1, 1, 1}, black = Bytes{255, 0, 0, 0};
    Bytes eight = row;
    for (int i = 0; i < 7; ++i) eight.insert(eight.end(), black.begin(), black.end());
    EXPECT_EQ(Frame(0), Repeat(eight, 2));
}

TEST_F(ElectricImage, ARunAndALiteralCarryOnIntoTheNextRowWithoutASeam) {
    Write(FileOf(
        {{.width = 3, .height = 3, .depth = 8, .packed = 1, .colours = 256, .data = {3, 7, 0x84, 1, 2, 3, 4, 5}}}));
    ASSERT_TRUE(Open());
    EXPECT_EQ(Frame(0), Pixels({0xFF070707, 0xFF070707, 0xFF070707, 0xFF070707, 0xFF010101, 0xFF020202, 0xFF030303,
                                0xFF040404, 0xFF050505}));
}

TEST_F(ElectricImage, AStreamLessDenseThanTheMarginDecodes) {
    Record record = {.width = 200, .height = 300, .depth = 8, .packed = 1, .colours = 256};
    Bytes expected;
    for (int i = 0; i < 200 * 300; ++i) {
        record.data.insert(record.data.end(), {0x80, u8(i * 7)});
        expected.insert(expected.end(), {255, u8(i * 7), u8(i * 7), u8(i * 7)});
    }
    Write(FileOf({record}));
    ASSERT_TRUE(Open());
    EXPECT_EQ(Frame(0), expected);
}

TEST_F(ElectricImage, ALyingDataLengthOfTheLastFrameDoesNotCutIt) {
    Write(FileOf({{.width = 2, .data = {1, 2, 3, 4, 5, 6}, .length = 0}}));
    ASSERT_TRUE(Open());
    EXPECT_EQ(Frame(0), Pixels({0xFF010203, 0xFF040506}));
}

TEST_F(ElectricImage, AFrameLargerThanTheBitmapIsCut) {
    Bytes data;
    for (u8 i = 0; i < 12; ++i) data.insert(data.end(), {i, i, i});
    Write(FileOf({{.width = 2, .height = 2, .data = Bytes(12)}, {.width = 4, .height = 3, .data = data}}));
    ASSERT_TRUE(Open());
    EXPECT_EQ(Frame(1), Pixels({0xFF000000, 0xFF010101, 0xFF040404, 0xFF050505}));
}

TEST_F(ElectricImage, AFrameSmallerThanTheBitmapLeavesTheRest) {
    Write(FileOf({{.width = 2, .height = 2, .data = Bytes(12)},
                  {.width = 1, .height = 1, .alphaDepth = 8, .data = {1, 2, 3, 4}}}));
    ASSERT_TRUE(Open());
    EXPECT_EQ(Frame(1), Pixels({0x01020304, 0xA5A5A5A5, 0xA5A5A5A5, 0xA5A5A5A5}));
}

TEST_F(ElectricImage, NarrowFramesOfManyPixelsAValueAreCutToo) {
    Write(
        FileOf({{.width = 3, .height = 1, .data = Bytes(9)}, {.width = 8, .depth = 1, .colours = 2, .data = {0xA0}}}));
    ASSERT_TRUE(Open());
    EXPECT_EQ(Frame(1), Pixels({0xFF010101, 0xFF000000, 0xFF010101}));
}

TEST_F(ElectricImage, FramesAreFoundInAnyOrder) {
    std::vector<Record> records;
    for (u8 i = 0; i < 50; ++i) records.push_back({.time = i / 25.0, .width = 1, .data = {i, i, i}});
    Write(FileOf(records));
    ASSERT_TRUE(Open());
    for (u8 i : {49, 0, 25, 24, 1}) EXPECT_EQ(Frame(i), (Bytes{255, i, i, i}));
}

// Bad files.

TEST_F(ElectricImage, CutInItsHeaderOrColourTableItIsRefused) {
    Bytes bytes = FileOf({{.width = 2, .depth = 8, .colours = 256, .data = {1, 2}}});
    for (size_t length = 0; length < 6 + 32 + 768; ++length) {
        Write(Bytes(bytes.begin(), bytes.begin() + i64(length)));
        ASSERT_FALSE(Open()) << length;
        ASSERT_EQ(GetErrorKQ(), u32(KQERR_READ)) << length;
        ASSERT_EQ(clip->moduleData, nullptr);
    }
}

TEST_F(ElectricImage, CutAtEveryByteItGivesThePixelsThatAreThere) {
    for (int packed : {0, 1}) {
        Bytes data;
        for (int i = 0; i < 100; ++i) data.insert(data.end(), {u8(packed ? 0x80 : i), u8(i), u8(i), u8(i)});
        Record record = {.width = 10, .height = 10, .packed = packed, .alphaDepth = packed ? 0 : 8, .data = data};
        Bytes bytes = FileOf({record, {}});
        for (size_t length = 6 + 32 + 3; length < bytes.size(); ++length) {
            Write(Bytes(bytes.begin(), bytes.begin() + i64(length)));
            ASSERT_TRUE(Open()) << length;
            Bytes pixels = Frame(0);
            // A pixel of 32 bits gives the bytes that are there; of others only whole ones count.
            size_t whole = std::min<size_t>((length - 41) / 4, 100);
            size_t there = packed ? whole : std::min<size_t>((length - 41 + 2) / 4, 100);
            ASSERT_EQ(GetErrorKQ(), u32(whole < 100 ? KQERR_READ : KQERR_NONE)) << length;
            for (size_t i = 0; i < 100; ++i)
                ASSERT_EQ(pixels[i * 4 + 1], i < there ? u8(i) : 0xA5) << length << " " << i;
            Frame(1);
            Close();
        }
    }
}

TEST_F(ElectricImage, EveryHeaderFieldAtItsLimitsIsTakenOrRefusedCleanly) {
    const Record record = {.width = 8, .height = 4, .depth = 8, .packed = 1, .colours = 256, .data = Bytes(64, 3)};
    const Bytes good = FileOf({record, record});
    const size_t second = 6 + record.Make().size();
    std::vector<std::pair<size_t, size_t>> fields = {{0, 2}, {2, 4}};
    for (size_t start : {size_t(6), second})
        for (auto [at, size] : std::initializer_list<std::pair<size_t, size_t>>{{0, 4},
                                                                                {4, 2},
                                                                                {6, 2},
                                                                                {8, 2},
                                                                                {10, 2},
                                                                                {12, 1},
                                                                                {13, 1},
                                                                                {14, 2},
                                                                                {16, 2},
                                                                                {18, 2},
                                                                                {20, 2},
                                                                                {22, 1},
                                                                                {23, 1},
                                                                                {24, 4},
                                                                                {28, 2},
                                                                                {30, 2}})
            fields.emplace_back(start + at, size);
    for (auto [at, size] : fields)
        for (u32 value : FieldLimits(size)) {
            SCOPED_TRACE(testing::Message() << "field at " << at << " is " << value);
            Bytes bytes = good;
            PatchField(bytes, at, size, value);
            Write(bytes);
            if (!Open()) {
                ASSERT_EQ(clip->moduleData, nullptr);
                ASSERT_LT(at, second) << "a later frame does not refuse the file";
                continue;
            }
            ASSERT_GT(clip->width, 0);
            ASSERT_GT(clip->height, 0);
            ASSERT_LE(i64(clip->width) * clip->height, i64(1) << 24);
            ASSERT_TRUE(std::isfinite(clip->sourceRate));
            if (i64(clip->width) * clip->height <= 1 << 16)
                for (i32 frame : {0, 1, 2, 0x7FFFFFFE, -1}) Frame(frame);
            Close();
        }
}

TEST_F(ElectricImage, AWidthOf0OrBelowIsRefusedAsBadData) {
    EXPECT_FALSE(OpensWith({.width = 0}));
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_BADDATA));
    EXPECT_FALSE(OpensWith({.width = -1}));
    EXPECT_FALSE(OpensWith({.height = 0}));
}

TEST_F(ElectricImage, MoreFramesThanTheFileHoldsOpenButTakeNoMemory) {
    Write(FileOf({{.data = Bytes(12)}}, 0x7FFFFFFF));
    ASSERT_TRUE(Open());
    EXPECT_EQ(clip->sourceFrames, 0x7FFFFFFF);
    EXPECT_LE(static_cast<kq::EIDIClip*>(clip->moduleData)->offsetCount, 2);
    EXPECT_FALSE(Frame(0).empty());
    EXPECT_TRUE(Frame(1).empty());
    EXPECT_TRUE(Frame(0x7FFFFFFE).empty());
}

TEST_F(ElectricImage, TwoToThe31FramesAreRefusedAsBadData) {
    Write(FileOf({{}}, 0x80000000));
    EXPECT_FALSE(Open());
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_BADDATA));
}

TEST_F(ElectricImage, AHugePictureIsRefusedWhenTheFileCannotHoldOne) {
    EXPECT_FALSE(OpensWith({.width = 32767, .height = 8000, .data = Bytes(100)}));
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_BADDATA));
}

TEST_F(ElectricImage, ADamagedFrameStopsTheWalkAndFramesBehindItFail) {
    std::vector<Record> records(4, {.width = 1, .data = {1, 2, 3}});
    records[2].depth = 3;
    Write(FileOf(records));
    ASSERT_TRUE(Open());
    EXPECT_EQ(clip->sourceFrames, 4);
    EXPECT_FALSE(Frame(1).empty());
    EXPECT_TRUE(Frame(2).empty());
    EXPECT_TRUE(Frame(3).empty());
}

TEST_F(ElectricImage, FramesThatComeWhileTheFileIsOpenAreFound) {
    Bytes whole =
        FileOf({{.width = 1, .data = {1, 1, 1}}, {.width = 1, .data = {2, 2, 2}}, {.width = 1, .data = {3, 3, 3}}});
    Write(Bytes(whole.begin(), whole.begin() + 6 + 38));
    ASSERT_TRUE(Open());
    EXPECT_TRUE(Frame(2).empty());
#if !defined(_WIN32)
    Write(whole);
    EXPECT_EQ(Frame(2), (Bytes{255, 3, 3, 3}));
#endif
}

#if !defined(_WIN32)
TEST_F(ElectricImage, AFileThatShrinksWhileItIsOpenIsReadAsFarAsItGoes) {
    Write(FileOf({{.width = 4, .data = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}}, {.data = Bytes(12)}}));
    ASSERT_TRUE(Open());
    std::filesystem::resize_file(path, 6 + 35 + 7);
    EXPECT_EQ(Frame(0), Pixels({0xFF010203, 0xFF040506, 0xA5A5A5A5, 0xA5A5A5A5}));
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_READ));
    EXPECT_TRUE(Frame(1).empty());
}
#endif

TEST_F(ElectricImage, EveryFailedAllocationAndFileCallOfReadingIsCopedWith) {
    Write(FileOf({{.packed = 1, .data = {3, 1, 2, 3}}, {.time = 1, .data = Bytes(12)}}));
    small = AllocBitmapKQ(4, 1, 32);
    auto read = [&] {
        if (Open()) {
            module->GetFrame(clip, small, 1, nullptr, 4, 1, 0);
            module->GetFrame(clip, small, 0, nullptr, 4, 1, 0);
        }
        Close();
    };
    kqtest::FailEveryAllocation(read);
    kqtest::FailEveryFileCall(read);
    FreeBitmapKQ(small);
}

TEST_F(ElectricImage, WithoutAnyMemoryTheFrameIsBackgroundAndFails) {
    Write(FileOf({{.data = Bytes(12)}}));
    ASSERT_TRUE(Open());
    clip->backgroundColor = 0xFF112233;
    small = AllocBitmapKQ(4, 1, 32);
    kq::allocationFaults.Set(1, false);
    EXPECT_EQ(module->GetFrame(clip, small, 0, nullptr, 4, 1, 0), 0);
    kq::allocationFaults.Clear();
    EXPECT_EQ(Bytes(small->data, small->data + 16), Repeat({0xFF, 0x11, 0x22, 0x33}, 4));
    FreeBitmapKQ(small);
}

// Bands of fewer rows, down to one, hold the same frame.
TEST_F(ElectricImage, WithLessMemoryAFrameReadsTheSame) {
    for (i32 mode : {0, 1, 2})
        for (u32 pack : {0u, 1u}) {
            clip->alphaMode = mode;
            SetPacking(pack);
            ASSERT_TRUE(Create(500, 60));
            ASSERT_TRUE(Add(RandomPixels(500, 60, true), 0));
            Close();
            ASSERT_TRUE(Reopen());
            const Bytes whole = Frame(0);
            small = AllocBitmapKQ(500, 60, 32);
            i64 failures = 1;
            for (; failures < 100; ++failures) {
                std::memset(small->data, 0xA5, size_t(small->dataSize));
                kq::allocationFaults.SetSpan(1, failures);
                i32 got = module->GetFrame(clip, small, 0, nullptr, 500, 60, 0);
                kq::allocationFaults.Clear();
                if (!got) break;
                EXPECT_EQ(Bytes(small->data, small->data + small->dataSize), whole) << mode << pack << failures;
            }
            FreeBitmapKQ(small);
            bool shrinks = mode != 2 || pack;
            EXPECT_EQ(failures > 2, shrinks) << "mode " << mode << ", packed " << pack;
            EXPECT_LT(failures, 100);
        }
}

TEST_F(ElectricImage, FramesBehind4GBAreReadFromASparseFile) {
    Record first = {.time = 0, .width = 2, .height = 1, .data = {1, 2, 3, 4, 5, 6}, .length = 0xFFFFFFF0};
    Record second = {.time = 0.1, .width = 2, .height = 1, .data = {7, 8, 9, 10, 11, 12}};
    i64 at = 6 + 35 + i64(0xFFFFFFF0);
    ASSERT_TRUE(MakeSparse(at + 41));
    Bytes bytes = FileOf({first}, 2);
    WriteAt(0, bytes);
    WriteAt(at, second.Make());
    ASSERT_TRUE(Open());
    EXPECT_EQ(Frame(1), Pixels({0xFF070809, 0xFF0A0B0C}));
    EXPECT_NEAR(clip->sourceRate, 10.0, 1e-5);
}

// Writing.

TEST_F(ElectricImage, TheHeaderOfAnRgbFrameIsToTheByte) {
    clip->alphaMode = 0;
    clip->sourceRate = 25;
    ASSERT_TRUE(Create(2, 1));
    ASSERT_TRUE(Add(Pixels({0x11010203, 0x22040506}), 0));
    ASSERT_TRUE(Add(Pixels({0x11010203, 0x22040506}), 1));
    Close();
    Bytes data = {0x81, 1, 2, 3, 4, 5, 6};
    Record first = {.width = 2, .packed = 1, .data = data}, second = first;
    second.time = 1 / 25.0;
    EXPECT_EQ(Read(), FileOf({first, second}));
    ASSERT_TRUE(Reopen());
    EXPECT_NEAR(clip->sourceRate, 25.0, 1e-5);
}

TEST_F(ElectricImage, AFrameWithoutAlphaHasOneColourOfThreeZeroBytes) {
    clip->alphaMode = 0;
    ASSERT_TRUE(Create(1, 1));
    ASSERT_TRUE(Add(Pixels({0x11010203}), 0));
    Close();
    Bytes bytes = Read();
    EXPECT_EQ(Bytes(bytes.begin() + 34, bytes.begin() + 41), (Bytes{0, 1, 0, 0, 0, 0, 0}));
}

TEST_F(ElectricImage, OnlyAlphaMode2KeepsAlpha) {
    struct {
        i32 mode;
        u8 depth, indexed, alphaDepth;
    } cases[] = {{0, 24, 0, 0}, {1, 8, 1, 0}, {2, 24, 0, 8}};
    for (auto c : cases) {
        clip->alphaMode = c.mode;
        ASSERT_TRUE(Create(1, 1));
        ASSERT_TRUE(Add(Pixels({0x11010203}), 0));
        Close();
        Bytes bytes = Read();
        EXPECT_EQ(bytes[18], c.depth);
        EXPECT_EQ(bytes[19], c.indexed);
        EXPECT_EQ(bytes[29], c.alphaDepth);
        EXPECT_EQ(bytes[34] << 8 | bytes[35], c.mode == 1 ? 256 : 1);
    }
}

TEST_F(ElectricImage, AFileClosedWithoutAFrameHoldsSixZeroBytes) {
    ASSERT_TRUE(Create(4, 4));
    Close();
    EXPECT_EQ(Read(), Bytes(6, 0));
}

TEST_F(ElectricImage, CreateMakesTheOptionBlockAndKeepsOneThatIsThere) {
    ASSERT_TRUE(Create(1, 1));
    ASSERT_NE(clip->options, nullptr);
    EXPECT_EQ(clip->options->length, 4u);
    u32 word;
    std::memcpy(&word, clip->options->data, 4);
    EXPECT_EQ(word, 1u);
    Close();
    SetPacking(0);
    ASSERT_TRUE(Create(1, 1));
    std::memcpy(&word, clip->options->data, 4);
    EXPECT_EQ(word, 0u);
}

TEST_F(ElectricImage, OptionWord0WritesPlainRowsAnyOtherPacks) {
    Bytes pixels = Pixels({0x01020304, 0x01020304, 0x01020304});
    SetPacking(0);
    EXPECT_EQ(Packed(3, 1, 2, pixels), pixels);
    EXPECT_EQ(Read()[28], 0);
    SetPacking(0x80000000);
    EXPECT_EQ(Packed(3, 1, 2, pixels), (Bytes{2, 1, 2, 3, 4}));
    EXPECT_EQ(Read()[28], 1);
}

TEST_F(ElectricImage, EightEqualBytesBeforeOthersAreARun) {
    EXPECT_EQ(Packed(10, 1, 1, Greys({5, 5, 5, 5, 5, 5, 5, 5, 1, 2})), (Bytes{7, 5, 0x81, 1, 2}));
}

TEST_F(ElectricImage, ThreeEqualBytesStayLiteralFourAreARun) {
    EXPECT_EQ(Packed(6, 1, 1, Greys({5, 5, 5, 1, 2, 3})), (Bytes{0x85, 5, 5, 5, 1, 2, 3}));
    EXPECT_EQ(Packed(6, 1, 1, Greys({5, 5, 5, 5, 1, 2})), (Bytes{3, 5, 0x81, 1, 2}));
}

TEST_F(ElectricImage, FourEqualBytesAtTheEndOfARowStayLiteral) {
    EXPECT_EQ(Packed(4, 1, 1, Greys({5, 5, 5, 5})), (Bytes{0x83, 5, 5, 5, 5}));
    EXPECT_EQ(Packed(5, 1, 1, Greys({5, 5, 5, 5, 5})), (Bytes{4, 5}));
    EXPECT_EQ(Packed(5, 1, 1, Greys({1, 5, 5, 5, 5})), (Bytes{0x84, 1, 5, 5, 5, 5}));
}

TEST_F(ElectricImage, TwoEqualPixelsAreARunAlsoAtTheEndOfARow) {
    EXPECT_EQ(Packed(3, 1, 0, Pixels({0x01020304, 0x05060708, 0x05060708})), (Bytes{0x80, 2, 3, 4, 1, 6, 7, 8}));
}

TEST_F(ElectricImage, TriplesCompareWithoutAlphaQuadsWithIt) {
    // Alpha mode 0 writes opaque pixels, so that alpha cannot differ there; mode 2 keeps it.
    Bytes pixels = Pixels({0x01020304, 0x02020304});
    EXPECT_EQ(Packed(2, 1, 0, pixels), (Bytes{1, 2, 3, 4}));
    EXPECT_EQ(Packed(2, 1, 2, pixels), (Bytes{0x81, 1, 2, 3, 4, 2, 2, 3, 4}));
}

TEST_F(ElectricImage, RunsEndAt128AndAtTheEndOfTheRow) {
    EXPECT_EQ(Packed(129, 1, 2, Repeat(Bytes{1, 2, 3, 4}, 129)), (Bytes{127, 1, 2, 3, 4, 0x80, 1, 2, 3, 4}));
    EXPECT_EQ(Packed(130, 1, 2, Repeat(Bytes{1, 2, 3, 4}, 130)), (Bytes{127, 1, 2, 3, 4, 1, 1, 2, 3, 4}));
    EXPECT_EQ(Packed(2, 2, 2, Repeat(Bytes{1, 2, 3, 4}, 4)), (Bytes{1, 1, 2, 3, 4, 1, 1, 2, 3, 4}));
}

TEST_F(ElectricImage, ALiteralStaysOpenOverTheEndsOfRows) {
    EXPECT_EQ(Packed(2, 2, 0, Pixels({0x01010101, 0x02020202, 0x03030303, 0x04040404})),
              (Bytes{0x83, 1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4, 4}));
}

TEST_F(ElectricImage, ALiteralOf128IsClosedWith255) {
    Bytes values;
    for (int i = 0; i < 130; ++i) values.push_back(u8(i));
    Bytes packed = Packed(130, 1, 1, Greys(values));
    EXPECT_EQ(packed[0], 255);
    EXPECT_EQ(packed[129], 0x81);
    EXPECT_EQ(packed.size(), 132u);
}

TEST_F(ElectricImage, RandomFramesComeBackInAllModes) {
    for (int round = 0; round < 60; ++round) {
        i32 width = i32(random() % 300) + 1, height = i32(random() % 40) + 1;
        i32 mode = round % 3;
        Bytes pixels = RandomPixels(width, height, round % 2);
        clip->alphaMode = mode;
        SetPacking(round % 5 != 0);
        ASSERT_TRUE(Create(width, height));
        ASSERT_TRUE(Add(pixels, 0));
        ASSERT_TRUE(Add(pixels, 1));
        Close();
        for (size_t i = 0; i < pixels.size(); i += 4) {
            if (mode == 1) pixels[i + 1] = pixels[i + 2] = pixels[i + 3] = pixels[i];
            if (mode < 2) pixels[i] = 255;
        }
        ASSERT_TRUE(Reopen());
        ASSERT_EQ(Frame(1), pixels) << round;
    }
}

TEST_F(ElectricImage, FramesOfManyBandsComeBack) {
    for (bool runs : {false, true}) {
        Bytes pixels = RandomPixels(1000, 500, runs);
        clip->alphaMode = 2;
        ASSERT_TRUE(Create(1000, 500));
        ASSERT_TRUE(Add(pixels, 0));
        Close();
        ASSERT_TRUE(Reopen());
        EXPECT_EQ(Frame(0), pixels);
    }
}

TEST_F(ElectricImage, TheSameFramesGiveTheSameFile) {
    Bytes pixels = RandomPixels(301, 200, true), first;
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(Create(301, 200));
        for (i32 i = 0; i < 3; ++i) ASSERT_TRUE(Add(pixels, i));
        Close();
        Bytes bytes = Read();
        if (round == 0) first = bytes;
        EXPECT_EQ(bytes, first);
    }
}

TEST_F(ElectricImage, ABitmapOfAnotherDepthIsRefused) {
    ASSERT_TRUE(Create(4, 4));
    KQBitmap* grey = AllocBitmapKQ(4, 4, 8);
    EXPECT_EQ(module->AddFrame(clip, grey, 0, nullptr), 0);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_BADDATA));
    FreeBitmapKQ(grey);
    EXPECT_EQ(clip->sourceFrames, 0);
}

TEST_F(ElectricImage, EveryFailedAllocationAndFileCallOfWritingIsCopedWith) {
    small = AllocBitmapKQ(30, 9, 32);
    FillBitmapKQ(small, 0xFF102030);
    auto write = [&] {
        if (Create(30, 9)) {
            module->AddFrame(clip, small, 0, nullptr);
            module->AddFrame(clip, small, 1, nullptr);
        }
        Close();
        FreeMemoryKQ(clip->options);
        clip->options = nullptr;
    };
    kqtest::FailEveryAllocation(write);
    kqtest::FailEveryFileCall(write);
    FreeBitmapKQ(small);
}

TEST_F(ElectricImage, WithLessMemoryAFrameIsWrittenTheSame) {
    Bytes pixels = RandomPixels(400, 60, true);
    for (i32 mode : {0, 1, 2}) {
        clip->alphaMode = mode;
        const Bytes whole = WrittenShortOfMemory(pixels, 400, 60, 0, 0);
        ASSERT_FALSE(whole.empty());
        i64 failures = 1;
        for (; failures < 200; ++failures) {
            Bytes bytes = WrittenShortOfMemory(pixels, 400, 60, 0, failures);
            if (bytes.empty()) break;
            ASSERT_EQ(bytes, whole) << "mode " << mode << ", " << failures << " failures";
        }
        EXPECT_GT(failures, 30) << "40 rows fit at first";
        EXPECT_LT(failures, 200);
        EXPECT_EQ(clip->sourceFrames, 0);
    }
}

TEST_F(ElectricImage, SizesThatNoReaderWouldTakeAreNotWritten) {
    ASSERT_TRUE(Create(4, 4));
    ExpectOversizeRefused();
    EXPECT_EQ(clip->sourceFrames, 0);
    Close();
    EXPECT_EQ(Read(), Bytes(6)) << "a file without a frame";
}

// The writer goes on behind a frame record that claims 4 GB, which lies in the file as a hole.
TEST_F(ElectricImage, FramesAreWrittenBehind4GB) {
    Bytes first = RandomPixels(8, 4), second = RandomPixels(8, 4);
    SetPacking(0);
    ASSERT_TRUE(Create(8, 4));
    ASSERT_TRUE(Add(first, 0));
    auto data = static_cast<kq::EIDIClip*>(clip->moduleData);
    constexpr i64 kHole = 0xFFFFFF00;
    data->end = 6 + 35 + kHole;
    ASSERT_TRUE(Add(second, 1));
    EXPECT_EQ(data->end, 6 + 35 + kHole + 35 + 128);
    Close();
    EXPECT_EQ(i64(std::filesystem::file_size(path)), 6 + 35 + kHole + 35 + 128);
    Bytes length;
    kqtest::Put32(length, u32(kHole));
    WriteAt(6 + 24, length);
    ASSERT_TRUE(Reopen());
    EXPECT_EQ(clip->sourceFrames, 2);
    EXPECT_EQ(Frame(0), first);
    EXPECT_EQ(Frame(1), second);
}

TEST_F(ElectricImage, WhateverWriteFailsTheFileHoldsTheFramesThatSucceeded) {
    Bytes good = RandomPixels(20, 20), other = RandomPixels(20, 20);
    for (i64 n = 1; n < 40; ++n) {
        ASSERT_TRUE(Create(20, 20));
        ASSERT_TRUE(Add(good, 0));
        FailFileCall(n);
        bool added = Add(other, 1);
        bool reached = kq::fileFaults.failures > 0;
        kq::fileFaults.Clear();
        EXPECT_EQ(clip->sourceFrames, added ? 2 : 1);
        Close();
        ASSERT_TRUE(Reopen()) << n;
        EXPECT_EQ(Frame(0), good) << n;
        if (!reached) {
            EXPECT_EQ(Frame(1), other);
            break;
        }
    }
}

#if !defined(_WIN32)
TEST_F(ElectricImage, OnAFullDiskTheFramesThatFitAreAFile) {
    Bytes pixels = RandomPixels(64, 64);
    ASSERT_TRUE(Create(64, 64));
    size_t frame = 0;
    {
        ASSERT_TRUE(Add(pixels, 0));
        frame = Read().size() - 6;
        kqtest::FileSizeLimit limit(frame * 2 + 5000);
        EXPECT_TRUE(Add(pixels, 1));
        EXPECT_FALSE(Add(pixels, 2));
        EXPECT_EQ(GetErrorKQ(), u32(KQERR_DISKFULL));
        Close();
    }
    EXPECT_EQ(Read().size(), 6 + 2 * frame);
    ASSERT_TRUE(Reopen());
    EXPECT_EQ(clip->sourceFrames, 2);
    EXPECT_EQ(Frame(1), pixels);
}

TEST_F(ElectricImage, OnADiskFullAtTheFirstFrameTheFileHoldsNone) {
    Bytes pixels = RandomPixels(64, 64);
    ASSERT_TRUE(Create(64, 64));
    {
        kqtest::FileSizeLimit limit(5000);
        EXPECT_FALSE(Add(pixels, 0));
        EXPECT_EQ(GetErrorKQ(), u32(KQERR_DISKFULL));
        EXPECT_EQ(clip->sourceFrames, 0);
    }
    EXPECT_TRUE(Add(pixels, 0)) << "there is room again";
    Close();
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_NONE));
    ASSERT_TRUE(Reopen());
    EXPECT_EQ(clip->sourceFrames, 1);
    EXPECT_EQ(Frame(0), pixels);
}

TEST_F(ElectricImage, OnADiskFullAtTheCloseOfNoFrameTheErrorTells) {
    ASSERT_TRUE(Create(64, 64));
    {
        kqtest::FileSizeLimit limit(0);
        Close();
        EXPECT_EQ(GetErrorKQ(), u32(KQERR_DISKFULL));
    }
    EXPECT_EQ(Read().size(), 0u);
}
#endif

// The number of frames lies at the file's start, where there is room whatever the disk says; that the write fails all
// the same is told, and the frames stay.
TEST_F(ElectricImage, AFailedWriteAtTheCloseIsToldAndKeepsTheFrames) {
    Bytes pixels = RandomPixels(8, 8);
    for (i64 n = 1; n <= 10; ++n) {
        ASSERT_TRUE(Create(8, 8));
        ASSERT_TRUE(Add(pixels, 0));
        FailFileCall(n);
        Close();
        bool reached = kq::fileFaults.failures > 0;
        kq::fileFaults.Clear();
        if (!reached) {
            EXPECT_GT(n, 4);
            EXPECT_EQ(GetErrorKQ(), u32(KQERR_NONE));
            break;
        }
        bool told = GetErrorKQ() != KQERR_NONE;
        // Of the calls that find the place one only asks for it; the others and the write are told.
        EXPECT_TRUE(told || n == 4) << n;
        ASSERT_TRUE(Reopen()) << n;
        EXPECT_EQ(clip->sourceFrames, 1) << n;
        EXPECT_EQ(Frame(0), pixels) << n;
    }
}
