// The arguments that `main` gets went through the system's code page, which has no room for most names: the command
// line is taken as it was typed.
#include "apps/kqclip/Entry.h"

#include <windows.h>

#include <shellapi.h>

namespace kqclip {

namespace {

std::string Utf8(const wchar_t* wide) {
    int size = WideCharToMultiByte(CP_UTF8, 0, wide, -1, nullptr, 0, nullptr, nullptr);
    std::string text(size_t(size > 0 ? size : 1), 0);
    WideCharToMultiByte(CP_UTF8, 0, wide, -1, text.data(), size, nullptr, nullptr);
    text.pop_back();
    return text;
}

// Lets a console carry out the sequences that rewrite a line; what is no console says no.
void AllowSequences(DWORD stream) {
    HANDLE console = GetStdHandle(stream);
    DWORD mode = 0;
    if (GetConsoleMode(console, &mode)) SetConsoleMode(console, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
}

}   // namespace

std::vector<std::string> Arguments(int argc, char** argv) {
    int count = 0;
    wchar_t** wide = CommandLineToArgvW(GetCommandLineW(), &count);
    if (!wide) return {argv + (argc > 0), argv + argc};
    std::vector<std::string> arguments;
    for (int i = 1; i < count; ++i) arguments.push_back(Utf8(wide[i]));
    LocalFree(wide);
    return arguments;
}

Terminal::Terminal() : page_(GetConsoleOutputCP()) {
    if (page_) SetConsoleOutputCP(CP_UTF8);
    AllowSequences(STD_OUTPUT_HANDLE);
    AllowSequences(STD_ERROR_HANDLE);
}

Terminal::~Terminal() {
    if (page_) SetConsoleOutputCP(page_);
}

}   // namespace kqclip
