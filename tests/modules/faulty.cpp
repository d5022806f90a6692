// A format module whose behaviour a test chooses: which slot is null, which slot fails, and what the entry returns.
// The test keeps the library loaded, so that what it set is there when the library's own loads find the same code.
#include <KQLib.h>

#include <cstring>

namespace {

char nullSlot[32], failingSlot[32];
i32 entryResult = 1;
i32 entries = 0, shutdowns = 0;

bool Fails(const char* slot) { return std::strcmp(slot, failingSlot) == 0; }

i32 Open(KQClip* clip, TagItem*) {
    if (Fails("Open")) return 0;
    clip->width = 4;
    clip->height = 3;
    clip->depth = 24;
    clip->sourceFrames = 2;
    return 1;
}

void Close(KQClip*) {}

i32 Create(KQClip*, u32) { return !Fails("Create"); }

i32 BeginIO(KQClip*, u32) { return !Fails("BeginIO"); }

i32 EndIO(KQClip*, u32) { return !Fails("EndIO"); }

i32 GetFrame(KQClip*, KQBitmap* target, i32 frame, const KQRectT<long>*, i32, i32, i32) {
    if (Fails("GetFrame")) return 0;
    FillBitmapKQ(target, 0xFF000010u + u32(frame));
    return 1;
}

i32 AddFrame(KQClip*, KQBitmap*, i32, const KQRectT<long>*) { return !Fails("AddFrame"); }

i32 CheckFile(KQFormatDesc*, const char*, u32, u32, u32 extension) {
    return extension == KQExtension("bad") && !Fails("CheckFile");
}

u32 Properties() { return KQFORMAT_MULTIFRAME | KQFORMAT_READS | KQFORMAT_WRITES; }

u32 ImportProperties(KQFormatDesc*) { return Fails("ImportProperties") ? 0 : Properties(); }

u32 ExportProperties(KQFormatDesc*, KQClip*) { return Fails("ExportProperties") ? 0 : Properties(); }

void Shutdown() { ++shutdowns; }

// The slot, or null when the test wants it so.
template <class T>
T Slot(const char* name, T function) {
    return std::strcmp(name, nullSlot) == 0 ? nullptr : function;
}

}   // namespace

// What the test sets and reads.
KQ_EXPORT void SetFaulty(const char* null, const char* failing, i32 result) {
    std::strcpy(nullSlot, null);
    std::strcpy(failingSlot, failing);
    entryResult = result;
    entries = shutdowns = 0;
}

KQ_EXPORT i32 FaultyEntries() { return entries; }

KQ_EXPORT i32 FaultyShutdowns() { return shutdowns; }

KQ_EXPORT i32 ENTRYPOINT1(KQFormatDesc* module) {
    ++entries;
    if (std::strcmp(nullSlot, "Record") == 0) std::memset(static_cast<void*>(module), 0, sizeof *module);
    if (std::strcmp(nullSlot, "Name") != 0 && !AddName(&module->node, "Faulty")) return 0;
    module->importExtCount = 1;
    if (std::strcmp(nullSlot, "Table") != 0) {
        module->importExts = static_cast<u32*>(AllocMemoryKQ(sizeof(u32), 0));
        if (!module->importExts) return 0;
        module->importExts[0] = KQExtension(std::strcmp(failingSlot, "Extension") == 0 ? "flm" : "bad");
    }
    module->Open = Slot("Open", Open);
    module->Close = Slot("Close", Close);
    module->Create = Slot("Create", Create);
    module->BeginIO = Slot("BeginIO", BeginIO);
    module->EndIO = Slot("EndIO", EndIO);
    module->GetFrame = Slot("GetFrame", GetFrame);
    module->AddFrame = Slot("AddFrame", AddFrame);
    module->CheckFile = Slot("CheckFile", CheckFile);
    module->ImportProperties = Slot("ImportProperties", ImportProperties);
    module->ExportProperties = Slot("ExportProperties", ExportProperties);
    module->Shutdown = Shutdown;
    return entryResult;
}
