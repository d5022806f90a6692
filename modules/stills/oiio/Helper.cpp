#include "modules/stills/oiio/Helper.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <utility>

#include <dlfcn.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace stills::oiio {

namespace {

// A keeper that loads its libraries from a cold disk may take a while.
constexpr int kStartMilliseconds = 20000;

// What the kernel needs to tell of a death.
constexpr int kDeathMilliseconds = 2000;

// A pair of connected sockets; both invalid when there is none to be had.
struct Pair {
    Descriptor ours, theirs;

    Pair() {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return;
        ours = Descriptor(ends[0]);
        theirs = Descriptor(ends[1]);
    }
};

// The keeper begins with every signal as the system has it, whatever this program blocks or ignores.
void SetSignals(posix_spawnattr_t& attributes) {
    sigset_t all, none;
    sigfillset(&all);
    sigemptyset(&none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
}

// It gets its socket and no other descriptor of this program. What the image library prints is for nobody.
void SetDescriptors(posix_spawn_file_actions_t& actions, int socket) {
    posix_spawn_file_actions_adddup2(&actions, socket, kKeeperSocket);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", 00, 0);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", 01, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", 01, 0);
    posix_spawn_file_actions_addclosefrom_np(&actions, kKeeperSocket + 1);
}

int Spawn(const std::string& program, int socket, int& process) {
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_t actions;
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_init(&actions);
    SetSignals(attributes);
    SetDescriptors(actions, socket);
    char* arguments[] = {const_cast<char*>(program.c_str()), nullptr};
    pid_t started = 0;
    int failure = posix_spawn(&started, program.c_str(), &actions, &attributes, arguments, environ);
    process = int(started);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    return failure;
}

}   // namespace

std::string FindProgram(Problem& problem) {
    Dl_info info;
    if (!dladdr(reinterpret_cast<void*>(&FindProgram), &info) || !info.dli_fname) {
        problem = "the module's own file cannot be found";
        return "";
    }
    std::string folder = info.dli_fname;
    size_t slash = folder.find_last_of('/');
    folder = slash == std::string::npos ? "./" : folder.substr(0, slash + 1);
    for (const char* place : {"kqstills", "../kqstills"}) {
        std::string program = folder + place;
        if (access(program.c_str(), X_OK) == 0) return program;
    }
    problem = "the helper program kqstills is neither in '" + folder + "' nor one folder above";
    return "";
}

Helper::~Helper() { Stop(); }

bool Helper::Start(Problem& problem) {
    if (keeper_) return true;
    std::string program = FindProgram(problem);
    if (program.empty()) return false;
    Pair pair;
    int failure = pair.ours ? Spawn(program, pair.theirs.Get(), process_) : errno;
    if (failure) {
        problem = "the helper program '" + program + "' cannot be started: " + SystemReason(failure);
        return false;
    }
    keeper_ = std::move(pair.ours);
    return true;
}

// The program may have reaped the keeper itself; then there is nothing left to wait for.
void Helper::Stop() {
    if (!keeper_) return;
    keeper_ = Descriptor();
    deaths_.clear();
    while (waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
    }
    process_ = 0;
}

bool Helper::Order(OrderKind kind, int process, int socket) {
    oiio::Order order = {kind, process};
    return socket >= 0 ? Send(keeper_.Get(), &order, sizeof order, {socket})
                       : Send(keeper_.Get(), &order, sizeof order, {});
}

// A keeper that is gone is started anew, once.
Worker Helper::Fork(Problem& problem) {
    for (int tries = 0; tries < 2; ++tries) {
        if (!Start(problem)) return {};
        Pair pair;
        if (!pair.ours) {
            problem = SystemReason(errno);
            return {};
        }
        bool ordered = Order(OrderKind::Fork, 0, pair.theirs.Get());
        pair.theirs = Descriptor();
        Notice notice;
        while (ordered && Receive(keeper_.Get(), &notice, sizeof notice, nullptr, 0, kStartMilliseconds) == 1) {
            if (notice.kind == NoticeKind::Died) {
                deaths_.push_back(notice);
                continue;
            }
            if (notice.kind == NoticeKind::Forked) {
                // What is known of a process of the same number is about another one.
                std::erase_if(deaths_, [&](const Notice& death) { return death.process == notice.process; });
                return {notice.process, std::move(pair.ours)};
            }
            break;
        }
        Stop();
    }
    problem = "the helper program does not start";
    return {};
}

int Helper::AwaitDeath(int process) {
    for (auto death = deaths_.begin(); death != deaths_.end(); ++death)
        if (death->process == process) {
            int status = death->status;
            deaths_.erase(death);
            return status;
        }
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kDeathMilliseconds);
    Notice notice;
    for (;;) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        if (left.count() <= 0) return -1;
        if (Receive(keeper_.Get(), &notice, sizeof notice, nullptr, 0, int(left.count())) != 1) return -1;
        if (notice.kind != NoticeKind::Died) continue;
        if (notice.process == process) return notice.status;
        deaths_.push_back(notice);
    }
}

int Helper::End(Worker& worker) {
    int process = std::exchange(worker.process, 0);
    worker.socket = Descriptor();
    if (!keeper_ || !Order(OrderKind::Kill, process, -1)) return -1;
    return AwaitDeath(process);
}

}   // namespace stills::oiio
