// The key file's parser, for the start-up and for tests that bring their own file.
#pragma once

#include "kq/keys.h"

namespace kq {

// Parses the file into the KeyTable of KQEnv and the Keys of the sections, showing faults to the user. A relative name
// is looked for in the program's folder; a null name does nothing.
void ParseKeyFile(const char* fileName, KQKeySection* sections);

}   // namespace kq
