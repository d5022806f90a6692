// The native layer, up and down in a fixed order. Without a screen most of its steps find nothing to do: what is left
// is the drawing service, the command line and the metrics.
#define KQ_MODULE "PcSource/Pcwin"
#include <cstring>

#include "Source/Alloc.h"
#include "Source/Metrics.h"
#include "Source/Startup.h"
#include "Source/Text.h"
#include "kq/environment.h"
#include "pal/display.h"

namespace kq {

namespace {

// A start by automation hands its own words over, which are no command line of the user's.
bool IsCommandLine(const char* text) {
    static constexpr char automation[] = "/Automation";
    if (!text || !*text) return false;
    for (size_t i = 0; i < sizeof automation - 1; ++i)
        if (FoldLower(u8(text[i])) != FoldLower(u8(automation[i]))) return true;
    return false;
}

void TakeCommandLine(const char* text) {
    if (!IsCommandLine(text)) return;
    size_t size = std::strlen(text) + 1;
    KQEnv->CommandLine = static_cast<char*>(KQ_ALLOC(size, 0));
    if (KQEnv->CommandLine) std::memcpy(KQEnv->CommandLine, text, size);
}

const char* TextOfTag(u32 number, TagItem* tags) {
    TagItem* given = FindTagItem(number, tags);
    return given ? reinterpret_cast<const char*>(given->Data) : nullptr;
}

// The width in pixels that gadgets share: of the screen, and in single-window mode of the main window.
i32 SharedWidth() { return KQEnv->MDI ? pal::AskDisplayFormat().width : SavedMainWindowPlace(*KQEnv).width; }

int CreateTopWindow() { return KQEnv->MDI ? CreateMainFrame() : CreateMainWindow(); }

}   // namespace

int StartNativeLayer(TagItem* tags) {
    const char* title = TextOfTag(KQTAG_InitTitle, tags);
    bool windowless = FindTagItem(KQTAG_InitNoWindow, tags) != nullptr;
    if (title && RaiseRunningInstance(title)) return 0;
    StartComponentModel();
    RegisterWindowClasses();
    StartMovieFiles();
    OpenDrawing();
    KQEnv->WindowsDisabled = 0;
    CreateInterfaceFonts();
    UseDisplayPalette();
    TakeCommandLine(TextOfTag(KQTAG_InitCommandLine, tags));
    CreateBrushes();
    if (!windowless && !CreateTopWindow()) return 0;
    StartTimer();
    ComputeMetrics(KQEnv->GUI, SharedWidth(), pal::AskDisplayFormat().width);
    if (!windowless) ShowTopWindow();
    return 1;
}

void StopNativeLayer() {
    ShutDownBinTransfer();
    if (KQEnv->MDI) DestroyMainFrame();
    StopTimer();
    CloseDrawing();
    KQ_FREE(KQEnv->CommandLine);
    KQEnv->CommandLine = nullptr;
    StopMovieFiles();
    DeleteInterfaceFonts();
    DeleteDisplayPalette();
    DeleteBrushes();
    UnloadLibraries();
    StopComponentModel();
}

}   // namespace kq

void ExitKQ() { kq::PostQuitMessage(0); }
