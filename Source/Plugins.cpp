// Loading and unloading the code of plug-ins.
#define KQ_MODULE "Source/Plugins"
#include "kq/plugins.h"

#include <cstdio>

#include "Source/Faults.h"
#include "kq/environment.h"
#include "pal/module.h"

namespace {

// The address of `prefix` and `name` as one symbol, or null; a name that is too long has none.
void* Symbol(pal::Module* module, const char* prefix, const char* name) {
    char* text = KQEnv->ScratchPath;
    int length = std::snprintf(text, sizeof KQEnv->ScratchPath, "%s%s", prefix, name);
    return length < int(sizeof KQEnv->ScratchPath) ? pal::ModuleSymbol(module, text) : nullptr;
}

void* FindEntry(pal::Module* module, const char* name) {
    if (!name) name = "ENTRYPOINT1";
    void* entry = Symbol(module, "", name);
    if (!entry) entry = Symbol(module, "_", name);
    if (!entry && name[0] == '_') entry = Symbol(module, "", name + 1);
    return entry;
}

}   // namespace

void* LoadPluginKQ(KQPlugin* plugin, int) {
    char reason[256] = "the file cannot be read";
    pal::Module* module = kq::FileCallFails() ? nullptr : pal::ModuleOpen(plugin->FileSpec, reason, sizeof reason);
    if (!module) {
        DebugMessage("%s: not loaded: %s", plugin->FileSpec, reason);
        return nullptr;
    }
    void* entry = FindEntry(module, plugin->EntryName);
    if (!entry) {
        DebugMessage("%s: no entry %s", plugin->FileSpec, plugin->EntryName ? plugin->EntryName : "ENTRYPOINT1");
        pal::ModuleClose(module);
        return nullptr;
    }
    plugin->Module = module;
    return entry;
}

void PluginIdleKQ(KQPlugin* plugin, int unload) {
    if (unload && plugin->Module) pal::ModuleClose(static_cast<pal::Module*>(plugin->Module));
}

int IsPluginValidKQ(KQPlugin*) { return 1; }
