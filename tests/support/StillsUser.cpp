// A program that reads a still and dies without cleaning up: StillsUser STILL. It prints the processes of its helper,
// keeper and workers, before that.
#include <KQLib.h>

#include <csignal>
#include <cstdio>
#include <string>

#include "support/HelperProcesses.h"

int main(int argc, char** argv) {
    if (argc != 2 || !InitKQ(nullptr, nullptr, nullptr, nullptr, nullptr, kq::TagArray(KQTAG_InitNoWindow, 0).data()))
        return 1;
    InitFormatModulesKQ(nullptr);
    std::string modules = std::string(KQEnv->AppDir) + "modules/";
    char* folders[] = {modules.data(), nullptr};
    EnumFilesKQ(folders, nullptr, FormatModule_CheckFile, 0, 0);
    KQClip* clip = OpenClipKQ(argv[1], KQTAG_CLIP_NOASK, 0, KQTAG_CLIP_SINGLE, 0, 0);
    if (!clip || !BeginClipIOKQ(clip, nullptr)) return 1;
    KQBitmap* bitmap = AllocBitmapKQ(clip->width, clip->height, 32);
    if (!bitmap || !GetFrameKQ(clip, bitmap, nullptr, nullptr, nullptr)) return 1;
    for (pid_t helper : kqtest::Keepers()) std::printf("%d\n", int(helper));
    for (pid_t helper : kqtest::Workers()) std::printf("%d\n", int(helper));
    std::fflush(stdout);
    raise(SIGKILL);
}
