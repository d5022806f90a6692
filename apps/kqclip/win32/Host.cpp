#include "apps/kqclip/Host.h"

#include <cctype>
#include <csignal>

#include <windows.h>

#include <io.h>

namespace kqclip {

namespace {

void (*noteStopWish)(int) = nullptr;

BOOL WINAPI NoteControl(DWORD) {
    noteStopWish(SIGINT);
    return TRUE;
}

}   // namespace

bool ErrorsGoToTerminal() { return _isatty(_fileno(stderr)) != 0; }

long ProcessNumber() { return long(GetCurrentProcessId()); }

bool ProcessRuns(long number) {
    HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, DWORD(number));
    if (!process) return GetLastError() == ERROR_ACCESS_DENIED;
    bool runs = WaitForSingleObject(process, 0) == WAIT_TIMEOUT;
    CloseHandle(process);
    return runs;
}

std::string MachineName() {
    wchar_t name[256] = {};
    DWORD size = 255;
    GetComputerNameW(name, &size);
    std::string safe;
    for (const wchar_t* c = name; *c; ++c) safe += *c < 128 && std::isalnum(int(*c)) ? char(*c) : '_';
    return safe.empty() ? "host" : safe;
}

void OnStopWish(void (*note)(int)) {
    noteStopWish = note;
    SetConsoleCtrlHandler(NoteControl, TRUE);
    std::signal(SIGTERM, note);
}

}   // namespace kqclip
