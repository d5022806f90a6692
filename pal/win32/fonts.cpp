// Fonts as GDI enumerates them; their files come from GetFontData.
#include "pal/fonts.h"

#include <cstring>

#include <windows.h>

namespace pal {

static_assert(sizeof(LogicalFont) == sizeof(LOGFONTA));

namespace {

constexpr DWORD kCollection = 0x66637474;   // 'ttcf' as GetFontData takes it: the whole file of a collection

using FaceFunction = bool (*)(const FontFace&, void*);

struct Enumeration {
    HDC context;
    FaceFunction face;
    void* user;
    bool more;
    // What came last: a host may call once for each script of a face, which is one face all the same.
    char family[LF_FACESIZE];
    char name[LF_FULLFACESIZE];
};

// Notes a text of the enumeration; false when it is the one that came last.
template <size_t Size>
bool IsNew(char (&last)[Size], const char* text) {
    if (std::strncmp(last, text, Size) == 0) return false;
    std::strncpy(last, text, Size);
    return true;
}

// The code page's text as UTF-8; false when it does not fit.
bool ToUtf8(const char* text, char* out, size_t size) {
    wchar_t wide[LF_FULLFACESIZE + 1];
    return MultiByteToWideChar(CP_ACP, 0, text, -1, wide, LF_FULLFACESIZE + 1) > 0 &&
           WideCharToMultiByte(CP_UTF8, 0, wide, -1, out, int(size), nullptr, nullptr) > 0;
}

bool IsTrueType(DWORD type) { return !(type & RASTER_FONTTYPE) && (type & TRUETYPE_FONTTYPE); }

int CALLBACK OnStyle(const LOGFONTA* logical, const TEXTMETRICA*, DWORD type, LPARAM user) {
    auto* all = reinterpret_cast<Enumeration*>(user);
    if (!IsTrueType(type)) return 1;
    char name[LF_FULLFACESIZE * 4];
    const char* full = reinterpret_cast<const char*>(reinterpret_cast<const ENUMLOGFONTA*>(logical)->elfFullName);
    if (!IsNew(all->name, full) || !ToUtf8(full, name, sizeof name)) return 1;
    FontFace face = {name, nullptr, 0, {}};
    std::memcpy(&face.logical, logical, sizeof face.logical);
    all->more = all->face(face, all->user);
    return all->more;
}

int CALLBACK OnFamily(const LOGFONTA* logical, const TEXTMETRICA*, DWORD type, LPARAM user) {
    auto* all = reinterpret_cast<Enumeration*>(user);
    if (IsTrueType(type) && IsNew(all->family, logical->lfFaceName))
        EnumFontFamiliesA(all->context, logical->lfFaceName, OnStyle, user);
    return all->more;
}

HDC ContextOf(const FontSelection& selection) { return static_cast<HDC>(selection.context); }

// Bytes from the start of a collection's file, or of the only face's; GDI_ERROR for none.
DWORD Length(HDC context, DWORD table) { return GetFontData(context, table, 0, nullptr, 0); }

}   // namespace

void EnumerateFonts(FaceFunction face, void* user) {
    Enumeration all = {CreateCompatibleDC(nullptr), face, user, true, {}, {}};
    if (!all.context) return;
    EnumFontFamiliesA(all.context, nullptr, OnFamily, reinterpret_cast<LPARAM>(&all));
    DeleteDC(all.context);
}

bool SelectFont(const LogicalFont& logical, FontSelection* selection) {
    LOGFONTA wanted;
    std::memcpy(&wanted, &logical, sizeof wanted);
    HFONT font = CreateFontIndirectA(&wanted);
    HDC context = font ? CreateCompatibleDC(nullptr) : nullptr;
    HGDIOBJ replaced = context ? SelectObject(context, font) : nullptr;
    if (replaced) {
        *selection = {font, replaced, context};
        return true;
    }
    if (context) DeleteDC(context);
    if (font) DeleteObject(font);
    return false;
}

void DeselectFont(const FontSelection& selection) {
    SelectObject(ContextOf(selection), selection.replaced);
    DeleteDC(ContextOf(selection));
    DeleteObject(selection.font);
}

i64 FontFileLength(const FontSelection& selection) {
    DWORD length = Length(ContextOf(selection), kCollection);
    if (length == GDI_ERROR) length = Length(ContextOf(selection), 0);
    return length == GDI_ERROR ? -1 : i64(length);
}

bool ReadFontFile(const FontSelection& selection, void* bytes, size_t length, size_t* directory) {
    HDC context = ContextOf(selection);
    // Without the collection's word the data begin at the face's directory, so the difference tells where that is.
    DWORD whole = Length(context, kCollection), face = Length(context, 0);
    bool collection = whole != GDI_ERROR;
    *directory = collection && face != GDI_ERROR && face <= whole ? whole - face : 0;
    return GetFontData(context, collection ? kCollection : 0, 0, bytes, DWORD(length)) == DWORD(length);
}

}   // namespace pal
