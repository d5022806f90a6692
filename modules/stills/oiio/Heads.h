// Heads of the common kinds, read here and not by the helper.
//
// To know a file's size takes a few dozen bytes; to start the helper takes longer than a person likes to wait for it.
// So the plain case of the common kinds is read by a few bounded lines, and everything unusual is left to the helper,
// which gives the same answer.
#pragma once

#include <cstddef>
#include <cstdint>

#include "modules/stills/Codec.h"
#include "modules/stills/oiio/Kinds.h"

namespace stills::oiio {

// Bytes of a file's start that are enough for its head in the plain case.
constexpr std::size_t kHeadBytes = 16384;

// Fills size, alpha and aspect from the first `count` bytes of a file. False when they do not tell it all.
bool ReadPlainHead(const Kind& kind, const std::uint8_t* bytes, std::size_t count, Head& head);

}   // namespace stills::oiio
