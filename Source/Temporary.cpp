#include "Source/Formats.h"
#include "kq/clip.h"
#include "kq/sequence.h"
KQ_API int GuessAlphaKQ(KQClip*) { return 1; }
int Sequence_Check(KQClip*, TagItem*) { return 1; }
namespace kq { KQFormatDesc* MakeRamClipModule() { return nullptr; } }
