#include <cstring>
#include <string>

#include "Source/Sequence.h"
#include "kq/files.h"
#include "kq/sequence.h"
#include "support/Fixture.h"

namespace {

using SequenceName = kqtest::KQTest;

std::string ToSequence(const std::string& name) {
    char buffer[300];
    std::strcpy(buffer, name.c_str());
    int done = FileName_to_SequenceName(buffer);
    EXPECT_EQ(done != 0, buffer != name);
    return buffer;
}

// The resolved name, or "(0) " and what is left in the buffer.
std::string Resolve(const std::string& name, i32 number, i32 skip = 0) {
    char buffer[300];
    std::strcpy(buffer, name.c_str());
    int done = SequenceNumber_to_Name(buffer, number, skip);
    return (done ? "" : "(0) ") + std::string(buffer);
}

TEST_F(SequenceName, TheDigitsBecomePlaces) {
    EXPECT_EQ(ToSequence("shot0010.tga"), "shot[####].tga");
    EXPECT_EQ(ToSequence("7"), "[#]");
}

TEST_F(SequenceName, TheLongestRunCountsAndOfEqualOnesTheFirst) {
    EXPECT_EQ(ToSequence("a12b34.tga"), "a[##]b34.tga");
    EXPECT_EQ(ToSequence("a1b34.tga"), "a1b[##].tga");
    EXPECT_EQ(ToSequence("v22_1.tga"), "v[##]_1.tga");
}

TEST_F(SequenceName, TheExtensionCountsToo) { EXPECT_EQ(ToSequence("clip.mp3"), "clip.mp[#]"); }

TEST_F(SequenceName, RunsInNamesWithDots) {
    EXPECT_EQ(ToSequence("img.0001.tga"), "img.[####].tga");
    EXPECT_EQ(ToSequence("v2.img.0001.tga"), "v2.img.[####].tga");
}

TEST_F(SequenceName, WithoutADigitTheNameIsLeftAlone) {
    EXPECT_EQ(ToSequence("name.tga"), "name.tga");
    EXPECT_EQ(ToSequence(""), "");
}

TEST_F(SequenceName, NumberIsTheSameRun) {
    EXPECT_EQ(Name_to_SequenceNumber("a12b34.tga"), 12);
    EXPECT_EQ(Name_to_SequenceNumber("clip.mp3"), 3);
    EXPECT_EQ(Name_to_SequenceNumber("img.0001.tga"), 1);
    EXPECT_EQ(Name_to_SequenceNumber("name.tga"), 0);
}

TEST_F(SequenceName, NumbersWrapAt32Bits) {
    EXPECT_EQ(Name_to_SequenceNumber("a4294967295.tga"), -1);
    EXPECT_EQ(Name_to_SequenceNumber("a4294967297.tga"), 1);
    EXPECT_EQ(Name_to_SequenceNumber("a100000000000000000007.tga"), 1661992967);
}

TEST_F(SequenceName, FormsAreRecognisedAlsoInPaths) {
    EXPECT_TRUE(Is_Sequence("shot[####].tga"));
    EXPECT_TRUE(Is_Sequence("/films/shot[#].tga"));
    EXPECT_FALSE(Is_Sequence("shot0001.tga"));
    EXPECT_FALSE(Is_Sequence("shot[12].tga"));
    EXPECT_FALSE(Is_Sequence("shot[##"));
    EXPECT_FALSE(Is_Sequence(""));
}

TEST_F(SequenceName, EmptyBracketsAreAForm) { EXPECT_TRUE(Is_Sequence("[]")); }

TEST_F(SequenceName, TheSearchResumesWhereItStopped) {
    EXPECT_TRUE(Is_Sequence("a[##[#].tga"));
    EXPECT_TRUE(Is_Sequence("[[]"));
    EXPECT_EQ(Sequence_Digits("[[##]"), 2);
}

TEST_F(SequenceName, DigitsCountThePlacesOfTheFirstForm) {
    EXPECT_EQ(Sequence_Digits("a[###]b[#].tga"), 3);
    EXPECT_EQ(Sequence_Digits("a[].tga"), 0);
}

TEST_F(SequenceName, DigitsOfFailedFormsCountToo) { EXPECT_EQ(Sequence_Digits("a[##b[###].tga"), 5); }

TEST_F(SequenceName, DigitsWithoutACompleteFormAreNone) {
    EXPECT_EQ(Sequence_Digits("a[##.tga"), 0);
    EXPECT_EQ(Sequence_Digits("a.tga"), 0);
}

TEST_F(SequenceName, NamesCompareWithoutCaseAndWidth) {
    EXPECT_TRUE(kq::SameSequence("shot[##].tga", "SHOT[####].TGA"));
    EXPECT_TRUE(kq::SameSequence("[#]", "[########]"));
    EXPECT_FALSE(kq::SameSequence("shot[##].tga", "shot[##].tif"));
    EXPECT_FALSE(kq::SameSequence("shot[##].tga", "shot[##].tg"));
    EXPECT_FALSE(kq::SameSequence("shot##.tga", "shot###.tga"));
    EXPECT_FALSE(kq::SameSequence("\xC3\x84[#]", "\xC3\xA4[#]"));
}

TEST_F(SequenceName, NumbersFillThePlaces) {
    EXPECT_EQ(Resolve("shot[####].tga", 10), "shot0010.tga");
    EXPECT_EQ(Resolve("shot[####].tga", 9999), "shot9999.tga");
    EXPECT_EQ(Resolve("[#]", 0), "0");
}

TEST_F(SequenceName, ANumberTooLargeGivesZeroAndAPartlyOverwrittenName) {
    EXPECT_EQ(Resolve("x[##].tga", 123), "(0) x[23].tga");
}

TEST_F(SequenceName, SkipDropsPlacesFromTheRight) {
    EXPECT_EQ(Resolve("shot[####].tga", 12, 1), "shot012.tga");
    EXPECT_EQ(Resolve("shot[####].tga", 12, 2), "shot12.tga");
    EXPECT_EQ(Resolve("shot[####].tga", 12, 3), "(0) shot[2###].tga");
}

TEST_F(SequenceName, NumberZeroFitsIntoNoPlaces) {
    EXPECT_EQ(Resolve("x[].tga", 0), "x.tga");
    EXPECT_EQ(Resolve("x[##].tga", 0, 2), "x.tga");
    EXPECT_EQ(Resolve("x[##].tga", 0, 99), "x.tga");
    EXPECT_EQ(Resolve("x[].tga", 1), "(0) x[].tga");
}

TEST_F(SequenceName, NumbersAreUnsignedWords) {
    EXPECT_EQ(Resolve("x[##########].tga", -1), "x4294967295.tga");
    EXPECT_EQ(Resolve("x[#].tga", INT32_MIN), "(0) x[8].tga");
}

TEST_F(SequenceName, PlainNamesGetFiveDigitsInFrontOfTheExtension) {
    EXPECT_EQ(Resolve("x.tga", 7), "x00007.tga");
    EXPECT_EQ(Resolve("name", 7), "name00007");
    EXPECT_EQ(Resolve("x.tga", 1234567), "x34567.tga");
    EXPECT_EQ(Resolve("x.ei", 1), "x00001.ei");
    EXPECT_EQ(Resolve("", 1), "00001");
}

TEST_F(SequenceName, TheExtensionLiesAmongTheLastFourCharacters) {
    EXPECT_EQ(Resolve("x.tiff", 7), "x.tiff00007");
    EXPECT_EQ(Resolve("x.a.b", 7), "x.a00007.b");
    EXPECT_EQ(Resolve("x.", 7), "x00007.");
}

TEST_F(SequenceName, ABracketWithoutItsFormMakesAPlainName) {
    EXPECT_EQ(Resolve("a[1][##].tga", 7), "a[1][##]00007.tga");
    EXPECT_EQ(Resolve("a[##.tga", 7), "a[##00007.tga");
}

TEST_F(SequenceName, FoldersAreLeftAlone) {
#if defined(_WIN32)
    std::string folder = "C:\\take [1]\\v1.x\\";
#else
    std::string folder = "/take [1]/v1.x/";
#endif
    EXPECT_EQ(Resolve(folder + "x[##].tga", 7), folder + "x07.tga");
    EXPECT_EQ(Resolve(folder + "ab", 7), folder + "ab00007");
}

TEST_F(SequenceName, ValidateFindsTheWidthThatExists) {
    for (const char* name : {"a8.tga", "a09.tga", "a9.tga", "a010.tga"}) kqtest::WriteWholeFile(Folder() + name, "x");
    auto find = [&](const std::string& name, i32 number) {
        char buffer[1000];
        std::strcpy(buffer, (Folder() + name).c_str());
        int found = SequenceNumber_to_Name_Validate(buffer, number);
        return found ? std::string(buffer).substr(Folder().size()) : buffer == Folder() + name ? "none" : "changed";
    };
    EXPECT_EQ(find("a[##].tga", 8), "a8.tga");
    EXPECT_EQ(find("a[##].tga", 9), "a09.tga");
    EXPECT_EQ(find("a[####].tga", 10), "a010.tga");
    EXPECT_EQ(find("a[##].tga", 10), "none");
    EXPECT_EQ(find("a[##].tga", 100), "none");
    EXPECT_EQ(find("a[].tga", 0), "none");
    EXPECT_EQ(find("a8.tga", 8), "none");
}

TEST_F(SequenceName, ValidateLeavesTheErrorWordWhenItFinds) {
    kqtest::WriteWholeFile(Folder() + "a8.tga", "x");
    std::string name = Folder() + "a[###].tga";
    KQEnv->Error = KQERR_NONE;
    EXPECT_EQ(SequenceNumber_to_Name_Validate(name.data(), 8), 1);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_NONE));
}

TEST_F(SequenceName, ValidateTouchesNothingButTheNameItFinds) {
    kqtest::WriteWholeFile(Folder() + "a8.tga", "x");
    std::string name = Folder() + "a[###].tga";
    std::string block = name + '\0' + "behind";
    EXPECT_EQ(SequenceNumber_to_Name_Validate(block.data(), 8), 1);
    EXPECT_STREQ(block.c_str(), (Folder() + "a8.tga").c_str());
    EXPECT_EQ(block.substr(name.size() + 1), "behind");
    for (i32 number : {9, 1000, -1}) {
        block = name + '\0' + "behind";
        EXPECT_EQ(SequenceNumber_to_Name_Validate(block.data(), number), 0) << number;
        EXPECT_EQ(block, name + '\0' + "behind") << number;
    }
}

TEST_F(SequenceName, ValidateOfANameThatNoHostHasFindsNothing) {
    std::string name = "[##]";
    name.append(10000, 'x');
    std::string before = name;
    EXPECT_EQ(SequenceNumber_to_Name_Validate(name.data(), 8), 0);
    EXPECT_EQ(name, before);
}

}   // namespace
