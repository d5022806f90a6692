// Messages and questions to the user.
//
// All text calls format like printf into 1024 bytes. Each has a second form that takes the number of the format in
// the string catalogue (kq/catalogue.h) and returns at once when that yields nothing. Without a screen a message goes
// to standard error as one line, and a question gets the answer that changes nothing: Cancel.
#pragma once

#include "kq/types.h"

// Shows a message with "OK".
KQ_API void UserMessageKQ(const char* format, ...) KQ_PRINTF(1, 2);

// The same with a format of the catalogue.
KQ_API void UserMessageKQ(u32 stringNumber, ...);

// The same for something that stops the user's work.
KQ_API void StopAlertKQ(const char* format, ...) KQ_PRINTF(1, 2);

// The same with a format of the catalogue.
KQ_API void StopAlertKQ(u32 stringNumber, ...);

// Asks; 1 for "OK", 0 for "Cancel".
KQ_API int AskUserKQ(const char* format, ...) KQ_PRINTF(1, 2);

// The same with a format of the catalogue; 1 when there is no such string.
KQ_API int AskUserKQ(u32 stringNumber, ...);

// Sets the function that receives each text of the calls above in place of standard error, null for standard error
// again. A question that comes this way gets the answer that changes nothing all the same. The text is valid during the
// call only; the sink is called on the thread of the message and must not call the library.
KQ_API void SetUserSinkKQ(void (*sink)(const char* text));
