// What the ElectricImage module keeps and what a frame's header says, for its reader and its writer.
#pragma once

#include "kq/clip.h"
#include "kq/files.h"
#include "kq/formats.h"

namespace kq {

inline constexpr i64 kEIDIFileHead = 6;     // version and number of frames
inline constexpr i64 kEIDIFrameHead = 32;   // of each frame, in front of its colour table
inline constexpr i32 kEIDIMostColours = 256;

// The header of a frame. The rectangle is the frame's place; its size is right - left by bottom - top.
struct EIDIFrame {
    f64 time;   // seconds from the start of the clip
    i16 top, left, bottom, right;
    u8 depth;   // colour bits a pixel: 1, 2, 4, 8, 16 or 24
    u8 indexed;
    u8 packed;        // the pixels are run-length packed
    u8 alphaDepth;    // 0, or 8 beside 24 bits of colour
    u32 dataLength;   // bytes of pixels behind the colour table
    u16 colours;      // entries of the colour table
    i16 colourIndex;

    i32 Width() const { return right - left; }
    i32 Height() const { return bottom - top; }
    i32 Bits() const { return depth + alphaDepth; }
    // From the frame's start to its pixels, and to the next frame.
    i64 HeadSize() const { return kEIDIFrameHead + colours * 3; }
    i64 Size() const { return HeadSize() + dataLength; }
};

// An open clip.
struct EIDIClip {
    KQFileInfo* file;
    u16 version;
    u32 frames;                           // as the file says
    EIDIFrame frame;                      // the last header read
    u8 red[256], green[256], blue[256];   // the last colour table
    i64* offsets;                         // of the frame records; -1: not found
    i32 offsetCount;                      // no more than the file has room for, whatever it says
    i32 found;                            // leading entries that are known
    i64 end;                              // of a clip that is written: where the next frame goes
};

// Reads and checks the header of the frame at `offset`, without its colour table; 0 when it is cut or breaks a limit.
i32 ReadEIDIFrame(KQFileInfo* file, i64 offset, EIDIFrame* frame);

// The same with the colour table, into `clip`. Entries behind the table's end are black.
i32 ReadEIDIHeader(EIDIClip* clip, i64 offset);

// Whether the size of a frame's picture is one that the file can justify.
bool IsSaneEIDISize(KQFileInfo* file, const EIDIFrame& frame);

// The seconds that the four bytes of a single stand for. An exponent of 255 is infinity whatever the sign, and one of
// 0 with a fraction counts as if it were normal.
f64 EIDITime(u32 bits);

// The slots GetFrame and AddFrame.
i32 GetEIDIFrame(KQClip* clip, KQBitmap* target, i32 frame, const KQRectT<long>* position, i32 width, i32 height,
                 i32 track);
i32 AddEIDIFrame(KQClip* clip, KQBitmap* bitmap, i32 frame, const KQRectT<long>* rect);

}   // namespace kq
