// The format modules that tests load: built into bin/modules beside the test programs.
#pragma once

#include <string>

#include "kq/environment.h"
#include "pal/file.h"

namespace kqtest {

inline std::string ModulePath(const std::string& file) {
    return std::string(KQEnv->AppDir) + "modules" + pal::Separator() + file;
}

// The type code that EnumFilesKQ gives to files of an extension: the bytes in memory order.
inline u32 TypeCodeOf(const char (&bytes)[5]) {
    u32 code;
    __builtin_memcpy(&code, bytes, 4);
    return code;
}

}   // namespace kqtest
