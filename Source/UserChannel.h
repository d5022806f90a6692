// The one channel for messages and questions to the user. Until the desktop shows them, and wherever there is no
// screen, they go to standard error; tests and tools put a listener of their own in.
#pragma once

#include "kq/types.h"

namespace kq {

enum class UserText { Message, StopAlert, Question };

// Receives one formatted text; for a question the result is the answer, 1 "OK" or 0 "Cancel".
using UserListener = int (*)(UserText kind, const char* text, void* data);

// Puts `listener` in place of standard error, null puts standard error back.
void SetUserListener(UserListener listener, void* data);

// Shows an alert of the memory manager: a question whose unanswered form is "OK", report and go on.
int AskAlert(const char* format, ...) KQ_PRINTF(1, 2);

}   // namespace kq
