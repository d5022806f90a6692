// The objects of the shell's namespace, one at a time.
#define KQ_MODULE "PcSource/Pcshell"
#include "kq/enumerate.h"

#include <cstring>

#include "Source/Alloc.h"
#include "Source/Faults.h"
#include "Source/Path.h"
#include "Source/Text.h"
#include "kq/environment.h"
#include "kq/filespec.h"
#include "pal/shell.h"

struct KQShellFolderS {
    pal::ShellFolder* folder;
};

struct KQEnumObjectS {
    KQShellFolderS* parent;
    pal::ShellItem* item;
};

namespace {

constexpr size_t kNameBytes = 4096;
constexpr size_t kDisplayBytes = 1024;

// The window on whose behalf the shell may ask.
void* Owner() { return KQEnv->ClientWindow ? KQEnv->ClientWindow : KQEnv->TopWindow; }

// A record for an open folder, which is closed when there is no memory for it.
KQShellFolderS* NewFolder(pal::ShellFolder* folder) {
    if (!folder) return nullptr;
    KQShellFolderS* record = KQ_NEW(KQShellFolderS);
    if (record)
        record->folder = folder;
    else
        pal::ShellCloseFolder(folder);
    return record;
}

KQEnumObjectS* NewObject(KQShellFolderS* folder) {
    KQEnumObjectS* object = KQ_NEW(KQEnumObjectS);
    if (object) object->parent = folder;
    return object;
}

bool ReadShellName(KQEnumObjectS* object, pal::ShellName kind, char* name, size_t size) {
    return !kq::FileCallFails() && pal::ShellGetName(object->parent->folder, object->item, kind, name, size);
}

// Fetches items until one is a folder or a file; false at the end of them, or when the shell does not tell.
bool FetchFileObject(KQEnumObjectS* object, pal::ShellAttributes* attributes) {
    pal::ShellFolder* folder = object->parent->folder;
    while (!kq::FileCallFails() && (object->item = pal::ShellNext(folder))) {
        if (kq::FileCallFails() || !pal::ShellQuery(folder, object->item, attributes)) return false;
        if (attributes->folder || attributes->fileSystem) return true;
        pal::ShellFreeItem(object->item);
    }
    object->item = nullptr;
    return false;
}

}   // namespace

KQShellFolderS* EnumFileObjectsKQ(KQEnumObjectS* object) {
    if (!object) return EnumFileObjectsKQ(nullptr);
    if (kq::FileCallFails()) return nullptr;
    return NewFolder(pal::ShellOpenItem(object->parent->folder, object->item, Owner()));
}

KQShellFolderS* EnumFileObjectsKQ(const char* path) {
    if (kq::FileCallFails()) return nullptr;
    return NewFolder(path ? pal::ShellOpenPath(path, Owner()) : pal::ShellOpenDesktop(Owner()));
}

KQEnumObjectS* GetNextFileObjectKQ(KQShellFolderS* folder, u32* isFolder) {
    KQEnumObjectS* object = folder ? NewObject(folder) : nullptr;
    if (!object) return nullptr;
    pal::ShellAttributes attributes;
    if (!FetchFileObject(object, &attributes)) {
        FreeEnumObjectKQ(object);
        return nullptr;
    }
    if (isFolder) *isFolder = attributes.folder;
    return object;
}

char* GetFileSpecKQ(KQEnumObjectS* object) {
    if (!object) return nullptr;
    char name[kNameBytes] = "Error";
    ReadShellName(object, pal::ShellName::Parsing, name, sizeof name);
    return MakeFileSpecKQ(name);
}

int GetDisplayNameKQ(KQEnumObjectS* object, char* name) {
    if (!object) return 0;
    name[0] = 0;
    ReadShellName(object, pal::ShellName::Display, name, kDisplayBytes);
    char path[kNameBytes], bare[kNameBytes];
    if (!ReadShellName(object, pal::ShellName::Parsing, path, sizeof path)) return 1;
    const char* separator = kq::LastSeparator(path);   // its first character counts: "/bin" shows as "bin"
    std::strcpy(bare, separator ? separator + 1 : path);
    size_t size = std::strlen(bare) + 1;
    if (size > 1 && size <= kDisplayBytes && kq::CompareFolded(bare, name) != 0) std::memcpy(name, bare, size);
    return 1;
}

void FreeShellFolderKQ(KQShellFolderS* folder) {
    if (!folder) return;
    pal::ShellCloseFolder(folder->folder);
    KQ_FREE(folder);
}

void FreeEnumObjectKQ(KQEnumObjectS* object) {
    if (!object) return;
    pal::ShellFreeItem(object->item);
    KQ_FREE(object);
}
