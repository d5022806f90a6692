// Stands in for the sequence calls until their module lands.
#include <cstring>
#include <cstdio>
#include "kq/sequence.h"
#include "kq/clip.h"
#include "kq/files.h"
#include "kq/filespec.h"
#include "kq/user.h"
int Is_Sequence(const char* name) {
    for (const char* c = std::strchr(name, '['); c; c = std::strchr(c + 1, '[')) {
        size_t n = std::strspn(c + 1, "#");
        if (c[1 + n] == ']') return 1;
    }
    return 0;
}
int SequenceNumber_to_Name(char* name, i32 number, i32 skip) {
    char* c = std::strchr(name, '[');
    if (!c) return 0;
    size_t n = std::strspn(c + 1, "#");
    if (c[1 + n] != ']') return 0;
    char out[5000];
    char digits[64];
    std::snprintf(digits, sizeof digits, "%0*d", int(n) - skip, number);
    if (std::strlen(digits) > n - size_t(skip)) return 0;
    std::snprintf(out, sizeof out, "%.*s%s%s", int(c - name), name, digits, c + n + 2);
    std::strcpy(name, out);
    return 1;
}
static i32 Found(const char* spec, const i32* frames, i32 count) {
    i32 found = 0;
    for (i32 i = 0; i < count; ++i) {
        char path[5000];
        std::strcpy(path, spec);
        if (SequenceNumber_to_Name(path, frames ? frames[i] : i, 0) && FileExistsKQ(path)) ++found;
    }
    return found;
}
int Is_SequenceData_Valid(const char* spec, const i32* frames, i32 count) { return Found(spec, frames, count) == count; }
int Is_Sequence_Valid(const char* spec, const i32* frames, i32 count) {
    i32 found = Found(spec, frames, count);
    if (found == 0) return 0;
    char name[5000];
    GetFileNameKQ(spec, name);
    if (found < count) UserMessageKQ("Warning: Some images in image sequence %s cannot be found!", name);
    return 1;
}
int Sequence_Check(KQClip* clip, TagItem*) {
    char* spec = clip->fileSpec;
    size_t n = std::strlen(spec);
    size_t e = n;
    while (e && !(spec[e - 1] >= '0' && spec[e - 1] <= '9')) --e;
    size_t b = e;
    while (b && spec[b - 1] >= '0' && spec[b - 1] <= '9') --b;
    if (b == e || std::strchr(spec + b, '/') || std::strchr(spec + b, '\\')) return 1;
    char out[5000];
    std::snprintf(out, sizeof out, "%.*s[%.*s]%s", int(b), spec, int(e - b), "##########", spec + e);
    clip->fileSpec = MakeFileSpecKQ(out);
    FreeFileSpecKQ(spec);
    return 1;
}
int SequenceNumber_to_Name_Validate(char* name, i32 number) { return SequenceNumber_to_Name(name, number, 0); }
