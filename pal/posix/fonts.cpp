// Fonts as fontconfig lists them. Each face has a file, so nothing is ever selected.
#include "pal/fonts.h"

#include <cstdio>
#include <cstring>

#include <fontconfig/fontconfig.h>

namespace pal {

namespace {

// The English one of a pattern's texts, else the first; null when there is none.
const char* TextOf(FcPattern* pattern, const char* object, const char* languages) {
    FcChar8 *text, *language;
    for (int i = 0; FcPatternGetString(pattern, languages, i, &language) == FcResultMatch; ++i)
        if (std::strcmp(reinterpret_cast<char*>(language), "en") == 0 &&
            FcPatternGetString(pattern, object, i, &text) == FcResultMatch)
            return reinterpret_cast<char*>(text);
    return FcPatternGetString(pattern, object, 0, &text) == FcResultMatch ? reinterpret_cast<char*>(text) : nullptr;
}

LogicalFont Describe(FcPattern* pattern, const char* family) {
    LogicalFont logical = {};
    int weight = FC_WEIGHT_REGULAR, slant = FC_SLANT_ROMAN;
    FcPatternGetInteger(pattern, FC_WEIGHT, 0, &weight);
    FcPatternGetInteger(pattern, FC_SLANT, 0, &slant);
    logical.weight = FcWeightToOpenType(weight);
    logical.italic = slant != FC_SLANT_ROMAN;
    logical.charSet = 1;
    if (family) std::strncpy(logical.faceName, family, sizeof logical.faceName - 1);
    return logical;
}

// Passes one pattern on; false when the caller has enough.
bool Report(FcPattern* pattern, bool (*face)(const FontFace&, void*), void* user) {
    FcChar8* file;
    int index = 0;
    if (FcPatternGetString(pattern, FC_FILE, 0, &file) != FcResultMatch) return true;
    FcPatternGetInteger(pattern, FC_INDEX, 0, &index);
    // The upper half numbers the named instances of a variable face, which are no faces of their own.
    if (index >> 16) return true;
    const char* family = TextOf(pattern, FC_FAMILY, FC_FAMILYLANG);
    const char* name = TextOf(pattern, FC_FULLNAME, FC_FULLNAMELANG);
    if (!name) name = family;
    if (!name) return true;
    return face({name, reinterpret_cast<char*>(file), index, Describe(pattern, family)}, user);
}

}   // namespace

void EnumerateFonts(bool (*face)(const FontFace& face, void* user), void* user) {
    FcConfig* config = FcInitLoadConfigAndFonts();
    if (!config) return;
    FcPattern* wanted =
        FcPatternBuild(nullptr, FC_FONTFORMAT, FcTypeString, "TrueType", FC_OUTLINE, FcTypeBool, FcTrue, nullptr);
    FcObjectSet* objects = FcObjectSetBuild(FC_FULLNAME, FC_FULLNAMELANG, FC_FAMILY, FC_FAMILYLANG, FC_FILE, FC_INDEX,
                                            FC_WEIGHT, FC_SLANT, nullptr);
    FcFontSet* fonts = wanted && objects ? FcFontList(config, wanted, objects) : nullptr;
    if (fonts) {
        for (int i = 0; i < fonts->nfont && Report(fonts->fonts[i], face, user); ++i) {
        }
        FcFontSetDestroy(fonts);
    }
    if (objects) FcObjectSetDestroy(objects);
    if (wanted) FcPatternDestroy(wanted);
    FcConfigDestroy(config);
}

bool SelectFont(const LogicalFont&, FontSelection*) { return false; }

void DeselectFont(const FontSelection&) {}

i64 FontFileLength(const FontSelection&) { return -1; }

bool ReadFontFile(const FontSelection&, void*, size_t, size_t*) { return false; }

}   // namespace pal
