// A library that is no format module.
#include "kq/types.h"

KQ_EXPORT i32 SomethingElse() { return 1; }
