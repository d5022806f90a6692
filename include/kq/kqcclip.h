// The clip of the class layer.
#pragma once

#include "kq/clip.h"
#include "kq/exceptions.h"
#include "kq/kqcfilespec.h"
#include "kq/tags.h"
#include "kq/types.h"

// Owns one open clip. For the library's own thread.
class KQ_API KQCClip {
public:
    // Thrown by value when opening, beginning or getting a frame has failed.
    class KQ_API Exception : public KQException {
    public:
        // `code` is what GetErrorKQ gave at the moment of the failure.
        explicit Exception(u32 code);
        Exception(const Exception&) = default;
        Exception& operator=(const Exception&) = default;
        ~Exception() override;

        u32 Code() const { return code_; }

        const char* what() const noexcept override;

    private:
        u32 code_;
    };

    // Opens the file with the tags of OpenClipKQ (null: none). Throws Exception when it cannot be opened.
    explicit KQCClip(const KQCFileSpec& spec, TagItem* tags = nullptr);

    // The form with trailing tag pairs.
    template <kq::TagNumber Tag, class... Rest>
    KQCClip(const KQCFileSpec& spec, Tag tag, Rest... rest) : KQCClip(spec, kq::TagArray(tag, rest...).data()) {}

    KQCClip(const KQCClip&) = delete;
    KQCClip& operator=(const KQCClip&) = delete;

    // Ends input when it is begun, closes and frees.
    ~KQCClip();

    // As BeginClipIOKQ; throws Exception when it fails.
    void BeginIO(TagItem* tags = nullptr);

    // As EndClipIOKQ; a failure is not told.
    void EndIO(TagItem* tags = nullptr) noexcept;

    // As GetFrameKQ; throws Exception when it fails. A frame that does not exist is background and no failure.
    void GetFrame(KQBitmap* bitmap, const KQTimeValue* time, const KQTimeValue* duration, TagItem* tags = nullptr);

    // The form with trailing tag pairs.
    template <kq::TagNumber Tag, class... Rest>
    void GetFrame(KQBitmap* bitmap, const KQTimeValue* time, const KQTimeValue* duration, Tag tag, Rest... rest) {
        GetFrame(bitmap, time, duration, kq::TagArray(tag, rest...).data());
    }

    // The clip; it stays owned here.
    KQClip* Get() const { return clip_; }

private:
    KQClip* clip_;
    bool withinIO_;
};
