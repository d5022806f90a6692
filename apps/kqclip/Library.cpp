#include "apps/kqclip/Library.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "apps/kqclip/Outcome.h"
#include "apps/kqclip/Output.h"

namespace fs = std::filesystem;

namespace kqclip {

namespace {

// Each module that a scan finds takes the place of the one before on the terminal's line.
void ShowScanned(const char* text, void*) { std::fprintf(stderr, "\r%s\033[K", text); }

// Folders that the user named, as a path list is written on the host.
std::vector<std::string> Split(const std::string& list) {
    constexpr char mark = fs::path::preferred_separator == '/' ? ':' : ';';
    std::vector<std::string> parts;
    for (size_t from = 0; from <= list.size();) {
        size_t end = std::min(list.find(mark, from), list.size());
        if (end > from) parts.push_back(list.substr(from, end - from));
        from = end + 1;
    }
    return parts;
}

std::vector<std::string> DefaultFolders() {
    if (const char* named = std::getenv("KQCLIP_MODULES")) return Split(named);
    std::string program = KQEnv->AppDir ? KQEnv->AppDir : "";
    return {program + "modules", program + KQCLIP_INSTALLED_MODULES};
}

// Each folder once, however it is named: a module that is scanned twice would be there twice.
std::vector<std::string> Existing(const std::vector<std::string>& folders) {
    std::vector<std::string> existing;
    std::vector<fs::path> seen;
    for (const std::string& folder : folders) {
        std::error_code error;
        fs::path path = fs::canonical(PathFrom(folder), error);
        if (error || !fs::is_directory(path, error)) continue;
        if (std::find(seen.begin(), seen.end(), path) != seen.end()) continue;
        seen.push_back(path);
        existing.push_back(folder);
    }
    return existing;
}

void ScanModules(const std::vector<std::string>& folders, bool shown) {
    KQScanDesc scan = {};
    if (shown) scan.progress = ShowScanned;
    for (std::string folder : folders) {
        char* list[] = {folder.data(), nullptr};
        EnumFilesKQ(list, nullptr, FormatModule_CheckFile, reinterpret_cast<uptr>(&scan), 0);
    }
    if (shown && !folders.empty()) std::fprintf(stderr, "\r\033[K");
}

}   // namespace

Library::Library(const std::vector<std::string>& folders, bool showScan) {
    for (const std::string& folder : folders)
        if (std::error_code error; !fs::is_directory(PathFrom(folder), error))
            throw Failure("wrong-use", "--modules: there is no folder '" + folder + "'", kWrongUse);
    TagItem tags[] = {{KQTAG_InitNoWindow, 0}, {KQTAG_End, 0}};
    if (!InitKQ(nullptr, nullptr, nullptr, nullptr, nullptr, tags))
        throw Failure("no-memory", "cannot start the library: out of memory");
    ListenToModules();
    InitFormatModulesKQ(nullptr);
    std::vector<std::string> all = folders;
    for (const std::string& folder : DefaultFolders()) all.push_back(folder);
    ScanModules(Existing(all), showScan);
}

Library::~Library() { CleanUpKQ(); }

std::vector<KQFormatDesc*> Modules() {
    std::vector<KQFormatDesc*> modules;
    for (Node* node = KQEnv->formatModules.Head; node->Succ; node = node->Succ)
        modules.push_back(reinterpret_cast<KQFormatDesc*>(node));
    return modules;
}

std::vector<u32> WrittenBy(KQFormatDesc* module) {
    if (!(GetImportPropertiesKQ(module) & KQFORMAT_WRITES)) return {};
    if (module->exportExtCount > 0) return {module->exportExts, module->exportExts + module->exportExtCount};
    return {module->importExts, module->importExts + module->importExtCount};
}

u32 ExtensionCode(const std::string& extension) {
    if (extension.size() > 4) return 0;
    u32 code = 0;
    for (size_t i = 0; i < 4; ++i) code = code << 8 | (i < extension.size() ? u8(extension[i]) : 0);
    return code;
}

}   // namespace kqclip
