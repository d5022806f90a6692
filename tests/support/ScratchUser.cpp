// A program that uses the scratch folder: ScratchUser FOLDER clean|crash. Writes one scratch frame below FOLDER, prints
// its path, and then cleans up, or ends as a crash would.
#include <KQLib.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

int main(int argc, char** argv) {
    if (argc != 3 || !InitKQ(nullptr, nullptr, nullptr, nullptr, nullptr, kq::TagArray(KQTAG_InitNoWindow, 0).data()))
        return 1;
    SetScratchDirKQ(argv[1]);
    KQClip* clip = NewClipKQ();
    const char* name = Make_TempName(clip, -1, 0);
    if (!name) return 1;
    std::printf("%s\n", name);
    std::fflush(stdout);
    KQFileInfo* file = CreateFileKQ(name, KQFILE_Write, 0, 0);
    int written = WriteFileKQ(file, "frame", 5);
    CloseFileKQ(file);
    if (std::strcmp(argv[2], "crash") == 0) std::_Exit(written ? 0 : 1);
    FreeClipKQ(clip);
    CleanUpKQ();
    return written ? 0 : 1;
}
