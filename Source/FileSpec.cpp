// File specifications: a path in its own block, taken apart in one place.
#define KQ_MODULE "Source/FileSpec"
#include "kq/filespec.h"

#include <cstring>

#include "Source/Alloc.h"
#include "Source/Path.h"
#include "Source/Text.h"
#include "kq/environment.h"

namespace {

// A block for a text of `length` bytes and its zero, with the error word as MakeFileSpecKQ has it.
char* NewSpec(size_t length) {
    KQEnv->Error = KQERR_NOMEM;
    char* spec = static_cast<char*>(KQ_ALLOC(length + 1, 0));
    if (spec) KQEnv->Error = KQERR_NONE;
    return spec;
}

// The length of `spec` without an extension of up to four letters.
size_t LengthWithoutExtension(const char* spec) {
    size_t length = std::strlen(spec);
    size_t first = length > 5 ? length - 5 : 0;
    for (size_t i = length; i-- > first;)
        if (spec[i] == '.') return i;
    return length;
}

}   // namespace

char* MakeFileSpecKQ(const char* text) {
    if (!text) return nullptr;
    size_t length = std::strlen(text);
    char* spec = NewSpec(length);
    if (spec) std::memcpy(spec, text, length + 1);
    return spec;
}

char* CopyFileSpecKQ(const char* spec) { return MakeFileSpecKQ(spec); }

void FreeFileSpecKQ(char* spec) { KQ_FREE(spec); }

void FileSpecToDosKQ(char* dest, const char* spec) { std::strcpy(dest, spec); }

void ConvertDOStoPathKQ(char*) {}

void ConvertPathtoDOSKQ(char*) {}

char* MakeNewFileSpecKQ(const char* spec, const char* extension) {
    if (!spec || !extension) return nullptr;
    size_t stem = LengthWithoutExtension(spec), added = std::strlen(extension);
    char* renamed = NewSpec(stem + 1 + added);
    if (!renamed) return nullptr;
    std::memcpy(renamed, spec, stem);
    renamed[stem] = '.';
    std::memcpy(renamed + stem + 1, extension, added + 1);
    return renamed;
}

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

void TruncExtensionKQ(char* name) {
    for (size_t i = std::strlen(name); i-- > 1;)
        if (name[i] == '.') {
            name[i] = 0;
            return;
        }
}

int FileSpecCompareKQ(const char* a, const char* b) { return a && b && kq::CompareFolded(a, b) == 0; }

int WriteFileSpecKQ(KQFileInfo* file, const char* spec) {
    if (!file || !spec) return 0;
    size_t length = std::strlen(spec);
    if (length > INT32_MAX - 2) return 0;
    if (!PutLongKQ(file, i32((length + 2) & ~size_t(1))) || !WriteFileKQ(file, spec, length + 1)) return 0;
    return length % 2 != 0 || WriteFileKQ(file, "", 1);
}
