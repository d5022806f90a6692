#include "apps/kqclip/Host.h"

#include <cctype>
#include <cerrno>
#include <csignal>

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

void OnStopWish(void (*note)(int)) {
    struct sigaction action = {};
    action.sa_handler = note;
    action.sa_flags = SA_RESTART;
    for (int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);
    signal(SIGPIPE, SIG_IGN);
}

}   // namespace kqclip
