// The native layer without a screen: the command line and the metrics that need no window.
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

void TakeCommandLine(TagItem* tags) {
    TagItem* given = FindTagItem(KQTAG_InitCommandLine, tags);
    const char* text = given ? reinterpret_cast<const char*>(given->Data) : nullptr;
    if (!IsCommandLine(text)) return;
    size_t size = std::strlen(text) + 1;
    KQEnv->CommandLine = static_cast<char*>(KQ_ALLOC(size, 0));
    if (KQEnv->CommandLine) std::memcpy(KQEnv->CommandLine, text, size);
}

}   // namespace

int StartNativeLayer(TagItem* tags) {
    StartDisplay();
    KQEnv->WindowsDisabled = 0;
    TakeCommandLine(tags);
    ComputeMetrics(KQEnv->GUI, pal::AskDisplayFormat().width);
    return 1;
}

void StopNativeLayer() {
    StopDisplay();
    KQ_FREE(KQEnv->CommandLine);
    KQEnv->CommandLine = nullptr;
}

void ShowCursor() {}

void CloseAllWindows() {}

void CloseHelpSystem() {}

void ClearMenuBar() {}

}   // namespace kq

void ExitKQ() { kq::PostQuitMessage(0); }
