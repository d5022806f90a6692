// Format modules: the record and slots through which every image and movie file reaches the clip layer.
//
// This header and kq/clip.h are what a separately built module compiles against: field and slot order is binary
// interface and pinned below.
#pragma once

#include "kq/bitmap.h"
#include "kq/clip.h"
#include "kq/lists.h"
#include "kq/rect.h"
#include "kq/tags.h"
#include "kq/types.h"

struct KQEnvironment;
struct KQPlugin;
struct KQGBufferArray;
struct KQFormatDesc;
struct KQScanDesc;

// Property bits, the result of the ImportProperties and ExportProperties slots.
enum : u32 {
    KQFORMAT_PROP_1 = 1,       // declared by some modules; the library tests it nowhere
    KQFORMAT_MULTIFRAME = 2,   // one file holds all frames; without it a longer clip is a file a frame
    KQFORMAT_READS = 4,        // the module reads
    KQFORMAT_WRITES = 8,       // the module writes
    KQFORMAT_SCALES = 16,      // GetFrame honours position, width and height itself
    KQFORMAT_HIDDEN = 128,     // never listed by the file requester
};

// A pair of four-character codes; KQ_ANYCODE in either place matches anything.
struct KQFileType {
    u32 type;
    u32 creator;
};

// One format module. Tables and blocks that the record owns come from AllocMemoryKQ; the library frees them. An
// extension code holds up to three lower-case letters, the first in the top byte, unused bytes 0.
struct KQFormatDesc {
    Node node;                      // its Name is the display name; owned
    KQPlugin* pluginInfo;           // null for a built-in module
    KQClipOptions* defaultOptions;  // options that new clips of this format start from; owned
    u32 unused[2];
    i32 maxWidth, maxHeight;        // largest frame; 32767 in every built-in module
    u32 fileType;                   // type code of files of this format
    u32 fileCreator;                // creator code; KQ_ANYCODE when there is none
    i32 importTypeCount;
    KQFileType* importTypes;        // files that the module reads; owned
    i32 exportTypeCount;
    KQFileType* exportTypes;        // filled by plug-ins; owned
    i32 importExtCount;
    u32* importExts;                // extension codes that the module reads; owned
    i32 exportExtCount;
    u32* exportExts;                // owned
    u32 supportedModes;             // image modes of a plug-in, else 0
    u32 cachedProperties;           // a plug-in's ImportProperties, kept so that it need not be loaded
    u32 pluginProperties;
    KQEnvironment** hostInterface;  // given to a plug-in module when it loads

    // Required unless said otherwise. All but CheckFile and the properties return non-zero on success.
    i32 (*Open)(KQClip* clip, TagItem* tags);   // fills width, height, depth, sourceFrames, sourceRate
    void (*Close)(KQClip* clip);
    i32 (*Create)(KQClip* clip, u32 mode);
    i32 (*BeginIO)(KQClip* clip, u32 writing);
    i32 (*EndIO)(KQClip* clip, u32 writing);
    // Fills `target` (32 bits) with source frame `frame`; without KQFORMAT_SCALES always the whole frame at its own
    // size. `track` is the clip's.
    i32 (*GetFrame)(KQClip* clip, KQBitmap* target, i32 frame, const KQRectT<long>* position, i32 width, i32 height,
                    i32 track);
    i32 (*AddFrame)(KQClip* clip, KQBitmap* bitmap, i32 frame, const KQRectT<long>* rect);
    i32 (*GetGBuffers)(KQClip* clip, i32 frame, u32 mask, KQGBufferArray* array);   // optional: null, no planes
    void (*ClipOptions)(KQClip* clip);                                              // optional: null, no dialog
    void* reservedSlot;                                                             // never called
    i32 (*CheckFile)(KQFormatDesc* module, const char* fileSpec, u32 creator, u32 type, u32 extension);
    u32 (*ImportProperties)(KQFormatDesc* module);
    u32 (*ExportProperties)(KQFormatDesc* module, KQClip* clip);
    void (*Shutdown)();                                                             // optional: null, nothing to do
};

// Registers the built-in modules in their fixed order. Called once, after InitKQ. `scan` shows the progress of a scan
// for plug-ins, null for none.
KQ_API void InitFormatModulesKQ(KQScanDesc* scan);

// The module's ImportProperties; 0 for null.
KQ_API u32 GetImportPropertiesKQ(KQFormatDesc* format);

// The ExportProperties of the clip's module; 0 for a null clip or one without a module.
KQ_API u32 GetExportPropertiesKQ(KQClip* clip);
