// Quantel VPB pictures: the header's records, the exact arithmetic, and bad files.
#include <ctime>

#include "Source/Startup.h"
#include "kq/files.h"
#include "support/FormatTest.h"

using kqtest::Bytes;
using kqtest::FormatTest;

namespace {

void PutRecord(Bytes& header, u8 tag, u8 length, const Bytes& value) {
    header.insert(header.end(), {tag, 1, length});
    header.insert(header.end(), value.begin(), value.end());
}

Bytes PictureValue(int width, int height, u32 offset = 0, int type = 16) {
    Bytes value;
    for (int word : {type, 0, width, height, 0, 0}) kqtest::Put16(value, u16(word));
    kqtest::Put32(value, offset);
    kqtest::Put32(value, 0);
    return value;
}

// A whole header with the picture record at its start, and `data` behind it.
Bytes FileOf(int width, int height, const Bytes& data, u32 offset = 0) {
    Bytes bytes;
    PutRecord(bytes, 16, 20, PictureValue(width, height, offset));
    bytes.resize(1024, 0xFF);
    bytes.insert(bytes.end(), data.begin(), data.end());
    return bytes;
}

class VPB : public FormatTest {
protected:
    VPB() : FormatTest(kq::MakeVPBModule, "x.vpb") {}

    void TearDown() override {
        clip->moduleData = nullptr;
        FormatTest::TearDown();
    }

    bool OpenAnew() {
        clip->moduleData = nullptr;
        return Open();
    }

    // The first pixel pair of the file that a row of these pixels gives.
    Bytes Written(const Bytes& pixels) {
        EXPECT_TRUE(Create(i32(pixels.size() / 4), 1));
        EXPECT_TRUE(Add(pixels, 0));
        Bytes bytes = Read();
        return Bytes(bytes.begin() + 1024, bytes.begin() + 1024 + i64(pixels.size() / 2));
    }
};

}   // namespace

TEST_F(VPB, TheModuleHasItsTableEntries) {
    EXPECT_STREQ(module->node.Name, "Quantel VPB");
    EXPECT_EQ(module->fileType, KQCode4("VPB "));
    EXPECT_EQ(module->fileCreator, KQ_ANYCODE);
    ASSERT_EQ(module->importTypeCount, 1);
    EXPECT_EQ(module->importTypes[0].type, KQCode4("VPB "));
    EXPECT_EQ(module->importTypes[0].creator, KQ_ANYCODE);
    EXPECT_EQ(module->importExts[0], 0x76706200u);
    EXPECT_EQ(module->maxHeight, 32767);
    EXPECT_EQ(module->ImportProperties(module), 12u);
    EXPECT_EQ(module->ExportProperties(module, clip), 12u);
    EXPECT_EQ(module->Create(clip, 0), 1);
    EXPECT_EQ(module->BeginIO(clip, 0), 1);
    EXPECT_EQ(module->EndIO(clip, 0), 1);
    EXPECT_EQ(module->GetGBuffers, nullptr);
    EXPECT_EQ(module->ClipOptions, nullptr);
}

TEST_F(VPB, OpenTakesTheSizeOfOneFrameOf24Bits) {
    Write(FileOf(6, 4, Bytes(48)));
    ASSERT_TRUE(Open());
    EXPECT_EQ(clip->width, 6);
    EXPECT_EQ(clip->height, 4);
    EXPECT_EQ(clip->depth, 24);
    EXPECT_EQ(clip->sourceFrames, 1);
    EXPECT_EQ(clip->moduleData, reinterpret_cast<void*>(uptr(1)));
    clip->width = 9;
    EXPECT_TRUE(Open());
    EXPECT_EQ(clip->width, 9);
}

TEST_F(VPB, ThePictureRecordIsFoundBehindOthers) {
    Bytes bytes;
    PutRecord(bytes, 3, 7, {'P', 'i', 'c', 't', 'u', 'r', 'e'});
    PutRecord(bytes, 255, 2, {16, 16});
    PutRecord(bytes, 16, 20, PictureValue(6, 4));
    bytes.resize(1024);
    Write(bytes);
    ASSERT_TRUE(Open());
    EXPECT_EQ(clip->width, 6);
}

TEST_F(VPB, ARecordOfLength0TakesFourBytes) {
    Bytes bytes;
    PutRecord(bytes, 7, 0, {16});
    PutRecord(bytes, 16, 20, PictureValue(6, 4));
    bytes.resize(1024);
    Write(bytes);
    EXPECT_TRUE(Open());
}

TEST_F(VPB, APictureRecordOfAnotherTypeIsPassedOver) {
    Bytes bytes;
    PutRecord(bytes, 16, 20, PictureValue(1, 1, 0, 15));
    PutRecord(bytes, 16, 20, PictureValue(6, 4));
    bytes.resize(1024);
    Write(bytes);
    ASSERT_TRUE(Open());
    EXPECT_EQ(clip->width, 6);
}

TEST_F(VPB, AShorterLengthThan20IsNoObstacle) {
    Bytes bytes;
    PutRecord(bytes, 16, 3, PictureValue(6, 4));
    bytes.resize(1024);
    Write(bytes);
    EXPECT_TRUE(Open());
}

TEST_F(VPB, APictureRecordThatRunsOverTheHeaderIsRefused) {
    for (size_t at : {1001u, 1002u}) {
        Bytes bytes;
        while (bytes.size() < at) {
            size_t left = at - bytes.size();
            u8 length = u8(left > 200 ? 100 : left - 3);
            PutRecord(bytes, 9, length, Bytes(length));
        }
        PutRecord(bytes, 16, 20, PictureValue(6, 4));
        bytes.resize(2048);
        Write(bytes);
        EXPECT_EQ(OpenAnew(), at == 1001) << at;
    }
}

TEST_F(VPB, AHeaderWithoutAPictureRecordIsRefused) {
    for (u8 fill : {0, 1, 15, 255}) {
        Write(Bytes(1024, fill));
        EXPECT_FALSE(Open()) << int(fill);
    }
}

TEST_F(VPB, AFileShorterThanItsHeaderIsRefused) {
    Bytes bytes = FileOf(6, 4, {});
    for (size_t length = 0; length < 1024; ++length) {
        Write(Bytes(bytes.begin(), bytes.begin() + i64(length)));
        ASSERT_FALSE(Open()) << length;
        ASSERT_EQ(GetErrorKQ(), u32(KQERR_READ));
    }
}

TEST_F(VPB, AMissingFileIsRefusedAsNotFound) {
    EXPECT_FALSE(Open());
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_NOTFOUND));
}

TEST_F(VPB, SizesOf0AndBelowAreRefusedAsBadData) {
    for (auto [width, height] : {std::pair{0, 4}, {4, 0}, {-4, 4}, {4, -4}, {0x8000, 1}}) {
        Write(FileOf(width, height, Bytes(64)));
        EXPECT_FALSE(Open()) << width << " " << height;
        EXPECT_EQ(GetErrorKQ(), u32(KQERR_BADDATA));
    }
}

TEST_F(VPB, AHeightOf0ThatComesLaterReadsNothingAndSucceeds) {
    Write(FileOf(2, 1, Bytes(4)));
    ASSERT_TRUE(Open());
    Write(FileOf(2, 0, Bytes(4)));
    EXPECT_EQ(Frame(0), Bytes(8, 0xA5));
}

TEST_F(VPB, EveryHeaderFieldAtItsLimitsIsTakenOrRefusedCleanly) {
    // A record of another tag, then the picture's, whose fields follow its three bytes of head.
    Bytes good;
    PutRecord(good, 4, 4, {1, 2, 3, 4});
    PutRecord(good, 16, 20, PictureValue(6, 4));
    good.resize(1024, 0xFF);
    good.resize(1024 + 48, 0x60);
    std::vector<std::pair<size_t, size_t>> fields = {{0, 1}, {1, 1}, {2, 1}, {3, 4}, {7, 1}, {8, 1}, {9, 1}};
    for (auto [at, size] : std::initializer_list<std::pair<size_t, size_t>>{
             {0, 2}, {2, 2}, {4, 2}, {6, 2}, {8, 2}, {10, 2}, {12, 4}, {16, 4}})
        fields.emplace_back(10 + at, size);
    i64 opened = 0;
    for (auto [at, size] : fields)
        for (u32 value : FieldLimits(size)) {
            SCOPED_TRACE(testing::Message() << "field at " << at << " is " << value);
            Bytes bytes = good;
            PatchField(bytes, at, size, value);
            Write(bytes);
            if (!OpenAnew()) continue;
            ++opened;
            ASSERT_GT(clip->width, 0);
            ASSERT_GT(clip->height, 0);
            ASSERT_LE(i64(clip->width) * clip->height, i64(1) << 24);
            Frame(0);
        }
    EXPECT_GT(opened, 30);
}

TEST_F(VPB, AHugePictureIsRefusedWhenTheFileCannotHoldOne) {
    Write(FileOf(32767, 8000, Bytes(64)));
    EXPECT_FALSE(Open());
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_BADDATA));
}

TEST_F(VPB, AnOffsetThatLiesReadsNothing) {
    Write(FileOf(2, 2, Bytes(8), 0xFFFFFFFF));
    ASSERT_TRUE(Open());
    EXPECT_EQ(Frame(0), Bytes(16, 0xA5));
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_READ));
}

TEST_F(VPB, CutAtEveryByteItGivesThePixelsThatAreThere) {
    Bytes data(20 * 40 * 2, 128), bytes = FileOf(20, 40, data);
    for (size_t length = 1024; length <= bytes.size(); ++length) {
        Write(Bytes(bytes.begin(), bytes.begin() + i64(length)));
        ASSERT_TRUE(OpenAnew());
        Bytes pixels = Frame(0);
        size_t there = (length - 1024) / 2;
        ASSERT_EQ(GetErrorKQ(), u32(length < bytes.size() ? KQERR_READ : KQERR_NONE)) << length;
        for (size_t i = 0; i < 800; ++i) ASSERT_EQ(pixels[i * 4], i < there ? 255 : 0xA5) << length << " " << i;
    }
}

#if !defined(_WIN32)
TEST_F(VPB, AFileThatShrinksWhileItIsOpenIsReadAsFarAsItGoes) {
    Write(FileOf(2, 3, Bytes(12, 128)));
    ASSERT_TRUE(Open());
    std::filesystem::resize_file(path, 1024 + 6);   // a row and a half
    Bytes pixels = Frame(0);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_READ));
    ASSERT_EQ(pixels.size(), 24u);
    EXPECT_EQ(Bytes(pixels.begin(), pixels.begin() + 4), (Bytes{255, 128, 128, 128}));
    EXPECT_EQ(Bytes(pixels.begin() + 12, pixels.end()), Bytes(12, 0xA5));
    std::filesystem::resize_file(path, 500);   // not even the header
    EXPECT_TRUE(Frame(0).empty());
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_READ));
}
#endif

TEST_F(VPB, DataOffsetMovesThePixels) {
    Bytes data(7, 9);
    data.insert(data.end(), {128, 50, 128, 60});
    Write(FileOf(2, 1, data, 7));
    ASSERT_TRUE(Open());
    EXPECT_EQ(Frame(0), (Bytes{255, 50, 50, 50, 255, 60, 60, 60}));
}

// Arithmetic.

TEST_F(VPB, GreyIs128And128AndComesBack) {
    EXPECT_EQ(Written({255, 128, 128, 128, 255, 128, 128, 128}), (Bytes{128, 128, 128, 128}));
    ASSERT_TRUE(OpenAnew());
    EXPECT_EQ(Frame(0), (Bytes{255, 128, 128, 128, 255, 128, 128, 128}));
}

TEST_F(VPB, WhiteIs255AndComesBack) {
    EXPECT_EQ(Written({255, 255, 255, 255, 255, 255, 255, 255}), (Bytes{128, 255, 128, 255}));
    ASSERT_TRUE(OpenAnew());
    EXPECT_EQ(Frame(0), Bytes(8, 255));
}

TEST_F(VPB, RedAtAnOddPlaceHasAFirstByteOf255) { EXPECT_EQ(Written({255, 0, 0, 0, 255, 255, 0, 0})[2], 255); }

TEST_F(VPB, EachPixelUsesTheLatestChromaAndTheFirstHasACrOf0) {
    Write(FileOf(4, 2, {128, 100, 255, 100, 128, 100, 128, 100, 0, 100, 128, 100, 128, 100, 128, 100}));
    ASSERT_TRUE(Open());
    Bytes pixels = Frame(0);
    EXPECT_EQ(pixels[1], 100);
    EXPECT_EQ(pixels[5], 255);   // 100 + 178, clamped
    EXPECT_EQ(pixels[9], pixels[5]);
    EXPECT_EQ(pixels[13], 100);
    EXPECT_EQ(pixels[17], 100);   // the second row begins without the first one's chroma
    EXPECT_EQ(pixels[19], 0);
}

TEST_F(VPB, OddWidthsEndOnHalfAPair) {
    Bytes pixels = RandomPixels(5, 3);
    ASSERT_TRUE(Create(5, 3));
    ASSERT_TRUE(Add(pixels, 0));
    EXPECT_EQ(Read().size(), 2048u);
    ASSERT_TRUE(OpenAnew());
    EXPECT_EQ(Frame(0).size(), 60u);
}

// Writing.

TEST_F(VPB, TheHeaderHasItsRecordsInOrder) {
    std::time_t before = std::time(nullptr);
    clip->alphaMode = 0;
    ASSERT_TRUE(Create(720, 576));
    ASSERT_TRUE(Add(Bytes(720 * 576 * 4, 128), 0));
    EXPECT_EQ(clip->sourceFrames, 1);
    Bytes bytes = Read();
    Bytes header;
    auto text = [](const std::string& t) { return Bytes(t.begin(), t.end()); };
    auto record = [&](u8 tag, u8 kind, const Bytes& value) {
        header.insert(header.end(), {tag, kind, u8(value.size())});
        header.insert(header.end(), value.begin(), value.end());
    };
    // 720 is 0x02D0 and 576 is 0x0240: swapped, 0xD002 * 0x4002 * 2 + 1023 in 32 bits.
    u32 size = (0xD002u * 0x4002u * 2 + 1023) & ~1023u;
    Bytes little = {u8(size), u8(size >> 8), u8(size >> 16), u8(size >> 24)};
    Bytes picture = {0, 16, 0, 0, 2, 0xD0, 2, 0x40, 0x70, 0x08, 0x00, 0x09, 0, 0, 0, 0};
    kqtest::Put32(picture, size);
    record(3, 0, text("Picture"));
    record(4, 1, little);
    record(2, 0, text("x.vpb"));
    record(16, 1, picture);
    size_t banner = header.size();
    record(151, 0, Bytes(bytes.begin() + i64(banner) + 3, bytes.begin() + i64(banner) + 3 + 34));
    record(153, 1, {0, 100});
    size_t date = header.size();
    record(152, 1, Bytes(bytes.begin() + i64(date) + 3, bytes.begin() + i64(date) + 3 + 16));
    header.resize(1024, 0xFF);
    EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + 1024), header);

    const u8* words = bytes.data() + date + 3;
    auto word = [&](int i) { return words[i * 2] | words[i * 2 + 1] << 8; };
    std::tm when = {};
    when.tm_mday = word(1);
    when.tm_mon = word(2) - 1;
    when.tm_year = word(3) + 80;
    when.tm_hour = word(4);
    when.tm_min = word(5);
    when.tm_sec = word(6);
    when.tm_isdst = -1;
    std::time_t told = std::mktime(&when);
    EXPECT_GE(told, before);
    EXPECT_LE(told, std::time(nullptr));
    EXPECT_EQ(word(0), when.tm_wday);
    EXPECT_EQ(word(7), 0);
}

TEST_F(VPB, A720By576PictureNeedsNoPadding) {
    ASSERT_TRUE(Create(720, 576));
    ASSERT_TRUE(Add(Bytes(720 * 576 * 4), 0));
    EXPECT_EQ(Read().size(), 830464u);
}

TEST_F(VPB, OtherPicturesArePaddedWithZeros) {
    ASSERT_TRUE(Create(10, 10));
    ASSERT_TRUE(Add(Bytes(400, 128), 0));
    Bytes bytes = Read();
    ASSERT_EQ(bytes.size(), 2048u);
    EXPECT_EQ(Bytes(bytes.begin() + 1224, bytes.end()), Bytes(824, 0));
}

TEST_F(VPB, TheSamePictureGivesTheSameFileButForItsDate) {
    Bytes pixels = RandomPixels(33, 21), first;
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(Create(33, 21));
        ASSERT_TRUE(Add(pixels, 0));
        Bytes bytes = Read();
        // Behind the records of the title, the size, the name, the picture, the banner and the percentage.
        size_t date = 10 + 7 + 8 + 23 + 37 + 5 + 3;
        std::fill_n(bytes.begin() + i64(date), 16, u8(0));
        if (round == 0) first = bytes;
        EXPECT_EQ(bytes, first);
    }
}

TEST_F(VPB, GreysComeBackExactly) {
    Bytes pixels;
    for (int i = 0; i < 256; ++i) pixels.insert(pixels.end(), {255, u8(i), u8(i), u8(i)});
    ASSERT_TRUE(Create(256, 1));
    ASSERT_TRUE(Add(pixels, 0));
    ASSERT_TRUE(OpenAnew());
    EXPECT_EQ(Frame(0), pixels);
}

TEST_F(VPB, PicturesOfManyChunksFollowThePlainArithmetic) {
    Bytes pixels = RandomPixels(77, 100);
    ASSERT_TRUE(Create(77, 100));
    ASSERT_TRUE(Add(pixels, 0));
    Bytes bytes = Read();
    for (size_t i = 0; i < 7700; ++i) {
        i32 r = pixels[i * 4 + 1], g = pixels[i * 4 + 2], b = pixels[i * 4 + 3];
        bool odd = i % 77 % 2;
        i32 chroma = odd ? r * 32768 - g * 27439 - b * 5329 : b * 32768 - g * 21709 - r * 11059;
        ASSERT_EQ(bytes[1024 + i * 2], u8((chroma + 0x807FFF) >> 16)) << i;
        ASSERT_EQ(bytes[1025 + i * 2], u8((r * 19595 + g * 38470 + b * 7471 + 32767) >> 16)) << i;
    }
}

TEST_F(VPB, EveryFailedAllocationAndFileCallIsCopedWith) {
    small = AllocBitmapKQ(8, 8, 32);
    FillBitmapKQ(small, 0xFF102030);
    clip->width = clip->height = 8;
    auto both = [&] {
        module->AddFrame(clip, small, 0, nullptr);
        if (OpenAnew()) module->GetFrame(clip, small, 0, nullptr, 8, 8, 0);
    };
    kqtest::FailEveryAllocation(both);
    kqtest::FailEveryFileCall(both);
    FreeBitmapKQ(small);
}

TEST_F(VPB, WithLessMemoryAPictureReadsTheSame) {
    ASSERT_TRUE(Create(50, 70));
    ASSERT_TRUE(Add(RandomPixels(50, 70), 0));
    ASSERT_TRUE(OpenAnew());
    const Bytes whole = Frame(0);
    small = AllocBitmapKQ(50, 70, 32);
    const i64 opening = AllocationsOf([&] { CloseFileKQ(OpenFileKQ(path.c_str(), KQFILE_Read)); });
    for (i64 failures = 1; failures <= 33; ++failures) {
        std::memset(small->data, 0xA5, size_t(small->dataSize));
        kq::allocationFaults.SetSpan(opening + 1, failures);
        i32 got = module->GetFrame(clip, small, 0, nullptr, 50, 70, 0);
        kq::allocationFaults.Clear();
        EXPECT_EQ(got != 0, failures < 32) << failures;
        if (got) {
            EXPECT_EQ(Bytes(small->data, small->data + small->dataSize), whole) << failures;
        }
    }
    FreeBitmapKQ(small);
}

TEST_F(VPB, WithLessMemoryAPictureIsWrittenTheSameDownToTwoRows) {
    Bytes pixels = RandomPixels(50, 70);
    auto behindTheDate = [](const Bytes& bytes) {
        return bytes.empty() ? bytes : Bytes(bytes.begin() + 1024, bytes.end());
    };
    const Bytes whole = behindTheDate(WrittenShortOfMemory(pixels, 50, 70, 0, 0));
    ASSERT_FALSE(whole.empty());
    for (i64 failures = 1; failures <= 32; ++failures) {
        Bytes bytes = behindTheDate(WrittenShortOfMemory(pixels, 50, 70, 0, failures));
        EXPECT_EQ(bytes.empty(), failures > 30) << failures;
        if (!bytes.empty()) {
            EXPECT_EQ(bytes, whole) << failures;
        }
    }
}

TEST_F(VPB, WithoutMemoryAnOlderPictureStays) {
    ASSERT_TRUE(Create(50, 70));
    ASSERT_TRUE(Add(RandomPixels(50, 70), 0));
    Close();
    const Bytes before = Read();
    EXPECT_TRUE(WrittenShortOfMemory(RandomPixels(50, 70), 50, 70, 0, 1000).empty());
    EXPECT_EQ(Read(), before);
}

TEST_F(VPB, SizesThatNoReaderWouldTakeAreNotWritten) {
    ASSERT_TRUE(Create(4, 4));
    ExpectOversizeRefused();
    EXPECT_FALSE(FileExistsKQ(path.c_str())) << "nothing is made for them";
}

TEST_F(VPB, AFailedWriteIsReportedAndCountsNoFrame) {
    for (i64 n = 1; n < 20; ++n) {
        ASSERT_TRUE(Create(8, 8));
        FailFileCall(n);
        bool added = Add(RandomPixels(8, 8), 0);
        bool reached = kq::fileFaults.failures > 0;
        kq::fileFaults.Clear();
        EXPECT_EQ(added, !reached) << n;
        EXPECT_EQ(clip->sourceFrames, added ? 1 : 0);
        EXPECT_EQ(GetErrorKQ() == KQERR_NONE, added) << n;
        if (!reached) break;
    }
}

#if !defined(_WIN32)
TEST_F(VPB, OnAFullDiskThePartlyWrittenFileStays) {
    ASSERT_TRUE(Create(64, 64));
    {
        kqtest::FileSizeLimit limit(4000);
        EXPECT_FALSE(Add(RandomPixels(64, 64), 0));
        EXPECT_EQ(GetErrorKQ(), u32(KQERR_DISKFULL));
    }
    EXPECT_EQ(clip->sourceFrames, 0);
    EXPECT_EQ(Read().size(), 4000u);
}
#endif

TEST_F(VPB, AClosedSequenceReopensByItsFirstFile) {
    InitFormatModulesKQ(nullptr);
    Bytes file = FileOf(2, 1, Bytes{128, 128, 128, 128});
    for (const char* name : {"a1.vpb", "a2.vpb"}) kqtest::WriteWholeFile(Folder() + name, file.data(), file.size());
    KQClip* sequence = OpenClipKQ((Folder() + "a1.vpb").c_str(), KQTAG_CLIP_NOASK, 0, 0);
    ASSERT_NE(sequence, nullptr);
    EXPECT_EQ(sequence->sourceFrames, 2);
    KQClip* clone = CloneClipKQ(sequence, nullptr);
    ASSERT_NE(clone, nullptr);
    CloseClipKQ(sequence);
    EXPECT_EQ(OpenClipKQ(clone, nullptr), 1);
    EXPECT_EQ(clone->sourceFrames, 2);
    EXPECT_NE(std::string(clone->fileSpec).find("a[#].vpb"), std::string::npos);
    DeleteFileKQ((Folder() + "a1.vpb").c_str());
    clone->moduleData = nullptr;
    EXPECT_EQ(OpenClipKQ(clone, nullptr), 0);
    EXPECT_EQ(GetErrorKQ(), KQERR_NOTFOUND);
    for (KQClip* each : {sequence, clone}) {
        CloseClipKQ(each);
        FreeClipKQ(each);
    }
    kq::FreeFormatModules();
}
