// The clip of the class layer: the free calls, with a throw where they return 0.
#include "kq/kqcclip.h"

#include "kq/environment.h"

KQCClip::Exception::Exception(u32 code) : code_(code) {}

KQCClip::Exception::~Exception() = default;

const char* KQCClip::Exception::what() const noexcept { return "a clip could not be used"; }

KQCClip::KQCClip(const KQCFileSpec& spec, TagItem* tags) : clip_(OpenClipKQ(spec.Get(), tags)), withinIO_(false) {
    if (!clip_) throw Exception(GetErrorKQ());
}

KQCClip::~KQCClip() {
    if (withinIO_) EndIO();
    CloseClipKQ(clip_);
    FreeClipKQ(clip_);
}

void KQCClip::BeginIO(TagItem* tags) {
    if (!BeginClipIOKQ(clip_, tags)) throw Exception(GetErrorKQ());
    withinIO_ = true;
}

void KQCClip::EndIO(TagItem* tags) noexcept {
    EndClipIOKQ(clip_, tags);
    withinIO_ = false;
}

void KQCClip::GetFrame(KQBitmap* bitmap, const KQTimeValue* time, const KQTimeValue* duration, TagItem* tags) {
    if (!GetFrameKQ(clip_, bitmap, time, duration, tags)) throw Exception(GetErrorKQ());
}
