#include "apps/kqclip/Host.h"

#include <cctype>
#include <csignal>
#include <vector>

#include <windows.h>

#include <aclapi.h>
#include <io.h>

namespace kqclip {

namespace {

void (*noteStopWish)(int) = nullptr;

BOOL WINAPI NoteControl(DWORD) {
    noteStopWish(SIGINT);
    return TRUE;
}

// Whether the process makes things in this name: that of its user, or of the group that owns what its user makes.
bool IsOwnName(PSID owner) {
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) return false;
    bool own = false;
    for (TOKEN_INFORMATION_CLASS kind : {TokenUser, TokenOwner}) {
        DWORD size = 0;
        GetTokenInformation(token, kind, nullptr, 0, &size);
        std::vector<void*> room(size / sizeof(void*) + 1);   // aligned for what begins with a pointer
        if (!GetTokenInformation(token, kind, room.data(), size, &size)) continue;
        own = own || EqualSid(owner, room[0]);   // both kinds begin with the name
    }
    CloseHandle(token);
    return own;
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

bool BelongsToUser(const std::filesystem::path& path) {
    PSID owner = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (GetNamedSecurityInfoW(path.c_str(), SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, &owner, nullptr, nullptr,
                              nullptr, &descriptor) != ERROR_SUCCESS)
        return false;
    bool own = owner && IsOwnName(owner);
    LocalFree(descriptor);
    return own;
}

bool OutputIsPipe() { return GetFileType(GetStdHandle(STD_OUTPUT_HANDLE)) == FILE_TYPE_PIPE; }

void OnStopWish(void (*note)(int)) {
    noteStopWish = note;
    SetConsoleCtrlHandler(NoteControl, TRUE);
    std::signal(SIGTERM, note);
}

}   // namespace kqclip
