// The umbrella header: all public calls of the library.
#pragma once

#include "kq/bitmap.h"
#include "kq/clip.h"
#include "kq/enumerate.h"
#include "kq/environment.h"
#include "kq/files.h"
#include "kq/filespec.h"
#include "kq/formats.h"
#include "kq/lists.h"
#include "kq/memory.h"
#include "kq/nativebitmap.h"
#include "kq/rect.h"
#include "kq/sequence.h"
#include "kq/string.h"
#include "kq/tags.h"
#include "kq/types.h"
#include "kq/user.h"
