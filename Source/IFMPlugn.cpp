// Format modules in shared libraries of their own.
//
// A scanned library is loaded once to hear what it takes, and unloaded again. Its record then holds stubs, which load
// it for the first clip that needs it. A stub has no state of its own: it finds its module by the clip's format, loads
// it, and forwards to the slot that has come in its place.
#define KQ_MODULE "Source/IFMPlugn"
#include <cstring>

#include "Source/Alloc.h"
#include "Source/Formats.h"
#include "kq/environment.h"
#include "kq/filespec.h"
#include "kq/memory.h"
#include "kq/plugins.h"

namespace {

using Entry = i32 (*)(KQFormatDesc*);

int LoadModule(KQFormatDesc* module);

// Loads the clip's module, then calls the slot that stands where the stub stood; 0 when there is none.
template <class Slot, class... Arguments>
i32 Forward(Slot KQFormatDesc::*slot, KQClip* clip, Arguments... arguments) {
    KQFormatDesc* module = clip->format;
    if (!LoadModule(module) || !(module->*slot)) return 0;
    return (module->*slot)(clip, arguments...);
}

i32 OpenStub(KQClip* clip, TagItem* tags) { return Forward(&KQFormatDesc::Open, clip, tags); }

void CloseStub(KQClip* clip) {
    if (LoadModule(clip->format)) clip->format->Close(clip);
}

i32 CreateStub(KQClip* clip, u32 mode) { return Forward(&KQFormatDesc::Create, clip, mode); }

i32 BeginIOStub(KQClip* clip, u32 writing) { return Forward(&KQFormatDesc::BeginIO, clip, writing); }

i32 EndIOStub(KQClip* clip, u32 writing) { return Forward(&KQFormatDesc::EndIO, clip, writing); }

i32 GetFrameStub(KQClip* clip, KQBitmap* target, i32 frame, const KQRectT<long>* position, i32 width, i32 height,
                 i32 track) {
    return Forward(&KQFormatDesc::GetFrame, clip, target, frame, position, width, height, track);
}

i32 AddFrameStub(KQClip* clip, KQBitmap* bitmap, i32 frame, const KQRectT<long>* rect) {
    return Forward(&KQFormatDesc::AddFrame, clip, bitmap, frame, rect);
}

i32 GetGBuffersStub(KQClip* clip, i32 frame, u32 mask, KQGBufferArray* array) {
    return Forward(&KQFormatDesc::GetGBuffers, clip, frame, mask, array);
}

void ClipOptionsStub(KQClip* clip) {
    if (LoadModule(clip->format) && clip->format->ClipOptions) clip->format->ClipOptions(clip);
}

u32 CachedImportProperties(KQFormatDesc* module) { return module->cachedProperties; }

u32 ExportPropertiesStub(KQFormatDesc* module, KQClip* clip) {
    return LoadModule(module) ? module->ExportProperties(module, clip) : 0;
}

// Shutdown belongs to loaded code alone.
void PutStubs(KQFormatDesc* module) {
    module->Open = OpenStub;
    module->Close = CloseStub;
    module->Create = CreateStub;
    module->BeginIO = BeginIOStub;
    module->EndIO = EndIOStub;
    module->GetFrame = GetFrameStub;
    module->AddFrame = AddFrameStub;
    module->GetGBuffers = GetGBuffersStub;
    module->ClipOptions = ClipOptionsStub;
    module->reservedSlot = nullptr;
    module->CheckFile = kq::CheckFileByTables;
    module->ImportProperties = CachedImportProperties;
    module->ExportProperties = ExportPropertiesStub;
    module->Shutdown = nullptr;
}

// The record as the entry of a library finds it: cleared but for its place in the registry and what the host gives.
void ClearForEntry(KQFormatDesc* module) {
    KQFormatDesc cleared = {};
    cleared.node = module->node;
    cleared.node.Name = nullptr;
    cleared.pluginInfo = module->pluginInfo;
    cleared.hostInterface = &KQEnv;
    *module = cleared;
}

// Frees the name, the tables and the options of a record.
void FreeContents(KQFormatDesc* module) {
    KQ_FREE(module->node.Name);
    KQ_FREE(module->importTypes);
    KQ_FREE(module->exportTypes);
    KQ_FREE(module->importExts);
    KQ_FREE(module->exportExts);
    KQ_FREE(module->defaultOptions);
}

// What the record lacks, or null when it is complete.
const char* Missing(const KQFormatDesc* m) {
    struct {
        bool there;
        const char* text;
    } needs[] = {
        {m->node.Name != nullptr, "no name"},
        {m->importTypeCount == 0 || (m->importTypeCount > 0 && m->importTypes), "importTypes do not fit their count"},
        {m->importExtCount == 0 || (m->importExtCount > 0 && m->importExts), "importExts do not fit their count"},
        {m->Open != nullptr, "the Open slot is null"},
        {m->Close != nullptr, "the Close slot is null"},
        {m->Create != nullptr, "the Create slot is null"},
        {m->BeginIO != nullptr, "the BeginIO slot is null"},
        {m->EndIO != nullptr, "the EndIO slot is null"},
        {m->GetFrame != nullptr, "the GetFrame slot is null"},
        {m->AddFrame != nullptr, "the AddFrame slot is null"},
        {m->CheckFile != nullptr, "the CheckFile slot is null"},
        {m->ImportProperties != nullptr, "the ImportProperties slot is null"},
        {m->ExportProperties != nullptr, "the ExportProperties slot is null"},
    };
    for (auto& need : needs)
        if (!need.there) return need.text;
    return nullptr;
}

void Unload(KQPlugin* plugin) {
    PluginIdleKQ(plugin, 1);
    plugin->Module = nullptr;
}

// Has the library's entry fill the cleared record; 0 and the library unloaded when it refuses or leaves out what is
// needed.
int CallEntry(KQFormatDesc* module) {
    KQPlugin* plugin = module->pluginInfo;   // foreign code may clear the record
    void* address = LoadPluginKQ(plugin, 0);
    if (!address) return 0;
    const char* reason = reinterpret_cast<Entry>(address)(module) ? Missing(module) : "the entry returned 0";
    if (!reason) {
        module->cachedProperties = module->ImportProperties(module);
        return 1;
    }
    DebugMessage("%s: refused: %s", plugin->FileSpec, reason);
    Unload(plugin);
    return 0;
}

// Loads the library and has it fill the record. When that fails the record is what it was before.
int LoadModule(KQFormatDesc* module) {
    KQPlugin* plugin = module->pluginInfo;
    KQFormatDesc before = *module;
    ClearForEntry(module);
    int loaded = CallEntry(module);
    FreeContents(loaded ? &before : module);
    if (!loaded) *module = before;
    module->node.Succ = before.node.Succ;   // the entry fills the record, its place in the registry stays
    module->node.Pred = before.node.Pred;
    if (loaded) module->hostInterface = &KQEnv;
    module->pluginInfo = plugin;
    return loaded;
}

KQPlugin* NewPlugin(const char* path) {
    KQPlugin* plugin = KQ_NEW(KQPlugin);
    if (!plugin) return nullptr;
    plugin->FileSpec = CopyFileSpecKQ(path);
    plugin->Flags = KQPLUGIN_IFM;
    plugin->LoadCount = 1;
    if (plugin->FileSpec) return plugin;
    KQ_FREE(plugin);
    return nullptr;
}

void Discard(KQFormatDesc* module, KQPlugin* plugin) {
    if (plugin) FreeFileSpecKQ(plugin->FileSpec);
    KQ_FREE(plugin);
    KQ_FREE(module);
}

}   // namespace

namespace kq {

void ScanFormatLibrary(const char* path, KQScanDesc* scan) {
    KQFormatDesc* module = KQ_NEW(KQFormatDesc);
    KQPlugin* plugin = NewPlugin(path);
    if (module) module->pluginInfo = plugin;
    if (!module || !plugin || !LoadModule(module)) return Discard(module, plugin);
    Unload(plugin);
    PutStubs(module);
    RegisterFormatModule(module, scan);
}

}   // namespace kq

namespace {

// The codes of Photoshop plug-ins, by extension and by file type.
bool IsPhotoshopCode(const char* code) {
    static constexpr char kCodes[][5] = {"8BA ", "8BE ", "8BF ", "8BI ", "8BP ", "8BX ", "8BY ",
                                         "8BAM", "8BEM", "8BFM", "8BIF", "8BPI", "8BXM", "8BYM"};
    for (auto& known : kCodes)
        if (std::memcmp(known, code, 4) == 0) return true;
    return false;
}

}   // namespace

int FormatModule_CheckFile(const char* path, u32 typeCode, uptr scanDesc) {
    auto scan = reinterpret_cast<KQScanDesc*>(scanDesc);
    char code[4];
    std::memcpy(code, &typeCode, 4);
    if (std::memcmp(code, "IFM ", 4) == 0) kq::ScanFormatLibrary(path, scan);
    if (IsPhotoshopCode(code)) kq::ScanPhotoshopFile(path, typeCode, scan);
    return 1;
}
