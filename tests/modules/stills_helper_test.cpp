// The helper process from outside: what happens when it is killed, when it is asked too much, and when the disk is
// full.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/HelperProcesses.h"
#include "support/StillsFixture.h"

namespace {

using namespace kqtest;
namespace fs = std::filesystem;

class StillsHelper : public StillsTest {
protected:
    static void KillAll(const std::vector<pid_t>& processes, int number) {
        for (pid_t process : processes) kill(process, number);
    }

    // Kills keeper and workers, and waits until they are gone.
    static void KillKeepers() {
        std::vector<pid_t> processes = Keepers();
        for (pid_t worker : Workers()) processes.push_back(worker);
        KillAll(Keepers(), SIGKILL);
        for (pid_t process : processes)
            for (int i = 0; i < 500 && IsAlive(process); ++i) usleep(2000);
    }

    static bool IsAlive(pid_t process) {
        std::ifstream stat("/proc/" + std::to_string(process) + "/stat");
        std::string line;
        return std::getline(stat, line) && line.find(") Z") == std::string::npos;
    }

    static bool IsAsleep(pid_t process) {
        std::ifstream stat("/proc/" + std::to_string(process) + "/stat");
        std::string line;
        return std::getline(stat, line) && line.find(") S") != std::string::npos;
    }

    Bitmap Numbered(int number) {
        return MakePicture(200, 100, [&](i32 x, i32 y) { return Pixel{255, number, x, y * 2}; });
    }

    void WriteSequence(int count) {
        for (int i = 0; i < count; ++i) {
            char name[32];
            std::snprintf(name, sizeof name, "shot.%04d.png", i);
            ASSERT_TRUE(Write(Folder() + name, Numbered(i).get(), false));
        }
    }

    void ExpectSequence(KQClip* clip, int frame) {
        Bitmap got = Frame(clip, frame);
        ASSERT_NE(got, nullptr) << frame;
        EXPECT_EQ(PixelAt(got.get(), 5, 5).red, frame);
    }
};

TEST_F(StillsHelper, OneKeeperAndAtMostTwoWorkers) {
    WriteSequence(6);
    KQClip* clip = Open(Folder() + "shot.0000.png", false);
    BeginClipIOKQ(clip, nullptr);
    for (int i = 0; i < 6; ++i) ExpectSequence(clip, i);
    EXPECT_EQ(Keepers().size(), 1u);
    EXPECT_GE(Workers().size(), 1u);
    EXPECT_LE(Workers().size(), 2u);
    EndClipIOKQ(clip, nullptr);
    Shut(clip);
}

TEST_F(StillsHelper, AKilledWorkerIsReplacedInTheMiddleOfAClip) {
    WriteSequence(48);
    KQClip* clip = Open(Folder() + "shot.0000.png", false);
    ASSERT_NE(clip, nullptr);
    BeginClipIOKQ(clip, nullptr);
    for (int i = 0; i < 48; ++i) {
        ExpectSequence(clip, i);
        if (i % 8 == 1) KillAll(Workers(), SIGKILL);   // a file that is read ahead is met once, as it is tried twice
    }
    EndClipIOKQ(clip, nullptr);
    Shut(clip);
    EXPECT_TRUE(messages.empty());
}

TEST_F(StillsHelper, AKilledKeeperIsReplaced) {
    WriteSequence(8);
    KQClip* clip = Open(Folder() + "shot.0000.png", false);
    ASSERT_NE(clip, nullptr);
    BeginClipIOKQ(clip, nullptr);
    for (int i = 0; i < 8; ++i) {
        ExpectSequence(clip, i);
        if (i == 2) KillKeepers();
        if (i == 5) KillAll(Keepers(), SIGKILL);
    }
    KillKeepers();   // the one that is about to die does not stay for the next test
    EndClipIOKQ(clip, nullptr);
    Shut(clip);
}

// The worker is stopped, so that it is at the file for certain when it dies: that is once this process waits for it.
TEST_F(StillsHelper, ADeathOnAFileIsToldWithItsSignal) {
    std::string path = Folder() + "deadly.png";
    fs::copy_file(Seed("plain.png"), path);
    ASSERT_NE(Read(path), nullptr);
    std::vector<pid_t> workers = Workers();
    ASSERT_FALSE(workers.empty());
    KillAll(workers, SIGSTOP);
    pid_t killer = fork();
    ASSERT_GE(killer, 0);
    if (killer == 0) {
        for (int asleep = 0; asleep < 10; usleep(5000)) asleep = IsAsleep(getppid()) ? asleep + 1 : 0;
        KillAll(workers, SIGSEGV);
        KillAll(workers, SIGCONT);
        _exit(0);
    }
    Bitmap got = Read(path);
    waitpid(killer, nullptr, 0);
    EXPECT_EQ(got, nullptr);
    EXPECT_TRUE(WasTold("deadly.png"));
    EXPECT_TRUE(WasTold("signal 11"));
    EXPECT_NE(Read(path), nullptr);
}

TEST_F(StillsHelper, AStoppedWorkerIsGivenUpAfterItsTime) {
    ASSERT_NE(Read(Seed("plain.png")), nullptr);
    KillAll(Workers(), SIGSTOP);
    EXPECT_EQ(Read(Seed("plain.png")), nullptr);
    EXPECT_TRUE(WasTold("longer than 9 seconds"));
    EXPECT_NE(Read(Seed("plain.png")), nullptr);
}

TEST_F(StillsHelper, EndsWithTheProgramThatStartedIt) {
    std::string program = std::string(KQEnv->AppDir) + "StillsUser", names;
    std::FILE* output = popen(("exec '" + program + "' '" + Seed("plain.png") + "'").c_str(), "r");
    ASSERT_NE(output, nullptr);
    for (int c; (c = std::fgetc(output)) != EOF;) names += char(c);
    int status = pclose(output);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
    std::istringstream numbers(names);
    std::vector<pid_t> helpers{std::istream_iterator<pid_t>(numbers), {}};
    ASSERT_GE(helpers.size(), 2u) << "a keeper and its worker";
    for (pid_t helper : helpers) {
        for (int i = 0; i < 500 && IsAlive(helper); ++i) usleep(10000);
        EXPECT_FALSE(IsAlive(helper)) << helper;
    }
}

// Whether a process has the file open.
bool Holds(pid_t process, const std::string& path) {
    for (auto& entry : fs::directory_iterator("/proc/" + std::to_string(process) + "/fd")) {
        std::error_code gone;
        if (fs::read_symlink(entry.path(), gone) == fs::path(path)) return true;
    }
    return false;
}

TEST_F(StillsHelper, TheProgramsDescriptorsAreNotHandedOn) {
    KillKeepers();   // it is started anew, now with this beside its socket
    std::string path = fs::canonical(Folder()).string() + "/mine";
    int inherited = open(path.c_str(), O_WRONLY | O_CREAT, 0600);   // without O_CLOEXEC
    int high = fcntl(inherited, F_DUPFD, 500);
    ASSERT_GE(high, 500);
    ASSERT_NE(Read(Seed("plain.png")), nullptr);
    ASSERT_FALSE(Keepers().empty() || Workers().empty());
    EXPECT_TRUE(Holds(getpid(), path));
    EXPECT_FALSE(Holds(Keepers()[0], path));
    EXPECT_FALSE(Holds(Workers()[0], path));
    close(inherited);
    close(high);
}

TEST_F(StillsHelper, AWorkerIsLimited) {
    ASSERT_NE(Read(Seed("plain.png")), nullptr);
    ASSERT_FALSE(Workers().empty());
    std::ifstream file("/proc/" + std::to_string(Workers()[0]) + "/limits");
    std::string text((std::istreambuf_iterator<char>(file)), {});
    EXPECT_NE(text.find("Max address space "), std::string::npos);
    EXPECT_EQ(text.find("Max address space         unlimited"), std::string::npos);
    EXPECT_NE(text.find("Max core file size        0"), std::string::npos);
    EXPECT_NE(text.find("Max open files            64"), std::string::npos);
}

TEST_F(StillsHelper, TheProgramsSignalsAreLeftAlone) {
    KillKeepers();   // it is started anew under these conditions
    auto before = std::signal(SIGCHLD, SIG_IGN);
    auto pipe = std::signal(SIGPIPE, SIG_DFL);
    sigset_t maskBefore, maskAfter;
    pthread_sigmask(SIG_SETMASK, nullptr, &maskBefore);
    EXPECT_NE(Read(Seed("plain.png")), nullptr);
    KillAll(Workers(), SIGKILL);
    EXPECT_NE(Read(Seed("plain.png")), nullptr);
    pthread_sigmask(SIG_SETMASK, nullptr, &maskAfter);
    for (int number = 1; number < 32; ++number)
        EXPECT_EQ(sigismember(&maskBefore, number), sigismember(&maskAfter, number)) << number;
    EXPECT_EQ(std::signal(SIGCHLD, before), SIG_IGN);
    EXPECT_EQ(std::signal(SIGPIPE, pipe), SIG_DFL);
}

// Somebody else than root, for a while, when the tests run as root: root may read and write all.
class PlainUser {
public:
    PlainUser() {
        if (geteuid() == 0) changed_ = seteuid(65534) == 0;
    }

    ~PlainUser() {
        if (changed_ && seteuid(0) != 0) std::abort();
    }

    PlainUser(const PlainUser&) = delete;
    PlainUser& operator=(const PlainUser&) = delete;

private:
    bool changed_ = false;
};

TEST_F(StillsHelper, AStillThatMayNotBeReadIsToldWithItsCode) {
    std::string path = Folder() + "closed.png";
    fs::copy_file(Seed("plain.png"), path);
    ASSERT_NE(Read(path), nullptr);
    fs::permissions(Folder(), fs::perms(0755));
    fs::permissions(path, fs::perms::none);
    PlainUser user;
    ASSERT_NE(geteuid(), 0u);
    messages.clear();
    EXPECT_EQ(Read(path), nullptr);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_ACCESS));
    EXPECT_TRUE(WasTold("closed.png"));
}

TEST_F(StillsHelper, AFrameThatMayNotBeReadIsToldWithItsReason) {
    WriteSequence(3);
    KQClip* clip = Open(Folder() + "shot.0000.png", false);
    ASSERT_NE(clip, nullptr);
    BeginClipIOKQ(clip, nullptr);
    fs::permissions(Folder(), fs::perms(0755));
    fs::permissions(Folder() + "shot.0001.png", fs::perms::none);
    {
        PlainUser user;
        EXPECT_EQ(Frame(clip, 1), nullptr);
        EXPECT_TRUE(WasTold("shot.0001.png"));
        EXPECT_TRUE(WasTold(std::strerror(EACCES)));
    }
    EndClipIOKQ(clip, nullptr);
    Shut(clip);
}

TEST_F(StillsHelper, AFolderThatMayNotBeWrittenIsToldWithItsCode) {
    std::string path = Folder() + "a.png";
    ASSERT_TRUE(Write(path, Numbered(1).get(), false));
    std::vector<u8> before = ReadWholeFile(path);
    fs::permissions(Folder(), fs::perms(0555));
    {
        PlainUser user;
        EXPECT_FALSE(Write(path, Numbered(2).get(), false));
        EXPECT_EQ(GetErrorKQ(), u32(KQERR_ACCESS));
        EXPECT_TRUE(WasTold("a.png"));
    }
    fs::permissions(Folder(), fs::perms(0755));
    EXPECT_EQ(ReadWholeFile(path), before);
}

TEST_F(StillsHelper, ATargetThatIsAFolderIsLeftAlone) {
    fs::create_directory(Folder() + "a.png");
    EXPECT_FALSE(Write(Folder() + "a.png", Numbered(1).get(), false));
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_WRITE));
    EXPECT_TRUE(fs::is_directory(Folder() + "a.png"));
    EXPECT_EQ(std::distance(fs::directory_iterator(Folder()), fs::directory_iterator()), 1);
}

TEST_F(StillsHelper, AMemoryBombIsRefused) {
    // 32767 x 32767 pixels of one colour: a head that is sane by itself, and hardly any data.
    std::vector<u8> bytes = ReadWholeFile(Seed("plain.png"));
    for (size_t at : {16u, 20u}) {
        bytes[at] = bytes[at + 1] = 0;
        bytes[at + 2] = 0x7F;
        bytes[at + 3] = 0xFF;
    }
    WriteWholeFile(Folder() + "bomb.png", bytes.data(), bytes.size());
    KQClip* clip = Open(Folder() + "bomb.png");
    if (clip) {
        BeginClipIOKQ(clip, nullptr);
        EXPECT_EQ(Frame(clip, 0, 128, 96), nullptr);
        EndClipIOKQ(clip, nullptr);
        Shut(clip);
    }
    EXPECT_TRUE(WasTold("bomb.png"));
}

TEST_F(StillsHelper, APipeIsNoStillAndDoesNotStopTheProgram) {
    ASSERT_EQ(mkfifo((Folder() + "pipe.png").c_str(), 0600), 0);
    EXPECT_EQ(Read(Folder() + "pipe.png"), nullptr);
    EXPECT_TRUE(WasTold("pipe.png"));
}

TEST_F(StillsHelper, AFolderIsNoStill) {
    fs::create_directory(Folder() + "folder.png");
    EXPECT_EQ(Read(Folder() + "folder.png"), nullptr);
}

// Which kinds show the rows that are there, and which stand or fall as a whole.
TEST_F(StillsHelper, CutFilesShowTheirRowsOrAreRefusedByTheirKind) {
    std::mt19937 random(6);   // grain, so that half the file is half the picture
    auto picture = MakePicture(200, 200, [&](i32 x, i32 y) { return Pixel{255, x, int(random() % 32), y}; });
    const std::pair<const char*, bool> kKinds[] = {{"bmp", false}, {"dpx", true},  {"exr", true}, {"hdr", true},
                                                   {"jpg", true},  {"png", true},  {"ppm", true}, {"rgb", false},
                                                   {"sgi", false}, {"tga", false}, {"tif", false}};
    for (auto [extension, shows] : kKinds) {
        std::string path = Folder() + "cut." + extension;
        ASSERT_TRUE(Write(path, picture.get(), false)) << extension;
        std::vector<u8> bytes = ReadWholeFile(path);
        WriteWholeFile(path, bytes.data(), bytes.size() * 6 / 10);
        messages.clear();
        Bitmap got = Read(path);
        EXPECT_EQ(got != nullptr, shows) << extension;
        EXPECT_EQ(GetErrorKQ() == KQERR_READ, shows) << extension;
        EXPECT_TRUE(WasTold(std::string("cut.") + extension)) << extension;
        for (i32 y = 0; got && y < 80; y += 20) EXPECT_NEAR(PixelAt(got.get(), 100, y).red, 100, 20) << extension << y;
    }
}

TEST_F(StillsHelper, ALimitOnFilesLeavesWhatWasThere) {
    auto noise = MakePicture(300, 300, [](i32 x, i32 y) {
        return Pixel{255, (x * 7919 + y * 104729) & 255, x & 255, y};
    });
    std::string path = Folder() + "a.png";
    ASSERT_TRUE(Write(path, noise.get(), false));   // its memory is there, which would count as a file too
    ASSERT_TRUE(Write(path, Numbered(3).get(), false));
    auto before = std::signal(SIGXFSZ, SIG_IGN);
    rlimit old, small = {1000, 0};
    getrlimit(RLIMIT_FSIZE, &old);
    small.rlim_max = old.rlim_max;
    setrlimit(RLIMIT_FSIZE, &small);
    int written = Write(path, noise.get(), false);
    u32 error = GetErrorKQ();
    setrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, before);
    EXPECT_FALSE(written);
    EXPECT_EQ(error, u32(KQERR_DISKFULL));
    EXPECT_TRUE(WasTold("a.png"));
    EXPECT_EQ(PixelAt(Read(path).get(), 0, 0).red, 3);
    EXPECT_EQ(std::distance(fs::directory_iterator(Folder()), fs::directory_iterator()), 1);
}

TEST_F(StillsHelper, AFullDiskLeavesWhatWasThereForEveryWriter) {
    std::string disk = Folder() + "disk/";
    fs::create_directory(disk);
    if (mount("tmpfs", disk.c_str(), "tmpfs", 0, "size=256k") != 0)
        GTEST_SKIP() << "a small disk cannot be mounted here: " << std::strerror(errno);
    std::mt19937 random(5);
    auto noise = MakePicture(500, 500, [&](i32, i32) {
        return Pixel{255, int(random() & 255), int(random() & 255), 9};
    });
    for (const char* extension : {"bmp", "dpx", "exr", "hdr", "jpg", "png", "ppm", "rgb", "sgi", "tga", "tif"}) {
        std::string path = disk + "a." + extension;
        messages.clear();
        EXPECT_TRUE(Write(path, Numbered(3).get(), false)) << extension;
        std::vector<u8> before = ReadWholeFile(path);
        std::ofstream(disk + "filler") << std::string(300000, 'x');   // the rest of the disk
        EXPECT_FALSE(Write(path, noise.get(), false)) << extension;
        EXPECT_EQ(GetErrorKQ(), u32(KQERR_DISKFULL)) << extension;
        EXPECT_TRUE(WasTold(std::string("a.") + extension)) << extension;
        EXPECT_EQ(ReadWholeFile(path), before) << extension;
        EXPECT_EQ(std::distance(fs::directory_iterator(disk), fs::directory_iterator()), 2) << extension;
        fs::remove(disk + "filler");
        fs::remove(path);
    }
    umount(disk.c_str());
}

}   // namespace
