// Persisted file specifications from untrusted bytes, read one behind the other as a project file holds them. The
// first byte says which tags are given.
#include "Source/AskFile.h"
#include "fuzz/Files.h"
#include "kq/filespec.h"

namespace {

// The bits of the first byte.
enum : u8 { kNoCheck = 1, kSearch = 2, kTree = 4, kAsk = 8, kFrames = 16, kCount = 32 };

// A folder to search, with a still and a sequence in it.
struct SearchFolder {
    fuzz::Folder folder;
    std::string path = folder.File("");

    SearchFolder() {
        std::filesystem::create_directory(folder.File("deep"));
        for (const char* name : {"a.tga", "x0.tga", "x1.tga", "deep/b.tga"}) std::ofstream(folder.File(name)) << name;
    }
};

std::string& SearchPath() {
    static SearchFolder searched;
    return searched.path;
}

char* Choose(const char*, const char*) { return MakeFileSpecKQ((SearchPath() + "x1.tga").c_str()); }

}   // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
    fuzz::StartLibrary();
    kq::SetReplacementRequester(Choose);
    if (size < 1) return 0;
    u8 bits = data[0];
    i32 frames[] = {1, 0}, isSequence, framesValid, replaced;
    char* folders[] = {SearchPath().data(), nullptr};
    auto tag = [&](u8 bit, u32 number) { return bits & bit ? number : u32(KQTAG_Ignore); };
    auto tags =
        kq::TagArray(tag(kNoCheck, KQTAG_SpecNoCheck), 0, tag(kSearch, KQTAG_SpecSearchDirs), folders,
                     tag(kTree, KQTAG_SpecSearchTree), 0, tag(kAsk, KQTAG_SpecAskReplace), 0,
                     tag(kFrames, KQTAG_SpecFrames), frames, tag(kCount, KQTAG_SpecFrameCount), 2, KQTAG_SpecIsSequence,
                     &isSequence, KQTAG_SpecFramesValid, &framesValid, KQTAG_SpecReplaced, &replaced, 0);
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
    fuzz::CheckLeaks();
    return 0;
}
