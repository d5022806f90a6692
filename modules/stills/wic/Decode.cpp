// Reading: a file's first picture through the imaging component, in bands of rows, placed on its canvas.
//
// Only a GIF has a canvas of its own: its first picture may cover a part of it, and the rest is transparent.
#include <algorithm>
#include <cstring>
#include <vector>

#include "modules/stills/wic/Claims.h"
#include "modules/stills/wic/Com.h"
#include "modules/stills/wic/Kinds.h"
#include "modules/stills/wic/Layout.h"

namespace stills {

namespace {

constexpr size_t kBandBytes = size_t(1) << 20;

// An opened file.
struct Still {
    Owned<IWICImagingFactory> factory;
    Owned<IWICBitmapDecoder> decoder;
    Owned<IWICBitmapFrameDecode> frame;
    Owned<IWICFormatConverter> converter;
    IWICBitmapSource* source = nullptr;   // one of the two above
    const Kind* kind = nullptr;
    const Layout* layout = nullptr;
    bool alpha = false;
    UINT width = 0, height = 0;             // of the canvas
    UINT frameWidth = 0, frameHeight = 0;   // of the picture on it
    UINT left = 0, top = 0;
};

// A 16-bit word of the file's metadata; `missing` when it is not there.
UINT Word(IWICMetadataQueryReader* reader, const wchar_t* name, UINT missing) {
    PROPVARIANT value;
    PropVariantInit(&value);
    UINT word = missing;
    if (SUCCEEDED(reader->GetMetadataByName(name, &value)) && value.vt == VT_UI2) word = value.uiVal;
    PropVariantClear(&value);
    return word;
}

void PlaceOnCanvas(Still& still) {
    still.width = still.frameWidth;
    still.height = still.frameHeight;
    if (!IsEqualGUID(*still.kind->container, GUID_ContainerFormatGif)) return;
    Owned<IWICMetadataQueryReader> screen, picture;
    if (FAILED(still.decoder->GetMetadataQueryReader(screen.Out())) ||
        FAILED(still.frame->GetMetadataQueryReader(picture.Out())))
        return;
    still.left = Word(picture.Get(), L"/imgdesc/Left", 0);
    still.top = Word(picture.Get(), L"/imgdesc/Top", 0);
    // A picture that reaches over the edge makes the canvas larger.
    still.width = std::max(Word(screen.Get(), L"/logscrdesc/Width", 0), still.left + still.frameWidth);
    still.height = std::max(Word(screen.Get(), L"/logscrdesc/Height", 0), still.top + still.frameHeight);
    CheckSize(still.width, still.height);
}

// Whether the palette of an indexed picture, or the form of its pixels, knows transparency.
bool HasAlpha(Still& still, const GUID& format) {
    if (still.layout) return still.layout->alpha >= 0;
    Owned<IWICPalette> palette;
    BOOL has = FALSE;
    if (SUCCEEDED(still.factory->CreatePalette(palette.Out())) && SUCCEEDED(still.frame->CopyPalette(palette.Get())))
        return SUCCEEDED(palette->HasAlpha(&has)) && has;
    Owned<IWICComponentInfo> component;
    Owned<IWICPixelFormatInfo2> form;
    return SUCCEEDED(still.factory->CreateComponentInfo(format, component.Out())) &&
           SUCCEEDED(component->QueryInterface(IID_IWICPixelFormatInfo2, form.OutAny())) &&
           SUCCEEDED(form->SupportsTransparency(&has)) && has;
}

void ChooseLayout(Still& still) {
    GUID format;
    Check(still.frame->GetPixelFormat(&format));
    still.layout = FindLayout(format);
    still.alpha = HasAlpha(still, format);
    still.source = still.frame.Get();
    if (still.layout) return;
    Check(still.factory->CreateFormatConverter(still.converter.Out()));
    Check(still.converter->Initialize(still.frame.Get(), *kConverted.format, WICBitmapDitherTypeNone, nullptr, 0.0,
                                      WICBitmapPaletteTypeCustom));
    still.source = still.converter.Get();
    still.layout = &kConverted;
}

void Open(Still& still, const char* path) {
    std::wstring wide = Widen(path);
    CheckClaims(wide.c_str());
    MakeFactory(still.factory);
    Check(still.factory->CreateDecoderFromFilename(wide.c_str(), nullptr, GENERIC_READ, WICDecodeMetadataCacheOnDemand,
                                                   still.decoder.Out()));
    GUID container;
    Check(still.decoder->GetContainerFormat(&container));
    still.kind = KindOfContainer(container);
    if (!still.kind) throw Failed{WINCODEC_ERR_UNKNOWNIMAGEFORMAT};
    Check(still.decoder->GetFrame(0, still.frame.Out()));
    Check(still.frame->GetSize(&still.frameWidth, &still.frameHeight));
    CheckSize(still.frameWidth, still.frameHeight);
    PlaceOnCanvas(still);
    ChooseLayout(still);
    still.alpha |= still.frameWidth < still.width || still.frameHeight < still.height;
}

// Pixels that lie close together are narrower.
double PixelAspect(Still& still) {
    double across = 0, down = 0;
    if (FAILED(still.frame->GetResolution(&across, &down)) || !(across > 0) || !(down > 0)) return 1.0;
    double aspect = down / across;
    return aspect > 0.01 && aspect < 100 ? aspect : 1.0;
}

void Describe(Still& still, Head& head) {
    head.width = int(still.width);
    head.height = int(still.height);
    head.alpha = still.alpha;
    head.pixelAspect = PixelAspect(still);
    head.format = still.kind->name;
}

// Rows of the picture, read ahead as long as each is asked for.
class Rows {
public:
    Rows(Still& still, bool each)
        : still_(still),
          stride_((size_t(still.frameWidth) * still.layout->channels * still.layout->channelBytes + 3) & ~size_t(3)) {
        most_ = each ? UINT(std::clamp<size_t>(kBandBytes / stride_, 1, still.frameHeight)) : 1;
        band_.resize(stride_ * most_);
    }

    // Row `y`; valid until the next call. Throws when it cannot be read.
    const std::uint8_t* Get(UINT y) {
        if (y < first_ || y >= first_ + count_) Read(y);
        return band_.data() + (y - first_) * stride_;
    }

private:
    // A band that fails is read again row by row, so that what stands before the damage is kept.
    void Read(UINT y) {
        UINT count = std::min(most_, still_.frameHeight - y);
        HRESULT result = Copy(y, count);
        if (FAILED(result) && count > 1) {
            most_ = count = 1;
            result = Copy(y, count);
        }
        count_ = 0;
        Check(result);
        first_ = y;
        count_ = count;
    }

    HRESULT Copy(UINT y, UINT count) {
        WICRect area = {0, INT(y), INT(still_.frameWidth), INT(count)};
        return still_.source->CopyPixels(&area, UINT(stride_), UINT(stride_ * count), band_.data());
    }

    Still& still_;
    size_t stride_;
    UINT most_ = 1, first_ = 0, count_ = 0;
    std::vector<std::uint8_t> band_;
};

// The source's place for each of `count` targets: 16.16 fixed point without an offset, as the library scales.
std::vector<int> Places(UINT source, int count) {
    std::vector<int> places;
    places.resize(size_t(count));
    std::uint64_t step = (std::uint64_t(source) << 16) / unsigned(count);
    for (int i = 0; i < count; ++i) places[size_t(i)] = int(unsigned(i) * step >> 16);
    return places;
}

// The part of the target's columns that lies on the picture, as the picture's columns.
struct Columns {
    int first = 0;
    std::vector<int> places;
};

Columns ColumnsOf(const Still& still, int width) {
    Columns columns;
    std::vector<int> all = Places(still.width, width);
    auto from = std::lower_bound(all.begin(), all.end(), int(still.left));
    auto to = std::lower_bound(from, all.end(), int(still.left + still.frameWidth));
    columns.first = int(from - all.begin());
    for (; from != to; ++from) columns.places.push_back(*from - int(still.left));
    return columns;
}

// Counts in `done` the target's rows that are complete.
void ReadRows(Still& still, int width, int height, std::uint8_t* pixels, int& done) {
    Columns columns = ColumnsOf(still, width);
    std::vector<int> lines = Places(still.height, height);
    Rows rows(still, unsigned(height) >= still.height);
    bool covers = columns.places.size() == size_t(width);
    for (; done < height; ++done) {
        std::uint8_t* out = pixels + size_t(done) * size_t(width) * 4;
        UINT line = UINT(lines[size_t(done)]);
        bool inside = line >= still.top && line - still.top < still.frameHeight;
        const std::uint8_t* row = inside ? rows.Get(line - still.top) : nullptr;
        if (!inside || !covers) std::fill(out, out + size_t(width) * 4, std::uint8_t(0));
        if (inside)
            TurnRow(*still.layout, row, columns.places.data(), int(columns.places.size()),
                    out + size_t(columns.first) * 4);
    }
}

}   // namespace

bool ReadHead(const char* path, Head& head, Problem& problem) {
    return Attempt(problem, [&] {
        Still still;
        Open(still, path);
        Describe(still, head);
    });
}

Pixels ReadPixels(const char* path, int width, int height, std::uint8_t* pixels, Head& head, Problem& problem) {
    int done = 0;
    bool read = Attempt(problem, [&] {
        if (width <= 0 || height <= 0) throw Failed{WINCODEC_ERR_IMAGESIZEOUTOFRANGE};
        Still still;
        Open(still, path);
        Describe(still, head);
        ReadRows(still, width, height, pixels, done);
    });
    if (read) return Pixels::Whole;
    if (done == 0) return Pixels::None;
    problem += "; " + std::to_string(done) + " of " + std::to_string(height) + " rows are there";
    return Pixels::Damaged;
}

// The component has no reading ahead, and a thread of our own would have to end before the module is unloaded.
void Expect(const char*, int, int) {}

}   // namespace stills
