#include "modules/stills/oiio/Worker.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <new>

#include <fcntl.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <OpenImageIO/imageio.h>

namespace stills::oiio {

namespace {

// What a worker may use beyond what it has when it starts: the largest frame that is taken, the image library's own
// copy of it in 16 bits a channel, and room to work.
constexpr rlim_t kMemoryRoom = rlim_t(4) << 30;
constexpr rlim_t kFiles = 64;
constexpr rlim_t kFileBytes = rlim_t(4) << 30;

// Slots of more bytes are not kept mapped.
constexpr std::size_t kKeptBytes = std::size_t(64) << 20;

rlim_t AddressSpace() {
    long pages = 0;
    if (std::FILE* file = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(file, "%ld", &pages) != 1) pages = 0;
        std::fclose(file);
    }
    return rlim_t(pages) * rlim_t(sysconf(_SC_PAGESIZE));
}

void Limit(__rlimit_resource resource, rlim_t amount) {
    rlimit limit = {amount, amount};
    setrlimit(resource, &limit);
}

void SetLimits() {
    Limit(RLIMIT_AS, AddressSpace() + kMemoryRoom);
    Limit(RLIMIT_NOFILE, kFiles);
    Limit(RLIMIT_FSIZE, kFileBytes);
    Limit(RLIMIT_CORE, 0);
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
}

// Memory that the module shares.
class Slot {
public:
    // Maps `file`, which it closes.
    bool Map(int file, std::size_t size) {
        Unmap();
        void* block = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        close(file);
        if (block == MAP_FAILED) return false;
        bytes_ = static_cast<std::uint8_t*>(block);
        size_ = size;
        return true;
    }

    void Unmap() {
        if (bytes_) munmap(bytes_, size_);
        bytes_ = nullptr;
        size_ = 0;
    }

    std::uint8_t* Bytes() const { return bytes_; }

    std::size_t Size() const { return size_; }

private:
    std::uint8_t* bytes_ = nullptr;
    std::size_t size_ = 0;
};

Slot slots[kSlots];

void Perform(const Request& request, int file, Answer& answer) {
    if (request.kind == RequestKind::Head) return DecodeHead(request, file, answer);
    Slot& slot = slots[request.slot];
    std::size_t needed = std::size_t(request.width) * std::size_t(request.height) * 4;
    if (!slot.Bytes() || slot.Size() < needed) {
        CopyText(answer.problem, sizeof answer.problem, "there is no memory for its pixels");
        return;
    }
    if (request.kind == RequestKind::Decode) DecodePixels(request, file, slot.Bytes(), answer);
    if (request.kind == RequestKind::Encode) EncodePixels(request, file, slot.Bytes(), answer);
}

// Exceptions of the image library, and of its libraries, end here.
void PerformGuarded(const Request& request, int file, Answer& answer) {
    try {
        Perform(request, file, answer);
    } catch (const std::bad_alloc&) {
        answer.outcome = Outcome::None;
        CopyText(answer.problem, sizeof answer.problem, "it needs more memory than a still may take");
    } catch (const std::exception& failure) {
        answer.outcome = Outcome::None;
        CopyText(answer.problem, sizeof answer.problem, failure.what());
    }
}

void OneLine(char* text) {
    for (char* c = text; *c; ++c)
        if (static_cast<unsigned char>(*c) < 32) *c = ' ';
    for (std::size_t length = std::strlen(text); length > 0 && text[length - 1] == ' '; --length) text[length - 1] = 0;
}

// The image library names the file as it was opened here, which is nothing to anybody else.
void LeaveOutPath(char* text) {
    constexpr char kPath[] = "/proc/self/fd/", kWords[] = "the file";
    static_assert(sizeof kWords < sizeof kPath);
    while (char* at = std::strstr(text, kPath)) {
        char* end = at + sizeof kPath - 1;
        while (*end >= '0' && *end <= '9') ++end;
        if (at > text && std::strchr("\"'", at[-1]) && *end == at[-1]) --at, ++end;
        std::memcpy(at, kWords, sizeof kWords - 1);
        std::memmove(at + sizeof kWords - 1, end, std::strlen(end) + 1);
    }
}

bool Serve(int socket) {
    Request request;
    int descriptors[2];
    if (Receive(socket, &request, sizeof request, descriptors, 2, -1) != 1) return false;
    if (request.slot >= kSlots || descriptors[0] < 0) return false;
    request.format[sizeof request.format - 1] = 0;
    if (request.withSlot && descriptors[1] >= 0) slots[request.slot].Map(descriptors[1], request.slotBytes);
    Answer answer = {};
    answer.id = request.id;
    answer.outcome = Outcome::None;
    PerformGuarded(request, descriptors[0], answer);
    close(descriptors[0]);
    if (slots[request.slot].Size() > kKeptBytes) slots[request.slot].Unmap();
    OneLine(answer.problem);
    LeaveOutPath(answer.problem);
    return Send(socket, &answer, sizeof answer, {});
}

}   // namespace

OpenPath::OpenPath(int file) { std::snprintf(text, sizeof text, "/proc/self/fd/%d", file); }

// Blocks of a frame's size are used again and again: they come from the heap and stay there. The image library is only
// made to list its formats: what starts threads would lose them in the fork.
void PrepareWorkers() {
    mallopt(M_MMAP_THRESHOLD, 256 << 20);
    mallopt(M_TRIM_THRESHOLD, 512 << 20);
    OIIO::ImageInput::create("png");
}

// One thread a worker: the module has one worker a processor.
void RunWorker(int socket) {
    SetLimits();
    OIIO::attribute("threads", 1);
    OIIO::attribute("exr_threads", 1);
    while (Serve(socket)) {
    }
}

}   // namespace stills::oiio
