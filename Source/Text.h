// Byte text without regard to case: ASCII letters fold, all other bytes compare as they are.
#pragma once

#include "kq/types.h"

namespace kq {

// The byte with an ASCII capital folded to lower case.
constexpr u8 FoldLower(u8 c) { return c >= 'A' && c <= 'Z' ? u8(c + 32) : c; }

// The byte with an ASCII small letter folded to upper case.
constexpr u8 FoldUpper(u8 c) { return c >= 'a' && c <= 'z' ? u8(c - 32) : c; }

// Compares byte by byte, folded to lower case; negative, 0 or positive.
inline int CompareFolded(const char* a, const char* b) {
    for (;; ++a, ++b) {
        int left = FoldLower(u8(*a)), right = FoldLower(u8(*b));
        if (left != right || left == 0) return left - right;
    }
}

// Whether the text begins with `word`, in any case of letters.
inline bool StartsFolded(const char* text, const char* word) {
    for (; *word; ++text, ++word)
        if (FoldLower(u8(*text)) != FoldLower(u8(*word))) return false;
    return true;
}

// White space as the C locale has it.
constexpr bool IsSpace(u8 c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

}   // namespace kq
