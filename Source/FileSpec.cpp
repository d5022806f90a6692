// File specifications: a path in its own block, taken apart in one place.
#define KQ_MODULE "Source/FileSpec"
#include "kq/filespec.h"

#include <cstring>

#include "Source/Alloc.h"
#include "Source/Path.h"
#include "kq/environment.h"

char* MakeFileSpecKQ(const char* text) {
    if (!text) return nullptr;
    KQEnv->Error = KQERR_NOMEM;
    size_t size = std::strlen(text) + 1;
    char* spec = static_cast<char*>(KQ_ALLOC(size, 0));
    if (!spec) return nullptr;
    std::memcpy(spec, text, size);
    KQEnv->Error = KQERR_NONE;
    return spec;
}

char* CopyFileSpecKQ(const char* spec) { return MakeFileSpecKQ(spec); }

void FreeFileSpecKQ(char* spec) { KQ_FREE(spec); }

void GetFileNameKQ(const char* spec, char* name) {
    const char* last = kq::LastSeparator(spec, 1);
    const char* from = last ? last + 1 : spec;
    std::memmove(name, from, std::strlen(from) + 1);
}

int GetPathKQ(const char* spec, char* path) {
    const char* last = kq::LastSeparator(spec);
    size_t length = last ? size_t(last + 1 - spec) : std::strlen(spec);
    std::memmove(path, spec, length);
    path[length] = 0;
    return 1;
}
