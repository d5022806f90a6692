#include <cstring>

#include "Source/Startup.h"
#include "kq/clip.h"
#include "support/Fixture.h"
#include "support/RecordingModule.h"

namespace {

using kqtest::recording;
using kqtest::RegisterRecording;

class ClipOptions : public kqtest::KQTest {
protected:
    void SetUp() override {
        KQTest::SetUp();
        recording = {};
        clip = NewClipKQ();
        clip->sourceFrames = clip->frameCount = 14;
        clip->frameRate = clip->sourceRate = clip->nativeRate = 30.0;
    }

    void TearDown() override {
        FreeClipKQ(clip);
        kq::FreeFormatModules();
        KQTest::TearDown();
    }

    KQClip* clip = nullptr;
};

TEST_F(ClipOptions, TagsSetTheirFields) {
    f64 rate = 12.0, aspect = 2.0;
    KQFloatRGB matte = {0.25, 0.5, 0.75, 1.0};
    SetClipOptionsKQ(clip, KQTAG_CLIP_RATE, &rate, KQTAG_CLIP_FIELDS, 1, KQTAG_CLIP_ALPHA, 2, KQTAG_CLIP_ALPHA_INVERT,
                     1, KQTAG_CLIP_PREMULTIPLIED, 0, KQTAG_CLIP_MATTE, &matte, KQTAG_CLIP_ASPECT, &aspect, 0);
    EXPECT_EQ(clip->frameRate, 12.0);
    EXPECT_EQ(clip->fieldOrder, 1);
    EXPECT_EQ(clip->alphaMode, 2);
    EXPECT_EQ(clip->alphaInvert, 1);
    EXPECT_EQ(clip->alphaPremultiplied, 0);
    EXPECT_EQ(clip->matteColor.green, 0.5);
    EXPECT_EQ(clip->pixelAspect, 2.0);
    EXPECT_EQ(clip->sourceRate, 30.0);
}

TEST_F(ClipOptions, NullClipAndNullPointersAreIgnored) {
    SetClipOptionsKQ(nullptr, KQTAG_CLIP_FIELDS, 1, 0);
    SetClipOptionsKQ(clip, KQTAG_CLIP_RATE, nullptr, 0);
    EXPECT_EQ(clip->frameRate, 30.0);
}

TEST_F(ClipOptions, PullDownPresentsFourFifths) {
    SetClipOptionsKQ(clip, KQTAG_CLIP_PULLDOWN, 4, 0);
    EXPECT_EQ(clip->frameRate, 24.0);
    EXPECT_EQ(clip->sourceRate, 30.0);
    EXPECT_EQ(clip->frameCount, 12);
}

TEST_F(ClipOptions, EachPhaseKeepsItsRestOfTheLastGroup) {
    const i32 wanted[5][5] = {{4, 5, 6, 7, 7}, {4, 5, 6, 6, 7}, {4, 5, 5, 6, 7}, {4, 5, 6, 7, 8}, {4, 5, 6, 7, 8}};
    for (i32 phase = 1; phase <= 5; ++phase)
        for (i32 rest = 0; rest < 5; ++rest) {
            clip->sourceFrames = 5 + rest;
            clip->frameRate = clip->sourceRate = 30.0;
            SetClipOptionsKQ(clip, KQTAG_CLIP_PULLDOWN, phase, 0);
            EXPECT_EQ(clip->frameCount, wanted[phase - 1][rest]) << phase << " " << rest;
        }
}

TEST_F(ClipOptions, PullDownTwiceLeavesRatesAndCountAsTheFirstSetThem) {
    SetClipOptionsKQ(clip, KQTAG_CLIP_PULLDOWN, 2, 0);
    clip->frameCount = 3;
    SetClipOptionsKQ(clip, KQTAG_CLIP_PULLDOWN, 2, 0);
    EXPECT_EQ(clip->frameRate, 24.0);
    EXPECT_EQ(clip->sourceRate, 30.0);
    EXPECT_EQ(clip->frameCount, 3);
}

TEST_F(ClipOptions, PullDownWithARateDerivesTheSourcesRate) {
    f64 rate = 23.976;
    SetClipOptionsKQ(clip, KQTAG_CLIP_RATE, &rate, KQTAG_CLIP_PULLDOWN, 1, 0);
    EXPECT_EQ(clip->frameRate, 23.976);
    EXPECT_EQ(clip->sourceRate, 23.976 * 1.25);
}

TEST_F(ClipOptions, PullDownOffReturnsToTheNativeRate) {
    SetClipOptionsKQ(clip, KQTAG_CLIP_PULLDOWN, 1, 0);
    SetClipOptionsKQ(clip, KQTAG_CLIP_PULLDOWN, 0, 0);
    EXPECT_EQ(clip->frameRate, 30.0);
    EXPECT_EQ(clip->sourceRate, 30.0);
    EXPECT_EQ(clip->frameCount, 14);
}

TEST_F(ClipOptions, PullDownOffWithARateTakesIt) {
    SetClipOptionsKQ(clip, KQTAG_CLIP_PULLDOWN, 1, 0);
    f64 rate = 25.0;
    SetClipOptionsKQ(clip, KQTAG_CLIP_PULLDOWN, 0, KQTAG_CLIP_RATE, &rate, 0);
    EXPECT_EQ(clip->frameRate, 25.0);
    EXPECT_EQ(clip->sourceRate, 25.0);
    EXPECT_EQ(clip->frameCount, 14);
}

TEST_F(ClipOptions, PullDownOffLeavesEqualRatesAlone) {
    clip->frameCount = 9;
    SetClipOptionsKQ(clip, KQTAG_CLIP_PULLDOWN, 0, 0);
    EXPECT_EQ(clip->frameCount, 9);
}

TEST_F(ClipOptions, RateAloneLeavesTheSource) {
    f64 rate = 24.0;
    clip->pullDown = 1;
    SetClipOptionsKQ(clip, KQTAG_CLIP_RATE, &rate, 0);
    EXPECT_EQ(clip->sourceRate, 30.0);
    EXPECT_EQ(clip->frameCount, 14);
}

TEST_F(ClipOptions, SizesAreReducedByTheScaleMode) {
    const i32 wanted[4] = {100, 50, 25, 12};
    for (i32 mode = 0; mode < 4; ++mode) {
        clip->scaleMode = mode;
        SetClipOptionsKQ(clip, KQTAG_CLIP_WIDTH, 100, KQTAG_CLIP_HEIGHT, 100, 0);
        EXPECT_EQ(clip->width, wanted[mode]);
        EXPECT_EQ(clip->height, wanted[mode]);
    }
}

TEST_F(ClipOptions, WidthOf1AtHalfFallsBackTo1) {
    clip->scaleMode = 1;
    SetClipOptionsKQ(clip, KQTAG_CLIP_WIDTH, 1, 0);
    EXPECT_EQ(clip->width, 1);
}

TEST_F(ClipOptions, FirstSizeBecomesTheNativeOne) {
    SetClipOptionsKQ(clip, KQTAG_CLIP_WIDTH, 40, KQTAG_CLIP_HEIGHT, 30, 0);
    SetClipOptionsKQ(clip, KQTAG_CLIP_WIDTH, 4, KQTAG_CLIP_HEIGHT, 3, 0);
    EXPECT_EQ(clip->nativeWidth, 40);
    EXPECT_EQ(clip->nativeHeight, 30);
}

TEST_F(ClipOptions, FullSizeTakesTheNativePair) {
    clip->scaleMode = 4;
    clip->nativeWidth = 70;
    clip->nativeHeight = 50;
    SetClipOptionsKQ(clip, KQTAG_CLIP_WIDTH, 4, KQTAG_CLIP_HEIGHT, 3, 0);
    EXPECT_EQ(clip->width, 70);
    EXPECT_EQ(clip->height, 50);
}

TEST_F(ClipOptions, FullSizeWithoutANativeSideTakesThePlainValue) {
    clip->scaleMode = 4;
    clip->nativeWidth = 70;
    SetClipOptionsKQ(clip, KQTAG_CLIP_HEIGHT, 3, 0);
    EXPECT_EQ(clip->height, 3);
    EXPECT_EQ(clip->nativeHeight, 3);
}

void GiveOptions(KQClip* clip, char letter) {
    FreeMemoryKQ(clip->options);
    clip->options = static_cast<KQClipOptions*>(AllocMemoryKQ(sizeof(KQClipOptions) + 1, 0));
    if (!clip->options) return;
    clip->options->data = reinterpret_cast<u8*>(clip->options + 1);
    clip->options->length = 1;
    clip->options->data[0] = u8(letter);
}

TEST_F(ClipOptions, DialogsChoiceBecomesTheDefaultOfTheNextClip) {
    KQFormatDesc* module = RegisterRecording("rec");
    clip->format = module;
    recording.options = [](KQClip* c) { GiveOptions(c, 'x'); };
    ClipOptionsKQ(clip);
    ASSERT_NE(module->defaultOptions, nullptr);
    EXPECT_NE(module->defaultOptions, clip->options);
    EXPECT_EQ(module->defaultOptions->data[0], 'x');
    recording.options = nullptr;
    KQClip* next = NewClipKQ();
    next->format = module;
    ClipOptionsKQ(next);
    ASSERT_NE(next->options, nullptr);
    EXPECT_EQ(next->options->data[0], 'x');
    EXPECT_EQ(next->options->data, reinterpret_cast<u8*>(next->options + 1));
    FreeClipKQ(next);
}

TEST_F(ClipOptions, WithoutDialogOrModuleNothingHappens) {
    ClipOptionsKQ(nullptr);
    ClipOptionsKQ(clip);
    clip->format = RegisterRecording("rec");
    clip->format->ClipOptions = nullptr;
    ClipOptionsKQ(clip);
    EXPECT_EQ(recording.Count("ClipOptions"), 0);
}

TEST_F(ClipOptions, WithoutMemoryForTheDefaultsTheDialogIsNotShown) {
    KQFormatDesc* module = RegisterRecording("rec");
    clip->format = module;
    recording.options = [](KQClip* c) { GiveOptions(c, 'x'); };
    ClipOptionsKQ(clip);
    FreeMemoryKQ(clip->options);
    clip->options = nullptr;
    kq::allocationFaults.Set(1, true);
    ClipOptionsKQ(clip);
    EXPECT_EQ(recording.Count("ClipOptions"), 1);
    EXPECT_EQ(module->defaultOptions->data[0], 'x');
}

TEST_F(ClipOptions, EveryAllocationOfTheDialogMayFailAndTheDefaultsStayWhole) {
    KQFormatDesc* module = RegisterRecording("rec");
    clip->format = module;
    recording.options = [](KQClip* c) { GiveOptions(c, 'x'); };
    ClipOptionsKQ(clip);
    recording.options = [](KQClip* c) { c->options->data[0] = 'y'; };
    kqtest::FailEveryAllocation([&] {
        KQClip* next = NewClipKQ();
        if (!next) return;
        next->format = module;
        module->defaultOptions->data[0] = 'x';
        ClipOptionsKQ(next);
        EXPECT_EQ(module->defaultOptions->length, 1u);
        if (!next->options) {
            EXPECT_EQ(module->defaultOptions->data[0], 'x') << "no dialog, no choice";
        }
        FreeClipKQ(next);
    });
    EXPECT_EQ(module->defaultOptions->data[0], 'y');
}

TEST_F(ClipOptions, WithoutMemoryForTheChoiceTheOldDefaultsStay) {
    KQFormatDesc* module = RegisterRecording("rec");
    clip->format = module;
    recording.options = [](KQClip* c) { GiveOptions(c, 'x'); };
    ClipOptionsKQ(clip);
    KQClipOptions* kept = module->defaultOptions;
    recording.options = [](KQClip* c) { c->options->data[0] = 'y'; };
    kq::allocationFaults.Set(1, true);   // the copy back
    ClipOptionsKQ(clip);
    EXPECT_EQ(kq::allocationFaults.failures, 1);
    EXPECT_EQ(module->defaultOptions, kept);
    EXPECT_EQ(kept->data[0], 'x');
    EXPECT_EQ(clip->options->data[0], 'y');
}

TEST_F(ClipOptions, DefaultNameHasTheFirstExtension) {
    clip->format = RegisterRecording("rec");
    char name[64];
    MakeDefaultClipNameKQ(clip, "shot", name);
    EXPECT_STREQ(name, "shot.rec");
    MakeDefaultClipNameKQ(clip, nullptr, name);
    EXPECT_STREQ(name, ".rec");
}

TEST_F(ClipOptions, DefaultNameOfASequenceHasPlacesForTheNumber) {
    clip->format = RegisterRecording("ei");
    recording.properties = KQFORMAT_WRITES;
    char name[64];
    MakeDefaultClipNameKQ(clip, "shot", name);
    EXPECT_STREQ(name, "shot[#####].ei");
    clip->frameCount = 1;
    MakeDefaultClipNameKQ(clip, "shot", name);
    EXPECT_STREQ(name, "shot.ei");
}

TEST_F(ClipOptions, DefaultNameWithoutModuleIsEmpty) {
    char name[8] = "rest";
    MakeDefaultClipNameKQ(clip, "shot", name);
    EXPECT_STREQ(name, "");
    std::strcpy(name, "rest");
    MakeDefaultClipNameKQ(nullptr, "shot", name);
    EXPECT_STREQ(name, "");
}

}   // namespace
