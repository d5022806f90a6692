#include "kq/clip.h"

#include <cstring>

#include "Source/Startup.h"
#include "kq/files.h"
#include "kq/filespec.h"
#include "kq/frames.h"
#include "support/Fixture.h"
#include "support/RecordingModule.h"

namespace {

using kqtest::recording;
using kqtest::RegisterRecording;

class Clip : public kqtest::KQTest {
protected:
    void SetUp() override {
        KQTest::SetUp();
        recording = {};
    }

    void TearDown() override {
        SetScratchDirKQ(nullptr);
        if (KQEnv) kq::FreeFormatModules();
        KQTest::TearDown();
    }

    // The path of a file of this name that exists.
    std::string File(const std::string& name) {
        std::string path = Folder() + name;
        kqtest::WriteWholeFile(path, "x");
        return path;
    }

    KQClip* Open(const std::string& name) { return OpenClipKQ(File(name).c_str(), nullptr); }

    void End(KQClip* clip) {
        CloseClipKQ(clip);
        FreeClipKQ(clip);
    }
};

KQClipTrack Track(i32 width, i32 height, i32 depth) {
    KQClipTrack track = {};
    track.width = width;
    track.height = height;
    track.depth = depth;
    return track;
}

TEST_F(Clip, NewClipHasItsDefaults) {
    KQClip* clip = NewClipKQ();
    EXPECT_EQ(clip->alphaPremultiplied, 1);
    EXPECT_EQ(clip->alphaInvert, 0);
    EXPECT_EQ(clip->pixelAspect, 1.0);
    EXPECT_EQ(clip->backgroundColor, 0xFF000000u);
    EXPECT_EQ(clip->clipVersion, 1);
    EXPECT_EQ(clip->numberStep, 1);
    EXPECT_EQ(clip->firstNumber, 0);
    EXPECT_EQ(clip->flags, 0u);
    EXPECT_EQ(clip->format, nullptr);
    EXPECT_TRUE(List_Empty(&clip->tracks));
    FreeClipKQ(clip);
}

TEST_F(Clip, NewClipsCountTheirIds) {
    KQClip* first = NewClipKQ();
    KQClip* second = NewClipKQ();
    EXPECT_EQ(second->clipId, first->clipId + 1);
    EXPECT_EQ(KQEnv->nextClipId, second->clipId + 1);
    FreeClipKQ(first);
    FreeClipKQ(second);
}

TEST_F(Clip, NewClipWithoutMemoryIsNullWithError1) {
    kq::allocationFaults.Set(1, true);
    EXPECT_EQ(NewClipKQ(), nullptr);
    EXPECT_EQ(GetErrorKQ(), KQERR_NOMEM);
}

TEST_F(Clip, OpenFillsCountsAndRates) {
    RegisterRecording("rec");
    recording.rate = 24.0;
    KQClip* clip = Open("a.rec");
    ASSERT_NE(clip, nullptr);
    EXPECT_EQ(GetErrorKQ(), KQERR_NONE);
    EXPECT_EQ(clip->frameCount, 10);
    EXPECT_EQ(clip->frameRate, 24.0);
    EXPECT_EQ(clip->nativeRate, 24.0);
    EXPECT_EQ(clip->track, 0);
    EXPECT_EQ(clip->flags, KQCLIP_OPEN | KQCLIP_ALPHA_KNOWN);
    EXPECT_STREQ(clip->fileSpec, (Folder() + "a.rec").c_str());
    End(clip);
}

TEST_F(Clip, OpenPresetsThirtyFramesASecond) {
    RegisterRecording("rec");
    KQClip* clip = Open("a.rec");
    EXPECT_EQ(clip->frameRate, 30.0);
    End(clip);
}

TEST_F(Clip, OpenPresetsTheRateOfItsTag) {
    RegisterRecording("rec");
    f64 rate = 12.5;
    KQClip* clip = OpenClipKQ(File("a.rec").c_str(), KQTAG_CLIP_DEFAULT_RATE, &rate, 0);
    EXPECT_EQ(clip->sourceRate, 12.5);
    EXPECT_EQ(clip->nativeRate, 12.5);
    End(clip);
}

TEST_F(Clip, OpenOfMissingFileIsError11) {
    RegisterRecording("rec");
    EXPECT_EQ(OpenClipKQ((Folder() + "none.rec").c_str(), nullptr), nullptr);
    EXPECT_EQ(GetErrorKQ(), KQERR_NOTFOUND);
    EXPECT_EQ(recording.Count("CheckFile"), 0);
}

TEST_F(Clip, OpenOfNullFileSpecFails) {
    EXPECT_EQ(OpenClipKQ(static_cast<const char*>(nullptr), nullptr), nullptr);
    EXPECT_NE(GetErrorKQ(), KQERR_NONE);
}

TEST_F(Clip, OpenThatNoModuleTakesIsError14) {
    RegisterRecording("rec");
    EXPECT_EQ(Open("a.xyz"), nullptr);
    EXPECT_EQ(GetErrorKQ(), KQERR_BADFORMAT);
}

TEST_F(Clip, OpenWithoutAnyModuleIsError14) {
    EXPECT_EQ(Open("a.rec"), nullptr);
    EXPECT_EQ(GetErrorKQ(), KQERR_BADFORMAT);
}

TEST_F(Clip, OpenThatTheModuleFailsIsError17) {
    RegisterRecording("rec");
    recording.failing = "Open";
    EXPECT_EQ(Open("a.rec"), nullptr);
    EXPECT_EQ(GetErrorKQ(), KQERR_MODULE);
}

TEST_F(Clip, OpenKeepsTheModulesOwnError) {
    RegisterRecording("rec");
    recording.failing = "Open";
    recording.errorOnFailure = KQERR_OPENFAILED;
    EXPECT_EQ(Open("a.rec"), nullptr);
    EXPECT_EQ(GetErrorKQ(), KQERR_OPENFAILED);
}

TEST_F(Clip, ModuleSeesBlankCodesAndTheExtension) {
    RegisterRecording("rec");
    End(Open("a.Rec"));
    EXPECT_EQ(recording.type, KQ_ANYCODE);
    EXPECT_EQ(recording.creator, KQ_ANYCODE);
    EXPECT_EQ(recording.extension, 0x72656300u);
}

TEST_F(Clip, NameWithoutDotHasExtensionCode0) {
    RegisterRecording("rec");
    EXPECT_EQ(Open("plain"), nullptr);
    EXPECT_EQ(recording.Count("CheckFile"), 1);
    EXPECT_EQ(recording.extension, 0u);
}

TEST_F(Clip, NameWithoutDotOpensWhereCheckFileAcceptsIt) {
    RegisterRecording("rec")->CheckFile = [](KQFormatDesc*, const char*, u32, u32, u32) { return 1; };
    KQClip* clip = Open("plain");
    EXPECT_NE(clip, nullptr);
    End(clip);
}

TEST_F(Clip, ExtensionOverThreeLettersHasNoCode) {
    RegisterRecording("tif");
    EXPECT_EQ(Open("a.tiff"), nullptr);
    EXPECT_EQ(recording.extension, 0u);
}

TEST_F(Clip, ExtensionOfTwoLettersFillsFromTheTop) {
    RegisterRecording("ei");
    End(Open("a.b.EI"));
    EXPECT_EQ(recording.extension, 0x65690000u);
}

TEST_F(Clip, DotOfAFolderIsNoExtension) {
    RegisterRecording("rec");
    std::string folder = Folder() + "d.rec";
    ASSERT_TRUE(CreateDirKQ(folder.c_str()));
    std::string path = folder + Folder().back() + "plain";
    kqtest::WriteWholeFile(path, "x");
    EXPECT_EQ(OpenClipKQ(path.c_str(), nullptr), nullptr);
    EXPECT_EQ(recording.extension, 0u);
}

TEST_F(Clip, ExtensionTagReplacesTheNames) {
    RegisterRecording("rec");
    KQClip* clip = OpenClipKQ(File("plain").c_str(), KQTAG_CLIP_EXTENSION, "rec\0", 0);
    EXPECT_NE(clip, nullptr);
    EXPECT_EQ(recording.extension, 0x72656300u);
    End(clip);
}

TEST_F(Clip, OfTwoModulesTheFirstRegisteredGetsTheFile) {
    KQFormatDesc* first = RegisterRecording("rec", "First");
    RegisterRecording("rec", "Second");
    KQClip* clip = Open("a.rec");
    EXPECT_EQ(clip->format, first);
    EXPECT_EQ(recording.Count("CheckFile"), 1);
    End(clip);
}

TEST_F(Clip, TrackTagPresentsTheTracksSize) {
    RegisterRecording("rec");
    recording.tracks = {Track(3, 2, 24), Track(30, 20, 24)};
    KQClip* clip = OpenClipKQ(File("a.rec").c_str(), KQTAG_CLIP_TRACK, 2, 0);
    EXPECT_EQ(clip->track, 2);
    EXPECT_EQ(clip->width, 30);
    EXPECT_EQ(clip->height, 20);
    End(clip);
}

TEST_F(Clip, TrackTagBeyondTheTracksPresentsTheFile) {
    RegisterRecording("rec");
    KQClip* clip = OpenClipKQ(File("a.rec").c_str(), KQTAG_CLIP_TRACK, 2, 0);
    EXPECT_EQ(clip->track, 0);
    EXPECT_EQ(clip->width, 8);
    End(clip);
}

TEST_F(Clip, SourceAndTrackGiveACloneOfTheTrack) {
    RegisterRecording("rec");
    recording.tracks = {Track(3, 2, 24)};
    KQClip* source = Open("a.rec");
    KQClip* clip = OpenClipKQ("", KQTAG_CLIP_SOURCE, source, KQTAG_CLIP_TRACK, 1, 0);
    ASSERT_NE(clip, nullptr);
    EXPECT_EQ(clip->width, 3);
    EXPECT_EQ(clip->track, 1);
    EXPECT_TRUE(clip->flags & KQCLIP_OPEN);
    EXPECT_TRUE(clip->flags & KQCLIP_ALPHA_KNOWN);
    EXPECT_EQ(recording.Count("Open"), 1);
    End(clip);
    End(source);
}

TEST_F(Clip, SourceWithTrack0Fails) {
    RegisterRecording("rec");
    recording.tracks = {Track(3, 2, 24)};
    KQClip* source = Open("a.rec");
    EXPECT_EQ(OpenClipKQ("", KQTAG_CLIP_SOURCE, source, KQTAG_CLIP_TRACK, 0, 0), nullptr);
    End(source);
}

TEST_F(Clip, VideoSizesHaveTheirPixelAspect) {
    RegisterRecording("rec");
    recording.width = 720;
    for (auto [height, bits] :
         {std::pair<i32, u64>{486, 0x3FECCCCCCCCCCCCD}, {576, 0x3FF1111111111111}, {480, 0x3FF0000000000000}}) {
        recording.height = height;
        KQClip* clip = Open("a.rec");
        u64 found;
        std::memcpy(&found, &clip->pixelAspect, 8);
        EXPECT_EQ(found, bits) << height;
        End(clip);
    }
}

TEST_F(Clip, NoGuessTakesTheStoredAlphaOf32Bits) {
    RegisterRecording("rec");
    recording.depth = 32;
    KQClip* clip = OpenClipKQ(File("a.rec").c_str(), KQTAG_CLIP_NOGUESS, 0, 0);
    EXPECT_EQ(clip->alphaMode, 2);
    EXPECT_EQ(clip->alphaPremultiplied, 0);
    EXPECT_TRUE(clip->flags & KQCLIP_ALPHA_KNOWN);
    EXPECT_EQ(recording.Count("GetFrame"), 0);
    End(clip);
}

TEST_F(Clip, NoGuessTakesNoAlphaOfOtherDepths) {
    RegisterRecording("rec");
    KQClip* clip = OpenClipKQ(File("a.rec").c_str(), KQTAG_CLIP_NOGUESS, 0, 0);
    EXPECT_EQ(clip->alphaMode, 0);
    End(clip);
}

TEST_F(Clip, OpenGuessesTheAlphaOf32Bits) {
    RegisterRecording("rec");
    recording.depth = 32;
    KQClip* clip = Open("a.rec");
    EXPECT_EQ(recording.Count("GetFrame"), 1);
    EXPECT_EQ(clip->alphaMode, 0);
    EXPECT_EQ(clip->alphaPremultiplied, 0);
    End(clip);
}

TEST_F(Clip, OpenBelievesAModuleThatKnowsItsAlpha) {
    RegisterRecording("rec");
    recording.depth = 32;
    recording.alphaKnown = true;
    KQClip* clip = Open("a.rec");
    EXPECT_EQ(recording.Count("GetFrame"), 0);
    EXPECT_EQ(clip->alphaPremultiplied, 1);
    End(clip);
}

TEST_F(Clip, OpenOfAnOpenClipCallsOpenAgain) {
    RegisterRecording("rec");
    KQClip* clip = Open("a.rec");
    EXPECT_TRUE(OpenClipKQ(clip, nullptr));
    EXPECT_EQ(recording.Count("Open"), 2);
    End(clip);
}

TEST_F(Clip, ReopenKeepsEditsAndInterpretation) {
    RegisterRecording("rec");
    KQClip* clip = Open("a.rec");
    SetClipOptionsKQ(clip, KQTAG_CLIP_FIELDS, 2, KQTAG_CLIP_ALPHA_INVERT, 1, 0);
    KQTimeValue third = {3, 30};
    ASSERT_TRUE(DeleteFrameKQ(clip, &third));
    CloseClipKQ(clip);
    ASSERT_TRUE(OpenClipKQ(clip, nullptr));
    EXPECT_EQ(clip->frameCount, 9);
    EXPECT_EQ(clip->editCount, 2);
    EXPECT_EQ(clip->fieldOrder, 2);
    EXPECT_EQ(clip->alphaInvert, 1);
    End(clip);
}

TEST_F(Clip, ReopenOfNullOrOfAClipWithoutModuleFails) {
    EXPECT_EQ(OpenClipKQ(static_cast<KQClip*>(nullptr), nullptr), 0);
    KQClip* clip = NewClipKQ();
    KQEnv->Error = KQERR_READ;
    EXPECT_EQ(OpenClipKQ(clip, nullptr), 0);
    EXPECT_EQ(GetErrorKQ(), KQERR_NONE);
    FreeClipKQ(clip);
}

TEST_F(Clip, ReopenThatFailsIsError17AndLeavesTheClipClosed) {
    RegisterRecording("rec");
    KQClip* clip = Open("a.rec");
    CloseClipKQ(clip);
    recording.failing = "Open";
    EXPECT_EQ(OpenClipKQ(clip, nullptr), 0);
    EXPECT_EQ(GetErrorKQ(), KQERR_MODULE);
    EXPECT_FALSE(clip->flags & KQCLIP_OPEN);
    recording.failing = "";
    EXPECT_TRUE(OpenClipKQ(clip, nullptr));
    End(clip);
}

TEST_F(Clip, CreateOpensForWriting) {
    KQFormatDesc* module = RegisterRecording("rec");
    KQClip* clip = NewClipKQ();
    clip->format = module;
    clip->sourceFrames = 5;
    EXPECT_EQ(CreateClipKQ(clip, 7), 1);
    EXPECT_EQ(clip->createMode, 7u);
    EXPECT_EQ(clip->sourceFrames, 0);
    EXPECT_EQ(clip->flags, KQCLIP_WRITING | KQCLIP_OPEN);
    End(clip);
}

TEST_F(Clip, CreateWithoutModuleTakesTheFirst) {
    KQFormatDesc* module = RegisterRecording("rec");
    RegisterRecording("two");
    KQClip* clip = NewClipKQ();
    EXPECT_TRUE(CreateClipKQ(clip, 0));
    EXPECT_EQ(clip->format, module);
    End(clip);
}

TEST_F(Clip, CreateNeedsAModuleThatWrites) {
    RegisterRecording("rec");
    recording.properties = KQFORMAT_READS;
    KQClip* clip = NewClipKQ();
    EXPECT_EQ(CreateClipKQ(clip, 0), 0);
    EXPECT_EQ(recording.Count("Create"), 0);
    EXPECT_EQ(GetErrorKQ(), KQERR_NONE);
    FreeClipKQ(clip);
}

TEST_F(Clip, CreateWithoutAnyModuleFails) {
    KQClip* clip = NewClipKQ();
    EXPECT_EQ(CreateClipKQ(clip, 0), 0);
    EXPECT_EQ(CreateClipKQ(nullptr, 0), 0);
    FreeClipKQ(clip);
}

TEST_F(Clip, CreateThatTheModuleFailsIsError17) {
    RegisterRecording("rec");
    recording.failing = "Create";
    recording.errorOnFailure = KQERR_DISKFULL;
    KQClip* clip = NewClipKQ();
    EXPECT_EQ(CreateClipKQ(clip, 0), 0);
    EXPECT_EQ(GetErrorKQ(), KQERR_MODULE);
    EXPECT_EQ(clip->flags, 0u);
    FreeClipKQ(clip);
}

TEST_F(Clip, CloseAndFreeIgnoreNull) {
    CloseClipKQ(nullptr);
    FreeClipKQ(nullptr);
    EXPECT_TRUE(List_Empty(&KQEnv->ClipList));
}

TEST_F(Clip, OpenClipsStandInTheEnvironmentsList) {
    RegisterRecording("rec");
    KQClip* one = Open("a.rec");
    KQClip* two = Open("b.rec");
    EXPECT_EQ(List_Entries(&KQEnv->ClipList), 2);
    CloseClipKQ(one);
    EXPECT_EQ(List_Entries(&KQEnv->ClipList), 1);
    EXPECT_TRUE(OpenClipKQ(one, nullptr));
    EXPECT_EQ(List_Entries(&KQEnv->ClipList), 2);
    End(one);
    FreeClipKQ(two);
    EXPECT_TRUE(List_Empty(&KQEnv->ClipList));
}

TEST_F(Clip, CleanUpClosesOpenClips) {
    RegisterRecording("rec");
    KQClip* one = Open("a.rec");
    KQClip* two = Open("b.rec");
    kq::CloseAllClips();
    EXPECT_EQ(recording.Count("Close"), 2);
    EXPECT_FALSE((one->flags | two->flags) & KQCLIP_OPEN);
    FreeClipKQ(one);
    FreeClipKQ(two);
}

TEST_F(Clip, BeginAndEndPassTheWritingFlag) {
    RegisterRecording("rec");
    KQClip* clip = NewClipKQ();
    ASSERT_TRUE(CreateClipKQ(clip, 0));
    EXPECT_EQ(BeginClipIOKQ(clip, nullptr), 1);
    EXPECT_EQ(recording.writing, 1u);
    EXPECT_TRUE(clip->flags & KQCLIP_IO);
    recording.writing = 0;
    EXPECT_EQ(EndClipIOKQ(clip, 0), 1);
    EXPECT_EQ(recording.writing, 1u);
    EXPECT_FALSE(clip->flags & KQCLIP_IO);
    End(clip);
}

TEST_F(Clip, BeginThatTheModuleFailsIsError17) {
    RegisterRecording("rec");
    KQClip* clip = Open("a.rec");
    recording.failing = "BeginIO";
    EXPECT_EQ(BeginClipIOKQ(clip, nullptr), 0);
    EXPECT_EQ(GetErrorKQ(), KQERR_MODULE);
    EXPECT_FALSE(clip->flags & KQCLIP_IO);
    End(clip);
}

TEST_F(Clip, EndThatTheModuleFailsStillEnds) {
    RegisterRecording("rec");
    KQClip* clip = Open("a.rec");
    ASSERT_TRUE(BeginClipIOKQ(clip, nullptr));
    recording.failing = "EndIO";
    EXPECT_EQ(EndClipIOKQ(clip, nullptr), 0);
    EXPECT_FALSE(clip->flags & KQCLIP_IO);
    End(clip);
}

TEST_F(Clip, BeginAndEndWorkWithoutModule) {
    KQClip* clip = NewClipKQ();
    EXPECT_EQ(BeginClipIOKQ(clip, nullptr), 1);
    EXPECT_EQ(EndClipIOKQ(clip, nullptr), 1);
    EXPECT_EQ(BeginClipIOKQ(nullptr, nullptr), 0);
    EXPECT_EQ(EndClipIOKQ(nullptr, nullptr), 0);
    FreeClipKQ(clip);
}

// A clip in which every field has a value of its own.
KQClip* FullClip(KQFormatDesc* module) {
    KQClip* clip = NewClipKQ();
    clip->format = module;
    clip->options = static_cast<KQClipOptions*>(AllocMemoryKQ(sizeof(KQClipOptions) + 3, 0));
    clip->options->data = reinterpret_cast<u8*>(clip->options + 1);
    clip->options->length = 3;
    std::memcpy(clip->options->data, "abc", 3);
    clip->moduleData = &recording;
    clip->fileSpec = MakeFileSpecKQ("some.rec");
    clip->width = 1, clip->height = 2, clip->depth = 3, clip->frameCount = 4, clip->sourceFrames = 5;
    clip->frameRate = 6, clip->sourceRate = 7, clip->nativeRate = 8, clip->startTime = {9, 10};
    clip->flags = KQCLIP_BLEND | KQCLIP_ALPHA_KNOWN;
    clip->createMode = 12, clip->track = 13, clip->nativeWidth = 14, clip->nativeHeight = 15, clip->scaleMode = 16;
    clip->alphaMode = 17, clip->fieldOrder = 18, clip->pullDown = 19, clip->alphaInvert = 20;
    clip->alphaPremultiplied = 21, clip->matteColor = {0.1, 0.2, 0.3, 0.4}, clip->pixelAspect = 22;
    clip->backgroundColor = 23, clip->gbufferMask = 24, clip->clipVersion = 25;
    clip->editCapacity = 32, clip->editCount = 1, clip->scratchCount = 26;
    clip->editList = static_cast<KQEditRun*>(AllocMemoryKQ(32 * sizeof(KQEditRun), KQMEM_Clear));
    clip->editList[0] = {0, 5};
    clip->firstNumber = 27, clip->numberStep = 28;
    clip->frameNumbers = static_cast<i32*>(AllocMemoryKQ(5 * sizeof(i32), KQMEM_Clear));
    clip->frameNumbers[4] = 99;
    auto track = static_cast<KQClipTrack*>(AllocMemoryKQ(sizeof(KQClipTrack), KQMEM_Clear));
    *track = Track(31, 32, 33);
    track->word = 34;
    track->more[7] = 35;
    track->node.ID = 36;
    AddTail(&clip->tracks, &track->node);
    AddName(&track->node, "layer");
    return clip;
}

void ExpectClone(const KQClip* clip, const KQClip* source) {
    EXPECT_EQ(clip->format, source->format);
    EXPECT_EQ(clip->width, source->width);
    EXPECT_EQ(std::memcmp(&clip->height, &source->height, offsetof(KQClip, flags) - offsetof(KQClip, height)), 0);
    EXPECT_EQ(clip->flags, source->flags);
    EXPECT_EQ(std::memcmp(&clip->createMode, &source->createMode,
                          offsetof(KQClip, gbufferMask) - offsetof(KQClip, createMode)),
              0);
    EXPECT_EQ(clip->clipVersion, source->clipVersion);
    EXPECT_EQ(clip->editCapacity, source->editCapacity);
    EXPECT_EQ(clip->editCount, source->editCount);
    EXPECT_EQ(clip->scratchCount, source->scratchCount);
    EXPECT_EQ(clip->firstNumber, source->firstNumber);
    EXPECT_EQ(clip->numberStep, source->numberStep);
}

TEST_F(Clip, CloneCopiesEveryField) {
    KQClip* source = FullClip(RegisterRecording("rec"));
    KQClip* clip = CloneClipKQ(source, nullptr);
    ASSERT_NE(clip, nullptr);
    ExpectClone(clip, source);
    EXPECT_NE(clip->clipId, source->clipId);
    EXPECT_EQ(clip->moduleData, nullptr);
    EXPECT_EQ(clip->gbufferMask, 0u);
    FreeClipKQ(clip);
    FreeClipKQ(source);
}

TEST_F(Clip, CloneOwnsCopiesOfWhatTheSourceOwns) {
    KQClip* source = FullClip(RegisterRecording("rec"));
    KQClip* clip = CloneClipKQ(source, nullptr);
    FreeClipKQ(source);
    EXPECT_EQ(clip->options->data, reinterpret_cast<u8*>(clip->options + 1));
    EXPECT_EQ(std::memcmp(clip->options->data, "abc", 3), 0);
    EXPECT_STREQ(clip->fileSpec, "some.rec");
    EXPECT_EQ(clip->editList[0].count, 5);
    EXPECT_EQ(clip->frameNumbers[4], 99);
    ASSERT_EQ(List_Entries(&clip->tracks), 1);
    auto track = reinterpret_cast<KQClipTrack*>(clip->tracks.Head);
    EXPECT_STREQ(track->node.Name, "layer");
    EXPECT_EQ(track->node.ID, 36u);
    EXPECT_EQ(track->word, 34u);
    EXPECT_EQ(track->depth, 33);
    EXPECT_EQ(track->more[7], 35u);
    FreeClipKQ(clip);
}

TEST_F(Clip, CloneIntoATargetKeepsWhatIsItsOwn) {
    KQClip* source = FullClip(RegisterRecording("rec"));
    KQClip* target = FullClip(nullptr);
    target->moduleData = target;
    target->gbufferMask = 3;
    i32 id = target->clipId;
    EXPECT_EQ(CloneClipKQ(source, target), target);
    ExpectClone(target, source);
    EXPECT_EQ(target->clipId, id);
    EXPECT_EQ(target->moduleData, target);
    EXPECT_EQ(target->gbufferMask, 3u);
    FreeClipKQ(target);
    FreeClipKQ(source);
}

TEST_F(Clip, CloneOfAnOpenClipCountsAsOpen) {
    RegisterRecording("rec");
    KQClip* source = Open("a.rec");
    KQClip* clip = CloneClipKQ(source, nullptr);
    EXPECT_TRUE(clip->flags & KQCLIP_OPEN);
    EXPECT_EQ(List_Entries(&KQEnv->ClipList), 2);
    End(clip);
    End(source);
}

TEST_F(Clip, CloneOfAClosedClipIntoAnOpenOneLeavesTheList) {
    RegisterRecording("rec");
    KQClip* source = NewClipKQ();
    KQClip* target = Open("a.rec");
    EXPECT_EQ(CloneClipKQ(source, target), target);
    EXPECT_TRUE(List_Empty(&KQEnv->ClipList));
    FreeClipKQ(target);
    FreeClipKQ(source);
}

TEST_F(Clip, CloneOfNullFails) { EXPECT_EQ(CloneClipKQ(nullptr, nullptr), nullptr); }

TEST_F(Clip, CloneWithoutMemoryLeavesTheTarget) {
    KQClip* source = FullClip(nullptr);
    KQClip* target = NewClipKQ();
    target->fileSpec = MakeFileSpecKQ("mine");
    for (i64 n = 1;; ++n) {
        kq::allocationFaults.Set(n, true);
        KQClip* clip = CloneClipKQ(source, target);
        kq::allocationFaults.Clear();
        if (clip) break;
        EXPECT_EQ(GetErrorKQ(), KQERR_NOMEM);
        EXPECT_STREQ(target->fileSpec, "mine");
        EXPECT_EQ(target->editList, nullptr);
    }
    EXPECT_STREQ(target->fileSpec, "some.rec");
    FreeClipKQ(target);
    FreeClipKQ(source);
}

TEST_F(Clip, CloseDeletesScratchFilesOfNegativeRuns) {
    SetScratchDirKQ(Folder().c_str());
    KQClip* clip = NewClipKQ();
    std::vector<std::string> files;
    for (i32 number : {-1, -2, -3}) {
        files.push_back(Make_TempName(clip, number, 0));
        kqtest::WriteWholeFile(files.back(), "frame");
    }
    clip->sourceFrames = 10;
    clip->editCapacity = clip->editCount = 3;
    clip->editList = static_cast<KQEditRun*>(AllocMemoryKQ(3 * sizeof(KQEditRun), 0));
    clip->editList[0] = {0, 4};
    clip->editList[1] = {-1, 2};
    clip->editList[2] = {6, 4};
    CloseClipKQ(clip);
    EXPECT_FALSE(FileExistsKQ(files[0].c_str()));
    EXPECT_FALSE(FileExistsKQ(files[1].c_str()));
    EXPECT_TRUE(FileExistsKQ(files[2].c_str()));
    EXPECT_EQ(clip->editCount, 3);
    FreeClipKQ(clip);
}

TEST_F(Clip, CloseStopsWhereTheRunsReachTheSourcesFrames) {
    SetScratchDirKQ(Folder().c_str());
    KQClip* clip = NewClipKQ();
    std::string file = Make_TempName(clip, -1, 0);
    kqtest::WriteWholeFile(file, "frame");
    clip->sourceFrames = 4;
    clip->editCapacity = clip->editCount = 2;
    clip->editList = static_cast<KQEditRun*>(AllocMemoryKQ(2 * sizeof(KQEditRun), 0));
    clip->editList[0] = {0, 4};
    clip->editList[1] = {-1, 1};
    CloseClipKQ(clip);
    EXPECT_TRUE(FileExistsKQ(file.c_str()));
    FreeClipKQ(clip);
}

TEST_F(Clip, PropertiesOfNullAre0) {
    EXPECT_EQ(GetImportPropertiesKQ(nullptr), 0u);
    EXPECT_EQ(GetExportPropertiesKQ(nullptr), 0u);
    KQClip* clip = NewClipKQ();
    EXPECT_EQ(GetExportPropertiesKQ(clip), 0u);
    FreeClipKQ(clip);
}

TEST_F(Clip, AModuleThatFailsAtEachSlotLeavesTheClipUsable) {
    RegisterRecording("rec");
    KQClip* clip = Open("a.rec");
    KQBitmap* bitmap = AllocBitmapKQ(8, 6, 32);
    for (const char* slot : {"Open", "BeginIO", "EndIO", "GetFrame", "AddFrame"}) {
        CloseClipKQ(clip);
        recording.failing = slot;
        bool opened = OpenClipKQ(clip, nullptr);
        bool begun = opened && BeginClipIOKQ(clip, nullptr);
        bool got = begun && GetFrameKQ(clip, bitmap, nullptr, nullptr, nullptr);
        bool added = got && AddFrameKQ(clip, bitmap, nullptr, nullptr, nullptr);
        bool ended = EndClipIOKQ(clip, nullptr);
        EXPECT_FALSE(added && ended) << slot;
        recording.failing = "";
        CloseClipKQ(clip);
        ASSERT_TRUE(OpenClipKQ(clip, nullptr)) << slot;
        ASSERT_TRUE(BeginClipIOKQ(clip, nullptr)) << slot;
        EXPECT_TRUE(GetFrameKQ(clip, bitmap, nullptr, nullptr, nullptr)) << slot;
        EXPECT_TRUE(EndClipIOKQ(clip, nullptr)) << slot;
    }
    FreeBitmapKQ(bitmap);
    End(clip);
}

TEST_F(Clip, EveryAllocationOfOpeningMayFail) {
    RegisterRecording("rec");
    recording.depth = 32;
    recording.tracks = {Track(1, 1, 24)};
    std::string path = File("a.rec");
    kqtest::FailEveryAllocation([&] {
        KQClip* clip = OpenClipKQ(path.c_str(), nullptr);
        EXPECT_TRUE(clip || GetErrorKQ() != KQERR_NONE);
        End(clip);
    });
}

TEST_F(Clip, EveryFileCallOfOpeningMayFail) {
    RegisterRecording("rec");
    std::string path = File("a.rec");
    kqtest::FailEveryFileCall([&] { End(OpenClipKQ(path.c_str(), nullptr)); });
}

TEST_F(Clip, EveryAllocationOfCloningMayFail) {
    KQClip* source = FullClip(nullptr);
    kqtest::FailEveryAllocation([&] { FreeClipKQ(CloneClipKQ(source, nullptr)); });
    FreeClipKQ(source);
}

// A clip of the module by its name in the registry, to be written as a file of that extension.
KQClip* WriterOf(const char* name, const std::string& path) {
    KQClip* clip = NewClipKQ();
    clip->format = reinterpret_cast<KQFormatDesc*>(Find_Name(&KQEnv->formatModules, name));
    clip->fileSpec = CopyFileSpecKQ(path.c_str());
    clip->width = 4, clip->height = 3, clip->alphaMode = 2, clip->alphaPremultiplied = 0;
    clip->frameRate = clip->sourceRate = 25;
    return clip;
}

// Closes the clip and makes it as new, to be created again.
void Discard(KQClip* clip) {
    CloseClipKQ(clip);
    clip->flags &= ~KQCLIP_WRITING;
    FreeMemoryKQ(clip->options);
    clip->options = nullptr;
}

constexpr struct {
    const char *module, *file;
} kWriters[] = {{"Filmstrip", "c.flm"}, {"ElectricImage", "c.ei"}, {"Quantel VPB", "c.vpb"}, {"", "ram"}};

TEST_F(Clip, EveryAllocationOfCreatingMayFail) {
    InitFormatModulesKQ(nullptr);
    KQBitmap* bitmap = AllocBitmapKQ(4, 3, 32);
    for (auto& writer : kWriters) {
        KQClip* clip = WriterOf(writer.module, Folder() + writer.file);
        ASSERT_NE(clip->format, nullptr) << writer.module;
        kqtest::FailEveryAllocation([&] {
            if (CreateClipKQ(clip, 0)) {
                EXPECT_TRUE(clip->flags & KQCLIP_OPEN);
                AddFrameKQ(clip, bitmap, nullptr, nullptr, nullptr);
            } else {
                EXPECT_EQ(GetErrorKQ(), KQERR_MODULE) << writer.module;
                EXPECT_FALSE(clip->flags & KQCLIP_OPEN);
            }
            Discard(clip);
        });
        EXPECT_TRUE(CreateClipKQ(clip, 0)) << writer.module;
        End(clip);
    }
    FreeBitmapKQ(bitmap);
}

TEST_F(Clip, EveryFileCallOfCreatingMayFail) {
    InitFormatModulesKQ(nullptr);
    for (auto& writer : kWriters) {
        KQClip* clip = WriterOf(writer.module, Folder() + writer.file);
        ASSERT_NE(clip->format, nullptr) << writer.module;
        kqtest::FailEveryFileCall([&] {
            if (!CreateClipKQ(clip, 0)) {
                EXPECT_EQ(GetErrorKQ(), KQERR_MODULE) << writer.module;
            }
            Discard(clip);
        });
        EXPECT_TRUE(CreateClipKQ(clip, 0)) << writer.module;
        End(clip);
    }
}

TEST_F(Clip, EveryAllocationOfOpeningATrackOfAClipMayFail) {
    RegisterRecording("rec");
    recording.depth = 32;
    recording.tracks = {Track(2, 1, 32)};
    KQClip* source = Open("a.rec");
    kqtest::FailEveryAllocation([&] {
        KQClip* clip = OpenClipKQ("", KQTAG_CLIP_SOURCE, source, KQTAG_CLIP_TRACK, 1, 0);
        EXPECT_TRUE(clip || GetErrorKQ() == KQERR_NOMEM);
        End(clip);
    });
    End(source);
}

TEST_F(Clip, EveryFileCallOfOpeningATrackOfAClipMayFail) {
    InitFormatModulesKQ(nullptr);
    KQClip* writer = WriterOf("ElectricImage", Folder() + "t.ei");
    KQBitmap* bitmap = AllocBitmapKQ(4, 3, 32);
    ASSERT_TRUE(CreateClipKQ(writer, 0));
    ASSERT_TRUE(AddFrameKQ(writer, bitmap, nullptr, nullptr, nullptr));
    End(writer);
    FreeBitmapKQ(bitmap);
    KQClip* source = OpenClipKQ((Folder() + "t.ei").c_str(), nullptr);
    ASSERT_NE(source, nullptr);
    auto track = static_cast<KQClipTrack*>(AllocMemoryKQ(sizeof(KQClipTrack), KQMEM_Clear));
    *track = Track(4, 3, 32);
    AddTail(&source->tracks, &track->node);
    kqtest::FailEveryFileCall([&] {
        // The guess at its alpha opens the file for the clone; that it fails costs the guess alone.
        KQClip* clip = OpenClipKQ("", KQTAG_CLIP_SOURCE, source, KQTAG_CLIP_TRACK, 1, 0);
        ASSERT_NE(clip, nullptr);
        EXPECT_EQ(clip->track, 1);
        End(clip);
    });
    End(source);
}

}   // namespace
