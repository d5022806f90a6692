// Filmstrip files: read and written to the byte, held against hand-made files and against the ffmpeg program.
#include <cstdlib>

#include "Source/FilmLabel.h"
#include "Source/Filmstrp.h"
#include "Source/Startup.h"
#include "support/FormatTest.h"

using kqtest::Bytes;
using kqtest::FormatTest;

namespace {

constexpr size_t kTrailer = 36;

Bytes Trailer(u32 frames, u16 packing, u16 width, u16 height, u16 leading, u16 rate) {
    Bytes bytes;
    kqtest::PutText(bytes, "Rand");
    kqtest::Put32(bytes, frames);
    for (u16 word : {packing, u16(0), width, height, leading, rate}) kqtest::Put16(bytes, word);
    bytes.resize(kTrailer);
    return bytes;
}

// A film of `frames` frames whose pixel bytes count up, with `leading` label rows of 0xEE.
Bytes Film(int frames, int width, int height, int leading, int rate) {
    Bytes bytes;
    u8 next = 0;
    for (int f = 0; f < frames; ++f) {
        for (int i = 0; i < width * height * 4; ++i) bytes.push_back(next++);
        bytes.insert(bytes.end(), size_t(leading * width * 4), 0xEE);
    }
    bytes.insert(bytes.end(), size_t(leading * width * 4), 0);
    Bytes trailer = Trailer(u32(frames), 0, u16(width), u16(height), u16(leading), u16(rate));
    bytes.insert(bytes.end(), trailer.begin(), trailer.end());
    return bytes;
}

std::string TimeCode(i64 frame, f64 rate) {
    char text[12];
    kq::FormatTimeCode(frame, rate, text);
    return text;
}

std::string Number(i64 frame) {
    char text[6];
    kq::FormatFrameNumber(frame, text);
    return text;
}

// The label of frame 0 as text: '#' for transparent black, '.' for grey, '?' for anything else.
std::vector<std::string> LabelRows(const Bytes& film, size_t width, size_t height) {
    std::vector<std::string> rows(16);
    for (size_t i = 0; i < width * 16; ++i) {
        const u8* at = film.data() + (width * height + i) * 4;
        Bytes pixel(at, at + 4);
        rows[i / width] += pixel == Bytes{0, 0, 0, 0} ? '#' : pixel == Bytes{0x80, 0x80, 0x80, 0xFF} ? '.' : '?';
    }
    return rows;
}

class Filmstrip : public FormatTest {
protected:
    Filmstrip() : FormatTest(kq::MakeFilmstripModule, "x.flm") {}

    // Writes `frames` random frames and closes; keeps their pixels.
    std::vector<Bytes> WriteFilm(int frames, i32 width, i32 height) {
        std::vector<Bytes> pixels;
        EXPECT_TRUE(Create(width, height));
        for (int i = 0; i < frames; ++i) {
            pixels.push_back(RandomPixels(width, height));
            EXPECT_TRUE(Add(pixels.back(), i));
        }
        Close();
        return pixels;
    }
};

}   // namespace

TEST_F(Filmstrip, TheModuleHasItsTableEntries) {
    EXPECT_STREQ(module->node.Name, "Filmstrip");
    EXPECT_EQ(module->fileType, KQCode4("Film"));
    EXPECT_EQ(module->fileCreator, KQ_ANYCODE);
    ASSERT_EQ(module->importTypeCount, 1);
    EXPECT_EQ(module->importTypes[0].type, KQCode4("Film"));
    EXPECT_EQ(module->importTypes[0].creator, KQ_ANYCODE);
    ASSERT_EQ(module->importExtCount, 1);
    EXPECT_EQ(module->importExts[0], 0x666C6D00u);
    EXPECT_EQ(module->maxWidth, 32767);
    EXPECT_EQ(module->maxHeight, 32767);
    EXPECT_EQ(module->ImportProperties(module), 15u);
    EXPECT_EQ(module->ExportProperties(module, clip), 15u);
    EXPECT_EQ(module->BeginIO(clip, 0), 1);
    EXPECT_EQ(module->EndIO(clip, 0), 1);
    EXPECT_EQ(module->GetGBuffers, nullptr);
    EXPECT_EQ(module->ClipOptions, nullptr);
}

TEST_F(Filmstrip, OpenTakesSizeFramesAndRateFromTheTrailer) {
    Write(Film(3, 5, 4, 16, 24));
    ASSERT_TRUE(Open());
    EXPECT_EQ(clip->width, 5);
    EXPECT_EQ(clip->height, 4);
    EXPECT_EQ(clip->depth, 32);
    EXPECT_EQ(clip->sourceFrames, 3);
    EXPECT_EQ(clip->sourceRate, 24.0);
}

TEST_F(Filmstrip, OpenOfAnOpenClipReturnsAtOnce) {
    Write(Film(3, 5, 4, 16, 24));
    ASSERT_TRUE(Open());
    clip->width = 99;
    EXPECT_TRUE(Open());
    EXPECT_EQ(clip->width, 99);
}

TEST_F(Filmstrip, ARateOf30ReadsAs30) {
    Write(Film(1, 1, 1, 16, 30));
    ASSERT_TRUE(Open());
    EXPECT_EQ(clip->sourceRate, 30.0);
}

TEST_F(Filmstrip, RateIsSigned) {
    Write(Film(1, 1, 1, 16, -5));
    ASSERT_TRUE(Open());
    EXPECT_EQ(clip->sourceRate, -5.0);
}

TEST_F(Filmstrip, FrameBytesComeAlphaFirst) {
    Write(Film(1, 2, 1, 16, 24));
    ASSERT_TRUE(Open());
    EXPECT_EQ(Frame(0), (Bytes{3, 0, 1, 2, 7, 4, 5, 6}));
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_NONE));
}

TEST_F(Filmstrip, AnotherLeadingIsHonoured) {
    for (int leading : {0, 1, 7, 40}) {
        Write(Film(3, 3, 2, leading, 24));
        ASSERT_TRUE(Open());
        Bytes pixels = Frame(2);
        EXPECT_EQ(pixels[1], 48) << leading;
        EXPECT_EQ(pixels[0], 51) << leading;
        Close();
    }
}

TEST_F(Filmstrip, AFilmOpensThroughTheRegistryWhateverTheCaseOfItsExtension) {
    InitFormatModulesKQ(nullptr);
    path = Folder() + "X.FLM";
    Write(Film(3, 5, 4, 16, 24));
    KQClip* opened = OpenClipKQ(path.c_str(), KQTAG_CLIP_NOGUESS, 0, 0);
    ASSERT_NE(opened, nullptr);
    EXPECT_EQ(opened->frameCount, 3);
    EXPECT_EQ(opened->frameRate, 24.0);
    EXPECT_EQ(opened->alphaMode, 2);
    CloseClipKQ(opened);
    FreeClipKQ(opened);
    kq::FreeFormatModules();
}

// Bad files.

TEST_F(Filmstrip, AFileWithoutTheSignatureIsRefused) {
    Bytes bytes = Film(1, 4, 4, 16, 24);
    bytes[bytes.size() - kTrailer] = 'r';
    Write(bytes);
    EXPECT_FALSE(Open());
    EXPECT_EQ(clip->moduleData, nullptr);
}

TEST_F(Filmstrip, PackingOtherThanZeroIsRefused) {
    Bytes bytes = Film(1, 4, 4, 16, 24);
    bytes[bytes.size() - kTrailer + 9] = 1;
    Write(bytes);
    EXPECT_FALSE(Open());
}

TEST_F(Filmstrip, AMissingFileIsRefusedAsNotFound) {
    EXPECT_FALSE(Open());
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_NOTFOUND));
}

TEST_F(Filmstrip, AFileShorterThanItsTrailerIsRefused) {
    Bytes trailer = Trailer(1, 0, 2, 2, 16, 24);
    for (size_t length = 0; length < kTrailer; ++length) {
        Write(Bytes(trailer.end() - i64(length), trailer.end()));
        EXPECT_FALSE(Open()) << length;
        EXPECT_EQ(GetErrorKQ(), u32(KQERR_READ)) << length;
    }
}

TEST_F(Filmstrip, CutAtEveryByteItIsRefused) {
    Bytes bytes = Film(2, 8, 8, 16, 24);
    for (size_t length = 0; length < bytes.size() && length < 4096; ++length) {
        Write(Bytes(bytes.begin(), bytes.begin() + i64(length)));
        ASSERT_FALSE(Open()) << length;
    }
}

TEST_F(Filmstrip, EveryTrailerFieldAtItsLimitsIsTakenOrRefusedCleanly) {
    const Bytes good = Film(2, 4, 4, 16, 24);
    for (size_t field : {0, 4, 8, 10, 12, 14, 16, 18, 20, 24, 28, 32}) {
        size_t size = field < 8 || field >= 20 ? 4 : 2;
        for (u32 value : FieldLimits(size)) {
            SCOPED_TRACE(testing::Message() << "field at " << field << " is " << value);
            Bytes bytes = good;
            PatchField(bytes, bytes.size() - kTrailer + field, size, value);
            Write(bytes);
            if (!Open()) {
                EXPECT_EQ(clip->moduleData, nullptr);
                EXPECT_TRUE(field < 16 && field != 10) << "only the signature, sizes and packing refuse a film";
                continue;
            }
            EXPECT_GT(clip->width, 0);
            EXPECT_GT(clip->height, 0);
            EXPECT_GE(clip->sourceFrames, 0);
            for (i32 frame : {0, 1, 2, 0x7FFFFFFF, -1}) Frame(frame);
            Close();
        }
    }
}

TEST_F(Filmstrip, AWidthOrHeightOf0IsRefusedAsBadData) {
    Write(Trailer(1, 0, 0, 4, 16, 24));
    EXPECT_FALSE(Open());
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_BADDATA));
    Write(Trailer(1, 0, 4, 0, 16, 24));
    EXPECT_FALSE(Open());
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_BADDATA));
}

TEST_F(Filmstrip, ANegativeWidthAndMoreThan31BitsOfFramesAreRefused) {
    Write(Trailer(1, 0, 0x8004, 4, 16, 24));
    EXPECT_FALSE(Open());
    Write(Trailer(0x80000000, 0, 4, 4, 16, 24));
    EXPECT_FALSE(Open());
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_BADDATA));
}

TEST_F(Filmstrip, AHugePictureIsRefusedWhenTheFileCannotHoldOne) {
    Write(Trailer(1, 0, 32767, 8192, 16, 24));
    EXPECT_FALSE(Open());
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_BADDATA));
}

TEST_F(Filmstrip, FramesBehindTheEndOfTheFileLeaveTheBitmapAlone) {
    Bytes bytes = Film(1, 4, 4, 16, 24);
    Bytes trailer = Trailer(0x7FFFFFFF, 0, 4, 4, 65535, 24);
    std::copy(trailer.begin(), trailer.end(), bytes.end() - i64(kTrailer));
    Write(bytes);
    ASSERT_TRUE(Open());
    EXPECT_EQ(Frame(0x7FFFFFFE), Bytes(64, 0xA5));
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_READ));
    EXPECT_EQ(Frame(-1), Bytes(64, 0xA5));
}

TEST_F(Filmstrip, AFrameWhoseOffsetPasses64BitsIsNotThere) {
    Write(Trailer(0x7FFFFFFF, 0, 32767, 500, 65535, 24));
    ASSERT_TRUE(Open());
    small = AllocBitmapKQ(1, 1, 32);
    EXPECT_EQ(module->GetFrame(clip, small, 0x7FFFFFFE, nullptr, 32767, 500, 0), 1);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_READ));
    FreeBitmapKQ(small);
}

TEST_F(Filmstrip, AFrameThatTheEndOfTheFileCutsGivesThePixelsThatAreThere) {
    // 3 label rows of the one frame claimed at the front push frame 1 over the end.
    Bytes bytes(4 * 4 * 4 + 10, 7);
    Bytes trailer = Trailer(2, 0, 4, 4, 0, 24);
    bytes.insert(bytes.end(), trailer.begin(), trailer.end());
    Write(bytes);
    ASSERT_TRUE(Open());
    Bytes pixels = Frame(1);   // 46 bytes are there: eleven pixels and a half
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_READ));
    EXPECT_EQ(Bytes(pixels.begin(), pixels.begin() + 8), Bytes(8, 7));
    EXPECT_EQ(Bytes(pixels.begin() + 44, pixels.end()), Bytes(20, 0xA5));
    Frame(0);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_NONE));
}

#if !defined(_WIN32)
TEST_F(Filmstrip, AFileThatShrinksWhileItIsOpenIsReadAsFarAsItGoes) {
    Bytes bytes = Film(2, 4, 4, 16, 24);
    Write(bytes);
    ASSERT_TRUE(Open());
    std::filesystem::resize_file(path, 20);
    Bytes pixels = Frame(0);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_READ));
    EXPECT_EQ(pixels[4 * 4], 19);
    EXPECT_EQ(Bytes(pixels.begin() + 20, pixels.end()), Bytes(44, 0xA5));
    EXPECT_EQ(Frame(1), Bytes(64, 0xA5));
}
#endif

TEST_F(Filmstrip, ABitmapSmallerThanThePictureIsNotOverrun) {
    Write(Film(1, 8, 8, 16, 24));
    ASSERT_TRUE(Open());
    clip->width = clip->height = 3;
    EXPECT_EQ(Frame(0).size(), 36u);
}

TEST_F(Filmstrip, FramesOfAClosedClipAreRefused) {
    Write(Film(1, 8, 8, 16, 24));
    ASSERT_TRUE(Open());
    Close();
    EXPECT_TRUE(Frame(0).empty());
    EXPECT_FALSE(Add(Bytes(256), 0));
}

TEST_F(Filmstrip, EveryFailedAllocationAndFileCallOfReadingIsCopedWith) {
    Write(Film(2, 8, 8, 16, 24));
    auto read = [&] {
        if (Open()) module->GetFrame(clip, small, 1, nullptr, 8, 8, 0);
        Close();
    };
    small = AllocBitmapKQ(8, 8, 32);
    kqtest::FailEveryAllocation(read);
    kqtest::FailEveryFileCall(read);
    FreeBitmapKQ(small);
}

// Large files.

TEST_F(Filmstrip, FramesBehind4GBAreReadFromASparseFile) {
    constexpr i64 kFrame = i64(1000) * (1000 + 16) * 4;
    constexpr i32 kFrames = 1200;
    ASSERT_TRUE(MakeSparse(kFrame * kFrames + 1000 * 16 * 4 + i64(kTrailer)));
    WriteAt(kFrame * 1100, {1, 2, 3, 4});
    WriteAt(kFrame * kFrames + 1000 * 16 * 4, Trailer(kFrames, 0, 1000, 1000, 16, 25));
    ASSERT_TRUE(Open());
    EXPECT_EQ(clip->sourceFrames, kFrames);
    Bytes pixels = Frame(1100);
    EXPECT_EQ(Bytes(pixels.begin(), pixels.begin() + 8), (Bytes{4, 1, 2, 3, 0, 0, 0, 0}));
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_NONE));
}

// Writing. A hole of the file stands for the frames before the 4 GB.

TEST_F(Filmstrip, FramesAreWrittenBehind4GB) {
    constexpr i32 kWidth = 32767, kHeight = 2;
    constexpr i64 kFrame = i64(kWidth) * (kHeight + 16) * 4;
    constexpr i32 kBefore = 1900;   // frames, of 2.3 MB
    static_assert(kFrame * kBefore > i64(1) << 32);
    ASSERT_TRUE(Create(kWidth, kHeight));
    auto film = static_cast<kq::Film*>(clip->moduleData);
    Bytes first = RandomPixels(kWidth, kHeight), last = RandomPixels(kWidth, kHeight);
    ASSERT_TRUE(Add(first, 0));
    ASSERT_EQ(film->end, kFrame);
    film->end = kFrame * kBefore;
    clip->sourceFrames = kBefore;
    ASSERT_TRUE(Add(last, kBefore));
    Close();
    EXPECT_EQ(i64(std::filesystem::file_size(path)), kFrame * (kBefore + 1) + i64(kWidth) * 64 + i64(kTrailer));
    ASSERT_TRUE(Reopen());
    EXPECT_EQ(clip->sourceFrames, kBefore + 1);
    EXPECT_EQ(Frame(0), first);
    EXPECT_EQ(Frame(kBefore), last);
    EXPECT_EQ(Frame(1), Bytes(size_t(kWidth) * kHeight * 4, 0));
}

TEST_F(Filmstrip, SizesThatNoReaderWouldTakeAreNotWritten) {
    ASSERT_TRUE(Create(4, 4));
    ExpectOversizeRefused();
    EXPECT_EQ(clip->sourceFrames, 0);
}

TEST_F(Filmstrip, WithLessMemoryAFrameIsWrittenTheSame) {
    Bytes pixels = RandomPixels(1000, 40);
    const Bytes whole = WrittenShortOfMemory(pixels, 1000, 40, 0, 0);
    ASSERT_FALSE(whole.empty());
    i64 failures = 1;
    for (; failures < 100; ++failures) {
        Bytes bytes = WrittenShortOfMemory(pixels, 1000, 40, 0, failures);
        if (bytes.empty()) break;
        ASSERT_EQ(bytes, whole) << failures;
    }
    EXPECT_EQ(failures, 32) << "a band of 128 KB has 32 rows";
    EXPECT_EQ(clip->sourceFrames, 0);
}

TEST_F(Filmstrip, FramesComeBackAsTheyWereWritten) {
    std::vector<Bytes> pixels = WriteFilm(3, 100, 31);
    ASSERT_TRUE(Reopen());
    EXPECT_EQ(clip->sourceFrames, 3);
    for (i32 i = 0; i < 3; ++i) EXPECT_EQ(Frame(i), pixels[size_t(i)]) << i;
}

TEST_F(Filmstrip, PicturesOfManyBandsComeBack) {
    std::vector<Bytes> pixels = WriteFilm(2, 1001, 300);
    ASSERT_TRUE(Reopen());
    EXPECT_EQ(Frame(1), pixels[1]);
}

TEST_F(Filmstrip, TheFileIsFramesALabelEachASpareBlockAndTheTrailer) {
    clip->sourceRate = 24.0;
    WriteFilm(2, 100, 3);
    Bytes bytes = Read();
    ASSERT_EQ(bytes.size(), size_t(2 * 100 * 19 * 4 + 100 * 16 * 4) + kTrailer);
    Bytes spare(bytes.end() - i64(kTrailer) - 6400, bytes.end() - i64(kTrailer));
    EXPECT_EQ(spare, Bytes(6400, 0));
    EXPECT_EQ(Bytes(bytes.end() - i64(kTrailer), bytes.end()), Trailer(2, 0, 100, 3, 16, 24));
}

TEST_F(Filmstrip, Frame1Of720By486BeginsBehind502Rows) {
    std::vector<Bytes> pixels = WriteFilm(2, 720, 486);
    Bytes bytes = Read();
    for (size_t frame : {0, 1}) {
        const u8* at = bytes.data() + frame * 720 * 502 * 4;
        const u8* pixel = pixels[frame].data();
        EXPECT_EQ((Bytes{at[0], at[1], at[2], at[3]}), (Bytes{pixel[1], pixel[2], pixel[3], pixel[0]})) << frame;
    }
}

TEST_F(Filmstrip, TheRateIsStoredWithATenthAddedAndCut) {
    struct {
        f64 rate;
        u16 stored;
    } rates[] = {{24.0, 24}, {29.97, 30}, {14.95, 15}, {14.8, 14}, {0.0, 0}, {-3.5, 0xFFFD}, {1e300, 0}};
    for (auto [rate, stored] : rates) {
        clip->sourceRate = rate;
        WriteFilm(0, 4, 4);
        Bytes bytes = Read();
        EXPECT_EQ(u16(bytes[bytes.size() - 18] << 8 | bytes[bytes.size() - 17]), stored) << rate;
    }
}

TEST_F(Filmstrip, AFilmOfNoFramesOpens) {
    WriteFilm(0, 4, 4);
    ASSERT_TRUE(Reopen());
    EXPECT_EQ(clip->sourceFrames, 0);
}

TEST_F(Filmstrip, AFileThatWasNotClosedCannotBeOpened) {
    ASSERT_TRUE(Create(8, 8));
    ASSERT_TRUE(Add(RandomPixels(8, 8), 0));
    KQClip* other = NewClip(path);
    EXPECT_EQ(module->Open(other, nullptr), 0);
    FreeClip(other);
}

TEST_F(Filmstrip, AlphaIsWrittenAsTheClipSays) {
    clip->alphaInvert = 1;
    ASSERT_TRUE(Create(1, 1));
    ASSERT_TRUE(Add({10, 20, 30, 40}, 0));
    Close();
    Bytes bytes = Read();
    EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + 4), (Bytes{20, 30, 40, 245}));
}

TEST_F(Filmstrip, TheSameFramesGiveTheSameFile) {
    ASSERT_TRUE(Create(33, 9));
    Bytes pixels = RandomPixels(33, 9);
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(Add(pixels, i));
    Close();
    Bytes first = Read();
    ASSERT_TRUE(Create(33, 9));
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(Add(pixels, i));
    Close();
    EXPECT_EQ(Read(), first);
}

TEST_F(Filmstrip, ABitmapOfAnotherDepthIsRefused) {
    ASSERT_TRUE(Create(4, 4));
    KQBitmap* grey = AllocBitmapKQ(4, 4, 8);
    EXPECT_EQ(module->AddFrame(clip, grey, 0, nullptr), 0);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_BADDATA));
    FreeBitmapKQ(grey);
    Close();
}

TEST_F(Filmstrip, AFolderThatIsMissingFailsTheCreation) {
    KQClip* other = NewClip(Folder() + "missing/x.flm");
    EXPECT_EQ(module->Create(other, 0), 0);
    EXPECT_EQ(other->moduleData, nullptr);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_NOTFOUND));
    FreeClip(other);
}

TEST_F(Filmstrip, EveryFailedAllocationAndFileCallOfWritingIsCopedWith) {
    small = AllocBitmapKQ(8, 20, 32);
    FillBitmapKQ(small, 0xFF102030);
    auto write = [&] {
        if (Create(8, 20)) {
            module->AddFrame(clip, small, 0, nullptr);
            module->AddFrame(clip, small, 1, nullptr);
        }
        Close();
    };
    kqtest::FailEveryAllocation(write);
    kqtest::FailEveryFileCall(write);
    FreeBitmapKQ(small);
}

TEST_F(Filmstrip, WithoutMemoryForALabelPictureRowsTakeItsPlace) {
    ASSERT_TRUE(Create(2, 1));
    kq::allocationFaults.Set(4, false);   // behind two of the bitmap and the band
    EXPECT_TRUE(Add({1, 2, 3, 4, 5, 6, 7, 8}, 0));
    kq::allocationFaults.Clear();
    Close();
    Bytes bytes = Read();
    EXPECT_EQ(Bytes(bytes.begin() + 8, bytes.begin() + 16), (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(bytes.size(), size_t(17 * 8 + 16 * 8) + kTrailer);
}

TEST_F(Filmstrip, AfterAFailedPictureTheFilmHoldsTheFramesBeforeIt) {
    ASSERT_TRUE(Create(8, 8));
    Bytes first = RandomPixels(8, 8);
    ASSERT_TRUE(Add(first, 0));
    FailFileCall(5);
    EXPECT_FALSE(Add(RandomPixels(8, 8), 1));
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_WRITE));
    kq::fileFaults.Clear();
    Bytes third = RandomPixels(8, 8);
    EXPECT_TRUE(Add(third, 1));
    Close();
    ASSERT_TRUE(Reopen());
    EXPECT_EQ(clip->sourceFrames, 2);
    EXPECT_EQ(Frame(0), first);
    EXPECT_EQ(Frame(1), third);
}

TEST_F(Filmstrip, AfterAFailedLabelThePictureCountsAndTheNextOneKeepsItsPlace) {
    ASSERT_TRUE(Create(8, 8));
    Bytes first = RandomPixels(8, 8), second = RandomPixels(8, 8);
    FailFileCall(6);
    EXPECT_FALSE(Add(first, 0));
    kq::fileFaults.Clear();
    EXPECT_EQ(clip->sourceFrames, 1);
    EXPECT_TRUE(Add(second, 1));
    Close();
    ASSERT_TRUE(Reopen());
    EXPECT_EQ(Frame(0), first);
    EXPECT_EQ(Frame(1), second);
}

#if !defined(_WIN32)
TEST_F(Filmstrip, OnAFullDiskTheFramesThatFitMakeAFilm) {
    Bytes pixels = RandomPixels(64, 64);
    constexpr size_t kFrame = 64 * 80 * 4;
    ASSERT_TRUE(Create(64, 64));
    {
        kqtest::FileSizeLimit limit(kFrame * 2 + 9000);
        EXPECT_TRUE(Add(pixels, 0));
        EXPECT_TRUE(Add(pixels, 1));
        EXPECT_FALSE(Add(pixels, 2));
        EXPECT_EQ(GetErrorKQ(), u32(KQERR_DISKFULL));
        Close();
    }
    EXPECT_EQ(Read().size(), kFrame * 2 + 64 * 64 + kTrailer);
    ASSERT_TRUE(Reopen());
    EXPECT_EQ(clip->sourceFrames, 2);
    EXPECT_EQ(Frame(1), pixels);
}

TEST_F(Filmstrip, OnAFullDiskTheTrailerGoesWithoutTheSpareBlock) {
    Bytes pixels = RandomPixels(64, 64);
    constexpr size_t kFrame = 64 * 80 * 4;
    ASSERT_TRUE(Create(64, 64));
    {
        kqtest::FileSizeLimit limit(kFrame + 100);
        EXPECT_TRUE(Add(pixels, 0));
        Close();
        EXPECT_EQ(GetErrorKQ(), u32(KQERR_DISKFULL));
    }
    EXPECT_EQ(Read().size(), kFrame + kTrailer);
    ASSERT_TRUE(Reopen());
    EXPECT_EQ(Frame(0), pixels);
}
#endif

// Labels.

TEST_F(Filmstrip, TimeCodesCountFramesSecondsMinutesHours) {
    EXPECT_EQ(TimeCode(0, 25), "00:00:00:00");
    EXPECT_EQ(TimeCode(24, 25), "00:00:00:24");
    EXPECT_EQ(TimeCode(25, 25), "00:00:01:00");
    EXPECT_EQ(TimeCode(25 * 60, 25), "00:01:00:00");
    EXPECT_EQ(TimeCode(25 * 3600 * 2 + 26, 25), "02:00:01:01");
}

TEST_F(Filmstrip, HoursRunModulo60) {
    EXPECT_EQ(TimeCode(i64(24) * 3600 * 60, 24), "00:00:00:00");
    EXPECT_EQ(TimeCode(i64(24) * 3600 * 61, 24), "01:00:00:00");
}

TEST_F(Filmstrip, At2997CountingIsDropFrame) {
    EXPECT_EQ(TimeCode(1799, 29.97), "00:00:59:29");
    EXPECT_EQ(TimeCode(1800, 29.97), "00:01:00:02");
    EXPECT_EQ(TimeCode(17981, 29.97), "00:09:59:29");
    EXPECT_EQ(TimeCode(17982, 29.97), "00:10:00:00");
    EXPECT_EQ(TimeCode(17982 + 1800, 29.97), "00:11:00:02");
    EXPECT_EQ(TimeCode(1800, 30000.0 / 1001), "00:01:00:02");
}

TEST_F(Filmstrip, At30AndFarFrom2997CountingIsPlain) {
    EXPECT_EQ(TimeCode(1800, 30.0), "00:01:00:00");
    EXPECT_EQ(TimeCode(1800, 29.9702), "00:01:00:00");
}

TEST_F(Filmstrip, ARateThatRoundsBelow1GivesDashes) {
    EXPECT_EQ(TimeCode(5, 0.49), "--:--:--:--");
    EXPECT_EQ(TimeCode(5, 0.0), "--:--:--:--");
    EXPECT_EQ(TimeCode(5, -25.0), "--:--:--:--");
    EXPECT_EQ(TimeCode(5, 0.5), "00:00:05:00");
}

TEST_F(Filmstrip, RatesThatAreNoNumbersDoNoHarm) {
    EXPECT_EQ(TimeCode(5, std::nan("")), "--:--:--:--");
    EXPECT_EQ(TimeCode(5, HUGE_VAL), "00:00:00:05");
}

TEST_F(Filmstrip, FrameNumbersHaveFiveDigitsOfLongerOnesTheLast) {
    EXPECT_EQ(Number(123), "00123");
    EXPECT_EQ(Number(99999), "99999");
    EXPECT_EQ(Number(1234567), "34567");
}

TEST_F(Filmstrip, TheLabelIsGreyWithTimeAndNumberInTransparentBlack) {
    ASSERT_TRUE(Create(200, 1));
    clip->sourceRate = 25;
    ASSERT_TRUE(Add(Bytes(800, 9), 123));
    Close();
    Bytes bytes = Read();
    std::vector<std::string> rows = LabelRows(bytes, 200, 1);
    // Frame 123 at 25 a second: 00:00:04:23.
    EXPECT_EQ(rows[0], std::string(200, '.'));
    const std::string zero = "..###..", one = "...#...", two = zero, three = zero, four = "....#..", colon = "...";
    EXPECT_EQ(rows[4].substr(10, 65), zero + zero + colon + zero + zero + colon + zero + four + colon + two + three);
    EXPECT_EQ(rows[12], std::string(200, '.'));
    EXPECT_EQ(rows[4].substr(155, 35), zero + zero + one + two + three);
    EXPECT_EQ(rows[11].substr(155, 35), zero + zero + ".#####." + ".#####." + zero);
    EXPECT_EQ(rows[5].substr(10 + 14, 3), ".#.");
    EXPECT_EQ(rows[10].substr(10 + 14, 3), ".#.");
}

TEST_F(Filmstrip, LabelsDropPixelsOutsideTheRow) {
    for (i32 width : {1, 5, 44, 46}) {
        ASSERT_TRUE(Create(width, 1));
        ASSERT_TRUE(Add(Bytes(size_t(width) * 4, 9), 8));
        Close();
        EXPECT_EQ(Read().size(), size_t(width) * 4 * 33 + kTrailer) << width;
    }
}

TEST_F(Filmstrip, DashesAndColonsHaveTheirShapes) {
    KQBitmap* bitmap = AllocBitmapKQ(12, 8, 32);
    FillBitmapKQ(bitmap, 0xFFFFFFFF);
    kq::DrawLabelText(bitmap, 0, 0, "-:");
    std::string dots;
    for (i32 i = 0; i < 12 * 8; ++i)
        if (bitmap->data[i * 4] == 0) dots += std::to_string(i % 12) + "," + std::to_string(i / 12) + " ";
    EXPECT_EQ(dots, "8,1 1,4 2,4 3,4 4,4 5,4 8,6 ");
    FreeBitmapKQ(bitmap);
}

// The ffmpeg program as a peer.

#if !defined(_WIN32)
TEST_F(Filmstrip, FfmpegReadsOursByteForByte) {
    std::vector<Bytes> pixels = WriteFilm(4, 65, 37);
    std::string raw = Folder() + "raw";
    ASSERT_EQ(kqtest::RunFfmpeg("-i " + path + " -f rawvideo -pix_fmt rgba " + raw), 0);
    Bytes decoded = kqtest::ReadWholeFile(raw), ours;
    for (const Bytes& frame : pixels)
        for (size_t i = 0; i < frame.size(); i += 4)
            ours.insert(ours.end(), {frame[i + 1], frame[i + 2], frame[i + 3], frame[i]});
    EXPECT_EQ(decoded, ours);
}

TEST_F(Filmstrip, WeReadFfmpegsByteForByte) {
    std::string raw = Folder() + "raw";
    const std::string source = "-f lavfi -i mandelbrot=size=160x90:rate=25 -frames:v 5 -pix_fmt rgba ";
    ASSERT_EQ(kqtest::RunFfmpeg(source + path), 0);
    ASSERT_EQ(kqtest::RunFfmpeg("-i " + path + " -f rawvideo -pix_fmt rgba " + raw), 0);
    Bytes decoded = kqtest::ReadWholeFile(raw), ours;
    ASSERT_TRUE(Open());
    EXPECT_EQ(clip->sourceRate, 25.0);
    ASSERT_EQ(clip->sourceFrames, 5);
    for (i32 f = 0; f < 5; ++f) {
        Bytes frame = Frame(f);
        for (size_t i = 0; i < frame.size(); i += 4)
            ours.insert(ours.end(), {frame[i + 1], frame[i + 2], frame[i + 3], frame[i]});
    }
    EXPECT_EQ(decoded, ours);
}
#endif
