// What the stills module asks of the platform's image library: the head of a still, its pixels, and a new file.
//
// Two codecs answer: oiio/ (a helper process around OpenImageIO, on Linux) and wic/ (the imaging component of Windows).
// A damaged file, an exhausted limit or a full disk is an answer here, never the end of the program. The calls may come
// from any thread, one at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace stills {

// The head of a still.
struct Head {
    int width = 0, height = 0;
    bool alpha = false;         // the file has an alpha channel
    double pixelAspect = 1.0;   // a pixel's width divided by its height
    std::string format;         // the kind of file in words, such as "PNG" or "TIFF"
};

// What the front makes an error code of.
enum class Cause {
    Other,      // the file's contents, or anything that has no name here
    NotFound,   // there is no such file or folder
    NoAccess,   // it may not be read or written, or another program holds it
    NoMemory,
    DiskFull,
};

// Why a call failed, in words for a person: "cut off after row 12", "no space left on the device".
struct Problem : std::string {
    using std::string::string;
    using std::string::operator=;
    Cause cause = Cause::Other;
};

// How much of a still's pixels there is.
enum class Pixels {
    Whole,     // all of them
    Damaged,   // a part; the rest of the target is left as it was, and the problem says why
    None,      // nothing
};

// Whether files of this extension (lower case, no dot) are read and are written here.
bool Reads(const char* extension);
bool Writes(const char* extension);

// Reads the head of the file at `path` (UTF-8). False, and the reason, when it is no still of a kind that is read. The
// kind goes by the contents, and by the extension only for files that do not tell.
bool ReadHead(const char* path, Head& head, Problem& problem);

// Reads the pixels into `pixels`: `width` * `height` pixels of 4 bytes, alpha, red, green, blue, the top row first,
// rows close together, 8 bits a channel, alpha straight, 255 without an alpha channel. The file is scaled (nearest, or
// a cheaper reduced decode) when `width` and `height` differ from its own, which `head` tells when it is known.
Pixels ReadPixels(const char* path, int width, int height, std::uint8_t* pixels, Head& head, Problem& problem);

// Says that `path` will probably be asked for next, at this size. May read ahead; may do nothing.
void Expect(const char* path, int width, int height);

// Writes a still of the kind that `extension` names to `path`, a file that may exist and is overwritten; pixels as
// above. Without `head.alpha` the file gets no alpha channel. Kinds without alpha (JPEG) drop it.
bool WritePixels(const char* path, const char* extension, const Head& head, const std::uint8_t* pixels,
                 Problem& problem);

}   // namespace stills
