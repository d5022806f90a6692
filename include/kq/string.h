// The string of the class layer.
#pragma once

#include "kq/types.h"

// Owns its text. Copies never share a buffer. Assigning a string's own buffer to it, or null to a string that holds
// text, is not allowed. Memory comes from the library's memory manager, so InitKQ comes first.
class KQ_API kqcString {
public:
    kqcString();                          // empty: null buffer, length 0
    kqcString(const kqcString& other);    // a copy of the text
    kqcString(char* text);                // a copy of the text; null: empty
    kqcString(const char* text);
    virtual ~kqcString();                 // frees the buffer

    // Replaces the text by a copy of `text`. The length counts the ending zero.
    void Set(const char* text);

    // The buffer, null when empty. Owned by the string.
    char* Get() const { return buffer_; }

    // The size of the buffer in bytes, the ending zero included; 0 when there is none.
    int length() const { return length_; }

    // With a non-zero `size` replaces the buffer by an empty one of that many bytes. Returns the buffer, into which
    // the caller may write.
    char* GetStringBuffer(int size);

    kqcString& operator=(const kqcString& other);
    kqcString& operator=(char* text);
    kqcString& operator=(const char* text);

    // Exact comparison, with regard to case; 1 when equal. Neither side may be empty or null.
    int operator==(const kqcString& other) const;
    int operator==(char* text) const;
    int operator==(const char* text) const;

    // Appends. The new length is the sum of both lengths, one byte more than the text needs; an empty string on the
    // right counts as its zero, 1.
    kqcString& operator+=(const kqcString& other);
    kqcString& operator+=(char* text);
    kqcString& operator+=(const char* text);

    // Reserved: leaves the text as it is.
    void Format(const char* format, ...);

protected:
    // Frees the old buffer, takes `size` as the length, allocates, and writes a zero at the start.
    void AllocBuffer(int size);

    // Frees and nulls the buffer; the length keeps its value.
    void FreeBuffer();

    static char null_[1];   // an empty text

private:
    char* buffer_;
    int length_;
};
