// kqclip sheet and frame: frames of a clip as PNG, many on one picture, or one as it is.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "apps/kqclip/Commands.h"
#include "apps/kqclip/Lettering.h"
#include "apps/kqclip/Output.h"
#include "apps/kqclip/Picture.h"
#include "apps/kqclip/Progress.h"

namespace kqclip {

namespace {

constexpr Colour kPaper = {28, 29, 32};
constexpr Colour kCell = {40, 41, 45};
constexpr Colour kInk = {214, 216, 220};
constexpr Colour kPaleInk = {140, 144, 152};

constexpr Colour kAlarm = {224, 122, 95};

constexpr int kMargin = 16;
constexpr int kGap = 10;
constexpr int kHeader = 36;
constexpr int kLabel = 20;
constexpr int kNameHeight = 22;
constexpr int kTextHeight = 14;

// All steps, or as many of them as are wanted at even distances, the first and the last among them.
std::vector<Step> EvenChoice(const std::vector<Step>& steps, int wanted) {
    int total = int(steps.size());
    if (total <= wanted) return steps;
    std::vector<Step> chosen;
    for (int i = 0; i < wanted; ++i)
        chosen.push_back(steps[size_t(wanted == 1 ? 0 : std::lround(double(i) * (total - 1) / (wanted - 1)))]);
    return chosen;
}

// The clip's picture in its display shape, fitted into the cell.
Size Fit(const KQClip* clip, int cellWidth, int cellHeight) {
    double width = clip->width * (clip->pixelAspect > 0 ? clip->pixelAspect : 1.0), height = clip->height;
    double scale = std::min(cellWidth / width, cellHeight / height);
    return {std::clamp(int(std::lround(width * scale)), 1, cellWidth),
            std::clamp(int(std::lround(height * scale)), 1, cellHeight)};
}

std::string FactsOf(const Material& material) {
    const KQClip* clip = material.Clip();
    char text[160];
    std::snprintf(text, sizeof text, "%s   %d x %d   %d frames   %.5g fps   %.2f s", clip->format->node.Name,
                  clip->width, clip->height, clip->frameCount, clip->frameRate, material.Seconds());
    return text;
}

void DrawHeader(Picture& sheet, Lettering& letters, const Material& material) {
    std::string name = NameOf(material.Clip()->fileSpec), facts = FactsOf(material);
    int x = letters.Draw(sheet, kMargin, kMargin + kNameHeight, kNameHeight, name, kInk) + 2 * kGap;
    if (x + letters.Width(kTextHeight, facts) <= sheet.Width() - kMargin)
        letters.Draw(sheet, x, kMargin + kNameHeight - 1, kTextHeight, facts, kPaleInk);
}

// How the cells stand on the sheet.
struct Layout {
    Size cell;
    int columns, rows;

    int X(int i) const { return kMargin + i % columns * (cell.width + kGap); }

    int Y(int i) const { return kMargin + kHeader + i / columns * (cell.height + kLabel + kGap); }

    long Width() const { return 2L * kMargin + long(columns) * (cell.width + kGap) - kGap; }

    long Height() const { return 2L * kMargin + kHeader + long(rows) * (cell.height + kLabel + kGap) - kGap; }
};

// Of the numbers of columns near `about` the one whose last row is fullest, the nearest of several.
int Fullest(int count, int about) {
    int best = about;
    auto empty = [count](int columns) { return (columns - count % columns) % columns; };
    for (int away = 1; away <= std::max(about / 4, 1); ++away)
        for (int columns : {about + away, about - away})
            if (columns > 0 && empty(columns) < empty(best)) best = columns;
    return best;
}

Layout LayOut(Size cell, int count, int columns) {
    double shape = double(cell.height + kLabel + kGap) / (cell.width + kGap);
    if (columns == 0) columns = Fullest(count, std::max(int(std::lround(std::sqrt(count * shape * 1.4))), 1));
    columns = std::min(columns, count);
    return {cell, columns, (count + columns - 1) / columns};
}

// A frame that cannot be read.
void DrawDamaged(Picture& sheet, Lettering& letters, int x, int y, Size cell) {
    const char* text = "damaged";
    int left = std::max((cell.width - letters.Width(kTextHeight, text)) / 2, 2);
    letters.Draw(sheet, x + left, y + (cell.height + kTextHeight) / 2, kTextHeight, text, kAlarm);
}

// A shell that expands shot.*.png to two names would have the second overwritten.
void RefuseInput(const Material& material, const std::string& output) {
    if (material.Reads(output))
        throw Failure("wrong-use", "cannot write '" + output + "': it is a file of the input; choose another name",
                      kWrongUse);
}

// What can be said against the output before a frame is read.
void CheckOutput(const Material& material, const std::string& output, bool overwrite) {
    RefuseInput(material, output);
    CheckReplaceable(output, overwrite);
}

}   // namespace

void Sheet(const CommonOptions& common, const InputOptions& input, const SheetOptions& options, Report& report) {
    RequireExtension(options.output, "png", "a sheet");
    InputOptions lenient = input;   // a sheet shows what there is
    if (input.missing == Missing::Error && input.frames.empty()) lenient.missing = Missing::Skip;
    Material material(lenient);
    report.facts["input"] = material.Describe();
    CheckOutput(material, options.output, options.overwrite);
    std::vector<Step> steps = EvenChoice(material.Plan(report, true), options.most);
    if (steps.empty()) throw Failure("no-frames", "no frame of '" + input.path + "' is left to show");
    Layout layout =
        LayOut(Fit(material.Clip(), options.cellWidth, options.cellHeight), int(steps.size()), options.columns);
    if (layout.Width() > 32767 || layout.Height() > 32767)
        throw Failure("too-large", "the sheet of '" + input.path +
                                       "' would be larger than 32767 pixels; choose smaller cells or fewer frames");
    Picture sheet(int(layout.Width()), int(layout.Height()), kPaper);
    Lettering letters;
    DrawHeader(sheet, letters, material);
    Bitmap bitmap = MakeBitmap(material.Clip()->width, material.Clip()->height);
    Progress progress("sheet", int(steps.size()), common.progress);
    for (int i = 0; i < int(steps.size()); ++i) {
        int x = layout.X(i), y = layout.Y(i);
        sheet.FillRect(x, y, layout.cell.width, layout.cell.height, kCell);
        if (material.Fetch(steps[size_t(i)], bitmap.get(), report))
            sheet.DrawScaled(bitmap.get(), x, y, layout.cell.width, layout.cell.height);
        else
            DrawDamaged(sheet, letters, x, y, layout.cell);
        letters.Draw(sheet, x, y + layout.cell.height + kLabel - 2, kTextHeight,
                     std::to_string(steps[size_t(i)].number), kPaleInk);
        progress.Show(i + 1);
    }
    sheet.WritePNG(options.output);
    report.facts["output"] = {{"path", options.output},
                              {"width", sheet.Width()},
                              {"height", sheet.Height()},
                              {"shown", steps.size()},
                              {"columns", layout.columns}};
    if (!common.json)
        std::printf("wrote a sheet of %s: %s, %d x %d pixels\n", Counted(steps.size(), "frame").c_str(),
                    options.output.c_str(), sheet.Width(), sheet.Height());
}

void Frame(const CommonOptions& common, const InputOptions& input, const FrameOptions& options, Report& report) {
    RequireExtension(options.output, "png", "a frame");
    InputOptions one = input;
    one.frames = std::to_string(options.number);
    Material material(one);
    report.facts["input"] = material.Describe();
    Size size = options.size.empty() ? Size{material.Clip()->width, material.Clip()->height}
                                     : ParseSize(options.size, "--size");
    CheckOutput(material, options.output, options.overwrite);
    std::vector<Step> steps = material.Plan(report, false);
    Bitmap bitmap = MakeBitmap(size.width, size.height);
    if (steps.empty() || !material.Fetch(steps[0], bitmap.get(), report))
        throw Failure("missing-frames",
                      "'" + input.path + "' has no frame " + one.frames + " to write; see 'kqclip info'");
    Picture picture(size.width, size.height, {0, 0, 0});
    picture.TakePixels(bitmap.get());
    picture.WritePNG(options.output);
    report.facts["output"] = {
        {"path", options.output}, {"width", size.width}, {"height", size.height}, {"number", options.number}};
    if (!common.json)
        std::printf("wrote frame %d as %s, %d x %d pixels\n", options.number, options.output.c_str(), size.width,
                    size.height);
}

}   // namespace kqclip
