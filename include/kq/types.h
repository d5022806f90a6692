// The fixed-width words, the export mark and the small shared types of the library.
//
// A count, identity, flag word or code is an i32 or u32; a memory size is size_t; a file position or length is
// i64 or u64; a word that may carry a pointer is a uptr. Text and paths are UTF-8 bytes on every platform.
#pragma once

#include <cstddef>
#include <cstdint>

#if defined(_WIN32)
#if defined(KQ_BUILDING)
#define KQ_API __declspec(dllexport)
#else
#define KQ_API __declspec(dllimport)
#endif
#else
#define KQ_API __attribute__((visibility("default")))
#endif

// Marks what a plug-in file exports by its plain name, as the entry of a format module.
#if defined(_WIN32)
#define KQ_EXPORT extern "C" __declspec(dllexport)
#else
#define KQ_EXPORT extern "C" __attribute__((visibility("default")))
#endif

// Marks a call that formats like printf, so that the compiler checks its arguments. `text` and `first` are the
// 1-based positions of the format and of the first argument.
#if defined(__MINGW32__)
#define KQ_PRINTF(text, first) __attribute__((format(gnu_printf, text, first)))
#elif defined(__GNUC__)
#define KQ_PRINTF(text, first) __attribute__((format(printf, text, first)))
#else
#define KQ_PRINTF(text, first)
#endif

using u8 = std::uint8_t;
using i8 = std::int8_t;
using i16 = std::int16_t;
using u16 = std::uint16_t;
using i32 = std::int32_t;
using u32 = std::uint32_t;
using i64 = std::int64_t;
using u64 = std::uint64_t;
using f64 = double;
using uptr = std::uintptr_t;

// The codes that a failed call leaves in the environment's `Error`, read with GetErrorKQ.
enum : u32 {
    KQERR_NONE = 0,             // no error
    KQERR_NOMEM = 1,            // out of memory
    KQERR_NOGROUP = 4,          // no current group
    KQERR_NOMENU = 5,           // no open menu
    KQERR_DISKFULL = 6,         // the disk is full
    KQERR_BADDATA = 7,          // the data make no sense
    KQERR_CREATE = 8,           // a file could not be created
    KQERR_ACCESS = 9,           // access denied, or the file is in use
    KQERR_WRITEPROTECT = 10,    // the medium is write protected
    KQERR_NOTFOUND = 11,        // no such file or folder
    KQERR_READ = 12,            // a read failed
    KQERR_WRITE = 13,           // a write failed
    KQERR_BADFORMAT = 14,       // no format module takes the file
    KQERR_OPENFAILED = 16,      // a format module refuses the file
    KQERR_MODULE = 17,          // a format module or movie failed, or could not be loaded or created
    KQERR_CANCELLED = 18,       // the user cancelled the sequence dialog
};

// A four-character code as one word: the first letter stands in the top byte.
constexpr u32 KQCode4(const char (&text)[5]) {
    return (u32(u8(text[0])) << 24) | (u32(u8(text[1])) << 16) | (u32(u8(text[2])) << 8) | u32(u8(text[3]));
}

// Four blanks: as a file type or creator code it matches anything.
inline constexpr u32 KQ_ANYCODE = KQCode4("    ");
