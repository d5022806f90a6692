// The list of fonts, and their opening: where a font's bytes come from. What they mean is Source/TrueType's business.
#define KQ_MODULE "PcSource/Pcfont"
#include <cstring>

#include "Source/Alloc.h"
#include "Source/FontFiles.h"
#include "Source/TrueTypeIndex.h"
#include "kq/environment.h"
#include "kq/font.h"
#include "pal/fonts.h"
#include "pal/program.h"

namespace {

static_assert(sizeof(KQLogFont) == sizeof(pal::LogicalFont));

constexpr size_t kFolderBytes = 4096;

// The record with the path of its file behind it, in one block.
KQFont* NewFont(const pal::FontFace& face) {
    size_t path = face.file ? std::strlen(face.file) + 1 : 0;
    auto* font = static_cast<KQFont*>(KQ_ALLOC(sizeof(KQFont) + path, KQMEM_Clear));
    if (!font) return nullptr;
    if (path) {
        char* copy = reinterpret_cast<char*>(font + 1);
        std::memcpy(copy, face.file, path);
        font->fontFile = copy;
    }
    font->faceIndex = face.index;
    std::memcpy(&font->logFont, &face.logical, sizeof font->logFont);
    NewList(&font->styles);
    std::memcpy(reinterpret_cast<u8*>(font) + offsetof(Node, ID), &font, sizeof font);
    return font;
}

// The list that is filled, until memory is out.
struct Filling {
    List* list;
    bool more;
};

bool AddFace(const pal::FontFace& face, void* user) {
    auto* filling = static_cast<Filling*>(user);
    KQFont* font = NewFont(face);
    filling->more = font && AddName(&font->node, face.name);
    if (filling->more)
        AddTail(filling->list, &font->node);
    else
        KQ_FREE(font);
    return filling->more;
}

// A host lists by their outlines what holds TrueType in a wrapper too, compressed for a page of the web for one.
bool AddHostFace(const pal::FontFace& face, void* user) {
    return (face.file && !kq::IsFontFile(face.file)) || AddFace(face, user);
}

pal::FontSelection SelectionOf(const KQFont* font) { return {font->fontHandle, font->oldFont, font->deviceContext}; }

// Lets go of the platform's font.
void Deselect(KQFont* font) {
    if (font->deviceContext) pal::DeselectFont(SelectionOf(font));
    font->fontHandle = font->oldFont = font->deviceContext = nullptr;
}

// Creates the platform's font for a face that has no file; false on failure.
bool Select(KQFont* font) {
    if (font->fontFile) return true;
    pal::LogicalFont logical;
    std::memcpy(&logical, &font->logFont, sizeof logical);
    pal::FontSelection selection;
    if (!pal::SelectFont(logical, &selection)) {
        KQEnv->Error = KQERR_NOTFOUND;
        return false;
    }
    font->fontHandle = selection.font;
    font->oldFont = selection.replaced;
    font->deviceContext = selection.context;
    return true;
}

// Reads the bytes of the selected font; false on failure.
bool ReadSelected(KQFont* font, size_t* directory) {
    pal::FontSelection selection = SelectionOf(font);
    i64 length = pal::FontFileLength(selection);
    if (length > 0 && u64(length) <= KQFONT_MostBytes) {
        // The bare form: the guarded one fills what the read is about to.
        font->fontData = static_cast<u8*>(AllocMemoryKQ(size_t(length), 0));
        if (!font->fontData) return false;
        font->fontBytes = u64(length);
        if (pal::ReadFontFile(selection, font->fontData, size_t(length), directory)) return true;
    }
    KQEnv->Error = KQERR_READ;
    return false;
}

bool UseFile(KQFont* font, size_t* directory) {
    font->fontData = kq::ReadFontFile(font->fontFile, &font->fontBytes);
    if (!font->fontData) return false;
    if (kq::truetype::FindDirectory({font->fontData, size_t(font->fontBytes)}, u32(font->faceIndex), directory))
        return true;
    KQEnv->Error = KQERR_BADDATA;
    return false;
}

void FreeData(KQFont* font) {
    kq::truetype::FreeIndex(font);
    KQ_FREE(font->fontData);
    font->fontData = font->cmapTable = font->cmapRecord = font->glyfTable = font->locaTable = font->headTable = nullptr;
    font->hheaTable = font->hmtxTable = font->kernTable = nullptr;
    font->sizes = {};
    font->fontBytes = 0;
}

// Loads the file and finds its tables; false with nothing kept on failure.
bool Load(KQFont* font) {
    size_t directory = 0;
    bool read = font->fontFile ? UseFile(font, &directory) : ReadSelected(font, &directory);
    if (read && kq::truetype::UseFontData(font, directory)) return true;
    if (read) KQEnv->Error = KQERR_BADDATA;
    FreeData(font);
    return false;
}

}   // namespace

void GetAvailableFontsKQ(List* list) {
    if (!list) return;
    if (!list->Head) NewList(list);
    Filling filling = {list, true};
    pal::EnumerateFonts(AddHostFace, &filling);
    char folder[kFolderBytes];
    if (filling.more && pal::EnvironmentVariable("KQLIB_FONT_DIR", folder, sizeof folder) && folder[0])
        kq::EnumerateFontFolder(folder, AddFace, &filling);
    Sort_List(list);
}

void FreeFontListKQ(List* list) {
    if (!list || !list->Head) return;
    for (Node* node = list->Head; node->Succ; node = node->Succ) CloseFontKQ(KQFontOfNode(node));
    Free_List(list);
}

int OpenFontKQ(KQFont* font, i32 style, i32 pointSize, i32 resolutionX, i32 resolutionY) {
    if (!font) return 0;
    CloseFontKQ(font);
    font->style = style;
    font->pointSize = pointSize;
    font->resolutionX = resolutionX;
    font->resolutionY = resolutionY;
    if (!Select(font)) return 0;
    font->state = 0;
    if (!Load(font)) {
        Deselect(font);
        return 0;
    }
    font->state |= KQFONT_Open;
    return 1;
}

void CloseFontKQ(KQFont* font) {
    if (!font || !(font->state & KQFONT_Open)) return;
    FreeData(font);
    font->state &= ~KQFONT_Open;
    Deselect(font);
}
