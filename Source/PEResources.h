// The resources that a module file carries, read from the file alone: the module is neither loaded nor run.
//
// A module is a PE file, 32-bit or 64-bit, with its resource directory; or a little-endian ELF file, 32-bit or 64-bit,
// with the same directory in a section named `.kqrsrc`, in which addresses of data count from the section's start. The
// directory has three levels, types, names and languages, and its leaves tell address and size. Nothing in a file is
// believed: what points outside the file or at the wrong kind of entry is passed over.
#pragma once

#include "kq/files.h"
#include "kq/types.h"

namespace kq {

// An open module; opaque.
struct ResourceModule;

// Takes `file`, open for reading, and reads what leads to the resources. A module without resources is open too. Null,
// with the file closed, when it is no module (`Error` KQERR_BADFORMAT) or memory is short.
ResourceModule* OpenResources(KQFileInfo* file);

// Closes the module and its file; null is ignored.
void CloseResources(ResourceModule* module);

// The levels of the directory.
enum class ResourceLevel { Types, Names, Languages };

// One folder of the directory: where in the directory its entries begin, and how many of them are there.
struct ResourceFolder {
    ResourceLevel level;
    i64 entries;
    u32 count;
};

// One entry of a folder: a number or a text as its key, and what it leads to.
struct ResourceEntry {
    ResourceLevel level;
    bool named;
    u32 id;        // of an entry that is not named
    u32 nameAt;    // of one that is: the text's offset in the directory
    bool folder;   // leads to a folder of the next level, else to data
    u32 target;    // offset in the directory
};

// The bytes of one resource.
struct ResourceSpan {
    i64 at;     // position in the file
    u32 size;   // bytes, all of them inside the file
};

// The folder of types; false when the module has no resources.
bool OpenTypes(ResourceModule* module, ResourceFolder* types);

// The folder that an entry leads to; false when it leads to none.
bool OpenFolder(ResourceModule* module, const ResourceEntry& entry, ResourceFolder* folder);

// Entry `index`, below the folder's count; false when it cannot be read.
bool ReadEntry(ResourceModule* module, const ResourceFolder& folder, u32 index, ResourceEntry* entry);

// Where the data lie that an entry leads to; false when it leads to none, or to some outside the file.
bool LocateData(ResourceModule* module, const ResourceEntry& entry, ResourceSpan* span);

// Reads `count` bytes from `at` on into `buffer`; false when the file does not give them. Entries of the directory that
// stand among them are taken from there, until the next call or ForgetData: `buffer` has to stay until then.
bool ReadData(ResourceModule* module, i64 at, i64 count, u8* buffer);
void ForgetData(ResourceModule* module);

// Bytes of the module file.
i64 ModuleLength(const ResourceModule* module);

// Writes the key of a named entry as UTF-8, zero-ended; false when it cannot be read or does not fit `size` bytes.
bool ReadName(ResourceModule* module, const ResourceEntry& entry, char* name, size_t size);

}   // namespace kq
