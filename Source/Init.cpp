// Start-up and clean-up of the one environment, in a fixed order, and the calls that read its plain words.
#define KQ_MODULE "Source/Init"
#include "kq/environment.h"

#include <cstring>

#include "Source/Alloc.h"
#include "Source/Startup.h"
#include "kq/filespec.h"
#include "pal/file.h"
#include "pal/memory.h"
#include "pal/program.h"

KQEnvironment* KQEnv = nullptr;

namespace {

// The catalogue of the tags, which is the application's. Kept here because the clone of the tags may have failed.
KQStringTable* givenStrings = nullptr;

// Returns null, which a failed start passes on.
KQEnvironment* ReleaseEnvironment() {
    kq::ReleaseMemoryChunks();
    pal::BlockFree(KQEnv, sizeof(KQEnvironment));
    KQEnv = nullptr;
    return nullptr;
}

// What every failed start gives back. The rest of what it took goes with the environment's memory.
KQEnvironment* StartFailed() {
    KQ_FREE(KQEnv->GUI);
    kq::FreeMouseQueue();
    return ReleaseEnvironment();
}

int AllocateEnvironment() {
    KQEnv = static_cast<KQEnvironment*>(pal::BlockAlloc(sizeof(KQEnvironment)));
    if (!KQEnv) return 0;
    std::memset(KQEnv, 0, sizeof(KQEnvironment));
    return 1;
}

void MakeLists() {
    NewList(&KQEnv->WindowList);
    NewList(&KQEnv->SpareList);
    NewList(&KQEnv->PseudoWindowList);
    NewList(&KQEnv->JobList);
    NewList(&KQEnv->TaskPool);
    NewList(&KQEnv->ClipList);
    NewList(&KQEnv->PrefsSections);
    NewList(&KQEnv->formatModules);
}

void SetGUIDefaults(KQGUIInfo* gui) {
    gui->GroupSpacingX = 4;
    gui->GroupSpacingY = 2;
    gui->MarginLeft = gui->MarginTop = gui->MarginRight = gui->MarginBottom = 12;
    gui->ItemSpacingX = gui->ItemSpacingY = 2;
    gui->PaletteInset = 12;
    gui->TabHeight = 15;
    gui->ColorHighlight = 0xFFFFFF;
    gui->ColorShadow = 0x000000;
    gui->ColorSelected = 0xEECC55;
    gui->ColorBackground = 0xCCCCCC;
    gui->ColorPanel = 0xB3B3B3;
    gui->ColorAccent1 = 0xEE8877;
    gui->ColorFill = 0xE1A899;
    gui->ColorAccent2 = 0xA3A3D7;
    gui->ColorAccent3 = 0x000647;
    gui->ColorWarning = 0x009BFF;
    gui->ColorText = 0x000000;
    gui->ColorTabStrip = 0x808080;
    gui->ColorWhite = 0xFFFFFF;
    gui->ShineBorders = 1;
}

void FillByteTables() {
    for (int i = 0; i < 256; ++i) {
        KQEnv->ByteToUnit[i] = i * 0.00392156862745098;
        KQEnv->ByteToDouble[i] = i;
    }
}

void FindProgramFolder() {
    char* path = KQEnv->ScratchPath;
    char separator[2] = {pal::Separator(), 0};
    pal::ProgramPath(path, sizeof KQEnv->ScratchPath);
    char* last = std::strrchr(path, separator[0]);
    if (last) *last = 0;
    size_t length = std::strlen(path);
    bool ends = length > 0 && path[length - 1] == separator[0];
    if (!ends && length + 1 < sizeof KQEnv->ScratchPath) std::strcat(path, separator);
    KQEnv->AppDir = MakeFileSpecKQ(path);
}

// Stores a copy of `name` in `*copy`; null stays null and is no failure.
int CopyName(char** copy, const char* name) {
    if (!name) return 1;
    size_t size = std::strlen(name) + 1;
    *copy = static_cast<char*>(KQ_ALLOC(size, 0));
    if (*copy) std::memcpy(*copy, name, size);
    return *copy != nullptr;
}

// A failed copy of the key file's or the catalogue's name. Services that run by then live in the environment's memory
// and must not outlive it.
KQEnvironment* NameFailed() {
    if (KQEnv->QuickTimePresent) kq::StopMovieLayer();
    kq::StopTaskPool();
    kq::FreeMemoryLock();
    kq::StopNativeLayer();
    KQ_FREE(KQEnv->PrefsName);
    Free_List(&KQEnv->PrefsSections);
    return StartFailed();
}

void SetPlainFields(void (*callback)(KQEvent*), void* instance, TagItem* tags) {
    MakeLists();
    KQEnv->Callback = callback;
    KQEnv->Tags = CloneTagItems(tags);   // a start without a clone goes on
    KQEnv->EraseDocuments = 1;
    KQEnv->EraseTools = 1;
    KQEnv->RawCharMode = 0;
    SetGUIDefaults(KQEnv->GUI);
    KQEnv->Instance = instance;
    FillByteTables();
}

void StartServices() {
    KQEnv->Processors = pal::ProcessorCount();
    kq::StartTaskPool();
    kq::CreateMemoryLock();
    KQEnv->QuickTimePresent = 0;
    kq::StartMovieLayer();
}

// The catalogue and the key table. A catalogue of the tags serves where no file gave one.
void LoadTexts(TagItem* tags) {
    if (KQEnv->StringFileName) kq::LoadStringCatalogue();
    TagItem* strings = FindTagItem(KQTAG_InitStrings, tags);
    givenStrings = strings ? reinterpret_cast<KQStringTable*>(strings->Data) : nullptr;
    if (!KQEnv->Strings) KQEnv->Strings = givenStrings;
    kq::IndexStrings();
    if (TagItem* given = FindTagItem(KQTAG_InitKeySections, tags)) {
        KQEnv->KeySections = reinterpret_cast<KQKeySection*>(given->Data);
        kq::ParseKeyFile();
    }
}

void LetGoOfGivenStrings() {
    if (KQEnv->Strings == givenStrings) KQEnv->Strings = nullptr;
}

}   // namespace

KQEnvironment* InitKQ(void (*callback)(KQEvent*), const char* prefs, const char* keys, const char* strings,
                      void* instance, TagItem* tags) {
    if (KQEnv || !AllocateEnvironment()) return nullptr;
    NewList(&KQEnv->MemoryChunks);   // first: the next line already allocates
    KQEnv->GUI = KQ_NEW(KQGUIInfo);
    if (!KQEnv->GUI) return ReleaseEnvironment();
    if (!kq::CreateMouseQueue()) {
        KQ_FREE(KQEnv->GUI);
        return ReleaseEnvironment();
    }
    SetPlainFields(callback, instance, tags);
    FindProgramFolder();
    if (prefs) {
        if (!CopyName(&KQEnv->PrefsName, prefs)) return StartFailed();
        kq::ReadWindowPreferences();
    }
    KQEnv->NoMDI = FindTagItem(KQTAG_InitNoMDI, tags) != nullptr;
    KQEnv->MDI = !KQEnv->NoMDI;
    if (!kq::StartNativeLayer(tags)) return StartFailed();
    StartServices();
    if (!CopyName(&KQEnv->KeyFileName, keys)) return NameFailed();
    if (!CopyName(&KQEnv->StringFileName, strings)) return NameFailed();
    LoadTexts(tags);
    return KQEnv;
}

void CleanUpKQ() {
    if (!KQEnv) return;
    if (KQEnv->QuickTimePresent) kq::StopMovieLayer();
    kq::StopTaskPool();
    kq::CloseHelpSystem();
    kq::FreeMemoryLock();
    kq::StopNativeLayer();
    kq::CloseAllClips();
    LetGoOfGivenStrings();
    CleanUpWindowsKQ();
    kq::FreePseudoWindows();
    kq::ClearMenuBar();
    kq::FreeMouseQueue();
    kq::FreeKeyTable();
    kq::RemoveScratchFolder();
    FreeFileSpecKQ(KQEnv->ScratchDir);
    kq::FreeFormatModules();
    FreeFileSpecKQ(KQEnv->AppDir);
    KQ_FREE(KQEnv->Tags);
    KQ_FREE(KQEnv->GUI);
    KQ_FREE(KQEnv->PrefsName);
    KQ_FREE(KQEnv->KeyFileName);
    KQ_FREE(KQEnv->StringFileName);
    kq::FreeStringCatalogue();
    Free_List(&KQEnv->PrefsSections);
    kq::ReportLeaks();
    ReleaseEnvironment();
}

void CleanUpWindowsKQ() {
    kq::StoreWindowPreferences();
    kq::CloseAllWindows();
}

u32 GetErrorKQ() { return KQEnv ? KQEnv->Error : KQERR_NOMEM; }
