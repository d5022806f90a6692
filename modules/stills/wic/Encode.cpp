// Writing: the imaging component encodes into memory, and one write puts the whole file on disk, so that every fault of
// the disk is seen here and not in an encoder that may not tell.
#include <algorithm>
#include <vector>

#include "modules/stills/wic/Com.h"
#include "modules/stills/wic/Indexed.h"
#include "modules/stills/wic/Kinds.h"

namespace stills {

namespace {

// A still of the usual quality for pictures that go on being worked with.
constexpr float kJpegQuality = 0.95f;

constexpr double kDotsPerInch = 96.0;

// The encoder's objects; the stream outlives the encoder that writes to it.
struct Writer {
    Owned<IWICImagingFactory> factory;
    Owned<IStream> stream;
    Owned<IWICBitmapEncoder> encoder;
    Owned<IWICBitmapFrameEncode> frame;
    Owned<IPropertyBag2> options;
};

// Sets an option of the encoder; one that it does not have is left.
void SetOption(IPropertyBag2* options, const wchar_t* name, VARIANT value) {
    PROPBAG2 option = {};
    option.pstrName = const_cast<wchar_t*>(name);
    options->Write(1, &option, &value);
}

void SetOptions(const Kind& kind, IPropertyBag2* options) {
    if (!options) return;
    VARIANT value = {};
    if (IsEqualGUID(*kind.container, GUID_ContainerFormatJpeg)) {
        value.vt = VT_R4;
        value.fltVal = kJpegQuality;
        SetOption(options, L"ImageQuality", value);
        value.vt = VT_UI1;
        value.bVal = WICJpegYCrCbSubsampling444;
        SetOption(options, L"JpegYCrCbSubsampling", value);
    } else if (IsEqualGUID(*kind.container, GUID_ContainerFormatTiff)) {
        value.vt = VT_UI1;
        value.bVal = WICTiffCompressionLZW;
        SetOption(options, L"TiffCompressionMethod", value);
    }
}

void Begin(Writer& writer, const Kind& kind, const Head& head) {
    MakeFactory(writer.factory);
    Check(CreateStreamOnHGlobal(nullptr, TRUE, writer.stream.Out()));
    Check(writer.factory->CreateEncoder(*kind.container, nullptr, writer.encoder.Out()));
    Check(writer.encoder->Initialize(writer.stream.Get(), WICBitmapEncoderNoCache));
    Check(writer.encoder->CreateNewFrame(writer.frame.Out(), writer.options.Out()));
    SetOptions(kind, writer.options.Get());
    Check(writer.frame->Initialize(writer.options.Get()));
    Check(writer.frame->SetSize(UINT(head.width), UINT(head.height)));
    double aspect = head.pixelAspect > 0.01 && head.pixelAspect < 100 ? head.pixelAspect : 1.0;
    Check(writer.frame->SetResolution(kDotsPerInch, kDotsPerInch * aspect));
}

// Blue, green, red and, with 4 bytes, alpha.
void TurnBack(const std::uint8_t* in, int count, int bytes, std::uint8_t* out) {
    for (int i = 0; i < count; ++i, in += 4, out += bytes) {
        out[0] = in[3];
        out[1] = in[2];
        out[2] = in[1];
        if (bytes == 4) out[3] = in[0];
    }
}

void WriteColours(Writer& writer, const Kind& kind, const Head& head, const std::uint8_t* pixels) {
    GUID format = head.alpha && kind.alpha ? GUID_WICPixelFormat32bppBGRA : GUID_WICPixelFormat24bppBGR;
    Check(writer.frame->SetPixelFormat(&format));
    int bytes = IsEqualGUID(format, GUID_WICPixelFormat32bppBGRA)  ? 4
                : IsEqualGUID(format, GUID_WICPixelFormat24bppBGR) ? 3
                                                                   : 0;
    if (bytes == 0) throw Failed{WINCODEC_ERR_UNSUPPORTEDPIXELFORMAT};
    size_t stride = (size_t(head.width) * size_t(bytes) + 3) & ~size_t(3);
    std::vector<std::uint8_t> row(stride);
    for (int y = 0; y < head.height; ++y) {
        TurnBack(pixels + size_t(y) * size_t(head.width) * 4, head.width, bytes, row.data());
        Check(writer.frame->WritePixels(1, UINT(stride), UINT(stride), row.data()));
    }
}

// A write of any size in pieces that fit a DWORD.
void WriteAll(HANDLE file, const std::uint8_t* at, size_t count) {
    while (count > 0) {
        DWORD put = 0, piece = DWORD(std::min<size_t>(count, size_t(1) << 30));
        if (!WriteFile(file, at, piece, &put, nullptr)) throw Failed{HRESULT_FROM_WIN32(GetLastError())};
        if (put == 0) throw Failed{HRESULT_FROM_WIN32(ERROR_DISK_FULL)};
        at += put;
        count -= put;
    }
}

void Store(const char* path, const std::uint8_t* bytes, size_t count) {
    HANDLE file =
        CreateFileW(Widen(path).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) throw Failed{HRESULT_FROM_WIN32(GetLastError())};
    try {
        WriteAll(file, bytes, count);
    } catch (...) {
        CloseHandle(file);
        throw;
    }
    if (!CloseHandle(file)) throw Failed{HRESULT_FROM_WIN32(GetLastError())};
}

// What the encoder wrote; the memory is the stream's own.
std::vector<std::uint8_t> BytesOf(IStream* stream) {
    STATSTG status;
    Check(stream->Stat(&status, STATFLAG_NONAME));
    Check(stream->Seek({}, STREAM_SEEK_SET, nullptr));
    std::vector<std::uint8_t> bytes(size_t(status.cbSize.QuadPart));
    for (size_t done = 0; done < bytes.size();) {
        ULONG got = 0;
        Check(stream->Read(bytes.data() + done, ULONG(std::min<size_t>(bytes.size() - done, size_t(1) << 30)), &got));
        if (got == 0) throw Failed{E_UNEXPECTED};
        done += got;
    }
    return bytes;
}

void Write(const char* path, const Kind& kind, const Head& head, const std::uint8_t* pixels) {
    Writer writer;
    Begin(writer, kind, head);
    int transparent = -1;
    if (IsEqualGUID(*kind.container, GUID_ContainerFormatGif))
        transparent = WriteIndexed(writer.factory.Get(), writer.frame.Get(), head, pixels);
    else
        WriteColours(writer, kind, head, pixels);
    Check(writer.frame->Commit());
    Check(writer.encoder->Commit());
    std::vector<std::uint8_t> bytes = BytesOf(writer.stream.Get());
    if (transparent >= 0) MarkTransparent(bytes, transparent);
    Store(path, bytes.data(), bytes.size());
}

}   // namespace

bool WritePixels(const char* path, const char* extension, const Head& head, const std::uint8_t* pixels,
                 Problem& problem) {
    const Kind* kind = KindOfExtension(extension);
    if (!kind || !Writes(extension)) {
        problem = std::string("no stills of the kind '") + extension + "' are written here";
        return false;
    }
    return Attempt(problem, [&] {
        if (head.width <= 0 || head.height <= 0) throw Failed{WINCODEC_ERR_IMAGESIZEOUTOFRANGE};
        Write(path, *kind, head, pixels);
    });
}

}   // namespace stills
