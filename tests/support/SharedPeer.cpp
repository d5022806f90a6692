// The other process of the test of shared bitmaps. Opens the bitmap of 16 x 8 pixels named by its first argument,
// looks for the parent's colour and leaves one of its own. Exit code 0: seen and answered.
#include "kq/bitmap.h"
#include "kq/environment.h"

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    TagItem tags[] = {{KQTAG_InitNoWindow, 0}, {KQTAG_End, 0}};
    if (!InitKQ(nullptr, nullptr, nullptr, nullptr, nullptr, tags)) return 3;
    KQBitmap* bitmap = AllocSharedBitmapKQ(16, 8, 32, argv[1]);
    if (!bitmap) return 4;
    KQRGB colour{};
    ReadPixelKQ(bitmap, 3, 5, &colour);
    bool seen = colour.red == 0x1212 && colour.green == 0x3434 && colour.blue == 0x5656 && colour.alpha == 0xFFFF;
    FillBitmapKQ(bitmap, 0x80A0B0C0);
    FreeBitmapKQ(bitmap);
    CleanUpKQ();
    return seen ? 0 : 1;
}
