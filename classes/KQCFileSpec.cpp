// The owner of one file specification.
#include "kq/kqcfilespec.h"

#include "kq/environment.h"
#include "kq/filespec.h"

KQCFileSpec::Exception::Exception(u32 code) : code_(code) {}

KQCFileSpec::Exception::~Exception() = default;

const char* KQCFileSpec::Exception::what() const noexcept { return "a file specification could not be made"; }

KQCFileSpec::KQCFileSpec() : spec_(nullptr) {}

KQCFileSpec::KQCFileSpec(const char* text) : spec_(nullptr) {
    if (!text) throw KQAssertFail();
    spec_ = MakeFileSpecKQ(text);
    if (!spec_) throw Exception(GetErrorKQ());
}

KQCFileSpec::KQCFileSpec(const KQCFileSpec& other) noexcept : spec_(CopyFileSpecKQ(other.spec_)) {}

KQCFileSpec& KQCFileSpec::operator=(const KQCFileSpec& other) noexcept {
    if (this == &other) return *this;
    FreeFileSpecKQ(spec_);
    spec_ = CopyFileSpecKQ(other.spec_);
    return *this;
}

KQCFileSpec::~KQCFileSpec() {
    if (spec_) FreeFileSpecKQ(spec_);
    spec_ = nullptr;
}
