// What the Filmstrip module keeps of an open clip.
#pragma once

#include "kq/files.h"
#include "kq/types.h"

namespace kq {

// The trailer as it is read, in host order.
struct FilmTrailer {
    u32 signature;
    i32 frames;
    u16 packing;
    i16 width;
    u16 height;
    u16 leading;   // rows of label a frame
    i16 rate;
};

struct Film {
    KQFileInfo* file;
    FilmTrailer trailer;   // of a clip that is read
    i64 end;               // of a clip that is written: where the next frame goes
};

}   // namespace kq
