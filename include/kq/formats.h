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
struct KQDrawInfo;

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

static_assert(sizeof(KQFileType) == 8);
static_assert(offsetof(KQFormatDesc, pluginInfo) == 32 && offsetof(KQFormatDesc, maxWidth) == 56);
static_assert(offsetof(KQFormatDesc, fileType) == 64 && offsetof(KQFormatDesc, importTypes) == 80);
static_assert(offsetof(KQFormatDesc, exportTypes) == 96 && offsetof(KQFormatDesc, importExts) == 112);
static_assert(offsetof(KQFormatDesc, exportExts) == 128 && offsetof(KQFormatDesc, supportedModes) == 136);
static_assert(offsetof(KQFormatDesc, hostInterface) == 152 && offsetof(KQFormatDesc, Open) == 160);
static_assert(offsetof(KQFormatDesc, GetFrame) == 200 && offsetof(KQFormatDesc, GetGBuffers) == 216);
static_assert(offsetof(KQFormatDesc, CheckFile) == 240 && offsetof(KQFormatDesc, Shutdown) == 264);
static_assert(sizeof(KQFormatDesc) == 272);

// The code of a file name extension of up to three lower-case letters: KQExtension("avi") is 0x61766900.
constexpr u32 KQExtension(const char* letters) {
    u32 code = 0;
    for (int shift = 24; shift > 0 && *letters; shift -= 8) code |= u32(u8(*letters++)) << shift;
    return code;
}

// How an application shows the progress of a scan. `draw` and the area are for the text on the screen; null draws
// nothing. This build has no drawing yet: it gives each text, "Scanning for Format Plug-ins: " and the name of the
// module just added, to `progress`, null for none.
struct KQScanDesc {
    KQDrawInfo* draw;
    i32 left, top, width, height;   // pixels
    void (*progress)(const char* text, void* data);
    void* progressData;
};

// Registers the built-in modules in their fixed order: Filmstrip, ElectricImage, Quantel VPB, RAM clips. A module that
// cannot be registered is missing, without an error. Called once, after InitKQ. `scan` shows the progress, null for
// none.
KQ_API void InitFormatModulesKQ(KQScanDesc* scan);

// The callback for EnumFilesKQ when an application scans its plug-in folders: adds the modules of the file `path` to
// the registry, behind those that are there. `typeCode` tells the kind by its bytes in memory: "IFM " is a format
// module, a shared library that exports `i32 ENTRYPOINT1(KQFormatDesc*)`. `scanDesc` is a KQScanDesc* or 0. Always 1:
// what cannot be used is skipped, and the reason goes to DebugMessage. `modules/example` shows such a module.
//
// The entry fills in the name, the tables, defaultOptions and every required slot with memory of AllocMemoryKQ, and
// returns non-zero. It is called for a cleared record (but for hostInterface) once when the file is scanned, after
// which the library is unloaded, and once more when a clip needs it; until then the tables alone decide which files
// the module takes. A module that was loaded stays until CleanUpKQ, which calls its Shutdown.
KQ_API int FormatModule_CheckFile(const char* path, u32 typeCode, uptr scanDesc);

// The module's ImportProperties; 0 for null.
KQ_API u32 GetImportPropertiesKQ(KQFormatDesc* format);

// The ExportProperties of the clip's module; 0 for a null clip or one without a module.
KQ_API u32 GetExportPropertiesKQ(KQClip* clip);
