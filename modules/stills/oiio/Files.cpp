#include "modules/stills/oiio/Files.h"

#include <cctype>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

namespace stills::oiio {

namespace {

Identity IdentityOf(const struct stat& status) {
    return {status.st_dev, status.st_ino, std::uint64_t(status.st_size), status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

Cause CauseOf(int number) {
    switch (number) {
    case ENOENT:
    case ENOTDIR: return Cause::NotFound;
    case EACCES:
    case EPERM:
    case EROFS:
    case ETXTBSY: return Cause::NoAccess;
    case ENOMEM: return Cause::NoMemory;
    case ENOSPC:
    case EDQUOT:
    case EFBIG: return Cause::DiskFull;
    default: return Cause::Other;
    }
}

void NoteFailure(int number, Problem& problem) {
    problem = SystemReason(number);
    problem.cause = CauseOf(number);
}

// Moves the bytes within the kernel.
bool CopyAll(int from, int to, Problem& problem) {
    struct stat status;
    if (fstat(from, &status) != 0) {
        NoteFailure(errno, problem);
        return false;
    }
    off_t at = 0;
    while (at < status.st_size) {
        ssize_t moved = sendfile(to, from, &at, size_t(status.st_size - at));
        if (moved > 0 || (moved < 0 && errno == EINTR)) continue;
        NoteFailure(moved == 0 ? ENOSPC : errno, problem);
        return false;
    }
    return true;
}

}   // namespace

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    if (this == &other) return *this;
    if (number_ >= 0) close(number_);
    number_ = other.Release();
    return *this;
}

Descriptor::~Descriptor() {
    if (number_ >= 0) close(number_);
}

int Descriptor::Release() { return std::exchange(number_, -1); }

// A pipe must not stop the program, so the file is opened without waiting and then looked at.
InputFile OpenInput(const char* path, Problem& problem) {
    InputFile file;
    Descriptor descriptor(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status;
    if (!descriptor || fstat(descriptor.Get(), &status) != 0) {
        NoteFailure(errno, problem);
        return file;
    }
    if (!S_ISREG(status.st_mode)) {
        problem = "it is no file";
        return file;
    }
    file.identity = IdentityOf(status);
    file.descriptor = std::move(descriptor);
    return file;
}

bool Identify(const char* path, Identity& identity) {
    struct stat status;
    if (stat(path, &status) != 0) return false;
    identity = IdentityOf(status);
    return true;
}

bool WriteOut(int source, const char* path, Problem& problem) {
    Descriptor target(open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (!target) {
        NoteFailure(errno, problem);
        return false;
    }
    if (!CopyAll(source, target.Get(), problem)) return false;
    if (close(target.Release()) == 0) return true;
    NoteFailure(errno, problem);
    return false;
}

Descriptor MemoryFile(bool fixed) {
    Descriptor file(memfd_create("kqstills", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (file && fixed && fcntl(file.Get(), F_ADD_SEALS, F_SEAL_SHRINK) != 0) return Descriptor();
    return file;
}

std::string ExtensionOf(const char* path) {
    const char* slash = std::strrchr(path, '/');
    const char* dot = std::strrchr(slash ? slash : path, '.');
    std::string extension = dot ? dot + 1 : "";
    for (char& c : extension) c = char(std::tolower(static_cast<unsigned char>(c)));
    return extension;
}

std::string SystemReason(int number) { return std::error_code(number, std::generic_category()).message(); }

}   // namespace stills::oiio
