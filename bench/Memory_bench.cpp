// The memory manager beside the C library's malloc, mimalloc and a plain linear first fit.
//
// mimalloc is loaded beside the program and asked by name: linked in, it would stand in for malloc as well. Sizes are
// spread evenly over their logarithm, as the sizes of real programs are.
#include <dlfcn.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <random>
#include <thread>

#include "bench/Bench.h"
#include "kq/environment.h"
#include "kq/memory.h"
#include "kq/tags.h"

namespace {

using AllocateCall = void* (*)(size_t);
using FreeCall = void (*)(void*);

struct Allocator {
    const char* name;
    AllocateCall allocate;
    FreeCall release;
};

void* OurAllocate(size_t size) { return AllocMemoryKQ(size, 0); }
void OurFree(void* block) { FreeMemoryKQ(block); }
void* GuardedAllocate(size_t size) { return AllocMemoryKQ(size, 0, "Memory_bench", 1); }
void GuardedFree(void* block) { FreeMemoryKQ(block, "Memory_bench", 2); }

// malloc with what the guarded form does to the bytes: filled when they come, filled when they go.
void* FilledAllocate(size_t size) {
    size_t* block = static_cast<size_t*>(std::malloc(size + 16));
    *block = size;
    std::memset(block + 2, 0xAA, size);
    bench::Keep(block);
    return block + 2;
}
void FilledFree(void* user) {
    size_t* block = static_cast<size_t*>(user) - 2;
    std::memset(user, 0x55, *block);
    bench::Keep(block);
    std::free(block);
}

// First fit by a walk over all free blocks, in chunks of the same size as ours.
class LinearFit {
public:
    void* Allocate(size_t size) {
        std::lock_guard held(lock_);
        size = (size + 7) & ~size_t(7);
        for (Header* h = free_.next; h != &free_; h = h->next)
            if (h->size >= size) return Take(h, size);
        return Take(AddChunk(size), size);
    }

    void Free(void* user) {
        std::lock_guard held(lock_);
        Header* header = static_cast<Header*>(user) - 1;
        Header* next = free_.next;
        while (next != &free_ && next < header) next = next->next;
        Link(header, next);
        if (next != &free_ && Behind(header) == next) Join(header, next);
        if (header->previous != &free_ && Behind(header->previous) == header) Join(header->previous, header);
    }

private:
    struct alignas(16) Header {
        Header *next, *previous;
        size_t size;
    };

    static Header* Behind(Header* h) { return reinterpret_cast<Header*>(reinterpret_cast<char*>(h + 1) + h->size); }

    static void Link(Header* h, Header* next) {
        h->next = next;
        h->previous = next->previous;
        h->previous->next = next->previous = h;
    }

    static void Unlink(Header* h) {
        h->previous->next = h->next;
        h->next->previous = h->previous;
    }

    static void Join(Header* first, Header* second) {
        Unlink(second);
        first->size += second->size + sizeof(Header);
    }

    Header* AddChunk(size_t size) {
        size = std::max<size_t>((size + 15) & ~size_t(15), 102400);
        Header* h = static_cast<Header*>(std::malloc(size + sizeof(Header)));
        h->size = size;
        Header* next = free_.next;
        while (next != &free_ && next < h) next = next->next;
        Link(h, next);
        return h;
    }

    static void* Take(Header* h, size_t size) {
        size = (size + 15) & ~size_t(15);
        if (h->size >= size + sizeof(Header)) {
            Header* rest = reinterpret_cast<Header*>(reinterpret_cast<char*>(h + 1) + size);
            rest->size = h->size - size - sizeof(Header);
            Link(rest, h->next);
            h->size = size;
        }
        Unlink(h);
        return h + 1;
    }

    std::mutex lock_;
    Header free_{&free_, &free_, 0};
};

LinearFit linear;

std::vector<size_t> MakeSizes(size_t count, double least, double most) {
    std::mt19937 random(12345);
    std::uniform_real_distribution<double> logarithm(std::log(least), std::log(most));
    std::vector<size_t> sizes(count);
    for (size_t& size : sizes) size = size_t(std::exp(logarithm(random)));
    return sizes;
}

constexpr size_t kSizes = 1 << 14;
std::vector<size_t> sizes = MakeSizes(kSizes, 16, 65536);

// The caller touches the first word of each block, as any use does.
void* Get(const Allocator& a, size_t size) {
    void* block = a.allocate(size);
    *static_cast<size_t*>(block) = size;
    return block;
}

void LastInFirstOut(const Allocator& a) {
    static void* blocks[1000];
    for (size_t i = 0; i < 1000; ++i) blocks[i] = Get(a, sizes[i]);
    for (size_t i = 1000; i-- > 0;) a.release(blocks[i]);
}

// Live blocks, one of which goes and comes back in another size at each step.
class Replacement {
public:
    Replacement(const Allocator& a, size_t live, u32 seed) : a_(a), blocks_(live), state_(seed * 2654435769u + 1) {
        for (void*& block : blocks_) block = Get(a_, NextSize());
    }

    Replacement(const Replacement&) = delete;

    ~Replacement() {
        for (void* block : blocks_) a_.release(block);
    }

    void Run(int steps) {
        for (int i = 0; i < steps; ++i) {
            void*& block = blocks_[(u64(Next()) * blocks_.size()) >> 32];
            a_.release(block);
            block = Get(a_, NextSize());
        }
    }

private:
    u32 Next() {
        state_ = state_ * 6364136223846793005u + 1442695040888963407u;
        return u32(state_ >> 32);
    }

    size_t NextSize() { return sizes[Next() % kSizes]; }

    Allocator a_;
    std::vector<void*> blocks_;
    u64 state_;
};

// A frame or the contents of a file: a large block that comes, is written from end to end, and goes.
void WriteLarge(const Allocator& a) {
    constexpr size_t kBytes = 1920 * 1080 * 4;
    void* block = a.allocate(kBytes);
    std::memset(block, 0x3C, kBytes);
    bench::Keep(block);
    a.release(block);
}

constexpr int kSteps = 20000;

bench::Contender Replacing(const Allocator& a, size_t live) {
    auto state = std::make_shared<Replacement>(a, live, 1);
    state->Run(int(live) * 4);
    return {a.name, [state] { state->Run(kSteps); }};
}

// Two threads with blocks of their own, as many steps each.
bench::Contender ReplacingTwice(const Allocator& a, size_t live) {
    auto one = std::make_shared<Replacement>(a, live / 2, 1);
    auto two = std::make_shared<Replacement>(a, live / 2, 2);
    return {a.name, [one, two] {
                std::thread other([two] { two->Run(4 * kSteps); });
                one->Run(4 * kSteps);
                other.join();
            }};
}

void RunRows(const std::vector<Allocator>& all, const Allocator& guarded, const Allocator& filled) {
    const Allocator& ours = all[0];
    std::vector<bench::Contender> row;
    for (const Allocator& a : all) row.push_back({a.name, [a] { LastInFirstOut(a); }});
    bench::Row("allocate and free, last in first out, 1,000 blocks", 1000, "call", row, {{2, 1.0}});

    row.clear();
    for (const Allocator& a : all) row.push_back(Replacing(a, 4096));
    bench::Row("random replacement, 4,096 live blocks", kSteps, "call", row, {{1, 1.0}});

    row.clear();
    for (const Allocator& a : all) row.push_back(ReplacingTwice(a, 4096));
    bench::Row("random replacement, 4,096 live blocks, 2 threads", 8 * kSteps, "call", row, {{1, 1.0}});

    row.clear();
    for (size_t i = 0; i < 3; ++i) row.push_back({all[i].name, [a = all[i]] { WriteLarge(a); }});
    bench::Row("a frame of 1920 x 1080 that comes, is written and goes", 1, "call", row, {});

    row = {Replacing(guarded, 4096), Replacing(filled, 4096)};
    bench::Row("random replacement, 4,096 live blocks, guards and fills", kSteps, "call", row, {{1, 0.5}});

    row.clear();
    row.push_back(Replacing(ours, 100000));
    row.push_back(Replacing(ours, 1000));
    row[0].name = "ours, 100,000 live blocks";
    row[1].name = "ours, 1,000 live blocks";
    row.push_back(Replacing(all[1], 100000));
    row[2].name = "glibc malloc, 100,000 live blocks";
    bench::Row("random replacement, 100,000 live blocks", kSteps, "call", row, {{1, 1.0 / 3}});
}

}   // namespace

int main() {
    // A large block that went makes the C library keep its free memory, as in any program that has run for a while;
    // otherwise it would give the top of its heap back at each turn of the first row.
    void* large = std::malloc(size_t(30) << 20);
    bench::Keep(large);
    std::free(large);
    TagItem tags[] = {{KQTAG_InitNoWindow, 0}, {KQTAG_End, 0}};
    if (!InitKQ(nullptr, nullptr, nullptr, nullptr, nullptr, tags)) return 1;
    void* mimalloc = dlopen("libmimalloc.so.2.0", RTLD_NOW | RTLD_LOCAL);
    if (!mimalloc) mimalloc = dlopen("libmimalloc.so", RTLD_NOW | RTLD_LOCAL);
    if (!mimalloc) {
        std::printf("libmimalloc is not there: %s\n", dlerror());
        return 1;
    }
    auto allocate = reinterpret_cast<AllocateCall>(dlsym(mimalloc, "mi_malloc"));
    auto release = reinterpret_cast<FreeCall>(dlsym(mimalloc, "mi_free"));
    std::vector<Allocator> all = {{"ours, without guards", OurAllocate, OurFree},
                                  {"glibc malloc", std::malloc, std::free},
                                  {"mimalloc", allocate, release},
                                  {"plain linear first fit", [](size_t size) { return linear.Allocate(size); },
                                   [](void* block) { linear.Free(block); }}};
    RunRows(all, {"ours, with guards and fills", GuardedAllocate, GuardedFree},
            {"glibc malloc and two memsets", FilledAllocate, FilledFree});
    CleanUpKQ();
    return 0;
}
