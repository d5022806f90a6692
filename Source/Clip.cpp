// The life of a clip: opening through the first module that takes the file, creating, cloning, closing, and the calls
// around input and output. The record is plain; what owns memory in it is freed in one place.
#define KQ_MODULE "Source/Clip"
#include "kq/clip.h"

#include <cstddef>
#include <cstring>

#include "Source/Alloc.h"
#include "Source/Formats.h"
#include "Source/Frames.h"
#include "Source/Path.h"
#include "Source/Startup.h"
#include "Source/Text.h"
#include "kq/environment.h"
#include "kq/files.h"
#include "kq/filespec.h"
#include "kq/frames.h"
#include "kq/sequence.h"

namespace {

KQClipTrack* TrackOf(const KQClip* clip, i32 number) {
    return reinterpret_cast<KQClipTrack*>(List_Entry(&clip->tracks, number - 1));
}

// Sets or clears KQCLIP_OPEN, and keeps the environment's list of open clips in step.
void MarkOpen(KQClip* clip, bool open) {
    clip->flags = open ? clip->flags | KQCLIP_OPEN : clip->flags & ~KQCLIP_OPEN;
    bool listed = clip->openNode.Succ != nullptr;
    if (open && !listed) AddTail(&KQEnv->ClipList, &clip->openNode);
    if (!open && listed) Remove(&clip->openNode);
}

// A failed module's own code stands; without one it is 17.
void NameModuleFailure() {
    if (KQEnv->Error == KQERR_NONE) KQEnv->Error = KQERR_MODULE;
}

KQClip* OpenFailed(KQClip* clip) {
    FreeClipKQ(clip);
    return nullptr;
}

KQClip* OpenFailed(KQClip* clip, u32 code) {
    OpenFailed(clip);
    KQEnv->Error = code;
    return nullptr;
}

// Takes size and depth of the track from `from`; 0 when there is no such track.
int PresentTrack(KQClip* clip, const KQClip* from, i32 number) {
    KQClipTrack* track = TrackOf(from, number);
    if (!track) return 0;
    clip->width = track->width;
    clip->height = track->height;
    clip->depth = track->depth;
    clip->track = number;
    return 1;
}

KQClip* OpenTrackOf(KQClip* clip, const KQClip* source, i32 number) {
    if (!CloneClipKQ(source, clip) || !PresentTrack(clip, source, number)) return OpenFailed(clip);
    GuessAlphaKQ(clip);
    clip->flags |= KQCLIP_ALPHA_KNOWN;
    MarkOpen(clip, true);
    return clip;
}

// The code of an extension of one to three letters; a longer one has none.
u32 ExtensionOfName(const char* fileSpec) {
    const char* separator = kq::LastSeparator(fileSpec, 1);
    const char* dot = std::strrchr(separator ? separator + 1 : fileSpec, '.');
    if (!dot || std::strlen(dot + 1) > 3) return 0;
    u32 code = 0;
    for (int i = 1; dot[i]; ++i) code |= u32(kq::FoldLower(u8(dot[i]))) << (32 - 8 * i);
    return code;
}

u32 ExtensionCode(const char* fileSpec, TagItem* tags) {
    TagItem* given = FindTagItem(KQTAG_CLIP_EXTENSION, tags);
    auto four = given ? reinterpret_cast<const u8*>(given->Data) : nullptr;
    if (!four) return ExtensionOfName(fileSpec);
    return u32(four[0]) << 24 | u32(four[1]) << 16 | u32(four[2]) << 8 | four[3];
}

// The first module that takes the file. Files carry no type or creator codes on these platforms.
KQFormatDesc* ChooseModule(const char* fileSpec, u32 extension) {
    for (Node* node = KQEnv->formatModules.Head; node->Succ; node = node->Succ) {
        auto module = reinterpret_cast<KQFormatDesc*>(node);
        if (module->CheckFile(module, fileSpec, KQ_ANYCODE, KQ_ANYCODE, extension)) return module;
    }
    return nullptr;
}

f64 DefaultRate(TagItem* tags) {
    TagItem* given = FindTagItem(KQTAG_CLIP_DEFAULT_RATE, tags);
    return given && given->Data ? *reinterpret_cast<f64*>(given->Data) : 30.0;
}

// Has the chosen module open the file, and the sequence layer look at its neighbours. A failure of the latter closes
// what the module opened.
int OpenThroughModule(KQClip* clip, TagItem* tags) {
    clip->sourceRate = DefaultRate(tags);
    KQEnv->Error = KQERR_MODULE;
    if (!clip->format->Open(clip, tags)) return 0;
    if (GetImportPropertiesKQ(clip->format) & KQFORMAT_MULTIFRAME) return 1;
    if (Sequence_Check(clip, tags)) return 1;
    u32 reason = KQEnv->Error;
    clip->format->Close(clip);
    KQEnv->Error = reason;
    return 0;
}

// Video sizes have pixels that are not square.
void SetVideoAspect(KQClip* clip) {
    if (clip->width == 720 && clip->height == 486) clip->pixelAspect = 0.9;
    if (clip->width == 720 && clip->height == 576) clip->pixelAspect = 16.0 / 15.0;
}

void SettleAlpha(KQClip* clip, TagItem* tags) {
    if (FindTagItem(KQTAG_CLIP_NOGUESS, tags)) {
        clip->alphaMode = clip->depth == 32 ? 2 : 0;
        clip->alphaInvert = clip->alphaPremultiplied = 0;
        clip->flags |= KQCLIP_ALPHA_KNOWN;
    }
    if (clip->flags & KQCLIP_ALPHA_KNOWN) return;
    GuessAlphaKQ(clip);
    clip->flags |= KQCLIP_ALPHA_KNOWN;
}

void FillOpened(KQClip* clip, i32 track, TagItem* tags) {
    KQEnv->Error = KQERR_NONE;
    clip->track = 0;
    clip->frameRate = clip->nativeRate = clip->sourceRate;
    clip->frameCount = clip->sourceFrames;
    if (track > 0) PresentTrack(clip, clip, track);
    SetVideoAspect(clip);
    MarkOpen(clip, true);
    SettleAlpha(clip, tags);
}

// Frees what the record owns and leaves it without.
void ReleaseOwned(KQClip* clip) {
    KQ_FREE(clip->options);
    KQ_FREE(clip->editList);
    KQ_FREE(clip->editIndex);
    KQ_FREE(clip->frameNumbers);
    Free_List(&clip->tracks);
    FreeFileSpecKQ(clip->fileSpec);
    clip->options = nullptr;
    clip->editList = nullptr;
    clip->editIndex = nullptr;
    clip->frameNumbers = nullptr;
    clip->fileSpec = nullptr;
}

// A copy of `count` entries, null for null. `*failed` is set when out of memory.
template <class T>
T* CopyTable(const T* table, i32 count, bool* failed) {
    if (!table) return nullptr;
    size_t bytes = count > 0 ? size_t(count) * sizeof(T) : 0;
    T* copy = static_cast<T*>(KQ_ALLOC(bytes, 0));
    if (!copy)
        *failed = true;
    else if (bytes)
        std::memcpy(copy, table, bytes);
    return copy;
}

int CopyTracks(const List* source, List* target) {
    NewList(target);
    for (Node* node = source->Head; node->Succ; node = node->Succ) {
        KQClipTrack* copy = KQ_NEW(KQClipTrack);
        if (!copy) return 0;
        std::memcpy(copy, node, sizeof(KQClipTrack));
        copy->node.Name = nullptr;
        AddTail(target, &copy->node);
        if (node->Name && !AddName(&copy->node, node->Name)) return 0;
    }
    return 1;
}

// Moves all nodes of `source` to the empty list `target`.
void MoveNodes(List* source, List* target) {
    NewList(target);
    while (Node* node = RemHead(source)) AddTail(target, node);
}

// Fills `copy`, a cleared record, with deep copies of what `source` owns; false when out of memory.
bool CopyOwned(const KQClip* source, KQClip* copy) {
    bool failed = false;
    copy->options = kq::CopyOptions(source->options);
    copy->fileSpec = CopyFileSpecKQ(source->fileSpec);
    copy->editList = CopyTable(source->editList, source->editCapacity, &failed);
    copy->frameNumbers = CopyTable(source->frameNumbers, source->sourceFrames, &failed);
    bool tracks = CopyTracks(&source->tracks, &copy->tracks);
    return !failed && tracks && !copy->options == !source->options && !copy->fileSpec == !source->fileSpec;
}

// Puts all fields of `source` into `target` but those that are its own, with what `owned` holds in place of what the
// source owns.
void TakeFields(const KQClip* source, KQClip* owned, KQClip* target) {
    KQClip kept = *target;
    *target = *source;
    target->clipId = kept.clipId;
    target->moduleData = kept.moduleData;
    target->gbufferMask = kept.gbufferMask;
    target->openNode = kept.openNode;
    target->editIndex = kept.editIndex;
    target->options = owned->options;
    target->fileSpec = owned->fileSpec;
    target->editList = owned->editList;
    target->frameNumbers = owned->frameNumbers;
    MoveNodes(&owned->tracks, &target->tracks);
    MarkOpen(target, (source->flags & KQCLIP_OPEN) != 0);
}

// Deletes the files of a run of scratch frames.
void DeleteScratchRun(KQClip* clip, KQEditRun run) {
    for (i32 i = 0; i < run.count; ++i) {
        const char* name = Make_TempName(clip, run.start - i, 0);
        u32 before = KQEnv->Error;
        if (name && !DeleteFileKQ(name) && KQEnv->Error == KQERR_NOTFOUND) KQEnv->Error = before;
    }
}

// Walks the edit list as far as it stands for frames of the source. Inserted frames that were never modified have no
// file: that there is nothing to delete is no failure.
void DeleteScratchFrames(KQClip* clip) {
    if (!clip->editList || clip->sourceFrames < 1) return;
    i64 frames = 0;
    for (i32 i = 0; i < clip->editCount && frames < clip->sourceFrames; ++i) {
        frames += clip->editList[i].count;
        if (clip->editList[i].start < 0) DeleteScratchRun(clip, clip->editList[i]);
    }
}

}   // namespace

namespace kq {

// A module's Close may close other clips: the walk begins anew after each.
void CloseAllClips() {
    while (!List_Empty(&KQEnv->ClipList)) {
        auto node = reinterpret_cast<u8*>(KQEnv->ClipList.Head);
        CloseClipKQ(reinterpret_cast<KQClip*>(node - offsetof(KQClip, openNode)));
    }
}

}   // namespace kq

KQClip* NewClipKQ() {
    KQClip* clip = KQ_NEW(KQClip);
    if (!clip) {
        KQEnv->Error = KQERR_NOMEM;
        return nullptr;
    }
    NewList(&clip->tracks);
    clip->clipId = KQEnv->nextClipId++;
    clip->alphaPremultiplied = 1;
    clip->pixelAspect = 1.0;
    clip->backgroundColor = 0xFF000000;
    clip->clipVersion = 1;
    clip->numberStep = 1;
    return clip;
}

KQClip* OpenClipKQ(const char* fileSpec, TagItem* tags) {
    KQEnv->Error = KQERR_NONE;
    KQClip* clip = NewClipKQ();
    if (!clip) return nullptr;
    TagItem* source = FindTagItem(KQTAG_CLIP_SOURCE, tags);
    TagItem* track = FindTagItem(KQTAG_CLIP_TRACK, tags);
    if (source && track) return OpenTrackOf(clip, reinterpret_cast<KQClip*>(source->Data), i32(track->Data));

    clip->fileSpec = CopyFileSpecKQ(fileSpec);
    if (!clip->fileSpec) return OpenFailed(clip, KQERR_NOMEM);
    if (!FileExistsKQ(fileSpec)) return OpenFailed(clip, KQERR_NOTFOUND);
    clip->format = ChooseModule(clip->fileSpec, ExtensionCode(clip->fileSpec, tags));
    if (!clip->format) return OpenFailed(clip, KQERR_BADFORMAT);
    if (!OpenThroughModule(clip, tags)) {
        NameModuleFailure();
        return OpenFailed(clip);
    }
    FillOpened(clip, track ? i32(track->Data) : 0, tags);
    return clip;
}

int OpenClipKQ(KQClip* clip, TagItem* tags) {
    KQEnv->Error = KQERR_NONE;
    if (!clip || !clip->format) return 0;
    // A sequence is opened by its first file, as it was the first time; its own count of frames stays.
    bool sequence = kq::IsSequence(clip, GetImportPropertiesKQ(clip->format)) && Is_Sequence(clip->fileSpec);
    i32 frames = clip->sourceFrames;
    kq::FrameFile file(clip);
    if (sequence && !file.ForReading(0)) {
        KQEnv->Error = KQERR_NOTFOUND;
        return 0;
    }
    KQEnv->Error = KQERR_MODULE;
    int opened = clip->format->Open(clip, tags);
    if (sequence) clip->sourceFrames = frames;
    if (!opened) {
        NameModuleFailure();
        return 0;
    }
    KQEnv->Error = KQERR_NONE;
    MarkOpen(clip, true);
    return 1;
}

int CreateClipKQ(KQClip* clip, u32 mode) {
    KQEnv->Error = KQERR_NONE;
    if (!clip) return 0;
    if (!clip->format && !List_Empty(&KQEnv->formatModules))
        clip->format = reinterpret_cast<KQFormatDesc*>(KQEnv->formatModules.Head);
    if (!(GetExportPropertiesKQ(clip) & KQFORMAT_WRITES)) return 0;
    clip->createMode = mode;
    if (!clip->format->Create(clip, mode)) {
        KQEnv->Error = KQERR_MODULE;
        return 0;
    }
    clip->sourceFrames = 0;
    clip->flags |= KQCLIP_WRITING;
    MarkOpen(clip, true);
    return 1;
}

void CloseClipKQ(KQClip* clip) {
    if (!clip) return;
    MarkOpen(clip, false);
    DeleteScratchFrames(clip);
    if (clip->format) clip->format->Close(clip);
}

void FreeClipKQ(KQClip* clip) {
    if (!clip) return;
    MarkOpen(clip, false);
    ReleaseOwned(clip);
    KQ_FREE(clip);
}

KQClip* CloneClipKQ(const KQClip* source, KQClip* target) {
    if (!source) return nullptr;
    KQClip owned = {};
    if (!CopyOwned(source, &owned)) {
        ReleaseOwned(&owned);
        KQEnv->Error = KQERR_NOMEM;
        return nullptr;
    }
    KQClip* clip = target ? target : NewClipKQ();
    if (!clip) {
        ReleaseOwned(&owned);
        return nullptr;
    }
    ReleaseOwned(clip);
    TakeFields(source, &owned, clip);
    return clip;
}

int BeginClipIOKQ(KQClip* clip, TagItem*) {
    if (!clip) return 0;
    KQEnv->Error = KQERR_NONE;
    if (clip->format && !clip->format->BeginIO(clip, clip->flags & KQCLIP_WRITING)) {
        KQEnv->Error = KQERR_MODULE;
        return 0;
    }
    clip->flags |= KQCLIP_IO;
    return 1;
}

int EndClipIOKQ(KQClip* clip, TagItem*) {
    if (!clip) return 0;
    KQEnv->Error = KQERR_NONE;
    int result = clip->format ? clip->format->EndIO(clip, clip->flags & KQCLIP_WRITING) : 1;
    clip->flags &= ~KQCLIP_IO;
    return result;
}
