// Fonts as GDI enumerates them; their files come from GetFontData.
#include "pal/fonts.h"

#include <cstdio>
#include <cstring>
#include <new>
#include <set>
#include <string>

#include <windows.h>

#include "pal/win32/fontbytes.h"

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
    // What came already: a host may call once for each script of a family and of a face, in any order.
    std::set<std::string> families;
    std::set<std::string> faces;
};

// Notes a family or a face; false when it is known, or when there is no memory to note it, which ends the walk.
bool IsNew(Enumeration& all, std::set<std::string>& known, const char* name, const LOGFONTA& logical) try {
    // Faces that share a full name differ in these.
    char style[32];
    std::snprintf(style, sizeof style, "|%ld|%d", long(logical.lfWeight), int(logical.lfItalic));
    return known.insert(std::string(name) + (&known == &all.faces ? style : "")).second;
} catch (const std::bad_alloc&) {
    all.more = false;
    return false;
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
    if (!IsNew(*all, all->faces, full, *logical) || !ToUtf8(full, name, sizeof name)) return all->more;
    FontFace face = {name, nullptr, 0, {}};
    std::memcpy(&face.logical, logical, sizeof face.logical);
    all->more = all->face(face, all->user);
    return all->more;
}

int CALLBACK OnFamily(const LOGFONTA* logical, const TEXTMETRICA*, DWORD type, LPARAM user) {
    auto* all = reinterpret_cast<Enumeration*>(user);
    if (IsTrueType(type) && IsNew(*all, all->families, logical->lfFaceName, *logical))
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
    DWORD face = Length(context, 0);
    DWORD table = Length(context, kCollection) != GDI_ERROR ? kCollection : 0;
    return face != GDI_ERROR && GetFontData(context, table, 0, bytes, DWORD(length)) == DWORD(length) &&
           FindFace(static_cast<const u8*>(bytes), length, face, directory);
}

}   // namespace pal
