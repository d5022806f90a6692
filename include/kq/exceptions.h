// What the class layer throws. The free functions throw nothing.
#pragma once

#include <exception>

#include "kq/types.h"

// The base of what a class throws when a free function that it stands on has failed.
class KQ_API KQException : public std::exception {
public:
    KQException() = default;
    KQException(const KQException&) = default;
    KQException& operator=(const KQException&) = default;
    ~KQException() override;

    // A short text in English, for diagnostics.
    const char* what() const noexcept override;
};

// A class was used against its contract: a defect of the caller, and no kind of KQException.
class KQ_API KQAssertFail : public std::exception {
public:
    KQAssertFail() = default;
    KQAssertFail(const KQAssertFail&) = default;
    KQAssertFail& operator=(const KQAssertFail&) = default;
    ~KQAssertFail() override;

    // A short text in English, for diagnostics.
    const char* what() const noexcept override;
};
