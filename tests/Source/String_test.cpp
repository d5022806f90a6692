#include "kq/string.h"

#include <cstring>

#include "support/Fixture.h"

namespace {

using String = kqtest::KQTest;

TEST_F(String, StartsEmpty) {
    kqcString s;
    EXPECT_EQ(s.Get(), nullptr);
    EXPECT_EQ(s.length(), 0);
}

TEST_F(String, LengthCountsTheZero) {
    kqcString s("abc");
    EXPECT_STREQ(s.Get(), "abc");
    EXPECT_EQ(s.length(), 4);
}

TEST_F(String, NullTextMakesAnEmptyString) {
    kqcString s(static_cast<const char*>(nullptr));
    EXPECT_EQ(s.Get(), nullptr);
    EXPECT_EQ(s.length(), 0);
}

TEST_F(String, CopiesDoNotShareTheirBuffer) {
    kqcString a("abc");
    kqcString b(a);
    a.Get()[0] = 'x';
    EXPECT_STREQ(b.Get(), "abc");
    kqcString c;
    c = a;
    a.Get()[1] = 'y';
    EXPECT_STREQ(c.Get(), "xbc");
}

TEST_F(String, CopyHoldsTheTextAndNotTheRestOfTheBuffer) {
    kqcString a;
    std::strcpy(a.GetStringBuffer(100), "ab");
    kqcString b(a);
    EXPECT_EQ(a.length(), 100);
    EXPECT_EQ(b.length(), 3);
}

TEST_F(String, AssignmentToItselfIsHarmless) {
    kqcString a("abc");
    kqcString& same = a;
    a = same;
    EXPECT_STREQ(a.Get(), "abc");
}

TEST_F(String, SetNullOnAnEmptyStringStaysEmpty) {
    kqcString s;
    s.Set(nullptr);
    EXPECT_EQ(s.Get(), nullptr);
    EXPECT_EQ(s.length(), 0);
}

TEST_F(String, SetNullOnATextAllocatesAnewOfTheSameSize) {
    kqcString s("ab");
    s.Set(nullptr);
    EXPECT_EQ(s.length(), 3);
    EXPECT_STREQ(s.Get(), "");
}

TEST_F(String, GetStringBufferReplacesTheBufferByAnEmptyOne) {
    kqcString s("abc");
    char* buffer = s.GetStringBuffer(10);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(s.length(), 10);
    std::strcpy(buffer, "123456789");
    EXPECT_EQ(s.GetStringBuffer(0), buffer);
    EXPECT_STREQ(s.Get(), "123456789");
}

TEST_F(String, ComparesWithRegardToCase) {
    kqcString s("abc"), same("abc");
    char text[] = "abc";
    EXPECT_EQ(s == same, 1);
    EXPECT_EQ(s == text, 1);
    EXPECT_EQ(s == "Abc", 0);
    EXPECT_EQ(s == "abcd", 0);
}

TEST_F(String, AppendingCountsBothZeros) {
    kqcString s("abc");
    s += "de";
    EXPECT_STREQ(s.Get(), "abcde");
    EXPECT_EQ(s.length(), 7);
    char more[] = "f";
    s += more;
    EXPECT_STREQ(s.Get(), "abcdef");
    EXPECT_EQ(s.length(), 9);
}

TEST_F(String, AppendingToAnEmptyStringIsACopy) {
    kqcString s;
    s += kqcString("ab");
    EXPECT_STREQ(s.Get(), "ab");
    EXPECT_EQ(s.length(), 3);
}

TEST_F(String, AppendingAnEmptyStringKeepsTheText) {
    kqcString s("ab"), empty;
    s += empty;
    EXPECT_STREQ(s.Get(), "ab");
    kqcString both;
    both += empty;
    EXPECT_STREQ(both.Get(), "");
}

TEST_F(String, AppendedEmptyStringCountsAsItsZero) {
    kqcString s("ab"), empty;
    s += empty;
    EXPECT_EQ(s.length(), 4);
    s += "";
    EXPECT_EQ(s.length(), 5);
    kqcString both;
    both += empty;
    EXPECT_EQ(both.length(), 1);
}

TEST_F(String, AppendsItself) {
    kqcString s("ab");
    s += s;
    EXPECT_STREQ(s.Get(), "abab");
    s += s.Get();
    EXPECT_STREQ(s.Get(), "abababab");
}

TEST_F(String, FormatLeavesTheText) {
    kqcString s("ab");
    s.Format("%d", 5);
    EXPECT_STREQ(s.Get(), "ab");
}

// What a derived class may do with the buffer.
struct Open : kqcString {
    using kqcString::AllocBuffer;
    using kqcString::FreeBuffer;
    using kqcString::kqcString;
};

TEST_F(String, FreeBufferKeepsTheLength) {
    Open s("ab");
    s.FreeBuffer();
    EXPECT_EQ(s.Get(), nullptr);
    EXPECT_EQ(s.length(), 3);
}

TEST_F(String, AllocBufferStartsWithAZero) {
    Open s("ab");
    s.AllocBuffer(5);
    EXPECT_STREQ(s.Get(), "");
    EXPECT_EQ(s.length(), 5);
}

TEST_F(String, EveryFailedAllocationLeavesAUsableString) {
    kqtest::FailEveryAllocation([] {
        kqcString s("abc");
        s += "de";
        kqcString t(s);
        s = t;
        s.GetStringBuffer(9);
    });
}

}   // namespace
