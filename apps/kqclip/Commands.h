// The subcommands. Each goes through its work, tells the rest in the report and throws Failure when it cannot go on.
#pragma once

#include <optional>
#include <string>

#include "apps/kqclip/Material.h"
#include "apps/kqclip/Outcome.h"

namespace kqclip {

// "1 frame", "2 frames".
inline std::string Counted(size_t count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

// Options of every subcommand.
struct CommonOptions {
    bool json = false;
    std::string progress = "auto";      // auto, json, none
    std::vector<std::string> modules;   // folders of format modules
};

// Prints the format modules with their extensions.
void Formats(const CommonOptions& common, Report& report);

// Prints what is in a clip.
void Info(const CommonOptions& common, const InputOptions& input, Report& report);

struct SheetOptions {
    std::string output;
    int columns = 0;       // 0: as square as it gets
    int cellWidth = 192;   // the box that each frame is fitted into, pixels
    int cellHeight = 144;
    int most = 48;   // at most so many frames, evenly chosen
    bool overwrite = false;
};

// Writes a contact sheet as PNG.
void Sheet(const CommonOptions& common, const InputOptions& input, const SheetOptions& options, Report& report);

struct FrameOptions {
    int number = 0;       // frame number
    std::string output;   // PNG with alpha
    std::string size;     // "WxH", empty: the clip's
    bool overwrite = false;
};

// Writes one frame as PNG.
void Frame(const CommonOptions& common, const InputOptions& input, const FrameOptions& options, Report& report);

struct ConvertOptions {
    std::string output;         // file or pattern
    std::string size;           // "WxH", empty: the clip's
    std::string writeAlpha;     // none, grey, straight, premultiplied; empty: straight where the input has alpha
    std::string extension;      // taken for the output's extension
    int start = -1;             // number of the first output file; -1: as the input's numbers
    bool splitFields = false;   // a frame for each field, at twice the rate
    bool overwrite = false;
    bool dryRun = false;
};

// Writes the input's frames as another clip.
void Convert(const CommonOptions& common, const InputOptions& input, const ConvertOptions& options, Report& report);

// Compares two clips frame by frame; the exit code is kDifferent when any channel differs by more than `tolerance`.
void Compare(const CommonOptions& common, const InputOptions& left, const InputOptions& right, int tolerance,
             Report& report);

// Lists the fonts.
void Fonts(const CommonOptions& common, Report& report);

struct TextOptions {
    std::string text;     // UTF-8
    std::string output;   // SVG
    std::string font;     // full name, empty: a common one
    int size = 48;        // points
    int dpi = 96;         // pixels an inch
    bool overwrite = false;
};

// Writes a line of text as SVG paths.
void Text(const CommonOptions& common, const TextOptions& options, Report& report);

// "WxH" and nothing else, with both between 1 and 32767; throws Failure "wrong-use" that names `option`.
struct Size {
    int width, height;
};

Size ParseSize(const std::string& text, const std::string& option);

}   // namespace kqclip
