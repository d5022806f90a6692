// The string of the class layer.
#include "kq/string.h"

#include <cstring>

#include "kq/memory.h"

char kqcString::null_[1] = {0};

kqcString::kqcString() : buffer_(nullptr), length_(0) {}

kqcString::kqcString(const kqcString& other) : kqcString() { Set(other.buffer_); }

kqcString::kqcString(char* text) : kqcString() { Set(text); }

kqcString::kqcString(const char* text) : kqcString() { Set(text); }

kqcString::~kqcString() { FreeBuffer(); }

void kqcString::Set(const char* text) {
    if (text) length_ = int(std::strlen(text)) + 1;
    if (length_ == 0) return;
    AllocBuffer(length_);
    if (buffer_ && text) std::memcpy(buffer_, text, size_t(length_));
}

char* kqcString::GetStringBuffer(int size) {
    if (size) AllocBuffer(size);
    return buffer_;
}

kqcString& kqcString::operator=(const kqcString& other) {
    if (this != &other) Set(other.buffer_);
    return *this;
}

kqcString& kqcString::operator=(char* text) {
    Set(text);
    return *this;
}

kqcString& kqcString::operator=(const char* text) {
    Set(text);
    return *this;
}

int kqcString::operator==(const kqcString& other) const {
    return *this == static_cast<const char*>(other.buffer_ ? other.buffer_ : null_);
}

int kqcString::operator==(char* text) const { return *this == static_cast<const char*>(text); }

int kqcString::operator==(const char* text) const { return std::strcmp(buffer_ ? buffer_ : null_, text) == 0; }

kqcString& kqcString::operator+=(const kqcString& other) {
    const char* right = other.buffer_ ? other.buffer_ : null_;
    int size = length_ + (other.buffer_ ? other.length_ : 1);
    char* joined = static_cast<char*>(AllocMemoryKQ(size_t(size), 0));
    if (!joined) return *this;
    std::strcpy(joined, buffer_ ? buffer_ : null_);
    std::strcat(joined, right);
    FreeBuffer();
    buffer_ = joined;
    length_ = size;
    return *this;
}

kqcString& kqcString::operator+=(char* text) { return *this += static_cast<const char*>(text); }

kqcString& kqcString::operator+=(const char* text) {
    kqcString right(text);
    return *this += right;
}

void kqcString::Format(const char*, ...) {}

void kqcString::AllocBuffer(int size) {
    FreeBuffer();
    length_ = size;
    buffer_ = static_cast<char*>(AllocMemoryKQ(size_t(size), 0));
    if (buffer_) buffer_[0] = 0;
}

void kqcString::FreeBuffer() {
    FreeMemoryKQ(buffer_);
    buffer_ = nullptr;
}
