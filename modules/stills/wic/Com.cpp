// Names, words for result codes, and the factory.
#include "modules/stills/wic/Com.h"

#include <cstdio>

namespace stills {

namespace {

struct Words {
    HRESULT code;
    const char* text;
    Cause cause = Cause::Other;
};

constexpr HRESULT OfWin32(DWORD code) { return HRESULT((code & 0xFFFF) | (FACILITY_WIN32 << 16) | 0x80000000); }

const Words kWords[] = {
    {E_OUTOFMEMORY, "out of memory", Cause::NoMemory},
    {OfWin32(ERROR_NOT_ENOUGH_MEMORY), "out of memory", Cause::NoMemory},
    {OfWin32(ERROR_FILE_NOT_FOUND), "there is no such file", Cause::NotFound},
    {OfWin32(ERROR_PATH_NOT_FOUND), "there is no such folder", Cause::NotFound},
    {OfWin32(ERROR_INVALID_NAME), "this is no name of a file"},
    {OfWin32(ERROR_ACCESS_DENIED), "access is denied", Cause::NoAccess},
    {OfWin32(ERROR_SHARING_VIOLATION), "another program holds the file", Cause::NoAccess},
    {OfWin32(ERROR_DISK_FULL), "no space left on the device", Cause::DiskFull},
    {OfWin32(ERROR_HANDLE_DISK_FULL), "no space left on the device", Cause::DiskFull},
    {OfWin32(ERROR_WRITE_PROTECT), "the device is write-protected", Cause::NoAccess},
    {WINCODEC_ERR_COMPONENTNOTFOUND, "the file is no still of a kind that is read here"},
    {WINCODEC_ERR_UNKNOWNIMAGEFORMAT, "the file is no still of a kind that is read here"},
    {WINCODEC_ERR_UNSUPPORTEDPIXELFORMAT, "the file holds pixels of a form that is not read here"},
    {WINCODEC_ERR_UNSUPPORTEDOPERATION, "the file uses what is not read here"},
    {WINCODEC_ERR_IMAGESIZEOUTOFRANGE, "the picture is larger than this kind of file, or this program, takes"},
    {WINCODEC_ERR_FRAMEMISSING, "the file holds no picture"},
};

}   // namespace

Problem Explain(HRESULT code) {
    Problem problem;
    for (const Words& words : kWords) {
        if (words.code != code) continue;
        problem = words.text;
        problem.cause = words.cause;
        return problem;
    }
    char text[64];
    std::snprintf(text, sizeof text, "damaged or cut off (code %08lX)", static_cast<unsigned long>(code));
    problem = text;
    return problem;
}

std::wstring Widen(const char* text) {
    int length = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, nullptr, 0);
    if (length <= 1) throw Failed{OfWin32(ERROR_INVALID_NAME)};
    std::wstring wide(size_t(length), 0);
    MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, wide.data(), length);
    wide.pop_back();
    return wide;
}

void MakeFactory(Owned<IWICImagingFactory>& factory) {
    Check(CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER, IID_IWICImagingFactory,
                           factory.OutAny()));
}

}   // namespace stills
