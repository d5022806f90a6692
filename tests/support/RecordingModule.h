// A format module of the test program that records its calls and fails where a test wants it: a clip of any size
// whose frames are filled with their number.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "Source/Formats.h"
#include "kq/clip.h"
#include "kq/environment.h"

namespace kqtest {

// What the module does and has seen. One for all recording modules, cleared by Reset.
struct Recording {
    std::vector<std::string> calls;
    std::string failing;          // slot that returns 0
    u32 errorOnFailure = 0;       // left in `Error` by the failing slot
    u32 properties = KQFORMAT_MULTIFRAME | KQFORMAT_READS | KQFORMAT_WRITES;
    i32 width = 8, height = 6, depth = 24, frames = 10;
    f64 rate = 0.0;               // 0: what the library preset
    u32 type = 0, creator = 0, extension = 0;   // as CheckFile saw them
    u32 writing = 0;
    bool alphaKnown = false;
    std::vector<KQClipTrack> tracks;
    u32 fill = 0xFF000000;        // colour of every frame
    void (*options)(KQClip*) = nullptr;

    i64 Count(const std::string& name) const {
        i64 count = 0;
        for (auto& call : calls) count += call == name;
        return count;
    }
};

inline Recording recording;

inline i32 Called(const char* slot) {
    recording.calls.push_back(slot);
    if (recording.failing != slot) return 1;
    if (recording.errorOnFailure) KQEnv->Error = recording.errorOnFailure;
    return 0;
}

inline i32 RecordedOpen(KQClip* clip, TagItem*) {
    if (!Called("Open")) return 0;
    clip->width = recording.width;
    clip->height = recording.height;
    clip->depth = recording.depth;
    clip->sourceFrames = recording.frames;
    if (recording.rate != 0.0) clip->sourceRate = recording.rate;
    if (recording.alphaKnown) clip->flags |= KQCLIP_ALPHA_KNOWN;
    for (auto& track : recording.tracks) {
        auto node = static_cast<KQClipTrack*>(AllocMemoryKQ(sizeof(KQClipTrack), KQMEM_Clear));
        if (!node) return 0;
        *node = track;
        AddTail(&clip->tracks, &node->node);
    }
    return 1;
}

inline i32 RecordedGetFrame(KQClip*, KQBitmap* target, i32, const KQRectT<long>*, i32, i32, i32) {
    if (!Called("GetFrame")) return 0;
    FillBitmapKQ(target, recording.fill);
    return 1;
}

inline i32 RecordedCheckFile(KQFormatDesc* module, const char* spec, u32 creator, u32 type, u32 extension) {
    recording.creator = creator;
    recording.type = type;
    recording.extension = extension;
    return Called("CheckFile") && kq::CheckFileByTables(module, spec, creator, type, extension);
}

// Registers a recording module for files of `extension`.
inline KQFormatDesc* RegisterRecording(const char* extension, const char* name = "Recording") {
    KQFormatDesc* module = kq::NewFormatModule({name, KQCode4("Rec "), KQ_ANYCODE, KQExtension(extension)});
    if (!module) return nullptr;
    module->Open = RecordedOpen;
    module->Close = [](KQClip*) { Called("Close"); };
    module->Create = [](KQClip*, u32) { return Called("Create"); };
    module->BeginIO = [](KQClip*, u32 writing) {
        recording.writing = writing;
        return Called("BeginIO");
    };
    module->EndIO = [](KQClip*, u32 writing) {
        recording.writing = writing;
        return Called("EndIO");
    };
    module->GetFrame = RecordedGetFrame;
    module->AddFrame = [](KQClip*, KQBitmap*, i32, const KQRectT<long>*) { return Called("AddFrame"); };
    module->ClipOptions = [](KQClip* clip) {
        Called("ClipOptions");
        if (recording.options) recording.options(clip);
    };
    module->CheckFile = RecordedCheckFile;
    module->ImportProperties = [](KQFormatDesc*) { return recording.properties; };
    module->ExportProperties = [](KQFormatDesc*, KQClip*) { return recording.properties; };
    module->Shutdown = [] { Called("Shutdown"); };
    kq::RegisterFormatModule(module, nullptr);
    return module;
}

}   // namespace kqtest
