// Steps of start-up and clean-up, and calls of the event pump and of scans, whose services this build does not have yet:
// each is empty, and moves to its module when that lands. They stand in the order in which they are called.
#include "Source/Formats.h"
#include "Source/Startup.h"

namespace kq {

// ---- Start-up

void ReadWindowPreferences() {}

bool RaiseRunningInstance(const char*) { return false; }

void StartComponentModel() {}

void RegisterWindowClasses() {}

void StartMovieFiles() {}

void CreateInterfaceFonts() {}

void CreateBrushes() {}

int CreateMainFrame() { return 1; }

int CreateMainWindow() { return 1; }

void StartTimer() {}

void ShowTopWindow() {}

void StartMovieLayer() {}

// ---- Running

void ShowCursor() {}

bool InputWaits() { return false; }

void PostQuitMessage(u32) {}

void ScanPhotoshopFile(const char*, u32, KQScanDesc*) {}

// ---- Clean-up

void StopMovieLayer() {}

void CloseHelpSystem() {}

void ShutDownBinTransfer() {}

void DestroyMainFrame() {}

void StopTimer() {}

void StopMovieFiles() {}

void DeleteInterfaceFonts() {}

void DeleteBrushes() {}

void UnloadLibraries() {}

void StopComponentModel() {}

void StoreWindowPreferences() {}

void CloseAllWindows() {}

void FreePseudoWindows() {}

void ClearMenuBar() {}

}   // namespace kq
