// The kinds of files that the image library is trusted with here, and how to tell them apart.
#pragma once

#include <cstddef>
#include <cstdint>

namespace stills::oiio {

struct Kind {
    const char* extension;   // lower case
    const char* format;      // the image library's name
    const char* words;       // for people
    bool writes;
    bool alpha;   // what is written may hold alpha
};

// The kind of an extension, or null.
const Kind* KindOf(const char* extension);

// The kind of a file by its first bytes, and by its extension when they do not tell; null when neither does.
const Kind* KindOf(const std::uint8_t* bytes, std::size_t count, const char* extension);

}   // namespace stills::oiio
