// What the bytes of a font that the system hands over are: one face's file, or a collection and the face in it.
#pragma once

#include "kq/types.h"

namespace pal {

// Finds where the face's table directory begins in the `length` bytes of a file. `faceLength` is how many bytes the
// system gives from there to the end. False when a collection's own list does not hold that place.
bool FindFace(const u8* bytes, size_t length, size_t faceLength, size_t* directory);

}   // namespace pal
