// The native layer without a screen: the command line and the metrics that need no window.
#define KQ_MODULE "PcSource/Pcwin"
#include <cstring>

#include "Source/Alloc.h"
#include "Source/Startup.h"
#include "Source/Text.h"
#include "kq/environment.h"

namespace kq {

int StartNativeLayer(TagItem*) { return 1; }

void StopNativeLayer() {
    KQ_FREE(KQEnv->CommandLine);
    KQEnv->CommandLine = nullptr;
}

void ShowCursor() {}

void CloseAllWindows() {}

void CloseHelpSystem() {}

void ClearMenuBar() {}

}   // namespace kq

void ExitKQ() {}
