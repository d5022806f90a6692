// The gate is empty until a test build's library fills it.
#include "pal/allocate.h"

namespace pal {

bool (*allocationGate)() = nullptr;

}   // namespace pal
