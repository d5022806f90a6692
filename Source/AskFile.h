// The question for a file that takes a lost one's place.
#pragma once

#include "kq/types.h"

namespace kq {

// Shows the requester for all formats with `name` as the default and `folder` as the initial folder (null: none).
// Returns a new file specification, or null when the user cancels and wherever no requester can be shown.
char* AskReplacementFile(const char* name, const char* folder);

// What AskReplacementFile asks.
using FileRequester = char* (*)(const char* name, const char* folder);

// Puts a requester of another kind in place; null: none can be shown.
void SetReplacementRequester(FileRequester requester);

}   // namespace kq
