#include "kq/kqcfilespec.h"

#include <memory>

#include "kq/filespec.h"
#include "support/Fixture.h"

namespace {

using KQCFileSpecClass = kqtest::KQTest;

TEST_F(KQCFileSpecClass, DefaultOwnsNone) {
    KQCFileSpec spec;
    EXPECT_EQ(spec.Get(), nullptr);
}

TEST_F(KQCFileSpecClass, TextIsCopied) {
    char text[] = "a.tga";
    KQCFileSpec spec(text);
    text[0] = 'x';
    EXPECT_STREQ(spec.Get(), "a.tga");
}

TEST_F(KQCFileSpecClass, NullTextThrowsAssertFailAcrossTheLibrarysBorder) {
    EXPECT_THROW(KQCFileSpec(static_cast<const char*>(nullptr)), KQAssertFail);
}

TEST_F(KQCFileSpecClass, AssertFailIsNoKQException) {
    try {
        KQCFileSpec spec(static_cast<const char*>(nullptr));
        FAIL() << "nothing was thrown";
    } catch (const KQException&) {
        FAIL() << "caught as a KQException";
    } catch (const std::exception& caught) {
        EXPECT_STRNE(caught.what(), "");
    }
}

TEST_F(KQCFileSpecClass, FailureThrowsAnExceptionWithTheErrorCode) {
    kq::allocationFaults.Set(1, true);
    try {
        KQCFileSpec spec("a.tga");
        FAIL() << "nothing was thrown";
    } catch (const KQCFileSpec::Exception& caught) {
        EXPECT_EQ(caught.Code(), u32(KQERR_NOMEM));
    }
}

TEST_F(KQCFileSpecClass, FailureIsCaughtByItsBaseAcrossTheLibrarysBorder) {
    kq::allocationFaults.Set(1, true);
    EXPECT_THROW(KQCFileSpec("a.tga"), KQException);
}

TEST_F(KQCFileSpecClass, ExceptionIsAValueThatOutlivesItsCatch) {
    kq::allocationFaults.Set(1, true);
    KQCFileSpec::Exception kept(0);
    try {
        KQCFileSpec spec("a.tga");
    } catch (const KQCFileSpec::Exception& caught) {
        kept = caught;
    }
    EXPECT_EQ(kept.Code(), u32(KQERR_NOMEM));
}

TEST_F(KQCFileSpecClass, CopyIsItsOwn) {
    auto first = std::make_unique<KQCFileSpec>("a.tga");
    KQCFileSpec second(*first);
    EXPECT_NE(second.Get(), first->Get());
    first.reset();
    EXPECT_STREQ(second.Get(), "a.tga");
}

TEST_F(KQCFileSpecClass, CopyOfNoneIsNone) {
    KQCFileSpec none;
    KQCFileSpec copy(none);
    EXPECT_EQ(copy.Get(), nullptr);
}

TEST_F(KQCFileSpecClass, CopyWithoutMemoryIsNoneAndThrowsNothing) {
    KQCFileSpec spec("a.tga");
    kq::allocationFaults.Set(1, true);
    KQCFileSpec copy(spec);
    EXPECT_EQ(copy.Get(), nullptr);
}

TEST_F(KQCFileSpecClass, AssignmentFreesWhatWasOwned) {
    KQCFileSpec first("a.tga"), second("b.tga");
    i64 blocks = kqtest::LiveBlocks();
    first = second;
    EXPECT_STREQ(first.Get(), "b.tga");
    EXPECT_NE(first.Get(), second.Get());
    EXPECT_EQ(kqtest::LiveBlocks(), blocks);
    first = *&first;
    EXPECT_STREQ(first.Get(), "b.tga");
}

TEST_F(KQCFileSpecClass, DestructorFrees) {
    i64 blocks = kqtest::LiveBlocks();
    { KQCFileSpec spec("a.tga"); }
    EXPECT_EQ(kqtest::LiveBlocks(), blocks);
}

}   // namespace
