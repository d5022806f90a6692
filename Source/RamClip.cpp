// Clips without a file: native bitmaps in a list, as an application makes them for a preview.
//
// Frames lie at the display's depth, so that playing them back converts nothing for the screen; alpha is flattened as
// they come in, and reads as opaque. The list is the clip's moduleData: an application may also hang in one of its own.
#define KQ_MODULE "Source/RamClip"
#include "Source/Alloc.h"
#include "Source/Formats.h"
#include "kq/environment.h"
#include "kq/frames.h"
#include "kq/nativebitmap.h"

namespace {

struct RamFrame {
    Node node;
    KQNativeBitmap* bitmap;   // owned
};

List* Frames(KQClip* clip) { return static_cast<List*>(clip->moduleData); }

RamFrame* FrameOf(KQClip* clip, i32 index) {
    return Frames(clip) ? reinterpret_cast<RamFrame*>(List_Entry(Frames(clip), index)) : nullptr;
}

i32 Open(KQClip* clip, TagItem*) {
    RamFrame* first = FrameOf(clip, 0);
    if (!first) return 0;
    clip->width = first->bitmap->width;
    clip->height = first->bitmap->height;
    clip->sourceFrames = List_Entries(Frames(clip));
    return 1;
}

void Close(KQClip* clip) {
    if (!Frames(clip)) return;
    while (Node* node = RemHead(Frames(clip))) {
        FreeBitmapKQ(reinterpret_cast<RamFrame*>(node)->bitmap);
        KQ_FREE(node);
    }
    KQ_FREE(clip->moduleData);
    clip->moduleData = nullptr;
}

i32 Create(KQClip* clip, u32) {
    Close(clip);
    List* list = KQ_NEW(List);
    if (list) NewList(list);
    clip->moduleData = list;
    return list != nullptr;
}

i32 GetFrame(KQClip* clip, KQBitmap* target, i32 frame, const KQRectT<long>*, i32, i32, i32) {
    RamFrame* found = FrameOf(clip, frame);
    if (!found) return 0;
    CopyBitmapKQ(found->bitmap, target, 0, 0, -1, -1, 0, 0);
    return 1;
}

// A node with a bitmap for a picture of this size, or null.
RamFrame* NewFrame(const KQBitmap* picture) {
    RamFrame* frame = KQ_NEW(RamFrame);
    if (!frame) return nullptr;
    frame->bitmap = AllocNativeBitmapKQ(picture->width, picture->height, SuggestedDepthKQ());
    if (frame->bitmap) return frame;
    KQ_FREE(frame);
    return nullptr;
}

i32 AddFrame(KQClip* clip, KQBitmap* picture, i32, const KQRectT<long>* rect) {
    RamFrame* frame = Frames(clip) ? NewFrame(picture) : nullptr;
    if (!frame) return 0;
    Interpret_Alpha(clip, picture, frame->bitmap, rect);
    AddTail(Frames(clip), &frame->node);
    ++clip->sourceFrames;
    return 1;
}

constexpr u32 kProperties = KQFORMAT_MULTIFRAME | KQFORMAT_READS | KQFORMAT_WRITES | KQFORMAT_HIDDEN;

i32 TakesNoFile(KQFormatDesc*, const char*, u32, u32, u32) { return 0; }

}   // namespace

namespace kq {

KQFormatDesc* MakeRamClipModule() {
    KQFormatDesc* module = NewFormatModule({"", KQ_ANYCODE, KQ_ANYCODE, 0});
    if (!module) return nullptr;
    module->Open = Open;
    module->Close = Close;
    module->Create = Create;
    module->GetFrame = GetFrame;
    module->AddFrame = AddFrame;
    module->CheckFile = TakesNoFile;
    module->ImportProperties = FixedImportProperties<kProperties>;
    module->ExportProperties = FixedExportProperties<kProperties>;
    return module;
}

}   // namespace kq
