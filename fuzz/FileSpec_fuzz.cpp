// Persisted file specifications from untrusted bytes, read one behind the other as a project file holds them. The
// first byte says which tags are given.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "Source/AskFile.h"
#include "Source/UserChannel.h"
#include "kq/environment.h"
#include "kq/filespec.h"

namespace fs = std::filesystem;

namespace {

// The bits of the first byte.
enum : u8 { kNoCheck = 1, kSearch = 2, kTree = 4, kAsk = 8, kFrames = 16, kCount = 32 };

// A folder to search, with a still and a sequence in it.
struct SearchFolder {
    std::string path;

    SearchFolder() {
        fs::path folder = fs::temp_directory_path() / ("kqfuzz-" + std::to_string(std::random_device()()));
        fs::create_directories(folder / "deep");
        for (const char* name : {"a.tga", "x0.tga", "x1.tga", "deep/b.tga"}) std::ofstream(folder / name) << name;
        path = (folder / "").string();
    }

    ~SearchFolder() {
        std::error_code error;
        fs::remove_all(path, error);
    }
};

SearchFolder* folder = nullptr;

char* Choose(const char*, const char*) { return MakeFileSpecKQ((folder->path + "x1.tga").c_str()); }

int Agree(kq::UserText, const char*, void*) { return 1; }

void StartLibrary() {
    static SearchFolder searched;
    static TagItem tags[] = {{KQTAG_InitNoWindow, 0}, {KQTAG_End, 0}};
    if (KQEnv) return;
    folder = &searched;
    InitKQ(nullptr, nullptr, nullptr, nullptr, nullptr, tags);
    kq::SetUserListener(Agree, nullptr);
    kq::SetReplacementRequester(Choose);
}

}   // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
    StartLibrary();
    if (size < 1) return 0;
    u8 bits = data[0];
    i32 frames[] = {1, 0}, isSequence, framesValid, replaced;
    char* folders[] = {folder->path.data(), nullptr};
    auto tag = [&](u8 bit, u32 number) { return bits & bit ? number : u32(KQTAG_Ignore); };
    auto tags = kq::TagArray(tag(kNoCheck, KQTAG_SpecNoCheck), 0, tag(kSearch, KQTAG_SpecSearchDirs), folders,
                             tag(kTree, KQTAG_SpecSearchTree), 0, tag(kAsk, KQTAG_SpecAskReplace), 0,
                             tag(kFrames, KQTAG_SpecFrames), frames, tag(kCount, KQTAG_SpecFrameCount), 2,
                             KQTAG_SpecIsSequence, &isSequence, KQTAG_SpecFramesValid, &framesValid,
                             KQTAG_SpecReplaced, &replaced, 0);
    KQFileInfo* file = OpenFileinMemoryKQ(const_cast<u8*>(data + 1), i64(size - 1), KQFILE_Read);
    for (int records = 0; records < 8 && file->MemCursor < file->MemEnd; ++records) {
        u8* before = file->MemCursor;
        FreeFileSpecKQ(ReadFileSpecKQ(file, tags.data()));
        if (file->MemCursor == before) {
            // Fewer than four bytes are left. Anything else would keep a project's reader in one place for ever.
            if (file->MemEnd - before >= 4) std::abort();
            break;
        }
    }
    CloseFileKQ(file);
    return 0;
}
