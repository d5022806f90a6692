#include "apps/kqclip/Outcome.h"

#include <csignal>

namespace kqclip {

namespace {

volatile std::sig_atomic_t interrupted = 0;

void NoteInterrupt(int) { interrupted = 1; }

struct Reason {
    const char* code;
    const char* why;
};

Reason ReasonOf(u32 error) {
    switch (error) {
    case KQERR_NOMEM: return {"no-memory", "out of memory"};
    case KQERR_DISKFULL: return {"disk-full", "the disk is full; free some space and try again"};
    case KQERR_CREATE: return {"cannot-create", "it cannot be created"};
    case KQERR_ACCESS: return {"access-denied", "access is denied, or another program uses it"};
    case KQERR_WRITEPROTECT: return {"write-protected", "the medium is write protected"};
    case KQERR_NOTFOUND: return {"not-found", "there is no such file"};
    case KQERR_READ: return {"cannot-read", "it cannot be read"};
    case KQERR_WRITE: return {"cannot-write", "it cannot be written"};
    case KQERR_BADFORMAT:
        return {"unknown-format", "no format module takes this kind of file; 'kqclip formats' lists the extensions"};
    case KQERR_OPENFAILED: return {"unsupported", "its format module does not support this variant"};
    default: return {"damaged", "the file is damaged, or not what its extension says"};
    }
}

}   // namespace

Failure LibraryFailure(const std::string& what, const std::string& file, u32 error) {
    Reason reason = ReasonOf(error);
    return Failure(reason.code, "cannot " + what + " '" + file + "': " + reason.why);
}

void CatchInterrupts() {
    std::signal(SIGINT, NoteInterrupt);
    std::signal(SIGTERM, NoteInterrupt);
}

void ThrowIfInterrupted() {
    if (interrupted) throw Interrupted();
}

}   // namespace kqclip
