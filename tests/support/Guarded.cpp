#include "support/Guarded.h"

#include <cstdio>
#include <cstdlib>

#if defined(_WIN32)
#include <windows.h>
#else
#include <sys/mman.h>
#endif

namespace kqtest {

namespace {

constexpr size_t kPage = 4096;

[[noreturn]] void NoMemory() {
    std::fputs("no memory for guard pages\n", stderr);
    std::abort();
}

// Pages that are reserved, of which `bytes` from the second page on can be used.
void* ReservePages(size_t whole, size_t bytes) {
#if defined(_WIN32)
    void* pages = VirtualAlloc(nullptr, whole, MEM_RESERVE, PAGE_NOACCESS);
    if (!pages) NoMemory();
    if (bytes && !VirtualAlloc(static_cast<u8*>(pages) + kPage, bytes, MEM_COMMIT, PAGE_READWRITE)) NoMemory();
#else
    void* pages = mmap(nullptr, whole, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) NoMemory();
    if (bytes && mprotect(static_cast<u8*>(pages) + kPage, bytes, PROT_READ | PROT_WRITE) != 0) NoMemory();
#endif
    return pages;
}

void ReleasePages(void* pages, size_t whole) {
#if defined(_WIN32)
    (void)whole;
    VirtualFree(pages, 0, MEM_RELEASE);
#else
    munmap(pages, whole);
#endif
}

}   // namespace

Guarded::Guarded(size_t size, bool atEnd) : size_(size) {
    size_t usable = (size + kPage - 1) & ~(kPage - 1);
    wholeSize_ = usable + 2 * kPage;
    whole_ = ReservePages(wholeSize_, usable);
    data_ = static_cast<u8*>(whole_) + kPage + (atEnd ? usable - size : 0);
}

Guarded::~Guarded() { ReleasePages(whole_, wholeSize_); }

}   // namespace kqtest
