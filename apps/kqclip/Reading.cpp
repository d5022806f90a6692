// Reading: the pixels of a step, from one file or woven from two, and what takes the place of those that cannot be
// read.
#include <algorithm>
#include <cstring>

#include "apps/kqclip/Material.h"

namespace kqclip {

namespace {

constexpr const char* kScaled = "was scaled; leave it out with --frames, or convert it alone";

void AddOnce(std::vector<int>& numbers, int number) {
    if (number >= 0 && (numbers.empty() || numbers.back() != number)) numbers.push_back(number);
}

// The clip of a sequence as a clip of one file while it lives. The library would look for the file by the sequence's
// name, which does not tell every file: brackets in the name, or letters of another case, lead it astray.
class AsOneFile {
public:
    AsOneFile(KQClip* clip, const std::string& file)
        : clip_(clip), spec_(clip->fileSpec), frames_(clip->frameCount), pullDown_(clip->pullDown) {
        char* own = MakeFileSpecKQ(file.c_str());
        if (!own) throw Failure("no-memory", "out of memory for the name of '" + file + "'");
        clip->fileSpec = own;
        clip->frameCount = 1;
        clip->pullDown = 0;
    }

    ~AsOneFile() {
        FreeFileSpecKQ(clip_->fileSpec);
        clip_->fileSpec = spec_;
        clip_->frameCount = frames_;
        clip_->pullDown = pullDown_;
    }

    AsOneFile(const AsOneFile&) = delete;
    AsOneFile& operator=(const AsOneFile&) = delete;

private:
    KQClip* clip_;
    char* spec_;
    i32 frames_, pullDown_;
};

// A whole presented frame, or one of its fields.
bool ReadRetrieved(KQClip* clip, int index, int field, KQBitmap* bitmap) {
    KQTimeValue time = {index + (field == 1 ? 0.5 : 0.0), clip->frameRate};
    KQTimeValue half = {0.5, clip->frameRate};
    KQEnv->Error = KQERR_NONE;
    return GetFrameKQ(clip, bitmap, &time, field >= 0 ? &half : nullptr, nullptr) != 0;
}

// Every second row of `from` from row `first` on.
void WeaveRows(const KQBitmap* from, KQBitmap* to, int first) {
    for (i32 y = first; y < to->height; y += 2) {
        size_t at = size_t(y) * size_t(to->rowBytes);
        std::memcpy(to->data + at, from->data + at, size_t(to->rowBytes));
    }
}

// Makes every pixel opaque; whether one was not.
bool MakeOpaque(KQBitmap* bitmap) {
    u8 all = 255;
    for (i32 i = 0; i < bitmap->dataSize; i += 4) {
        all &= bitmap->data[i];
        bitmap->data[i] = 255;
    }
    return all != 255;
}

}   // namespace

std::string SizeText(const KQClip* clip) {
    return std::to_string(clip->width) + " x " + std::to_string(clip->height) + " pixels";
}

void Material::NoteDamage(int number, const std::string& text, Report& report) const {
    AddOnce(report.damaged, number);
    report.Warn("damaged-frame", text);
}

void Material::NoteOtherSize(int number, int file, const KQClip* other, const std::string& what, Report& report) const {
    AddOnce(report.otherSize, number);
    report.Warn("different-size", NameOfFile(number, file) + " " +
                                      (other ? "has " + SizeText(other) : "is of another size") + ", the clip has " +
                                      SizeText(clip_.get()) + "; it " + what);
}

void Material::NoteLostAlpha(int number, int file, Report& report) const {
    report.Warn("lost-alpha", NameOfFile(number, file) +
                                  " has an alpha channel, which the first frame has not; it is left out, and --alpha "
                                  "straight or premultiplied keeps it");
}

// What the library left in Error after a frame that it brought.
void Material::Judge(const Step& step, int file, u32 error, Report& report) const {
    if (error == KQERR_NONE) return;
    if (error == KQERR_BADDATA && file >= 0)
        return NoteOtherSize(step.number, file, OpenAlone(files_[size_t(file)].path).get(), kScaled, report);
    NoteDamage(step.number,
               NameOfFile(step.number, file) + " is damaged: " +
                   (Said().empty() ? "the file ends before it, or holds no picture there" : "not all of it is there") +
                   Said(),
               report);
}

// Reads one file of a sequence. A module that scales brings a frame of another size by itself and leaves KQERR_BADDATA;
// for others the head of each file is looked at first. Alpha that the first file has not is not taken, but looked for.
std::string Material::ReadFile(int file, const Step& step, KQBitmap* bitmap, Report& report) const {
    const std::string& path = files_[size_t(file)].path;
    KQClip* clip = clip_.get();
    ListenAnew();
    ClipHandle alone = GetImportPropertiesKQ(clip->format) & KQFORMAT_SCALES ? ClipHandle() : OpenAlone(path);
    if (!alone && !(GetImportPropertiesKQ(clip->format) & KQFORMAT_SCALES)) return ReasonOf(GetErrorKQ()).why + Said();
    bool resized = alone && (alone->width != clip->width || alone->height != clip->height);
    if (resized) NoteOtherSize(step.number, file, alone.get(), kScaled, report);
    if (resized && !BeginClipIOKQ(alone.get(), nullptr)) return ReasonOf(GetErrorKQ()).why + Said();
    KQClip* source = resized ? alone.get() : clip;
    bool mayLose = MayLoseAlpha();
    if (mayLose) source->alphaMode = 2;
    AsOneFile one(source, path);
    bool done = ReadRetrieved(source, 0, clip->pullDown ? -1 : step.field, bitmap);
    u32 error = GetErrorKQ();
    if (mayLose) source->alphaMode = 0;
    if (!done) return ReasonOf(error).why + Said();
    Judge(step, file, error, report);
    if (!mayLose || !MakeOpaque(bitmap)) return "";
    if (!alone) alone = OpenAlone(path);
    if (alone && alone->depth == 32) NoteLostAlpha(step.number, file, report);
    return "";
}

// Reads the step's frame; empty, or why it cannot be read. A frame that is there in part is read, and noted.
std::string Material::ReadFresh(const Step& step, KQBitmap* bitmap, Report& report) const {
    if (!sequence_) {
        ListenAnew();
        bool done = ReadRetrieved(clip_.get(), step.index, step.field, bitmap);
        u32 error = GetErrorKQ();
        if (!done) return ReasonOf(error).why + Said();
        Judge(step, -1, error, report);
        return "";
    }
    auto [first, second] = sources_[size_t(step.index)];
    std::string why = ReadFile(first, step, bitmap, report);
    if (!why.empty() || second < 0) return why;
    Bitmap other = MakeBitmap(bitmap->width, bitmap->height);
    why = ReadFile(second, step, other.get(), report);
    WeaveRows(other.get(), bitmap, clip_->fieldOrder == 1 ? 0 : 1);
    return why;
}

// A frame that could not be read once is not tried again: others may want it in their place.
std::string Material::Read(const Step& step, KQBitmap* bitmap, Report& report) const {
    if (auto known = failed_.find(step.index); known != failed_.end()) return known->second;
    std::string why = ReadFresh(step, bitmap, report);
    if (!why.empty()) failed_.emplace(step.index, why);
    return why;
}

bool Material::Fetch(const Step& step, KQBitmap* bitmap, Report& report) const {
    ThrowIfInterrupted();
    if (step.index < 0) {
        FillBitmapKQ(bitmap, 0xFF000000);
        return step.index == kBlack;
    }
    std::string why = Read(step, bitmap, report);
    ++report.framesRead;
    return why.empty() || Replace(step, why, bitmap, report);
}

bool Material::Replace(const Step& step, const std::string& why, KQBitmap* bitmap, Report& report) const {
    std::string text = NameOfFile(step.number, sequence_ ? sources_[size_t(step.index)].first : -1);
    if (options_.missing == Missing::Error)
        throw Failure("damaged-frame", "cannot read " + text + ": " + why +
                                           "; --missing hold, nearest, black or skip goes on without it");
    NoteDamage(step.number, text + " cannot be read: " + why, report);
    FillBitmapKQ(bitmap, 0xFF000000);
    if (options_.missing == Missing::Hold || options_.missing == Missing::Nearest) Borrow(step, bitmap);
    return options_.missing != Missing::Skip;
}

// The last readable frame before the step's, or the nearest by number, the lower one of two; black where there is none.
// What is damaged on the way is told when its own turn comes.
void Material::Borrow(const Step& step, KQBitmap* bitmap) const {
    int after = int(std::lower_bound(numbers_.begin(), numbers_.end(), step.number) - numbers_.begin());
    int before = after - 1, frames = options_.missing == Missing::Nearest ? int(numbers_.size()) : 0;
    while (before >= 0 || after < frames) {
        bool lower = after >= frames || (before >= 0 && (long long)(step.number) - numbers_[size_t(before)] <=
                                                            (long long)(numbers_[size_t(after)]) - step.number);
        int index = lower ? before-- : after++;
        Report unheard;
        if (Read({numbers_[size_t(index)], index, true, step.field}, bitmap, unheard).empty()) return;
        FillBitmapKQ(bitmap, 0xFF000000);
    }
}

}   // namespace kqclip
