// Quantel VPB pictures of any bytes.
#include "fuzz/FormatFuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
    return kqfuzz::Run(kq::MakeVPBModule, ".vpb", data, size);
}
