// The safe way to replace a whole file: everything is written to a temporary sibling, and only a complete one is
// renamed over the target. What stood there stays as it was until then, and after every failure.
#pragma once

#include "kq/files.h"

namespace kq {

// Used as
//
//     SafeFile file;
//     if (!file.Open(path)) ...
//     file.Write(bytes, count);
//     file.Check(FPutStringKQ(file.Get(), "line"));
//     if (!file.Commit()) ...
//
// A failure in between is remembered: what follows writes nothing more, and Commit fails with the first reason in
// `Error`.
class SafeFile {
public:
    SafeFile() = default;
    SafeFile(const SafeFile&) = delete;
    SafeFile& operator=(const SafeFile&) = delete;

    ~SafeFile() { Abandon(); }

    // Creates the sibling of `target`; false on failure with the reason in `Error`. A file that was open before is
    // abandoned.
    bool Open(const char* target);

    // The file to write to with the ordinary calls, each result of which goes through Check. Null when none is open or
    // a write has failed, which those calls answer with 0.
    KQFileInfo* Get() const { return failed_ ? nullptr : file_; }

    // Remembers a failure; returns whether there was none so far.
    bool Check(int done);

    // Writes through Check.
    bool Write(const void* bytes, size_t count) { return Check(WriteFileKQ(Get(), bytes, count)); }

    // Puts the sibling on the medium, closes it and renames it over the target. False when anything failed since Open,
    // with the first reason in `Error`, the sibling removed and the target untouched.
    bool Commit();

    // Removes the sibling and leaves the target and `Error` alone. Harmless when nothing is open.
    void Abandon();

private:
    bool MakeNames(const char* target);
    bool Flush();
    void Forget();

    KQFileInfo* file_ = nullptr;
    char* target_ = nullptr;
    char* sibling_ = nullptr;
    bool failed_ = false;
    u32 reason_ = 0;   // `Error` at the first failure
};

}   // namespace kq
