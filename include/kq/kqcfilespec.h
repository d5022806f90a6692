// The file specification of the class layer.
#pragma once

#include "kq/exceptions.h"
#include "kq/types.h"

// Owns one file specification, or none. For the library's own thread.
class KQ_API KQCFileSpec {
public:
    // Thrown by value when a specification could not be made.
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

    // None.
    KQCFileSpec();

    // A copy of `text`. Throws KQAssertFail for null, and Exception when it cannot be made.
    KQCFileSpec(const char* text);

    // A copy; none when the other has none or memory is short. Throws nothing.
    KQCFileSpec(const KQCFileSpec& other) noexcept;

    // The same in place of what is owned.
    KQCFileSpec& operator=(const KQCFileSpec& other) noexcept;

    // Frees what is owned.
    ~KQCFileSpec();

    // The specification, null for none. It stays owned here.
    char* Get() const { return spec_; }

private:
    char* spec_;
};
