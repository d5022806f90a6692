// The kinds of file that the imaging component has of its own, by extension and by container.
#pragma once

#include "modules/stills/wic/Com.h"

namespace stills {

struct Kind {
    const char* extensions;   // lower case, each between blanks, the first one of three letters
    const GUID* container;
    const char* name;   // in words
    bool writes;
    bool alpha;   // what is written can have alpha
};

// The kind by extension or by container; null for one that is not read here.
const Kind* KindOfExtension(const char* extension);
const Kind* KindOfContainer(const GUID& container);

}   // namespace stills
