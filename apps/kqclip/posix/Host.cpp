#include "apps/kqclip/Host.h"

#include <cctype>
#include <cerrno>
#include <csignal>

#include <sys/stat.h>
#include <unistd.h>

namespace kqclip {

bool ErrorsGoToTerminal() { return isatty(STDERR_FILENO) != 0; }

long ProcessNumber() { return long(getpid()); }

bool ProcessRuns(long number) { return kill(pid_t(number), 0) == 0 || errno == EPERM; }

std::string MachineName() {
    char name[256] = {};
    gethostname(name, sizeof name - 1);
    std::string safe;
    for (const char* c = name; *c; ++c) safe += std::isalnum(static_cast<unsigned char>(*c)) ? *c : '_';
    return safe.empty() ? "host" : safe;
}

bool BelongsToUser(const std::filesystem::path& path) {
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0 && status.st_uid == geteuid();
}

bool OutputIsPipe() {
    struct stat status = {};
    return fstat(STDOUT_FILENO, &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode));
}

void OnStopWish(void (*note)(int)) {
    struct sigaction action = {};
    action.sa_handler = note;
    action.sa_flags = SA_RESTART;
    for (int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction inherited = {};
        sigaction(signal, nullptr, &inherited);
        if (inherited.sa_handler != SIG_IGN) sigaction(signal, &action, nullptr);   // nohup, and a script's `&`
    }
    signal(SIGPIPE, SIG_IGN);
}

}   // namespace kqclip
