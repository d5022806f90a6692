// The scratch folder: where frames go that were changed or inserted.
//
// "KQScratch" lies in the folder of ScratchDir or of the program. Two programs must not meet in one, because both
// count their clips from 0: the folder belongs to whoever holds the lock file beside it, and a program that finds it
// taken goes on to "KQScratch2" and so forth. The folder is claimed by the first scratch name; frames that a crashed
// run left in it would be taken for our own, so it is emptied then. The clean-up removes it, and every folder of a
// crashed run that stands beside it.
#define KQ_MODULE "Source/Scratch"
#include <cstdio>
#include <cstring>

#include "Source/Faults.h"
#include "Source/Path.h"
#include "Source/Startup.h"
#include "kq/clip.h"
#include "kq/environment.h"
#include "kq/files.h"
#include "kq/filespec.h"
#include "pal/file.h"
#include "pal/lock.h"

namespace {

// Programs that can have scratch folders beside each other.
constexpr int kMostFolders = 64;

// A name of eight and three letters with its dot and the closing NUL.
constexpr size_t kNameSize = 13;

constexpr size_t kPathSize = sizeof KQEnvironment::ScratchPath;

// The folder in use, with its separator; empty until one is claimed. The lock is null where the host cannot lock.
char claimedFolder[kPathSize];
pal::FileLock* claimedLock = nullptr;

// Writes the folder in which the scratch folders lie, with a separator at its end; false when it is too long for what
// comes behind it.
bool BaseFolder(char* base) {
    const char* spec = KQEnv->ScratchDir ? KQEnv->ScratchDir : KQEnv->AppDir;
    if (!spec || std::strlen(spec) > kPathSize - 40) return false;
    GetPathKQ(spec, base);
    size_t length = std::strlen(base);
    if (length == 0 || kq::LastSeparator(base) == base + length - 1) return true;
    base[length] = pal::Separator();
    base[length + 1] = 0;
    return true;
}

// The n-th folder of `base`, counted from 1, without a separator, and the lock file beside it. BaseFolder left room.
void FolderName(char* folder, char* lockFile, const char* base, int n) {
    std::strcat(std::strcpy(folder, base), "KQScratch");
    if (n > 1) std::snprintf(folder + std::strlen(folder), 4, "%d", n % 1000);
    std::strcat(std::strcpy(lockFile, folder), ".lck");
}

pal::FileLock* TakeLock(const char* lockFile, bool* taken) {
    *taken = false;
    return kq::FileCallFails() ? nullptr : pal::LockTake(lockFile, taken);
}

void Claim(const char* folder, pal::FileLock* lock) {
    const char separator[2] = {pal::Separator(), 0};
    std::strcat(std::strcpy(claimedFolder, folder), separator);
    claimedLock = lock;
}

// Takes the first folder that nobody holds. A host that cannot lock at all gives the first one to everybody, as it
// would be without locks.
bool ClaimFolder() {
    char base[kPathSize], folder[kPathSize], lockFile[kPathSize];
    if (!BaseFolder(base)) return false;
    for (int n = 1; n <= kMostFolders; ++n) {
        FolderName(folder, lockFile, base, n);
        bool taken;
        pal::FileLock* lock = TakeLock(lockFile, &taken);
        if (taken) continue;
        if (lock) DeleteDirKQ(folder);
        Claim(folder, lock);
        return true;
    }
    return false;
}

void RemoveClaimed() {
    if (!claimedFolder[0]) return;
    claimedFolder[std::strlen(claimedFolder) - 1] = 0;
    DeleteDirKQ(claimedFolder);
    pal::LockRelease(claimedLock);
    claimedFolder[0] = 0;
    claimedLock = nullptr;
}

// Removes every scratch folder of `base` that nobody holds.
void RemoveAbandoned(const char* base) {
    char folder[kPathSize], lockFile[kPathSize];
    for (int n = 1; n <= kMostFolders; ++n) {
        FolderName(folder, lockFile, base, n);
        if (!FileExistsKQ(folder)) continue;
        bool taken;
        pal::FileLock* lock = TakeLock(lockFile, &taken);
        if (!lock) continue;
        DeleteDirKQ(folder);
        pal::LockRelease(lock);
    }
}

// Writes the name of eight and three letters. The leading digit of the number is not taken modulo 10.
void WriteName(char* at, u32 clipId, u32 n, bool alpha) {
    for (u32 unit = 1000; unit; unit /= 10) *at++ = char('0' + clipId / unit % 10);
    *at++ = char('0' + n / 100000);
    for (u32 unit = 10000; unit >= 100; unit /= 10) *at++ = char('0' + n / unit % 10);
    *at++ = '.';
    *at++ = char('0' + n / 10 % 10);
    *at++ = char('0' + n % 10);
    *at++ = alpha ? 'A' : 'V';
    *at = 0;
}

}   // namespace

namespace kq {

void RemoveScratchFolder() {
    RemoveClaimed();
    char base[kPathSize];
    if (BaseFolder(base)) RemoveAbandoned(base);
}

}   // namespace kq

void SetScratchDirKQ(const char* fileSpec) {
    if (fileSpec && KQEnv->ScratchDir && std::strcmp(fileSpec, KQEnv->ScratchDir) == 0) return;   // it is in use
    char* copy = CopyFileSpecKQ(fileSpec);
    if (fileSpec && !copy) return;
    RemoveClaimed();
    FreeFileSpecKQ(KQEnv->ScratchDir);
    KQEnv->ScratchDir = copy;
}

char* Make_TempName(KQClip* clip, i32 number, int alpha) {
    if (!clip || number >= 0) return nullptr;
    if (!claimedFolder[0] && !ClaimFolder()) return nullptr;
    char* path = KQEnv->ScratchPath;
    size_t length = std::strlen(claimedFolder);
    if (length + kNameSize > kPathSize) return nullptr;
    CreateDirKQ(claimedFolder);
    std::memcpy(path, claimedFolder, length);
    WriteName(path + length, u32(clip->clipId) % 10000, 0 - u32(number), alpha != 0);
    return path;
}
