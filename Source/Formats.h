// The registry of format modules from inside: what each built-in module is made of, and who makes it.
#pragma once

#include "kq/formats.h"

namespace kq {

// What tells one built-in module from another. A fileType of KQ_ANYCODE gives no import type, an extension of 0 none.
struct ModuleTraits {
    const char* name;
    u32 fileType, fileCreator;
    u32 extension;
};

// A new module record with these traits, one import type (fileType, any creator), the size limits, the common CheckFile
// and input and output that need no preparation; all other slots are null and filled by the caller. Null when out of
// memory. Freed with FreeFormatModule until it is registered.
KQFormatDesc* NewFormatModule(const ModuleTraits& traits);

// Frees what hangs on the record but its plug-in, and the record. Null is ignored.
void FreeFormatModule(KQFormatDesc* module);

// Appends a complete module to the registry and shows it to `scan` (may be null).
void RegisterFormatModule(KQFormatDesc* module, KQScanDesc* scan);

// The CheckFile of all modules that go by type and extension: 1 when an import type or extension matches.
i32 CheckFileByTables(KQFormatDesc* module, const char* fileSpec, u32 creator, u32 type, u32 extension);

// Properties that never change, for both slots.
template <u32 Properties>
u32 FixedImportProperties(KQFormatDesc*) {
    return Properties;
}

template <u32 Properties>
u32 FixedExportProperties(KQFormatDesc*, KQClip*) {
    return Properties;
}

// The built-in modules, each in the source of its format. Null when out of memory.
KQFormatDesc* MakeElectricImageModule();
KQFormatDesc* MakeFilmstripModule();
KQFormatDesc* MakeRamClipModule();
KQFormatDesc* MakeVPBModule();

// A copy of an option block, null for null. Null when out of memory.
KQClipOptions* CopyOptions(const KQClipOptions* options);

// Tells the user what a file system number of the plug-in interface means; unknown numbers show nothing.
void ShowFileSystemError(i32 number);

// IFMPlugn.cpp: adds the format module of the shared library `path`.
void ScanFormatLibrary(const char* path, KQScanDesc* scan);

// Later.cpp: adds the format modules that the resources of the Photoshop plug-in `path` describe. `typeCode` is one of
// the codes that such files carry, its four letters as they lie in memory.
void ScanPhotoshopFile(const char* path, u32 typeCode, KQScanDesc* scan);

}   // namespace kq
