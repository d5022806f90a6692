// What the module and its helper say to each other: records over sockets that keep message boundaries, with file
// descriptors beside them. Both ends are built together, so the records are plain.
//
// The helper is one program in two roles. The keeper loads the image library once, never touches a file, and forks
// workers; a worker that dies is replaced by another fork, which takes milliseconds where loading takes tenths of a
// second. The module talks to the keeper over one socket (Order, Notice) and to each worker over one of its own
// (Request, Answer).
#pragma once

#include <cstdint>
#include <initializer_list>

#include <sys/types.h>

namespace stills::oiio {

// The descriptor that the keeper finds its socket under when it starts.
constexpr int kKeeperSocket = 3;

// Buffers for pixels, which the module and a worker share.
constexpr int kSlots = 8;

// The most pixels of a frame that is decoded.
constexpr std::int64_t kMostPixels = std::int64_t(1) << 28;

enum class OrderKind : std::uint32_t { Fork, Kill };

// To the keeper. Fork comes with the worker's end of a socket; Kill names the worker by its process.
struct Order {
    OrderKind kind;
    std::int32_t process;
};

enum class NoticeKind : std::uint32_t { Forked, NotForked, Died };

// From the keeper. `status` is that of waitpid for Died.
struct Notice {
    NoticeKind kind;
    std::int32_t process;
    std::int32_t status;
};

enum class RequestKind : std::uint32_t { Head, Decode, Encode };

// To a worker, with the descriptor of the still (Head and Decode to read, Encode to write), and with the slot's memory
// when the worker has not seen it.
struct Request {
    RequestKind kind;
    std::uint32_t id;
    char format[16];   // the image library's name of the kind of file
    std::uint32_t slot;
    std::int32_t width, height;
    std::uint64_t slotBytes;
    std::uint32_t withSlot;   // the slot's memory comes along
    std::uint32_t alpha;      // Encode: the file gets an alpha channel
    double pixelAspect;
};

enum class Outcome : std::uint32_t { Whole, Damaged, None };

// From a worker, in the order of the requests.
struct Answer {
    std::uint32_t id;
    Outcome outcome;
    std::int32_t width, height;   // of the file; 0 when not known
    std::uint32_t alpha;
    std::int32_t rows;   // of the target that were filled
    double pixelAspect;
    char problem[256];
};

// Sends one message. False when the other end is gone or the socket is full.
bool Send(int socket, const void* message, std::size_t size, std::initializer_list<int> descriptors);

// Receives one message of exactly `size` bytes, and up to `most` descriptors, the rest set to -1. 1 when it came, 0
// when the other end is gone, -1 when nothing has come within `milliseconds` (-1: waits).
int Receive(int socket, void* message, std::size_t size, int* descriptors, int most, int milliseconds);

// Copies `text` into a field, cut to its size.
void CopyText(char* field, std::size_t size, const char* text);

}   // namespace stills::oiio
