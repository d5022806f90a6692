// Files as the module's side of the codec handles them: opened for a worker, told apart, written with the system's own
// word on what went wrong.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

#include "modules/stills/Codec.h"

namespace stills::oiio {

// A descriptor that closes itself.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(other.Release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept;
    ~Descriptor();

    int Get() const { return number_; }

    explicit operator bool() const { return number_ >= 0; }

    int Release();

private:
    int number_ = -1;
};

// What tells one state of a file from another.
struct Identity {
    std::uint64_t device = 0, node = 0, size = 0;
    std::int64_t seconds = 0, nanoseconds = 0;

    bool operator==(const Identity&) const = default;
};

// A still that was opened for reading.
struct InputFile {
    Descriptor descriptor;
    Identity identity;
};

// Opens a regular file; without a descriptor, and the reason in `problem`, when it cannot be.
InputFile OpenInput(const char* path, Problem& problem);

// Fills `identity` of the file at `path` as it is now; false when there is none.
bool Identify(const char* path, Identity& identity);

// Writes everything that the memory file `source` holds to the file at `path`, new or emptied.
bool WriteOut(int source, const char* path, Problem& problem);

// A file in memory that can grow and, with `fixed`, never shrinks under who has mapped it.
Descriptor MemoryFile(bool fixed);

// The lower-case extension of a path, without its dot.
std::string ExtensionOf(const char* path);

// The system's words for an error number.
std::string SystemReason(int number);

}   // namespace stills::oiio
