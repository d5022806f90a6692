// kqclip sheet and frame: frames of a clip as PNG, many on one picture, or one as it is.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "apps/kqclip/Commands.h"
#include "apps/kqclip/FrameRange.h"
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
constexpr int kHeader = 54;
constexpr int kLabel = 20;
constexpr int kNameHeight = 22;
constexpr int kTextHeight = 14;
constexpr int kBorder = 2;

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

// How the cells stand on the sheet.
struct Layout {
    Size cell;
    int columns, rows;

    int X(int i) const { return kMargin + i % columns * (cell.width + kGap); }

    int Y(int i) const { return kMargin + kHeader + i / columns * (cell.height + kLabel + kGap); }

    long Width() const { return 2L * kMargin + long(columns) * (cell.width + kGap) - kGap; }

    long Height() const { return 2L * kMargin + kHeader + long(rows) * (cell.height + kLabel + kGap) - kGap; }
};

Layout InColumns(Size cell, int count, int columns) { return {cell, columns, (count + columns - 1) / columns}; }

// How far a sheet is from a good one: the shape of a screen, and no empty places.
double Ugliness(const Layout& layout, int count) {
    int places = layout.columns * layout.rows;
    return std::fabs(std::log(double(layout.Width()) / double(layout.Height()) / 1.6)) +
           2.0 * (places - count) / places;
}

Layout LayOut(Size cell, int count, int columns) {
    if (columns > 0) return InColumns(cell, count, std::min(columns, count));
    Layout best = InColumns(cell, count, 1);
    for (int wider = 2; wider <= count; ++wider)
        if (Layout other = InColumns(cell, count, wider); Ugliness(other, count) < Ugliness(best, count)) best = other;
    return best;
}

// Numbers that are not there, from first to last.
struct Gap {
    long long first, last;

    long long Count() const { return last - first + 1; }
};

// What of the asked frames has no cell because it is not there.
std::vector<Gap> GapsOf(const Material& material, const InputOptions& input, const Report& report) {
    std::vector<Gap> gaps;
    if (input.frames.empty()) {
        const std::vector<int>& numbers = material.Numbers();
        for (size_t i = 1; i < numbers.size(); ++i)
            if (Gap gap = {numbers[i - 1] + 1LL, numbers[i] - 1LL}; gap.Count() > 0) gaps.push_back(gap);
    } else if (input.missing == Missing::Skip && !report.missing.empty()) {
        for (int number : ParseFrames(report.missing)) gaps.push_back({number, number});
    }
    return gaps;
}

long long CountOf(const std::vector<Gap>& gaps) {
    long long count = 0;
    for (const Gap& gap : gaps) count += gap.Count();
    return count;
}

// "5 missing", "5-8 missing" or "12 frames missing": what is not there between two numbers; empty when nothing is.
std::string MissingBetween(const std::vector<Gap>& gaps, int one, int other) {
    std::vector<Gap> inside;
    for (const Gap& gap : gaps)
        if (gap.first > std::min(one, other) && gap.last < std::max(one, other)) inside.push_back(gap);
    if (inside.empty()) return "";
    if (inside.size() > 1) return Counted(size_t(CountOf(inside)), "frame") + " missing";
    std::string first = std::to_string(inside[0].first), last = std::to_string(inside[0].last);
    return (first == last ? first : first + "-" + last) + " missing";
}

// The text where it fits, else its beginning and its end around three dots.
std::string Shortened(Lettering& letters, int pixels, const std::string& text, int width) {
    auto isInside = [&text](size_t at) { return at < text.size() && (u8(text[at]) & 0xC0) == 0x80; };
    size_t tail = text.size() - std::min<size_t>(text.size(), 12), head = tail;
    std::string shown = text;
    while (letters.Width(pixels, shown) > width && tail < text.size()) {
        size_t& end = head > 0 ? head : tail;
        do head > 0 ? --end : ++end;
        while (isInside(end));
        shown = text.substr(0, head) + "..." + text.substr(tail);
    }
    return shown;
}

// The sheet while it is drawn.
class SheetPicture {
public:
    SheetPicture(const Layout& layout) : layout_(layout), picture_(int(layout.Width()), int(layout.Height()), kPaper) {}

    const Picture& Whole() const { return picture_; }

    // A frame's picture; null for one that cannot be read.
    void DrawFrame(int i, const KQBitmap* bitmap) {
        int x = layout_.X(i), y = layout_.Y(i);
        Size cell = layout_.cell;
        picture_.FillRect(x, y, cell.width, cell.height, kCell);
        if (bitmap) return picture_.DrawScaled(bitmap, x, y, cell.width, cell.height);
        const char* text = "cannot be read";
        int left = (cell.width - letters_.Width(kTextHeight, text)) / 2;
        if (left >= kGap)
            letters_.Draw(picture_, x + left, y + (cell.height + kTextHeight) / 2, kTextHeight, text, kAlarm);
    }

    // The number below, with what is wrong about the frame, which also gets a border; `after` stands on the right and
    // tells of what is missing behind it.
    void DrawLabel(int i, int number, const std::string& wrong, const std::string& after) {
        int x = layout_.X(i), y = layout_.Y(i) + layout_.cell.height + kLabel - 2;
        std::string text = std::to_string(number);
        if (!wrong.empty()) DrawBorder(i);
        int right = letters_.Draw(picture_, x, y, kTextHeight, text, wrong.empty() ? kPaleInk : kAlarm) + kGap;
        int end = x + layout_.cell.width;
        if (!wrong.empty() && right + letters_.Width(kTextHeight, wrong) <= end)
            right = letters_.Draw(picture_, right, y, kTextHeight, wrong, kAlarm) + kGap;
        if (after.empty()) return;
        int left = end - letters_.Width(kTextHeight, after);
        if (left >= right) letters_.Draw(picture_, left, y, kTextHeight, after, kAlarm);
        picture_.FillRect(end + kGap / 2 - 1, layout_.Y(i), 2, layout_.cell.height, kAlarm);
    }

    // The name, and below it as many of the facts as there is room for; what is wrong comes first.
    void DrawHeader(const std::string& name, const std::vector<std::string>& wrong,
                    const std::vector<std::string>& facts) {
        int width = picture_.Width() - 2 * kMargin, y = kMargin + kNameHeight;
        letters_.Draw(picture_, kMargin, y, kNameHeight, Shortened(letters_, kNameHeight, name, width), kInk);
        int x = kMargin;
        for (const std::string& fact : wrong) x = DrawFact(x, y + kLabel, fact, kAlarm);
        for (const std::string& fact : facts) x = DrawFact(x, y + kLabel, fact, kPaleInk);
    }

private:
    int DrawFact(int x, int y, const std::string& fact, Colour colour) {
        if (x + letters_.Width(kTextHeight, fact) > picture_.Width() - kMargin) return picture_.Width();
        return letters_.Draw(picture_, x, y, kTextHeight, fact, colour) + kTextHeight;
    }

    void DrawBorder(int i) {
        int x = layout_.X(i), y = layout_.Y(i), width = layout_.cell.width, height = layout_.cell.height;
        for (int side : {0, height - kBorder}) picture_.FillRect(x, y + side, width, kBorder, kAlarm);
        for (int side : {0, width - kBorder}) picture_.FillRect(x + side, y, kBorder, height, kAlarm);
    }

    Layout layout_;
    Picture picture_;
    Lettering letters_;
};

std::vector<std::string> FactsOf(const Material& material) {
    const KQClip* clip = material.Clip();
    char rate[40], seconds[40];
    std::snprintf(rate, sizeof rate, "%.5g fps", clip->frameRate);
    std::snprintf(seconds, sizeof seconds, "%.2f s", material.Seconds());
    return {std::to_string(clip->width) + " x " + std::to_string(clip->height),
            Counted(size_t(std::max(clip->frameCount, 0)), "frame"), rate, seconds, clip->format->node.Name};
}

// What is wrong with a frame, from what reading it added to the report.
std::string Wrong(const Step& step, bool read, size_t damagedBefore, size_t resizedBefore, const Report& report) {
    if (!read || report.damaged.size() > damagedBefore) return "damaged";
    if (step.missing) return "missing";
    return report.otherSize.size() > resizedBefore ? "other size" : "";
}

void DrawFrames(SheetPicture& sheet, const Material& material, const std::vector<Step>& steps,
                const std::vector<Gap>& gaps, const std::string& progressMode, Report& report) {
    Bitmap bitmap = MakeBitmap(material.Clip()->width, material.Clip()->height);
    Progress progress("sheet", int(steps.size()), progressMode);
    for (size_t i = 0; i < steps.size(); ++i) {
        size_t damaged = report.damaged.size(), resized = report.otherSize.size();
        bool read = material.Fetch(steps[i], bitmap.get(), report);
        sheet.DrawFrame(int(i), read ? bitmap.get() : nullptr);
        std::string after =
            i + 1 < steps.size() ? MissingBetween(gaps, steps[i].number, steps[i + 1].number) : std::string();
        sheet.DrawLabel(int(i), steps[i].number, Wrong(steps[i], read, damaged, resized, report), after);
        progress.Show(int(i + 1));
    }
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
    SheetPicture sheet(layout);
    std::vector<Gap> gaps = GapsOf(material, lenient, report);
    DrawFrames(sheet, material, steps, gaps, common.progress, report);
    std::vector<std::string> wrong;
    long long missing =
        CountOf(gaps) + std::count_if(steps.begin(), steps.end(), [](const Step& s) { return s.missing; });
    if (missing > 0) wrong.push_back(std::to_string(missing) + " missing");
    if (!report.damaged.empty()) wrong.push_back(std::to_string(report.damaged.size()) + " damaged");
    sheet.DrawHeader(NameOf(material.Clip()->fileSpec), wrong, FactsOf(material));
    const Picture& picture = sheet.Whole();
    picture.WritePNG(options.output, options.overwrite);
    report.facts["output"] = {{"path", options.output},
                              {"width", picture.Width()},
                              {"height", picture.Height()},
                              {"shown", steps.size()},
                              {"columns", layout.columns}};
    if (!common.json)
        std::printf("wrote a sheet of %s: %s, %d x %d pixels\n", Counted(steps.size(), "frame").c_str(),
                    options.output.c_str(), picture.Width(), picture.Height());
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
    picture.WritePNG(options.output, options.overwrite);
    report.facts["output"] = {
        {"path", options.output}, {"width", size.width}, {"height", size.height}, {"number", options.number}};
    if (!common.json)
        std::printf("wrote frame %d as %s, %d x %d pixels\n", options.number, options.output.c_str(), size.width,
                    size.height);
}

}   // namespace kqclip
