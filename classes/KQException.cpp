// The bases of what the class layer throws. Their virtual members stand here, so that one copy of each type's
// description lies in the library and a program catches what the library throws.
#include "kq/exceptions.h"

KQException::~KQException() = default;

const char* KQException::what() const noexcept { return "a call of the library failed"; }

KQAssertFail::~KQAssertFail() = default;

const char* KQAssertFail::what() const noexcept { return "a class was used against its contract"; }
