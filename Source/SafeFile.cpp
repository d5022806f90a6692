// Whole files replaced by way of a temporary sibling, in the target's own folder so that the rename stays on one
// medium.
#define KQ_MODULE "Source/SafeFile"
#include "Source/SafeFile.h"

#include <cstdio>
#include <cstring>

#include "Source/Alloc.h"
#include "Source/Faults.h"
#include "kq/environment.h"
#include "pal/file.h"
#include "pal/program.h"

namespace {

// Room behind the target's name for "~", eight digits and ".tmp".
constexpr size_t kSuffixSize = 16;

// Names tried before a folder counts as one where none is free.
constexpr u32 kMostTries = 100;

// Stores the platform's reason in `Error`, or `code` when it has none.
void NoteFailure(u32 code) {
    u32 reason = pal::FileError();
    KQEnv->Error = reason ? reason : code;
}

}   // namespace

namespace kq {

bool SafeFile::Open(const char* target) {
    Abandon();
    failed_ = false;
    if (!MakeNames(target)) return false;
    size_t length = std::strlen(target);
    u32 number = pal::MillisecondClock();
    for (u32 tries = 0; tries < kMostTries; ++tries, ++number) {
        std::snprintf(sibling_ + length, kSuffixSize, "~%08X.tmp", unsigned(number));
        if (pal::FileQuery(sibling_, nullptr)) continue;
        file_ = CreateFileKQ(sibling_, KQFILE_Write, KQ_ANYCODE, KQ_ANYCODE);
        break;
    }
    if (file_) return true;
    Forget();
    return false;
}

bool SafeFile::MakeNames(const char* target) {
    KQEnv->Error = KQERR_CREATE;
    if (!target) return false;
    size_t length = std::strlen(target);
    target_ = static_cast<char*>(KQ_ALLOC(length + 1, 0));
    sibling_ = target_ ? static_cast<char*>(KQ_ALLOC(length + kSuffixSize, 0)) : nullptr;
    if (!sibling_) {
        Forget();
        return false;
    }
    std::memcpy(target_, target, length + 1);
    std::memcpy(sibling_, target, length + 1);
    return true;
}

bool SafeFile::Check(int done) {
    if (!done && !failed_) {
        failed_ = true;
        reason_ = KQEnv->Error;
    }
    return !failed_;
}

bool SafeFile::Flush() {
    KQEnv->Error = KQERR_WRITE;
    if (FileCallFails()) return false;
    if (pal::FileFlush(static_cast<pal::File*>(file_->Handle))) return true;
    NoteFailure(KQERR_WRITE);
    return false;
}

bool SafeFile::Commit() {
    if (!file_) return false;
    if (!failed_) Check(Flush());
    KQFileInfo* file = file_;
    file_ = nullptr;
    if (!failed_) KQEnv->Error = KQERR_WRITE;
    Check(CloseFileKQ(file));
    if (!failed_) {
        bool replaced = !FileCallFails() && pal::FileReplace(sibling_, target_);
        if (!replaced) NoteFailure(KQERR_WRITE);
        Check(replaced);
    }
    bool done = !failed_;
    if (done) {
        Forget();
        KQEnv->Error = KQERR_NONE;
    } else {
        Abandon();
        KQEnv->Error = reason_;
    }
    return done;
}

void SafeFile::Abandon() {
    if (!sibling_) return;
    u32 error = KQEnv->Error;
    CloseFileKQ(file_);
    file_ = nullptr;
    DeleteFileKQ(sibling_);
    KQEnv->Error = error;
    Forget();
}

void SafeFile::Forget() {
    KQ_FREE(sibling_);
    KQ_FREE(target_);
    sibling_ = target_ = nullptr;
}

}   // namespace kq
