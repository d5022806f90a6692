#include "kq/kqcclip.h"

#include "Source/Startup.h"
#include "support/Fixture.h"
#include "support/RecordingModule.h"

namespace {

using kqtest::recording;

class KQCClips : public kqtest::KQTest {
protected:
    void SetUp() override {
        KQTest::SetUp();
        recording = {};
        kqtest::RegisterRecording("rec");
        kqtest::WriteWholeFile(Folder() + "a.rec", "x");
    }

    void TearDown() override {
        kq::FreeFormatModules();
        KQTest::TearDown();
    }

    KQCFileSpec Spec() { return KQCFileSpec((Folder() + "a.rec").c_str()); }
};

// The code that `call` throws, or -1.
template <class Call>
i64 Thrown(Call call) {
    try {
        call();
    } catch (const KQCClip::Exception& exception) {
        return exception.Code();
    }
    return -1;
}

TEST_F(KQCClips, OpensAndClosesWithItsLife) {
    {
        KQCClip clip(Spec());
        EXPECT_EQ(clip.Get()->frameCount, 10);
        EXPECT_EQ(recording.Count("Close"), 0);
    }
    EXPECT_EQ(recording.Count("Close"), 1);
    EXPECT_EQ(recording.Count("EndIO"), 0);
}

TEST_F(KQCClips, TakesTrailingTags) {
    f64 rate = 12.0;
    KQCClip clip(Spec(), KQTAG_CLIP_DEFAULT_RATE, &rate, 0);
    EXPECT_EQ(clip.Get()->frameRate, 12.0);
}

TEST_F(KQCClips, OpenThatFailsThrowsTheError) {
    EXPECT_EQ(Thrown([&] { KQCClip clip(KQCFileSpec((Folder() + "none.rec").c_str())); }), KQERR_NOTFOUND);
}

TEST_F(KQCClips, ExceptionIsAKQException) {
    EXPECT_THROW(KQCClip(KQCFileSpec((Folder() + "none.rec").c_str())), KQException);
}

TEST_F(KQCClips, BeginThatFailsThrowsTheErrorAndIsNotEnded) {
    {
        KQCClip clip(Spec());
        recording.failing = "BeginIO";
        EXPECT_EQ(Thrown([&] { clip.BeginIO(); }), KQERR_MODULE);
    }
    EXPECT_EQ(recording.Count("EndIO"), 0);
}

TEST_F(KQCClips, GetFrameThatFailsThrowsTheError) {
    KQBitmap* bitmap = AllocBitmapKQ(8, 6, 32);
    KQCClip clip(Spec());
    clip.BeginIO();
    clip.GetFrame(bitmap, nullptr, nullptr);
    recording.failing = "GetFrame";
    EXPECT_EQ(Thrown([&] { clip.GetFrame(bitmap, nullptr, nullptr); }), KQERR_MODULE);
    FreeBitmapKQ(bitmap);
}

TEST_F(KQCClips, DestructorEndsWhatWasBegun) {
    {
        KQCClip clip(Spec());
        clip.BeginIO();
    }
    EXPECT_EQ(recording.Count("EndIO"), 1);
}

TEST_F(KQCClips, EndThatFailsThrowsNothingAndClearsTheFlag) {
    {
        KQCClip clip(Spec());
        clip.BeginIO();
        recording.failing = "EndIO";
        clip.EndIO();
    }
    EXPECT_EQ(recording.Count("EndIO"), 1);
}

// One life of a clip; false when any step threw.
bool Live(const KQCFileSpec& spec, KQBitmap* bitmap) {
    try {
        KQCClip clip(spec);
        clip.BeginIO();
        clip.GetFrame(bitmap, nullptr, nullptr);
        clip.EndIO();
        return true;
    } catch (const KQCClip::Exception& exception) {
        EXPECT_NE(exception.Code(), KQERR_NONE);
        return false;
    }
}

TEST_F(KQCClips, EveryAllocationMayFailAndIsThrown) {
    recording.depth = 32;
    KQBitmap* bitmap = AllocBitmapKQ(4, 3, 32);   // smaller than the clip, so that getting allocates too
    KQCFileSpec spec = Spec();
    i64 failed = 0;
    kqtest::FailEveryAllocation([&] { failed += !Live(spec, bitmap); });
    EXPECT_GT(failed, 0);
    EXPECT_TRUE(Live(spec, bitmap));
    FreeBitmapKQ(bitmap);
}

TEST_F(KQCClips, EveryFileCallMayFailAndIsThrown) {
    KQBitmap* bitmap = AllocBitmapKQ(8, 6, 32);
    KQCFileSpec spec = Spec();
    i64 failed = 0;
    kqtest::FailEveryFileCall([&] { failed += !Live(spec, bitmap); });
    EXPECT_GT(failed, 0);
    EXPECT_TRUE(Live(spec, bitmap));
    FreeBitmapKQ(bitmap);
}

}   // namespace
