// Native bitmaps and the display: its format, bitmaps that are drawing targets, drawing, and image resources.
#define KQ_MODULE "PcSource/Pcdraw"
#include <algorithm>
#include <bit>
#include <cstddef>

#include "PcSource/NativeRecord.h"
#include "Source/Alloc.h"
#include "Source/SizeGate.h"
#include "kq/environment.h"
#include "kq/nativebitmap.h"
#include "pal/display.h"

namespace {

// A context for the time that a bitmap is selected in it.
class BitmapContext {
public:
    BitmapContext(void* like, void* bitmap) : context_(pal::MakeMemoryContext(like)) {
        before_ = pal::SelectBitmapInto(context_, bitmap);
    }

    ~BitmapContext() {
        pal::SelectBitmapInto(context_, before_);
        pal::DeleteMemoryContext(context_);
    }

    BitmapContext(const BitmapContext&) = delete;
    BitmapContext& operator=(const BitmapContext&) = delete;

    void* Get() const { return context_; }

private:
    void* context_;
    void* before_;
};

// The record's header as the display's operations take it; both have the layout of the display's own.
pal::DibHeader DibOf(const KQNativeBitmap* bitmap) {
    static_assert(offsetof(pal::DibHeader, bitCount) == offsetof(KQBitmapHeader, bitCount));
    static_assert(offsetof(pal::DibHeader, imageSize) == offsetof(KQBitmapHeader, imageSize));
    static_assert(offsetof(pal::DibHeader, coloursImportant) == offsetof(KQBitmapHeader, coloursImportant));
    return std::bit_cast<pal::DibHeader>(bitmap->header);
}

pal::DibRequest RequestFor(i32 width, i32 height, i32 bits) {
    KQNativeBitmap bitmap{};
    kq::SetNativeFormat(&bitmap, width, height, bits);
    return {DibOf(&bitmap), 0};
}

// Moves a negative start to 0 and takes it off the size.
void CutStart(i32* start, i64* size) {
    if (*start >= 0) return;
    *size += *start;
    *start = 0;
}

// Both rectangles of a stretch, of which negative starts are cut off. False when nothing is left.
bool CutStretch(pal::DrawPlace* from, pal::DrawPlace* to) {
    i64 sizes[] = {from->width, from->height, to->width, to->height};
    CutStart(&from->x, &sizes[0]);
    CutStart(&from->y, &sizes[1]);
    CutStart(&to->x, &sizes[2]);
    CutStart(&to->y, &sizes[3]);
    if (*std::min_element(sizes, sizes + 4) <= 0) return false;
    from->width = i32(sizes[0]);
    from->height = i32(sizes[1]);
    to->width = i32(sizes[2]);
    to->height = i32(sizes[3]);
    return true;
}

// A place moved by the context's origin; words wrap.
i32 Add(i32 a, i32 b) { return i32(u32(a) + u32(b)); }

// Draws the loaded image into the new bitmap.
void DrawImageInto(KQNativeBitmap* bitmap, void* image, void* screen) {
    BitmapContext source(screen, image), target(screen, bitmap->sectionHandle);
    pal::BlitPixels(target.Get(), {0, 0, bitmap->width, bitmap->height}, source.Get(), 0, 0);
}

}   // namespace

void GetDisplayFormatKQ(i32* width, i32* height, i32* depth) {
    pal::DisplayFormat format = pal::AskDisplayFormat();
    if (width) *width = format.width;
    if (height) *height = format.height;
    if (depth) *depth = format.depth;
    pal::DibRequest request = RequestFor(format.width, format.height, format.depth);
    void* screen = pal::TakeScreenContext();
    i32 result = pal::AskDibSupport(screen, &request);
    pal::ReleaseScreenContext(screen);
    if (result < 1) DebugMessage("Escape: Failed. %d", result);
}

i32 SuggestedDepthKQ() {
    i32 depth = pal::AskDisplayFormat().depth;
    return depth == 8 ? 24 : depth;
}

void ShowDibSupport(u16 bits) {
    pal::DibRequest request = RequestFor(20, 20, bits);
    void* screen = pal::TakeScreenContext();
    i32 result = pal::AskDibSupport(screen, &request);
    pal::ReleaseScreenContext(screen);
    DebugMessage("DIB 20 x 20, %d bits: result %d, flags %u\n", bits, result, result < 1 ? 0 : request.answer);
}

KQNativeBitmap* AllocDDBitmapKQ(i32 width, i32 height, i32) {
    i32 depth = SuggestedDepthKQ();
    if (!kq::SizeFits(width, height, depth)) return nullptr;
    KQNativeBitmap* bitmap = KQ_NEW(KQNativeBitmap);
    if (!bitmap) return nullptr;
    kq::SetNativeFormat(bitmap, width, height, depth);
    void* pixels = nullptr;
    void* screen = pal::TakeScreenContext();
    pal::DibHeader header = DibOf(bitmap);
    bitmap->sectionHandle = pal::MakeSection(screen, &header, &pixels);
    pal::ReleaseScreenContext(screen);
    bitmap->data = static_cast<u8*>(pixels);
    if (bitmap->sectionHandle) return bitmap;
    KQ_FREE(bitmap);
    return nullptr;
}

i32 ConvertDDBitmapKQ(const KQNativeBitmap* bitmap) { return bitmap->sectionHandle != nullptr; }

void DrawBitmapKQ(KQDrawInfo* draw, const KQNativeBitmap* bitmap, i32 x, i32 y) {
    pal::DrawPlace to{Add(x, draw->originX), Add(y, draw->originY), bitmap->width, bitmap->height};
    if (bitmap->sectionHandle) {
        BitmapContext source(draw->deviceContext, bitmap->sectionHandle);
        pal::BlitPixels(draw->deviceContext, to, source.Get(), 0, 0);
    } else {
        pal::DibHeader header = DibOf(bitmap);
        pal::DrawDibPixels(KQEnv->DrawDib, draw->deviceContext, to, &header, bitmap->data,
                           {0, 0, bitmap->width, bitmap->height});
    }
}

void StretchBitmapKQ(KQDrawInfo* draw, const KQNativeBitmap* bitmap, i32 sourceX, i32 sourceY, i32 sourceWidth,
                     i32 sourceHeight, i32 x, i32 y, i32 width, i32 height) {
    pal::DrawPlace from{sourceX, sourceY, sourceWidth, sourceHeight};
    pal::DrawPlace to{Add(x, draw->originX), Add(y, draw->originY), width, height};
    if (bitmap->sectionHandle) {
        BitmapContext source(draw->deviceContext, bitmap->sectionHandle);
        pal::StretchPixels(draw->deviceContext, to, source.Get(), from);
    } else if (CutStretch(&from, &to)) {
        pal::DibHeader header = DibOf(bitmap);
        pal::DrawDibPixels(KQEnv->DrawDib, draw->deviceContext, to, &header, bitmap->data, from);
    }
}

KQNativeBitmap* GetImageKQ(i32 id) {
    i32 width = 0, height = 0;
    void* image = pal::LoadImageResource(id, &width, &height);
    if (!image) return nullptr;
    KQNativeBitmap* bitmap = AllocDDBitmapKQ(width, height, 0);
    void* screen = pal::TakeScreenContext();
    if (bitmap) DrawImageInto(bitmap, image, screen);
    pal::ReleaseScreenContext(screen);
    pal::DeleteDisplayBitmap(image);
    return bitmap;
}
