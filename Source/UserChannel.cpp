// Messages and questions without a screen: one line each on standard error.
#include "Source/UserChannel.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>

#include "kq/catalogue.h"
#include "kq/user.h"
#include "pal/program.h"

namespace {

kq::UserListener listener = nullptr;
void* listenerData = nullptr;
std::atomic<void (*)(const char*)> userSink{nullptr};

constexpr size_t kTextSize = 1024;

// Line ends inside a message become blanks, so that each message is one line.
void PrintLine(char* text) {
    for (char* c = text; *c; ++c)
        if (*c == '\n' || *c == '\r') *c = ' ';
    pal::ErrorLine(text);
}

int Show(kq::UserText kind, int unanswered, const char* format, va_list arguments) {
    char text[kTextSize];
    std::vsnprintf(text, sizeof text, format, arguments);
    if (listener) return listener(kind, text, listenerData);
    if (auto sink = userSink.load())
        sink(text);
    else
        PrintLine(text);
    return unanswered;
}

}   // namespace

namespace kq {

void SetUserListener(UserListener newListener, void* data) {
    listener = newListener;
    listenerData = data;
}

int AskAlert(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    int answer = Show(UserText::Question, 1, format, arguments);
    va_end(arguments);
    return answer;
}

}   // namespace kq

void UserMessageKQ(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Show(kq::UserText::Message, 1, format, arguments);
    va_end(arguments);
}

void UserMessageKQ(u32 stringNumber, ...) {
    const char* format = GetStringKQ(stringNumber);
    if (!format) return;
    va_list arguments;
    va_start(arguments, stringNumber);
    Show(kq::UserText::Message, 1, format, arguments);
    va_end(arguments);
}

void StopAlertKQ(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Show(kq::UserText::StopAlert, 1, format, arguments);
    va_end(arguments);
}

void StopAlertKQ(u32 stringNumber, ...) {
    const char* format = GetStringKQ(stringNumber);
    if (!format) return;
    va_list arguments;
    va_start(arguments, stringNumber);
    Show(kq::UserText::StopAlert, 1, format, arguments);
    va_end(arguments);
}

int AskUserKQ(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    int answer = Show(kq::UserText::Question, 0, format, arguments);
    va_end(arguments);
    return answer;
}

int AskUserKQ(u32 stringNumber, ...) {
    const char* format = GetStringKQ(stringNumber);
    if (!format) return 1;
    va_list arguments;
    va_start(arguments, stringNumber);
    int answer = Show(kq::UserText::Question, 0, format, arguments);
    va_end(arguments);
    return answer;
}

void SetUserSinkKQ(void (*sink)(const char*)) { userSink = sink; }
