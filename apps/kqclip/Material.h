// A clip as the command line names it: a file, a folder or a pattern; its frame numbers, its gaps, and the frames that a
// subcommand shall go through.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apps/kqclip/Naming.h"
#include "apps/kqclip/Outcome.h"

namespace kqclip {

// The library from construction to destruction, without a window, with the format modules of `folders` behind the
// built-in ones. Messages of the library for the user go to standard error.
class Library {
public:
    // `showScan` shows the modules that are found, on standard error.
    Library(const std::vector<std::string>& folders, bool showScan);
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
};

// Folders of format modules that are looked into without being named: KQCLIP_MODULES, or else the place where `make
// install` puts them beside the program.
std::vector<std::string> DefaultModuleFolders();

// What to do about a frame number that is asked for and not there.
enum class Missing { Error, Hold, Nearest, Black, Skip };

// How the input is to be taken; what is not given stays as the library finds it.
struct InputOptions {
    std::string path;
    std::string frames;                  // as ParseFrames reads it; empty: all from the first number to the last
    Missing missing = Missing::Error;
    bool single = false;                 // the named file alone, not the sequence around it
    std::string extension;               // taken for the file's extension
    std::optional<double> rate;
    std::string alpha;                   // none, grey, straight, premultiplied; empty: guessed
    std::optional<KQFloatRGB> matte;
    bool invert = false;
    std::optional<int> fields;           // 0, 1, 2
    std::string pulldown;                // 0 to 5, or guess; empty: none
};

// One frame to go through: its number, and the presented frame that stands for it, or -1 for black.
struct Step {
    int number;
    int index;
    bool missing;
};

class Material {
public:
    explicit Material(const InputOptions& options);
    ~Material();
    Material(const Material&) = delete;
    Material& operator=(const Material&) = delete;

    KQClip* Clip() const { return clip_; }

    const std::string& Path() const { return options_.path; }

    bool IsSequence() const { return sequence_; }

    // The numbers that are there, ascending; for a file of all frames 0, 1, 2, ...
    const std::vector<int>& Numbers() const { return numbers_; }

    // The numbers between the first and the last that are not there.
    std::vector<int> Gaps() const;

    double Seconds() const { return clip_->frameRate > 0 ? clip_->frameCount / clip_->frameRate : 0; }

    // The frames asked for, with the missing ones treated as wanted and told to `report`. `toleratesGaps`: a gap that
    // was not asked for by number is skipped and told, whatever the policy (for looking, not for converting).
    std::vector<Step> Plan(Report& report, bool toleratesGaps) const;

    // Puts a step's frame into a 32-bit bitmap at the bitmap's size. A frame whose data the end of the file cuts is told
    // to `report`; one that fails throws.
    void Fetch(const Step& step, KQBitmap* bitmap, Report& report) const;

    // What the clip is, for JSON.
    Json Describe() const;

private:
    void OpenPath();
    void OpenFile(const std::string& file, bool single);
    void OpenPattern(const Pattern& pattern);
    void OpenFolder(const std::string& folder);
    void Interpret();
    std::string AlphaSource() const;

    InputOptions options_;
    KQClip* clip_ = nullptr;
    bool sequence_ = false;
    std::vector<int> numbers_;
};

// The extension as the library's modules know it: three letters ("tiff" becomes "tif").
std::string ShortExtension(const std::string& extension);

struct BitmapDeleter {
    void operator()(KQBitmap* bitmap) const { FreeBitmapKQ(bitmap); }
};

using Bitmap = std::unique_ptr<KQBitmap, BitmapDeleter>;

// A 32-bit bitmap; throws Failure when there is no memory for it.
Bitmap MakeBitmap(i32 width, i32 height);

// The modules in the order in which they are asked.
std::vector<KQFormatDesc*> Modules();

// The code that CheckFile takes for an extension of up to four letters.
u32 ExtensionCode(const std::string& extension);

}   // namespace kqclip
