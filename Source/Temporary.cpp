#include "kq/sequence.h"
#include "Source/Formats.h"
int Sequence_Check(KQClip*, TagItem*) { return 1; }
int SequenceNumber_to_Name(char*, i32, i32) { return 0; }
int SequenceNumber_to_Name_Validate(char*, i32) { return 0; }
namespace kq { KQFormatDesc* MakeRamClipModule() { return nullptr; } }
