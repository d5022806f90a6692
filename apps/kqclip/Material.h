// A clip as the command line names it: a file, a folder or a pattern; its frame numbers, its gaps, and the frames that
// a subcommand shall go through.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apps/kqclip/Naming.h"
#include "apps/kqclip/Outcome.h"

namespace kqclip {

// What to do about a frame that is asked for and not there, or that cannot be read.
enum class Missing { Error, Hold, Nearest, Black, Skip };

// How the input is to be taken; what is not given stays as the library finds it.
struct InputOptions {
    std::string path;
    std::string frames;   // as ParseFrames reads it; empty: all from the first number to the last
    Missing missing = Missing::Error;
    bool single = false;     // the named file alone, not the sequence around it
    std::string extension;   // taken for the file's extension
    std::optional<double> rate;
    std::string alpha;   // none, grey, straight, premultiplied; empty: guessed
    std::optional<KQFloatRGB> matte;
    bool invert = false;
    std::optional<int> fields;               // 0, 1, 2
    std::string pulldown;                    // 0 to 5, or guess; empty: none
    std::string framesOption = "--frames";   // the option that names `frames`, for messages
    std::string missingHint = "; --missing hold, nearest, black or skip goes on without";
};

// Presented frames of a step that are none.
inline constexpr int kBlack = -1, kLeftOut = -2;

// One frame to go through: its number, and the presented frame that stands for it. A field of it, the first 0 or the
// second 1, or -1 for the whole frame.
struct Step {
    int number;
    int index;   // in Material::Numbers(), or kBlack or kLeftOut
    bool missing;
    int field = -1;
};

struct ClipDeleter {
    void operator()(KQClip* clip) const {
        EndClipIOKQ(clip, nullptr);
        CloseClipKQ(clip);
        FreeClipKQ(clip);
    }
};

using ClipHandle = std::unique_ptr<KQClip, ClipDeleter>;

class Material {
public:
    explicit Material(const InputOptions& options);

    KQClip* Clip() const { return clip_.get(); }

    const std::string& Path() const { return options_.path; }

    bool IsSequence() const { return sequence_; }

    // The numbers that are there, ascending; for a file of all frames 0, 1, 2, ...
    const std::vector<int>& Numbers() const { return numbers_; }

    // Whether a number between the first and the last is not there.
    bool HasGaps() const;

    double Seconds() const { return clip_->frameRate > 0 ? clip_->frameCount / clip_->frameRate : 0; }

    // The frames that --frames and --missing ask for. `toleratesGaps`: without --frames the numbers that are there, and
    // gaps are noted as missing. Otherwise a gap is filled, skipped or a failure, as --missing says. `keepsPlaces`:
    // what is skipped is there as kLeftOut. What opening the clip found is told in the report.
    std::vector<Step> Plan(Report& report, bool toleratesGaps, bool keepsPlaces = false) const;

    // Puts a step's frame into the bitmap (32 bits); a frame of another size than the clip is scaled. Damage is noted
    // in the report. A frame that cannot be read at all is replaced as --missing says, and throws Failure where that is
    // an error. False when it shall be left out; the bitmap is black then.
    bool Fetch(const Step& step, KQBitmap* bitmap, Report& report) const;

    // The files of a sequence; 0 for a film.
    int FileCount() const { return int(files_.size()); }

    // Looks at the head of each file of a sequence: what cannot be opened, has another size or alpha that would be lost
    // goes to the report. `tell` is called for each file that was looked at.
    template <class Tell>
    void CheckFiles(Report& report, Tell tell) const {
        for (int i = 0; i < FileCount(); ++i) {
            CheckFile(i, report);
            tell(i + 1);
        }
    }

    // Whether `file` is one of the files that are read.
    bool Reads(const std::string& file) const;

    // What the JSON output and `info` tell.
    Json Describe() const;

private:
    // A file of a sequence. Under pull-down removal the presented frame that shows it has a number of its own, or -1
    // when none does.
    struct File {
        int number;
        std::string path;
        int presented;
    };

    // The files that a presented frame is made of: one, or two whose rows are woven. -1 for no second one.
    struct Sources {
        int first, second;
    };

    void OpenPath();
    void OpenNamed(const std::string& file);
    void OpenFile(const std::string& file);
    void OpenFirst(const std::vector<NumberedFile>& files);
    void OpenPattern(const Pattern& pattern);
    void OpenFolder(const std::string& folder);
    bool IsFilm() const { return GetImportPropertiesKQ(clip_->format) & KQFORMAT_MULTIFRAME; }
    void SettleRate();
    void NoteLeftOut(const NumberedFiles& found, const std::string& taken);
    void BecomeSequence(const Pattern& pattern, const NumberedFiles& found);
    void Interpret();
    void InterpretAlpha();
    void InterpretTime();
    void RemoveFromFilm(int phase);
    void RemoveFromFiles(int phase);
    void PresentFiles();
    void PresentGroups(int phase, int count, int span);
    int GuessPullDown();
    void LendNumbers(size_t first, size_t count);
    ClipHandle OpenAlone(const std::string& file) const;
    std::string NameOfFile(int number, int file) const;
    std::string GapText() const;
    void CheckFile(int file, Report& report) const;
    int Stand(int number, size_t at) const;
    std::vector<int> Wanted(bool toleratesGaps) const;
    std::string Read(const Step& step, KQBitmap* bitmap, Report& report) const;
    std::string ReadFresh(const Step& step, KQBitmap* bitmap, Report& report) const;
    std::string ReadFile(int file, const Step& step, KQBitmap* bitmap, Report& report) const;
    void Judge(const Step& step, int file, u32 error, Report& report) const;
    void NoteDamage(int number, const std::string& text, Report& report) const;
    void NoteOtherSize(int number, int file, const KQClip* other, const std::string& what, Report& report) const;
    void NoteLostAlpha(int number, int file, Report& report) const;

    // Whether a frame may have alpha that nobody spoke of: the first has none.
    bool MayLoseAlpha() const {
        return sequence_ && clip_->depth != 32 && clip_->alphaMode == 0 && options_.alpha.empty();
    }

    bool Replace(const Step& step, const std::string& why, KQBitmap* bitmap, Report& report) const;
    void Borrow(const Step& step, KQBitmap* bitmap) const;
    std::string AlphaSource() const;
    bool FormatTellsAlpha() const;

    InputOptions options_;
    ClipHandle clip_;
    std::string opened_;   // the file that tells what the clip is like
    bool sequence_ = false;
    std::vector<File> files_;        // of a sequence
    std::vector<int> numbers_;       // of the presented frames that are there
    std::vector<Sources> sources_;   // of each of these, for a sequence
    int first_ = 0, last_ = -1;      // the numbers that should be there
    const char* rateSource_ = "assumed";
    std::vector<std::string> leftOut_;            // what opening found and did not take, told with the plan
    mutable std::map<int, std::string> failed_;   // presented frames that could not be read, and why
};

// The extension as the library's modules know it: three letters, or four that only a tag can ask for; "tiff" becomes
// "tif".
std::string ShortExtension(const std::string& extension);

// "640 x 480 pixels".
std::string SizeText(const KQClip* clip);

struct BitmapDeleter {
    void operator()(KQBitmap* bitmap) const { FreeBitmapKQ(bitmap); }
};

using Bitmap = std::unique_ptr<KQBitmap, BitmapDeleter>;

// A 32-bit bitmap; throws Failure when there is no memory for it.
Bitmap MakeBitmap(i32 width, i32 height);

}   // namespace kqclip
