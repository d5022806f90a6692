// The table of kinds. A kind is read and written when this computer's imaging component has it, which is asked once.
#include "modules/stills/wic/Kinds.h"

#include <array>
#include <cstring>
#include <mutex>

namespace stills {

namespace {

const Kind kKinds[] = {
    {" png ", &GUID_ContainerFormatPng, "PNG", true, true},
    {" tif tiff ", &GUID_ContainerFormatTiff, "TIFF", true, true},
    {" jpg jpeg jpe jfif ", &GUID_ContainerFormatJpeg, "JPEG", true, false},
    {" bmp dib ", &GUID_ContainerFormatBmp, "BMP", true, false},
    {" gif ", &GUID_ContainerFormatGif, "GIF", true, true},
    {" ico ", &GUID_ContainerFormatIco, "ICO", false, true},
    {" dds ", &GUID_ContainerFormatDds, "DDS", false, true},
    {" wdp jxr hdp ", &GUID_ContainerFormatWmp, "JPEG XR", false, true},
};

constexpr size_t kCount = sizeof kKinds / sizeof kKinds[0];

struct Presence {
    bool reads = false, writes = false;
};

std::array<Presence, kCount> Ask() {
    std::array<Presence, kCount> present;
    Apartment apartment;
    Owned<IWICImagingFactory> factory;
    MakeFactory(factory);
    for (size_t i = 0; i < kCount; ++i) {
        Owned<IWICBitmapDecoder> decoder;
        Owned<IWICBitmapEncoder> encoder;
        present[i].reads = SUCCEEDED(factory->CreateDecoder(*kKinds[i].container, nullptr, decoder.Out()));
        present[i].writes =
            kKinds[i].writes && SUCCEEDED(factory->CreateEncoder(*kKinds[i].container, nullptr, encoder.Out()));
    }
    return present;
}

// What the component has of `kind`; nothing when it does not answer.
Presence PresenceOf(const Kind& kind) {
    static std::mutex lock;
    static std::array<Presence, kCount> present;
    static bool asked = false;
    std::lock_guard guard(lock);
    try {
        if (!asked) present = Ask();
        asked = true;
    } catch (const Failed&) {
    }
    return present[size_t(&kind - kKinds)];
}

}   // namespace

const Kind* KindOfExtension(const char* extension) {
    std::string wanted = std::string(" ") + extension + " ";
    if (wanted.find(' ', 1) != wanted.size() - 1 || wanted.size() < 3) return nullptr;
    for (const Kind& kind : kKinds)
        if (std::strstr(kind.extensions, wanted.c_str())) return &kind;
    return nullptr;
}

const Kind* KindOfContainer(const GUID& container) {
    for (const Kind& kind : kKinds)
        if (IsEqualGUID(*kind.container, container)) return &kind;
    return nullptr;
}

bool Reads(const char* extension) {
    const Kind* kind = KindOfExtension(extension);
    return kind && PresenceOf(*kind).reads;
}

bool Writes(const char* extension) {
    const Kind* kind = KindOfExtension(extension);
    return kind && PresenceOf(*kind).writes;
}

}   // namespace stills
