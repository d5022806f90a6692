// A worker: does what the module asks, one request after the other, under limits.
#pragma once

#include <cstdint>

#include "modules/stills/oiio/Wire.h"

namespace stills::oiio {

// Done once by the keeper, so that every worker starts with it.
void PrepareWorkers();

// Answers requests until the socket ends.
void RunWorker(int socket);

// Reads the head of the still `file`, and fills `answer`.
void DecodeHead(const Request& request, int file, Answer& answer);

// Reads the still's pixels into `target`, scaled by taking the nearest lower pixel as the library's own scaler does.
void DecodePixels(const Request& request, int file, std::uint8_t* target, Answer& answer);

// The same for a plain PNG file, faster; false, with nothing filled in, for any other and for a damaged one.
bool DecodePlainPng(const Request& request, int file, std::uint8_t* target, Answer& answer);

// The same for a JPEG file of grey or of red, green and blue, whose damage is heard; false, with nothing filled in, for
// any other and for one whose head is damaged. A much smaller frame is decoded at a reduced size first.
bool DecodeCommonJpeg(const Request& request, int file, std::uint8_t* target, Answer& answer);

// Runs through a JPEG file that was decoded, and turns `answer` to damaged when its stream is.
void CheckJpeg(int file, Answer& answer);

// True when the file ends before its pixels do; for the kinds whose cut files the image library takes for whole.
bool IsCut(const char* format, int file);

// Writes a still from `source` into `file`.
void EncodePixels(const Request& request, int file, const std::uint8_t* source, Answer& answer);

// The path under which this process reaches an open file.
struct OpenPath {
    char text[32];

    explicit OpenPath(int file);
};

}   // namespace stills::oiio
