// kqclip info and formats: what is in a clip, and what can be read and written.
#include <algorithm>
#include <cstdio>

#include "apps/kqclip/Commands.h"
#include "apps/kqclip/Library.h"
#include "apps/kqclip/Progress.h"

namespace kqclip {

namespace {

void PrintRow(const char* name, const std::string& value) { std::printf("%-14s%s\n", name, value.c_str()); }

std::string Decimal(double value, const char* format) {
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

std::string AlphaText(const Json& alpha) {
    std::string text = alpha["mode"];
    if (alpha["inverted"]) text += ", inverted";
    if (text.rfind("premultiplied", 0) == 0) {
        char matte[64];
        std::snprintf(matte, sizeof matte, " against %02x%02x%02x", int(alpha["matte"][0].get<double>() * 255.0 + 0.5),
                      int(alpha["matte"][1].get<double>() * 255.0 + 0.5),
                      int(alpha["matte"][2].get<double>() * 255.0 + 0.5));
        text += matte;
    }
    return text + " (" + alpha["source"].get<std::string>() + ")";
}

void PrintFacts(const Json& clip) {
    PrintRow("file:", clip["name"]);
    PrintRow("format:", clip["format"]);
    if (clip["module"] != "built in") PrintRow("module:", clip["module"]);
    PrintRow("size:",
             std::to_string(clip["width"].get<int>()) + " x " + std::to_string(clip["height"].get<int>()) + " pixels");
    PrintRow("depth:", std::to_string(clip["depth"].get<int>()) + " bits a pixel");
    PrintRow("alpha:", AlphaText(clip["alpha"]));
    PrintRow("frames:", std::to_string(clip["frames"].get<int>()));
    if (clip["sequence"]) {
        PrintRow("numbers:", clip["numbers"]["present"]);
        if (clip["numbers"]["missing"] != "") PrintRow("missing:", clip["numbers"]["missing"]);
    }
    PrintRow("rate:",
             Decimal(clip["rate"], "%.6g frames a second") + (clip["rateSource"] == "assumed" ? " (assumed)" : ""));
    PrintRow("length:", Decimal(clip["seconds"], "%.3f seconds"));
    PrintRow("pixel aspect:", Decimal(clip["pixelAspect"], "%.6g"));
    if (clip["fields"] != 0) PrintRow("fields:", clip["fields"] == 1 ? "even rows first" : "odd rows first");
    if (clip["pulldown"]["phase"] != 0)
        PrintRow("pull-down:", "phase " + std::to_string(clip["pulldown"]["phase"].get<int>()) + ", removed (" +
                                   clip["pulldown"]["source"].get<std::string>() + ")");
    else if (clip["pulldown"]["source"] == "guessed")
        PrintRow("pull-down:", "none found");
}

std::string ExtensionText(u32 code) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8)
        if (char c = char(code >> shift & 255)) text += c;
    return text;
}

Json ExtensionTexts(const std::vector<u32>& codes) {
    Json texts = Json::array();
    for (u32 code : codes) texts.push_back(ExtensionText(code));
    return texts;
}

// " .ext" for each of `list` that is not in `but`.
std::string ListText(const Json& list, const Json& but) {
    std::string text;
    for (const Json& extension : list)
        if (std::find(but.begin(), but.end(), extension) == but.end()) text += " ." + extension.get<std::string>();
    return text;
}

}   // namespace

void Info(const CommonOptions& common, const InputOptions& input, Report& report) {
    Material material(input);
    report.facts["input"] = material.Describe();
    material.Plan(report, true);
    Progress progress("info", material.FileCount(), common.progress);
    material.CheckFiles(report, [&](int done) { progress.Show(done); });
    if (!common.json) PrintFacts(report.facts["input"]);
}

void Formats(const CommonOptions& common, Report& report) {
    Json modules = Json::array();
    for (KQFormatDesc* module : Modules()) {
        u32 reads = GetImportPropertiesKQ(module);
        if (reads & KQFORMAT_HIDDEN) continue;
        modules.push_back(
            {{"name", module->node.Name ? module->node.Name : ""},
             {"extensions", ExtensionTexts({module->importExts, module->importExts + module->importExtCount})},
             {"written", ExtensionTexts(WrittenBy(module))},
             {"reads", (reads & KQFORMAT_READS) != 0},
             {"writes", (reads & KQFORMAT_WRITES) != 0},
             {"files", reads & KQFORMAT_MULTIFRAME ? "one file a clip" : "one file a frame"},
             {"module", module->pluginInfo ? module->pluginInfo->FileSpec : "built in"}});
    }
    report.facts["formats"] = modules;
    if (common.json) return;
    for (const Json& module : modules) {
        std::string extensions = ListText(module["written"], Json::array());
        std::string others = ListText(module["extensions"], module["written"]);
        if (!others.empty()) extensions += module["writes"] ? "; only reads" + others : others;
        std::printf("%-20s %-6s %-7s %-17s%s\n", module["name"].get<std::string>().c_str(),
                    module["reads"] ? "reads" : "", module["writes"] ? "writes" : "",
                    module["files"].get<std::string>().c_str(), extensions.c_str());
    }
}

}   // namespace kqclip
