// Entries under the names that a plug-in may use instead of its default one.
#include "kq/types.h"

KQ_EXPORT i32 _ENTRYPOINT1() { return 1; }

KQ_EXPORT i32 Main() { return 2; }

KQ_EXPORT i32 _Other() { return 3; }
