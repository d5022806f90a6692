// Plug-in files: the record of one and the loading of its code.
#pragma once

#include "kq/types.h"

// Bits of KQPlugin::Flags.
enum : u32 {
    KQPLUGIN_HASFRAGMENT = 1,   // an older plug-in with a code fragment resource
    KQPLUGIN_NOFRAGMENT = 2,    // one without
    KQPLUGIN_NATIVE = 8,        // has code for this processor
    KQPLUGIN_PHOTOSHOP = 16,    // a Photoshop plug-in
    KQPLUGIN_IFM = 73,          // what a format module of the library's own kind carries
};

// One plug-in, owned by its format module.
struct KQPlugin {
    char* FileSpec;    // the plug-in's file; owned
    u32 Flags;         // KQPLUGIN_ bits
    u8 Kind[4];        // "8BIF" for a plug-in with the older resource, else zeros
    i16 ResourceID;    // of that resource
    i32 LoadCount;     // 1 for the older resource and for format modules
    u32 Words[2];      // 0
    char* EntryName;   // the entry's name when it is not the default; owned
    void* Module;      // the loaded library; null until the first load
};

static_assert(offsetof(KQPlugin, ResourceID) == 16 && offsetof(KQPlugin, EntryName) == 32 && sizeof(KQPlugin) == 48);

// Loads the plug-in's library and returns its entry: EntryName, "_" and EntryName, or EntryName without its "_"; when
// there is none ENTRYPOINT1 or _ENTRYPOINT1. Null when the file does not load or has no entry, with `Error` untouched.
// Each call loads again and the host counts: a library is gone when it was unloaded as often. `mode` is not looked at.
KQ_API void* LoadPluginKQ(KQPlugin* plugin, int mode);

// Unloads the library once when `unload` is non-zero and it was loaded; the Module field stays.
KQ_API void PluginIdleKQ(KQPlugin* plugin, int unload);

// Whether the host takes the plug-in: always 1.
KQ_API int IsPluginValidKQ(KQPlugin* plugin);
