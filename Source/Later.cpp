// Steps of services that this build does not have yet. Each moves to its module when that lands.
#include "Source/Formats.h"
#include "Source/Startup.h"

namespace kq {

void ReadWindowPreferences() {}

void StoreWindowPreferences() {}

void FreePseudoWindows() {}

void PostQuitMessage(u32) {}

void StartMovieLayer() {}

void StopMovieLayer() {}

void ScanPhotoshopFile(const char*, u32, KQScanDesc*) {}

}   // namespace kq
