// The registry: the list of format modules in the order of registration, which is the order in which a file is
// offered to them, and what all built-in modules share.
#define KQ_MODULE "Source/Formats"
#include "Source/Formats.h"

#include <cstdio>
#include <cstring>

#include "Source/Alloc.h"
#include "Source/Startup.h"
#include "kq/environment.h"
#include "kq/filespec.h"
#include "kq/memory.h"
#include "kq/plugins.h"
#include "kq/user.h"

namespace {

i32 NothingToPrepare(KQClip*, u32) { return 1; }

// An owned table of one entry, null when out of memory.
template <class T>
T* OneEntry(T value) {
    T* table = static_cast<T*>(KQ_ALLOC(sizeof(T), 0));
    if (table) *table = value;
    return table;
}

int FillTables(KQFormatDesc* module, const kq::ModuleTraits& traits) {
    if (!AddName(&module->node, traits.name)) return 0;
    if (traits.fileType != KQ_ANYCODE) {
        module->importTypes = OneEntry(KQFileType{traits.fileType, KQ_ANYCODE});
        if (!module->importTypes) return 0;
        module->importTypeCount = 1;
    }
    if (traits.extension) {
        module->importExts = OneEntry(traits.extension);
        if (!module->importExts) return 0;
        module->importExtCount = 1;
    }
    return 1;
}

void ShowProgress(KQFormatDesc* module, KQScanDesc* scan) {
    if (!scan || !scan->progress) return;
    char* text = KQEnv->ScratchPath;
    std::snprintf(text, sizeof KQEnv->ScratchPath, "Scanning for Format Plug-ins: %s", module->node.Name);
    scan->progress(text, scan->progressData);
}

void FreePlugin(KQPlugin* plugin) {
    if (!plugin) return;
    PluginIdleKQ(plugin, 1);
    FreeFileSpecKQ(plugin->FileSpec);
    KQ_FREE(plugin->EntryName);
    KQ_FREE(plugin);
}

bool Matches(u32 wanted, u32 code) { return wanted == code || wanted == KQ_ANYCODE; }

constexpr KQFormatDesc* (*kBuiltIn[])() = {
    kq::MakeFilmstripModule,
    kq::MakeElectricImageModule,
    kq::MakeVPBModule,
    kq::MakeRamClipModule,
};

}   // namespace

namespace kq {

KQFormatDesc* NewFormatModule(const ModuleTraits& traits) {
    KQFormatDesc* module = KQ_NEW(KQFormatDesc);
    if (!module) return nullptr;
    if (!FillTables(module, traits)) {
        FreeFormatModule(module);
        return nullptr;
    }
    module->maxWidth = module->maxHeight = 32767;
    module->fileType = traits.fileType;
    module->fileCreator = traits.fileCreator;
    module->BeginIO = module->EndIO = NothingToPrepare;
    module->CheckFile = CheckFileByTables;
    return module;
}

void FreeFormatModule(KQFormatDesc* module) {
    if (!module) return;
    KQ_FREE(module->node.Name);
    KQ_FREE(module->importTypes);
    KQ_FREE(module->exportTypes);
    KQ_FREE(module->importExts);
    KQ_FREE(module->exportExts);
    KQ_FREE(module->defaultOptions);
    KQ_FREE(module);
}

void RegisterFormatModule(KQFormatDesc* module, KQScanDesc* scan) {
    AddTail(&KQEnv->formatModules, &module->node);
    ShowProgress(module, scan);
}

i32 CheckFileByTables(KQFormatDesc* module, const char*, u32 creator, u32 type, u32 extension) {
    for (i32 i = 0; i < module->importTypeCount; ++i)
        if (Matches(module->importTypes[i].type, type) && Matches(module->importTypes[i].creator, creator)) return 1;
    for (i32 i = 0; i < module->importExtCount; ++i)
        if (module->importExts[i] == extension) return 1;
    return 0;
}

KQClipOptions* CopyOptions(const KQClipOptions* options) {
    if (!options) return nullptr;
    auto copy = static_cast<KQClipOptions*>(KQ_ALLOC(sizeof(KQClipOptions) + options->length, 0));
    if (!copy) return nullptr;
    copy->data = reinterpret_cast<u8*>(copy + 1);
    copy->length = options->length;
    if (options->length) std::memcpy(copy->data, options->data, options->length);
    return copy;
}

void ShowFileSystemError(i32 number) {
    static constexpr struct {
        i32 number;
        const char* text;
    } kTexts[] = {
        {-30900, "Format plugin cannot be used with this program"},
        {-30501, "Error Reading File, Possibly Corrupted"},
        {-39, "Error Reading File, Possibly Corrupted"},
        {-19, "Error Reading File, Possibly Corrupted"},
        {-108, "Out of Memory"},
        {-46, "Cannot Write File, Volume Is Locked"},
        {-45, "Cannot Write File\n File is in use by another program"},
        {-43, "File Not Found Error"},
        {-36, "File IO Error"},
        {-34, "Disk Full Error"},
        {-23, "Error Opening File"},
        {-20, "Error Writing File"},
    };
    for (auto& known : kTexts)
        if (known.number == number) UserMessageKQ("%s", known.text);
}

void FreeFormatModules() {
    while (Node* node = RemHead(&KQEnv->formatModules)) {
        auto module = reinterpret_cast<KQFormatDesc*>(node);
        if (module->Shutdown) module->Shutdown();
        FreePlugin(module->pluginInfo);
        FreeFormatModule(module);
    }
}

}   // namespace kq

void InitFormatModulesKQ(KQScanDesc* scan) {
    for (auto make : kBuiltIn)
        if (KQFormatDesc* module = make()) kq::RegisterFormatModule(module, scan);
}

u32 GetImportPropertiesKQ(KQFormatDesc* format) { return format ? format->ImportProperties(format) : 0; }

u32 GetExportPropertiesKQ(KQClip* clip) {
    return clip && clip->format ? clip->format->ExportProperties(clip->format, clip) : 0;
}
