// Large blocks straight from the kernel, POSIX shared memory, and the memory status from /proc.
#include "pal/memory.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "pal/allocate.h"
#include "pal/blockcache.h"

namespace pal {

namespace {

std::atomic<i64> blocksOut{0};
BlockCache cache;

// A mapping. Each user holds a shared lock on the file, so that the last one is known and takes the name away, and a
// name that a crashed process left behind is recognised by having no user.
struct Shared {
    void* view;
    size_t bytes;
    int file;         // -1 for memory without a name
    char path[256];   // the object's name for the kernel
};

// Makes the kernel's name: one slash in front, none behind. Signs that it may not hold are spelled out, so that no two
// names meet in one. False when it is too long.
bool SharedPath(const char* name, char path[256]) {
    constexpr size_t kMost = 250;
    size_t length = 1;
    path[0] = '/';
    for (const char* c = name; *c; ++c) {
        if (length + 3 > kMost) return false;
        if (*c == '/' || *c == '%')
            length += size_t(std::snprintf(path + length, 4, "%%%02X", unsigned(*c)));
        else
            path[length++] = *c;
    }
    path[length] = 0;
    return length > 1;
}

bool WaitForLock(int file, int kind) {
    int result;
    do result = flock(file, kind);
    while (result != 0 && errno == EINTR);
    return result == 0;
}

// Whether the name still stands for this file: its last user may have taken it away while we waited for the lock.
bool StillNamed(int file) {
    struct stat status;
    return fstat(file, &status) == 0 && status.st_nlink > 0;
}

// Gives the object its size: from scratch when nobody uses it, else it has to be large enough already.
bool FitShared(int file, size_t bytes) {
    if (flock(file, LOCK_EX | LOCK_NB) == 0) {
        // The memory is taken now, so that no write to it can fail for want of room.
        bool sized = ftruncate(file, 0) == 0 && posix_fallocate(file, 0, off_t(bytes)) == 0;
        if (!WaitForLock(file, LOCK_SH)) return false;
        if (!sized) return false;
    } else if (!WaitForLock(file, LOCK_SH)) {
        return false;
    }
    struct stat status;
    return fstat(file, &status) == 0 && status.st_size >= off_t(bytes);
}

// Lets go of the name; the last user removes it.
void LeaveShared(int file, const char* path) {
    if (file < 0) return;
    if (flock(file, LOCK_EX | LOCK_NB) == 0 && StillNamed(file)) shm_unlink(path);
    close(file);
}

// Opens or makes the object and locks it; -1 on failure.
int EnterShared(const char* path, size_t bytes) {
    for (;;) {
        int file = shm_open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (file < 0) return -1;
        bool fits = FitShared(file, bytes);
        if (fits && StillNamed(file)) return file;
        bool again = !StillNamed(file);
        LeaveShared(file, path);
        if (!again) return -1;
    }
}

void* Map(size_t length) {
    void* block = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return block == MAP_FAILED ? nullptr : block;
}

size_t Misaligned(const void* block) { return reinterpret_cast<uptr>(block) % kBlockAlignment; }

// The kernel places maps side by side, and all of ours are multiples of the alignment long: the plain map is nearly
// always aligned. Otherwise a longer one is cut on both sides.
void* MapBlock(size_t length) {
    void* block = Map(length);
    if (!block || !Misaligned(block)) return block;
    munmap(block, length);
    if (length > SIZE_MAX - kBlockAlignment) return nullptr;
    u8* longer = static_cast<u8*>(Map(length + kBlockAlignment));
    if (!longer) return nullptr;
    size_t front = kBlockAlignment - Misaligned(longer);
    munmap(longer, front);
    if (front < kBlockAlignment) munmap(longer + front + length, kBlockAlignment - front);
    return longer + front;
}

void UnmapBlock(BlockCache::Block block) { munmap(block.place, block.bytes); }

// Gives all kept blocks back; whether there was one.
bool EmptyCache() {
    bool any = false;
    for (BlockCache::Block block; cache.TakeAny(&block); any = true) UnmapBlock(block);
    return any;
}

}   // namespace

void* BlockAlloc(size_t bytes) {
    size_t length = BlockCache::Round(bytes);
    if (length < bytes) return nullptr;
    void* block = cache.Take(length);
    if (!block) block = MapBlock(length);
    if (!block && EmptyCache()) block = MapBlock(length);
    if (block) ++blocksOut;
    return block;
}

void BlockFree(void* block, size_t bytes) {
    if (!block) return;
    BlockCache::Block back[BlockCache::kMostLarge];
    int count = cache.Keep({block, BlockCache::Round(bytes)}, back);
    for (int i = 0; i < count; ++i) UnmapBlock(back[i]);
    if (--blocksOut == 0) EmptyCache();   // nobody uses the library any more
}

i64 BlocksOut() { return blocksOut; }

bool MemoryQuery(MemoryStatus* status) {
    std::FILE* file = std::fopen("/proc/meminfo", "r");
    if (!file) return false;
    *status = {};
    char line[128];
    u64 available = 0;
    while (std::fgets(line, sizeof line, file)) {
        unsigned long long kilobytes;
        if (std::sscanf(line, "MemTotal: %llu", &kilobytes) == 1) status->physicalTotal = kilobytes * 1024;
        if (std::sscanf(line, "MemAvailable: %llu", &kilobytes) == 1) available = kilobytes * 1024;
        if (std::sscanf(line, "SwapTotal: %llu", &kilobytes) == 1) status->pageTotal = kilobytes * 1024;
        if (std::sscanf(line, "SwapFree: %llu", &kilobytes) == 1) status->pageFree = kilobytes * 1024;
    }
    std::fclose(file);
    status->physicalFree = available;
    if (status->physicalTotal > 0)
        status->percentInUse = u32(100 * (status->physicalTotal - available) / status->physicalTotal);
    return status->physicalTotal > 0;
}

void* SharedOpen(const char* name, size_t bytes, void** view) {
    auto* shared = AllocateRecord<Shared>();
    if (!shared) return nullptr;
    shared->bytes = bytes ? bytes : 1;
    shared->file = -1;
    bool known =
        !name || (SharedPath(name, shared->path) && (shared->file = EnterShared(shared->path, shared->bytes)) >= 0);
    int flags = name ? MAP_SHARED : MAP_SHARED | MAP_ANONYMOUS;
    shared->view = known ? mmap(nullptr, shared->bytes, PROT_READ | PROT_WRITE, flags, shared->file, 0) : MAP_FAILED;
    if (shared->view == MAP_FAILED) {
        LeaveShared(shared->file, shared->path);
        Free(shared);
        return nullptr;
    }
    *view = shared->view;
    return shared;
}

void SharedClose(void* handle) {
    auto* shared = static_cast<Shared*>(handle);
    if (!shared) return;
    munmap(shared->view, shared->bytes);
    LeaveShared(shared->file, shared->path);
    Free(shared);
}

}   // namespace pal
