// A clip on its way to disk: which module writes it, under which names, and what is in the file when it is done.
#pragma once

#include <string>
#include <vector>

#include "apps/kqclip/Commands.h"

namespace kqclip {

// The module that writes files like `output`, or of `extension` when that is not empty; throws Failure.
KQFormatDesc* WriterFor(const std::string& output, const std::string& extension);

// Where each frame goes: one file for all, or a file a frame.
class Target {
public:
    // `single`: all steps go into one file. Otherwise `output` is a pattern; its numbers are those of the steps, or
    // count from `start`, which only a pattern may have. Throws Failure for numbers that do not fit, or come twice.
    Target(const std::string& output, bool single, const std::vector<Step>& steps, int start);

    // The file names, without their folder.
    const std::vector<std::string>& Names() const { return names_; }

    // The names of the frames that were written, when others were left out.
    void KeepOnly(std::vector<std::string> written) { names_ = std::move(written); }

    // The names that exist already; throws Failure when one of them is no file that may be replaced.
    std::vector<std::string> Existing() const;

    // Files of the pattern that exist and are not among the names: their numbers, as --frames takes them.
    std::string Others() const;

private:
    void RefuseTwins(const std::vector<Step>& steps) const;
    std::string NameFor(const Pattern& pattern, int number) const;

    std::string output_;
    std::optional<Pattern> pattern_;
    std::vector<std::string> names_;
};

// What the written clip is like.
struct Shape {
    Size size;
    double rate;
    std::string writeAlpha;   // as in ConvertOptions
};

// The clip that is written; closed and freed whatever happens.
class Writer {
public:
    // `output` is the name that messages tell, `extension` the one that the format goes by when the name has another.
    Writer(KQFormatDesc* module, const KQClip* source, const Shape& shape, const std::string& output,
           const std::string& extension);
    ~Writer();
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    // Begins the file `staged`.
    void Create(const std::string& staged);

    void Add(KQBitmap* bitmap, int index);

    // Completes the file and opens it again: throws when its last bytes could not be written, or when it does not hold
    // so many frames. What its format could not keep is noted, once.
    void Finish(size_t frames, Report& report);

private:
    void Close();
    ClipHandle ReadBack() const;
    void NoteLosses(const KQClip* found, Report& report);
    void SetAlpha(const KQClip* source, const std::string& wanted);
    [[noreturn]] void Fail(const std::string& what, u32 error) const;

    KQClip* clip_;
    Shape shape_;
    std::string output_, extension_;
    std::string staged_, working_;   // where the file shall lie, and where it is written
    bool hasAlpha_ = false, created_ = false, begun_ = false, noted_ = false;
};

}   // namespace kqclip
