// kqstills: the helper program of the stills module, in the role of the keeper.
//
// It holds the loaded image library and forks workers from itself. It reads no file, so nothing that a file holds can
// harm it. It ends when the module's program does, which closes the socket; its workers are told by the kernel.
#include <cerrno>
#include <csignal>
#include <cstdio>

#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "modules/stills/oiio/Wire.h"
#include "modules/stills/oiio/Worker.h"

using namespace stills::oiio;

namespace {

// Control-C goes to every process of the terminal; it is the module's program that decides what it means.
void LeaveSignalsToTheProgram() {
    for (int number : {SIGINT, SIGQUIT, SIGHUP, SIGTERM, SIGPIPE}) std::signal(number, SIG_IGN);
}

int WatchChildren() {
    sigset_t child;
    sigemptyset(&child);
    sigaddset(&child, SIGCHLD);
    sigprocmask(SIG_BLOCK, &child, nullptr);
    return signalfd(-1, &child, SFD_CLOEXEC | SFD_NONBLOCK);
}

void Tell(NoticeKind kind, int process, int status) {
    Notice notice = {kind, process, status};
    Send(kKeeperSocket, &notice, sizeof notice, {});
}

[[noreturn]] void BecomeWorker(int socket, int deaths, pid_t keeper) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != keeper) _exit(0);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    close(kKeeperSocket);
    close(deaths);
    RunWorker(socket);
    _exit(0);
}

void ForkWorker(int socket, int deaths) {
    pid_t keeper = getpid(), process = fork();
    if (process == 0) BecomeWorker(socket, deaths, keeper);
    close(socket);
    Tell(process > 0 ? NoticeKind::Forked : NoticeKind::NotForked, process, 0);
}

void TellDeaths(int deaths) {
    signalfd_siginfo ignored;
    while (read(deaths, &ignored, sizeof ignored) > 0) {
    }
    int status;
    while (pid_t process = waitpid(-1, &status, WNOHANG)) {
        if (process < 0) break;
        Tell(NoticeKind::Died, process, status);
    }
}

// A process that was reaped here is gone from the kernel's list, and its number may be another's.
bool IsChild(int process) {
    siginfo_t info = {};
    return process > 0 && waitid(P_PID, id_t(process), &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

// Of a worker that has ended, here or under a keeper before this one, nothing more can be told.
void KillWorker(int process) {
    if (IsChild(process))
        kill(process, SIGKILL);
    else
        Tell(NoticeKind::Died, process, -1);
}

// False when the module's program has ended.
bool Obey(int deaths) {
    Order order;
    int socket;
    if (Receive(kKeeperSocket, &order, sizeof order, &socket, 1, -1) != 1) return false;
    if (order.kind == OrderKind::Fork && socket >= 0) ForkWorker(socket, deaths);
    if (order.kind == OrderKind::Kill) KillWorker(order.process);
    return true;
}

bool IsStartedByTheModule() {
    int type = 0;
    socklen_t size = sizeof type;
    return getsockopt(kKeeperSocket, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_SEQPACKET;
}

}   // namespace

int main() {
    if (!IsStartedByTheModule()) {
        std::fprintf(stderr, "kqstills: the stills module of KQLib starts this program; it has no use by itself\n");
        return 2;
    }
    LeaveSignalsToTheProgram();
    int deaths = WatchChildren();
    PrepareWorkers();
    for (;;) {
        pollfd waits[] = {{kKeeperSocket, POLLIN, 0}, {deaths, POLLIN, 0}};
        if (poll(waits, 2, -1) < 0 && errno != EINTR) return 1;
        if (waits[1].revents) TellDeaths(deaths);
        if (waits[0].revents && !Obey(deaths)) return 0;
    }
}
