// Stands in for the RAM clip module until it lands.
#include "Source/Formats.h"
namespace kq { KQFormatDesc* MakeRamClipModule() { return nullptr; } }
