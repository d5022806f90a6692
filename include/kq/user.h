// Messages and questions to the user.
//
// All text calls format like printf into 1024 bytes. Without a screen a message goes to standard error as one line,
// and a question gets the answer that changes nothing: Cancel.
#pragma once

#include "kq/types.h"

// Shows a message with "OK".
KQ_API void UserMessageKQ(const char* format, ...) KQ_PRINTF(1, 2);

// The same for something that stops the user's work.
KQ_API void StopAlertKQ(const char* format, ...) KQ_PRINTF(1, 2);

// Asks; 1 for "OK", 0 for "Cancel".
KQ_API int AskUserKQ(const char* format, ...) KQ_PRINTF(1, 2);
