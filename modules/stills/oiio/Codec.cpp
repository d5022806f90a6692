// The codec of Linux: requests to the workers of the helper, and the buffers that they fill.
//
// Up to two workers, one a processor, have up to two requests each under way. What Expect asks for is waiting in a slot
// of shared memory when ReadPixels comes for it. The answers of a worker come in the order of its requests, so that the
// oldest one without an answer is the file that a worker died on or takes too long for: that request fails, or, when
// the death came from outside, is repeated once; those behind it are repeated.
#include "modules/stills/Codec.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstring>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "modules/stills/oiio/Files.h"
#include "modules/stills/oiio/Heads.h"
#include "modules/stills/oiio/Helper.h"
#include "modules/stills/oiio/Kinds.h"
#include "modules/stills/oiio/Wire.h"

namespace stills {

namespace {

using namespace oiio;
using Clock = std::chrono::steady_clock;

constexpr int kMostWorkers = 2;
constexpr int kMostUnderWay = 2;   // requests of a worker: one that it does, one that it goes on with
constexpr int kSeconds = 9;        // that one request may take
constexpr std::size_t kKeptBytes = std::size_t(64) << 20;   // a slot of more is given back after use

// Shared memory for one frame.
class Memory {
public:
    ~Memory() { Free(); }

    std::uint8_t* Bytes() const { return bytes_; }

    std::size_t Size() const { return size_; }

    int File() const { return file_.Get(); }

    bool Grow(std::size_t size) {
        if (size <= size_) return true;
        Free();
        file_ = MemoryFile(true);
        if (!file_ || ftruncate(file_.Get(), off_t(size)) != 0) return false;
        void* block = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file_.Get(), 0);
        if (block == MAP_FAILED) return false;
        bytes_ = static_cast<std::uint8_t*>(block);
        size_ = size;
        return true;
    }

    void Free() {
        if (bytes_) munmap(bytes_, size_);
        bytes_ = nullptr;
        size_ = 0;
        file_ = Descriptor();
    }

private:
    Descriptor file_;
    std::uint8_t* bytes_ = nullptr;
    std::size_t size_ = 0;
};

enum class State { Free, UnderWay, Ready };

// One request and its buffer.
struct Slot {
    State state = State::Free;
    Request request = {};
    Answer answer = {};
    std::string path;
    Identity identity;
    Descriptor file;   // the still; kept until the answer, in case it has to be asked again
    Memory memory;
    std::array<bool, kMostWorkers> shown = {};   // which workers know the memory
    bool repeated = false;
    std::uint64_t age = 0;
};

struct Seat {
    Worker worker;
    std::vector<int> underWay;   // slots, the oldest first
    Clock::time_point since;     // the oldest request is the worker's
};

void Fail(Slot& slot, const std::string& text) {
    slot.answer = {};
    slot.answer.outcome = Outcome::None;
    CopyText(slot.answer.problem, sizeof slot.answer.problem, text.c_str());
    slot.state = State::Ready;
    slot.file = Descriptor();
}

std::string HowItDied(int status) {
    if (status != -1 && WIFSIGNALED(status))
        return "the decoder died on it, signal " + std::to_string(WTERMSIG(status));
    if (status != -1 && WIFEXITED(status))
        return "the decoder gave up on it, exit code " + std::to_string(WEXITSTATUS(status));
    return "the decoder died on it";
}

class Codec {
public:
    // Fills `head`; false with the reason.
    bool ReadHead(const char* path, Head& head, Problem& problem);
    Pixels ReadPixels(const char* path, int width, int height, std::uint8_t* pixels, Head& head, Problem& problem);
    void Expect(const char* path, int width, int height);
    bool WritePixels(const char* path, const Kind& kind, const Head& head, const std::uint8_t* pixels,
                     Problem& problem);

private:
    // Seats.
    bool Fill(int seat, Problem& problem);
    int IdlestSeat() const;
    void Empty(int seat, bool tooLong);
    void Resume(int seat, std::vector<int> slots);

    // Requests.
    int FreeSlot();
    int Ask(const char* path, RequestKind kind, int width, int height, bool wait, Problem& problem);
    bool Post(int slot, Problem& problem);
    bool SendTo(int seat, int slot);
    bool Collect(int seat, int milliseconds);
    void CollectAll();
    void Await(int slot);
    int Find(const char* path, int width, int height);
    void Release(int slot);

    Helper helper_;
    std::array<Seat, kMostWorkers> seats_;
    std::array<Slot, kSlots> slots_;
    int workers_ = std::clamp(int(std::thread::hardware_concurrency()), 1, kMostWorkers);
    std::uint64_t counter_ = 0;
};

bool Codec::Fill(int seat, Problem& problem) {
    Seat& s = seats_[std::size_t(seat)];
    if (s.worker) return true;
    for (Slot& slot : slots_) slot.shown[std::size_t(seat)] = false;
    s.worker = helper_.Fork(problem);
    return bool(s.worker);
}

int Codec::IdlestSeat() const {
    int idlest = 0;
    for (int i = 1; i < workers_; ++i)
        if (seats_[std::size_t(i)].underWay.size() < seats_[std::size_t(idlest)].underWay.size()) idlest = i;
    return idlest;
}

// Ends what is left of a worker. The request that it was at fails, and the others are asked again. A kill from outside
// (somebody's, or the kernel's for want of memory), or the keeper's own end, is not the file's fault at first.
void Codec::Empty(int seat, bool tooLong) {
    Seat& s = seats_[std::size_t(seat)];
    int status = helper_.End(s.worker);
    std::vector<int> slots = std::exchange(s.underWay, {});
    if (!slots.empty()) {
        Slot& culprit = slots_[std::size_t(slots.front())];
        bool outside = !tooLong && (status == -1 || (WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL));
        if (outside && !culprit.repeated) {
            culprit.repeated = true;
        } else {
            Fail(culprit, tooLong ? "it took the decoder longer than " + std::to_string(kSeconds) + " seconds"
                                  : HowItDied(status));
            slots.erase(slots.begin());
        }
    }
    Resume(seat, slots);
}

void Codec::Resume(int seat, std::vector<int> slots) {
    Problem problem;
    for (int slot : slots)
        if (!Fill(seat, problem) || !SendTo(seat, slot))
            Fail(slots_[std::size_t(slot)], problem.empty() ? "the decoder cannot be reached" : problem);
}

// The oldest answer that nobody fetched gives way when there is no free slot; -1 when all are under way.
int Codec::FreeSlot() {
    int oldest = -1;
    for (int i = 0; i < kSlots; ++i) {
        Slot& slot = slots_[std::size_t(i)];
        if (slot.state == State::Free) return i;
        if (slot.state == State::Ready && (oldest < 0 || slot.age < slots_[std::size_t(oldest)].age)) oldest = i;
    }
    if (oldest >= 0) Release(oldest);
    return oldest;
}

bool Codec::SendTo(int seat, int index) {
    Seat& s = seats_[std::size_t(seat)];
    Slot& slot = slots_[std::size_t(index)];
    bool show = slot.memory.Bytes() && !slot.shown[std::size_t(seat)];
    slot.request.withSlot = show;
    slot.request.slotBytes = slot.memory.Size();
    if (slot.file && lseek(slot.file.Get(), 0, SEEK_SET) != 0) return false;
    bool sent =
        show ? Send(s.worker.socket.Get(), &slot.request, sizeof slot.request, {slot.file.Get(), slot.memory.File()})
             : Send(s.worker.socket.Get(), &slot.request, sizeof slot.request, {slot.file.Get()});
    if (!sent) return false;
    slot.shown[std::size_t(seat)] = slot.memory.Size() <= kKeptBytes;
    if (s.underWay.empty()) s.since = Clock::now();
    s.underWay.push_back(index);
    slot.state = State::UnderWay;
    return true;
}

// Gives a slot's request to the idlest worker. One that has died meanwhile is replaced; all may have.
bool Codec::Post(int index, Problem& problem) {
    for (int tries = 0; tries <= workers_; ++tries) {
        int seat = IdlestSeat();
        if (!Fill(seat, problem)) return false;
        if (SendTo(seat, index)) return true;
        Empty(seat, false);
    }
    problem = "the decoder cannot be reached";
    return false;
}

// Takes one answer of the worker, waiting up to `milliseconds`; false when there is none.
bool Codec::Collect(int seat, int milliseconds) {
    Seat& s = seats_[std::size_t(seat)];
    if (s.underWay.empty()) return false;
    Slot& slot = slots_[std::size_t(s.underWay.front())];
    Answer answer;
    int got = Receive(s.worker.socket.Get(), &answer, sizeof answer, nullptr, 0, milliseconds);
    if (got < 0) return false;
    if (got == 0 || answer.id != slot.request.id) {
        Empty(seat, false);
        return true;
    }
    answer.problem[sizeof answer.problem - 1] = 0;
    slot.answer = answer;
    slot.state = State::Ready;
    slot.file = Descriptor();
    s.underWay.erase(s.underWay.begin());
    s.since = Clock::now();
    return true;
}

void Codec::CollectAll() {
    for (int seat = 0; seat < workers_; ++seat)
        while (Collect(seat, 0)) {
        }
}

// Waits until the slot has its answer, whatever that is.
void Codec::Await(int index) {
    while (slots_[std::size_t(index)].state == State::UnderWay) {
        int seat = 0;
        while (std::count(seats_[std::size_t(seat)].underWay.begin(), seats_[std::size_t(seat)].underWay.end(),
                          index) == 0)
            ++seat;
        if (Collect(seat, 0)) continue;   // an answer that came in time counts, however late one looks
        auto end = seats_[std::size_t(seat)].since + std::chrono::seconds(kSeconds);
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
        if (left <= 0)
            Empty(seat, true);
        else
            Collect(seat, int(left));
    }
}

void Codec::Release(int index) {
    Slot& slot = slots_[std::size_t(index)];
    slot.state = State::Free;
    slot.path.clear();
    slot.file = Descriptor();
    if (slot.memory.Size() <= kKeptBytes) return;
    slot.memory.Free();
    slot.shown = {};
}

// The slot that holds, or will hold, the file at `path` as it is now; -1 when there is none.
int Codec::Find(const char* path, int width, int height) {
    for (int i = 0; i < kSlots; ++i) {
        Slot& slot = slots_[std::size_t(i)];
        if (slot.state == State::Free || slot.request.kind != RequestKind::Decode || slot.path != path) continue;
        Identity now;
        bool same =
            slot.request.width == width && slot.request.height == height && Identify(path, now) && now == slot.identity;
        if (same) return i;
        if (slot.state == State::Ready) Release(i);
    }
    return -1;
}

std::string FirstBytes(int file) {
    std::string bytes(kHeadBytes, '\0');
    ssize_t got = pread(file, bytes.data(), bytes.size(), 0);
    bytes.resize(got > 0 ? size_t(got) : 0);
    return bytes;
}

const Kind* KindOfFile(const std::string& bytes, const char* path) {
    return KindOf(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size(), ExtensionOf(path).c_str());
}

void NoteNoMemory(Problem& problem) {
    problem = "out of memory";
    problem.cause = Cause::NoMemory;
}

const char* NoKind(const std::string& bytes) {
    return bytes.empty() ? "it is empty" : "it is no still of a kind that is read";
}

// Opens the file and posts the request. The result is the slot; -1 with the reason. Without `wait` also -1 when every
// worker has enough to do.
int Codec::Ask(const char* path, RequestKind kind, int width, int height, bool wait, Problem& problem) {
    CollectAll();
    if (!wait && seats_[std::size_t(IdlestSeat())].underWay.size() >= kMostUnderWay) return -1;
    InputFile file = OpenInput(path, problem);
    if (!file.descriptor) return -1;
    std::string bytes = FirstBytes(file.descriptor.Get());
    const Kind* found = KindOfFile(bytes, path);
    if (!found) {
        problem = NoKind(bytes);
        return -1;
    }
    int index = FreeSlot();
    if (index < 0) return -1;
    Slot& slot = slots_[std::size_t(index)];
    slot.request = {};
    slot.request.kind = kind;
    slot.request.id = std::uint32_t(++counter_);
    slot.request.slot = std::uint32_t(index);
    slot.request.width = width;
    slot.request.height = height;
    CopyText(slot.request.format, sizeof slot.request.format, found->format);
    std::size_t needed = std::size_t(width) * std::size_t(height) * 4;
    if (needed > slot.memory.Size()) {
        slot.shown = {};
        if (!slot.memory.Grow(needed)) {
            NoteNoMemory(problem);
            return -1;
        }
    }
    slot.path = path;
    slot.identity = file.identity;
    slot.file = std::move(file.descriptor);
    slot.repeated = false;
    slot.age = counter_;
    if (Post(index, problem)) return index;
    Release(index);
    return -1;
}

void TakeHead(const Answer& answer, Head& head) {
    head.width = answer.width;
    head.height = answer.height;
    head.alpha = answer.alpha != 0;
    head.pixelAspect = answer.pixelAspect > 0 ? answer.pixelAspect : 1.0;
}

bool Codec::ReadHead(const char* path, Head& head, Problem& problem) {
    InputFile file = OpenInput(path, problem);
    if (!file.descriptor) return false;
    std::string bytes = FirstBytes(file.descriptor.Get());
    const Kind* kind = KindOfFile(bytes, path);
    if (!kind) {
        problem = NoKind(bytes);
        return false;
    }
    if (ReadPlainHead(*kind, reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size(), head)) return true;
    int slot = Ask(path, RequestKind::Head, 0, 0, true, problem);
    if (slot < 0) return false;
    Await(slot);
    Answer answer = slots_[std::size_t(slot)].answer;
    Release(slot);
    problem = answer.problem;
    TakeHead(answer, head);
    head.format = kind->words;
    return answer.outcome == Outcome::Whole;
}

Pixels Codec::ReadPixels(const char* path, int width, int height, std::uint8_t* pixels, Head& head, Problem& problem) {
    int index = Find(path, width, height);
    if (index < 0) index = Ask(path, RequestKind::Decode, width, height, true, problem);
    if (index < 0) return Pixels::None;
    Await(index);
    Slot& slot = slots_[std::size_t(index)];
    Answer answer = slot.answer;
    if (answer.outcome != Outcome::None) {
        int rows = std::clamp(answer.outcome == Outcome::Whole ? height : answer.rows, 0, height);
        std::memcpy(pixels, slot.memory.Bytes(), std::size_t(rows) * std::size_t(width) * 4);
    }
    Release(index);
    TakeHead(answer, head);
    problem = answer.problem;
    return answer.outcome == Outcome::Whole     ? Pixels::Whole
           : answer.outcome == Outcome::Damaged ? Pixels::Damaged
                                                : Pixels::None;
}

void Codec::Expect(const char* path, int width, int height) {
    Problem ignored;
    if (Find(path, width, height) < 0) Ask(path, RequestKind::Decode, width, height, false, ignored);
}

// The worker writes into memory, so that a full disk is met here, where the system says so.
bool Codec::WritePixels(const char* path, const Kind& kind, const Head& head, const std::uint8_t* pixels,
                        Problem& problem) {
    CollectAll();
    int index = FreeSlot();
    std::size_t bytes = std::size_t(head.width) * std::size_t(head.height) * 4;
    Descriptor file = MemoryFile(false);
    if (index < 0 || !file) {
        NoteNoMemory(problem);
        return false;
    }
    Slot& slot = slots_[std::size_t(index)];
    if (bytes > slot.memory.Size()) slot.shown = {};
    if (!slot.memory.Grow(bytes)) {
        NoteNoMemory(problem);
        return false;
    }
    std::memcpy(slot.memory.Bytes(), pixels, bytes);
    slot.request = {};
    slot.request.kind = RequestKind::Encode;
    slot.request.id = std::uint32_t(++counter_);
    slot.request.slot = std::uint32_t(index);
    slot.request.width = head.width;
    slot.request.height = head.height;
    slot.request.alpha = head.alpha && kind.alpha;
    slot.request.pixelAspect = head.pixelAspect;
    CopyText(slot.request.format, sizeof slot.request.format, kind.format);
    slot.path = path;
    slot.repeated = true;
    slot.age = counter_;
    slot.file = Descriptor(fcntl(file.Get(), F_DUPFD_CLOEXEC, 0));
    if (!slot.file || !Post(index, problem)) {
        Release(index);
        return false;
    }
    Await(index);
    Answer answer = slot.answer;
    Release(index);
    problem = answer.problem;
    return answer.outcome == Outcome::Whole && WriteOut(file.Get(), path, problem);
}

Codec& TheCodec() {
    static Codec codec;
    return codec;
}

}   // namespace

bool Reads(const char* extension) { return KindOf(extension) != nullptr; }

bool Writes(const char* extension) {
    const Kind* kind = KindOf(extension);
    return kind && kind->writes;
}

bool ReadHead(const char* path, Head& head, Problem& problem) { return TheCodec().ReadHead(path, head, problem); }

Pixels ReadPixels(const char* path, int width, int height, std::uint8_t* pixels, Head& head, Problem& problem) {
    return TheCodec().ReadPixels(path, width, height, pixels, head, problem);
}

void Expect(const char* path, int width, int height) { TheCodec().Expect(path, width, height); }

bool WritePixels(const char* path, const char* extension, const Head& head, const std::uint8_t* pixels,
                 Problem& problem) {
    const Kind* kind = KindOf(extension);
    if (!kind || !kind->writes) {
        problem = "files of this kind are not written";
        return false;
    }
    return TheCodec().WritePixels(path, *kind, head, pixels, problem);
}

}   // namespace stills
