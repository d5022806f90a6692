// kqclip fonts and text: the fonts that there are, and a line of text as paths of an SVG file.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>

#include "apps/kqclip/Commands.h"
#include "apps/kqclip/Output.h"

namespace kqclip {

namespace {

// The fonts that are available, freed at the end.
class FontList {
public:
    FontList() { GetAvailableFontsKQ(&list_); }

    ~FontList() { FreeFontListKQ(&list_); }

    FontList(const FontList&) = delete;
    FontList& operator=(const FontList&) = delete;

    const Node* First() const { return list_.Head; }

    bool Empty() const { return List_Empty(&list_) != 0; }

    // The font of this name in any case of letters, or null.
    KQFont* Find(const std::string& name) const {
        Node* node = Find_Name(&list_, name.c_str());
        return node ? KQFontOfNode(node) : nullptr;
    }

private:
    List list_ = {};
};

// The font that was asked for, else a common one, else the first.
KQFont* Choose(const FontList& fonts, const std::string& name) {
    if (fonts.Empty())
        throw Failure("no-fonts",
                      "no TrueType font is installed; put font files into a folder and name it in "
                      "KQLIB_FONT_DIR");
    if (name.empty()) {
        for (const char* common : {"DejaVu Sans", "Liberation Sans", "Arial"})
            if (KQFont* font = fonts.Find(common)) return font;
        return KQFontOfNode(fonts.First());
    }
    if (KQFont* font = fonts.Find(name)) return font;
    throw Failure("no-such-font", "there is no font '" + name + "'; 'kqclip fonts' lists what there is");
}

struct CloseFont {
    void operator()(KQFont* font) const { CloseFontKQ(font); }
};

struct FreeOutline {
    void operator()(KQOutlineCommand* block) const { FreeMemoryKQ(block); }
};

// The text's characters; those beyond the first 256 of Unicode, which fonts are not asked for, become question marks.
std::vector<u8> Characters(const std::string& utf8, Report& report) {
    std::vector<u8> characters;
    bool beyond = false;
    for (size_t i = 0; i < utf8.size(); ++i) {
        u8 byte = u8(utf8[i]);
        bool two = (byte == 0xC2 || byte == 0xC3) && i + 1 < utf8.size() && (u8(utf8[i + 1]) & 0xC0) == 0x80;
        if (two) {
            characters.push_back(u8((byte & 3) << 6 | (u8(utf8[++i]) & 63)));
        } else if (byte < 0x80) {
            characters.push_back(byte);
        } else if ((byte & 0xC0) == 0xC0) {
            characters.push_back('?');
            beyond = true;
        }
    }
    if (beyond) report.Warn("substituted-characters", "characters beyond Latin-1 are drawn as question marks");
    return characters;
}

// The smallest box around what was drawn.
struct Box {
    double left = 0, top = 0, right = 0, bottom = 0;

    void Include(double x, double y) {
        left = std::min(left, x);
        top = std::min(top, y);
        right = std::max(right, x);
        bottom = std::max(bottom, y);
    }
};

// Builds the data of one path.
class PathData {
public:
    explicit PathData(Box& box) : box_(box) {}

    void Add(const KQOutlineCommand* command) {
        const f64* v = KQOutlineValues(command);
        switch (command->kind) {
        case KQOUTLINE_MOVE: Put("M", {v[0], v[1]}); break;
        case KQOUTLINE_LINE: Put("L", {v[0], v[1]}); break;
        // A tangent is three times the way to the control point of the same cubic.
        case KQOUTLINE_CURVE:
            Put("C", {x_ + v[2] / 3, y_ + v[3] / 3, v[0] - v[4] / 3, v[1] - v[5] / 3, v[0], v[1]});
            break;
        case KQOUTLINE_CLOSE: text_ += "Z"; break;
        }
    }

    const std::string& Text() const { return text_; }

private:
    void Put(const char* letter, std::initializer_list<double> values) {
        text_ += letter;
        const char* before = "";
        bool isY = false;
        for (double value : values) {
            char number[40];
            std::snprintf(number, sizeof number, "%s%.10g", before, std::round(value * 1e4) / 1e4 + 0.0);
            text_ += number;
            before = " ";
            (isY ? y_ : x_) = value;
            if (isY) box_.Include(x_, y_);
            isY = !isY;
        }
    }

    Box& box_;
    std::string text_;
    double x_ = 0, y_ = 0;
};

// A line of text laid out by advances and kerning.
struct Line {
    std::string paths;
    Box box;
    double advance = 0;
    int kerned = 0, missing = 0;
};

Line LayOut(KQFont* font, const std::vector<u8>& characters) {
    Line line;
    for (size_t i = 0; i < characters.size(); ++i) {
        f64 x = 0, y = 0;
        std::unique_ptr<KQOutlineCommand, FreeOutline> block(GetFontOutlineKQ(characters[i], font, line.advance, 0.0));
        PathData data(line.box);
        if (!block) ++line.missing;
        for (const KQOutlineCommand* c = block.get(); c && c->kind != KQOUTLINE_END; c = KQNextOutline(c)) data.Add(c);
        if (!data.Text().empty()) line.paths += "  <path d=\"" + data.Text() + "\"/>\n";
        GetCursorAdvanceKQ(characters[i], font, &x, &y);
        line.advance += x;
        if (i + 1 == characters.size()) break;
        GetKernKQ(font, characters[i], characters[i + 1], &x, &y);
        line.advance += x;
        line.kerned += x != 0;
    }
    line.box.Include(line.advance, -GetLineAdvanceKQ(font));   // the origin lies at the foot of the line
    return line;
}

void WriteSvg(const std::string& path, const Line& line, bool overwrite) {
    int left = int(std::floor(line.box.left)), top = int(std::floor(line.box.top));
    int width = std::max(int(std::ceil(line.box.right)) - left, 1);
    int height = std::max(int(std::ceil(line.box.bottom)) - top, 1);
    char head[240];
    std::snprintf(head, sizeof head,
                  "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%d\" height=\"%d\" viewBox=\"%d %d %d %d\">\n",
                  width, height, left, top, width, height);
    WriteWhole(path, head + line.paths + "</svg>\n", overwrite);
}

Json Describe(const KQFont* font) {
    Json fact = {{"name", font->node.Name}, {"weight", font->logFont.weight}, {"italic", font->logFont.italic != 0}};
    if (font->fontFile) {
        fact["file"] = font->fontFile;
        fact["face"] = font->faceIndex;
    }
    return fact;
}

}   // namespace

void Fonts(const CommonOptions& common, Report& report) {
    FontList fonts;
    Json all = Json::array();
    for (const Node* node = fonts.First(); node->Succ; node = node->Succ) all.push_back(Describe(KQFontOfNode(node)));
    report.facts["fonts"] = all;
    if (common.json) return;
    for (const Json& fact : all) {
        std::string file = fact.value("file", "");
        if (fact.value("face", 0) > 0) file += ", face " + std::to_string(fact["face"].get<int>());
        std::printf("%-40s %s\n", fact["name"].get<std::string>().c_str(), file.c_str());
    }
}

void Text(const CommonOptions& common, const TextOptions& options, Report& report) {
    RequireExtension(options.output, "svg", "text");
    CheckReplaceable(options.output, options.overwrite);
    FontList fonts;
    KQFont* font = Choose(fonts, options.font);
    std::string name = font->node.Name;
    if (!OpenFontKQ(font, 0, options.size, options.dpi, options.dpi))
        throw LibraryFailure("open the font", name, GetErrorKQ());
    std::unique_ptr<KQFont, CloseFont> open(font);
    std::vector<u8> characters = Characters(options.text, report);
    Line line = LayOut(font, characters);
    if (line.missing)
        report.Warn("no-outline",
                    "the font '" + name + "' gives no outline for " + Counted(size_t(line.missing), "character"));
    WriteSvg(options.output, line, options.overwrite);
    report.facts["font"] = Describe(font);
    report.facts["output"] = {{"path", options.output},     {"characters", characters.size()},
                              {"advance", line.advance},    {"lineAdvance", GetLineAdvanceKQ(font)},
                              {"kernedPairs", line.kerned}, {"size", options.size},
                              {"dpi", options.dpi}};
    if (!common.json)
        std::printf("wrote %s in %s as %s\n", Counted(characters.size(), "character").c_str(), name.c_str(),
                    options.output.c_str());
}

}   // namespace kqclip
