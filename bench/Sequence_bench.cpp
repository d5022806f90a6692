// Detection of a sequence in a folder of 100,000 files, and the file of one frame.
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "bench/Bench.h"
#include "kq/clip.h"
#include "kq/environment.h"
#include "kq/filespec.h"
#include "kq/sequence.h"

namespace {

constexpr int kFiles = 100000;

struct DirectoryEntry {
    u64 inode;
    i64 offset;
    unsigned short length;
    unsigned char type;
    char name[1];
};

// The limit: the kernel's entries, and a copy of the names.
void ListNames(const char* folder, std::vector<char>& names) {
    names.clear();
    int descriptor = open(folder, O_RDONLY | O_DIRECTORY);
    static char buffer[32768];
    for (;;) {
        long got = syscall(SYS_getdents64, descriptor, buffer, sizeof buffer);
        if (got <= 0) break;
        for (long at = 0; at < got;) {
            auto* entry = reinterpret_cast<DirectoryEntry*>(buffer + at);
            names.insert(names.end(), entry->name, entry->name + std::strlen(entry->name) + 1);
            at += entry->length;
        }
    }
    close(descriptor);
    bench::Keep(names.data());
}

void Detect(const std::string& file) {
    KQClip* clip = NewClipKQ();
    clip->fileSpec = MakeFileSpecKQ(file.c_str());
    Sequence_Check(clip, nullptr);
    if (clip->sourceFrames != kFiles) std::printf("    WRONG: %d frames\n", clip->sourceFrames);
    FreeClipKQ(clip);
}

}   // namespace

int main() {
    TagItem tags[] = {{KQTAG_InitNoWindow, 0}, {KQTAG_End, 0}};
    if (!InitKQ(nullptr, nullptr, nullptr, nullptr, nullptr, tags)) return 1;
    std::filesystem::path folder = std::filesystem::temp_directory_path() / ("kqbench" + std::to_string(getpid()));
    std::filesystem::create_directory(folder);
    char name[64];
    for (int i = 0; i < kFiles; ++i) {
        std::snprintf(name, sizeof name, "shot%06d.tga", i);
        close(open((folder / name).c_str(), O_CREAT | O_WRONLY, 0666));
    }
    std::string first = folder / "shot000000.tga", form = folder / "shot[######].tga", head = folder / "shot";
    std::vector<char> names;
    std::vector<i32> frames(kFiles);
    for (int i = 0; i < kFiles; ++i) frames[size_t(i)] = kFiles - 1 - i;

    bench::Row("a sequence detected in a folder of 100,000 files (ns a file)", kFiles, "call",
               {{"Sequence_Check", [&] { Detect(first); }},
                {"limit: getdents and a copy of the names", [&] { ListNames(folder.c_str(), names); }}},
               {{1, 0.5}});
    bench::Row("100,000 frames looked for (ns a file)", kFiles, "call",
               {{"Is_SequenceData_Valid", [&] { Is_SequenceData_Valid(form.c_str(), frames.data(), kFiles); }},
                {"limit: getdents and a copy of the names", [&] { ListNames(folder.c_str(), names); }}},
               {{1, 0.5}});
    char path[1024];
    i32 number = 0;
    auto next = [&] { return number = (number + 7919) % kFiles; };
    bench::Row("the file of a frame (frames in leaps)", 1, "call",
               {{"SequenceNumber_to_Name_Validate",
                 [&] {
                     std::strcpy(path, form.c_str());
                     SequenceNumber_to_Name_Validate(path, next());
                     bench::Keep(path);
                 }},
                {"limit: snprintf and one stat",
                 [&] {
                     struct stat status;
                     std::snprintf(path, sizeof path, "%s%06d.tga", head.c_str(), next());
                     bench::Keep(stat(path, &status) == 0 ? &status : nullptr);
                 }}},
               {{1, 0.5}});
    std::filesystem::remove_all(folder);
    CleanUpKQ();
    return 0;
}
