#include "apps/kqclip/Outcome.h"

#include <csignal>
#include <mutex>

#include "apps/kqclip/Host.h"

namespace kqclip {

namespace {

volatile std::sig_atomic_t interrupted = 0;

void NoteInterrupt(int) { interrupted = 1; }

// A module may speak from a thread of its own.
struct Listener {
    std::mutex lock;
    std::vector<std::string> lines;   // the first of all that was said
    std::string latest;               // since the last call of ListenAnew
};

Listener& TheListener() {
    static Listener listener;
    return listener;
}

// What AllSaid keeps: a module may repeat itself for each of many frames.
constexpr size_t kMostLines = 1000;

void Hear(const char* text) {
    std::string line = OneLine(text);
    while (!line.empty() && line.back() == ' ') line.pop_back();
    Listener& listener = TheListener();
    std::lock_guard hold(listener.lock);
    if (listener.lines.size() < kMostLines) listener.lines.push_back(line);
    listener.latest = line;
}

}   // namespace

Reason ReasonOf(u32 error) {
    switch (error) {
    case KQERR_NOMEM: return {"no-memory", "out of memory"};
    case KQERR_DISKFULL: return {"disk-full", "the disk is full; free some space and try again"};
    case KQERR_CREATE: return {"cannot-create", "it cannot be created; look at the rights of its folder"};
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

std::string OneLine(std::string text) {
    for (char& c : text) {
        if (c == '\n' || c == '\r' || c == '\t') c = ' ';
        if (static_cast<unsigned char>(c) < ' ' || c == 127) c = '?';
    }
    return text;
}

Failure LibraryFailure(const std::string& what, const std::string& file, u32 error) {
    Reason reason = ReasonOf(error);
    return Failure(reason.code, "cannot " + what + " '" + file + "': " + reason.why + Said());
}

void ListenToModules() {
    SetDebugSinkKQ(Hear);
    SetUserSinkKQ(Hear);
}

std::vector<std::string> AllSaid() {
    std::lock_guard hold(TheListener().lock);
    return TheListener().lines;
}

void ListenAnew() {
    std::lock_guard hold(TheListener().lock);
    TheListener().latest.clear();
}

std::string Said() {
    Listener& listener = TheListener();
    std::lock_guard hold(listener.lock);
    return listener.latest.empty() ? "" : "; the module says: " + listener.latest;
}

void CatchInterrupts() { OnStopWish(NoteInterrupt); }

void ThrowIfInterrupted() {
    if (interrupted) throw Interrupted();
}

}   // namespace kqclip
