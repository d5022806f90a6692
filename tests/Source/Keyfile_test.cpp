#include "Source/Keyfile.h"

#include <random>

#include "Source/KeyTable.h"
#include "Source/Startup.h"
#include "kq/catalogue.h"
#include "support/Fixture.h"

namespace {

constexpr KQKeyCommand kCommands[] = {{"Cut", 1}, {"Copy", 2}, {"Paste", 3}, {"Save", 4}, {nullptr, 0}};

class Keyfile : public kqtest::KQTest {
protected:
    void TearDown() override {
        if (KQEnv) {
            kq::FreeKeyTable();
            KQEnv->KeySections = nullptr;
            KQEnv->Strings = nullptr;
        }
        KQTest::TearDown();
    }

    // Parses `text` for the sections Main and Other.
    void Parse(const std::string& text) {
        std::string path = Folder() + "keys.txt";
        kqtest::WriteWholeFile(path, text);
        kq::FreeKeyTable();
        KQEnv->KeySections = &main_;
        kq::ParseKeyFile(path.c_str(), &main_);
    }

    // Parses lines of section Main.
    void ParseMain(const std::string& lines) { Parse("Section Main\n" + lines); }

    u16 Find(u32 code, u32 qualifier = 0) {
        value_ = -99;
        return kq::FindKeyCommand(&main_, code, qualifier, &value_);
    }

    KQKeySection other_ = {nullptr, "Other", 0, kCommands, nullptr, nullptr};
    KQKeySection main_ = {&other_, "Main", 0, kCommands, nullptr, nullptr};
    i16 value_ = 0;
};

TEST_F(Keyfile, KeyOfALineBindsItsCommand) {
    ParseMain("a Cut\n");
    EXPECT_EQ(Find('a'), 1);
    EXPECT_EQ(value_, 0);
    EXPECT_EQ(Find('b'), 0);
    EXPECT_TRUE(messages.empty());
}

TEST_F(Keyfile, SmallLetterKeepsItsModifiers) {
    ParseMain("CONTROL a Cut\n");
    EXPECT_EQ(Find('a', KQKEY_Control), 1);
    EXPECT_EQ(main_.Keys[0], KQKEY_Control | 97);
}

TEST_F(Keyfile, CapitalLetterAddsShift) {
    ParseMain("CONTROL A Cut\n");
    EXPECT_EQ(main_.Keys[0], KQKEY_Control | KQKEY_Shift | 97);
    EXPECT_EQ(Find('a', KQKEY_Control), 0);
}

TEST_F(Keyfile, CommandKeyIsControl) {
    ParseMain("COMMAND s Save\n");
    EXPECT_EQ(main_.Keys[0], KQKEY_Control | 115);
}

TEST_F(Keyfile, ModifiersAddUpInAnyCaseOfLetters) {
    ParseMain("alt Control shift x Cut\nOPTION y Copy\n");
    EXPECT_EQ(Find('x', KQKEY_Alt | KQKEY_Control | KQKEY_Shift), 1);
    EXPECT_EQ(Find('y', KQKEY_Alt), 2);
}

TEST_F(Keyfile, LookUpMindsOnlyTheModifiersOfTheQualifier) {
    ParseMain("CONTROL a Cut\n");
    EXPECT_EQ(Find('a', KQKEY_Control | 0x2107), 1);
}

TEST_F(Keyfile, NamedKeysHaveTheirCodes) {
    const char* names[] = {
        "F1",     "F2",        "F3",    "F4",   "F5",  "F6",        "F7",         "F8",       "F9",        "F10",
        "F11",    "F12",       "F13",   "F14",  "F15", "LEFTARROW", "RIGHTARROW", "UPARROW",  "DOWNARROW", "HELP",
        "DELETE", "BACKSPACE", "ENTER", "HOME", "END", "TAB",       "PAGEUP",     "PAGEDOWN", "ESC",       "RETURN"};
    std::string lines;
    for (const char* name : names) lines += std::string(name) + " Cut\n";
    ParseMain(lines);
    for (int i = 0; i < 30; ++i) EXPECT_EQ(main_.Keys[3 * i], 288 + i) << names[i];
    EXPECT_TRUE(messages.empty());
}

TEST_F(Keyfile, SpaceIsAKey) {
    ParseMain("Space Cut\n");
    EXPECT_EQ(Find(' '), 1);
}

TEST_F(Keyfile, ValueStandsBehindTheCommand) {
    ParseMain("a Cut 10\nb Copy -7\nc Paste x\nd Save 70000\n");
    EXPECT_EQ((Find('a'), value_), 10);
    EXPECT_EQ((Find('b'), value_), -7);
    EXPECT_EQ((Find('c'), value_), 0);
    EXPECT_EQ((Find('d'), value_), i16(70000));
}

TEST_F(Keyfile, ValueOfTheNextLineIsNotTaken) {
    ParseMain("a Cut\n5 Copy\n");
    EXPECT_EQ(Find('a'), 1);
    EXPECT_EQ(value_, 0);
    EXPECT_EQ(Find('5'), 2);
}

TEST_F(Keyfile, CommandNamesMatchInAnyCaseOfLetters) {
    ParseMain("a cUT\n");
    EXPECT_EQ(Find('a'), 1);
}

TEST_F(Keyfile, ConditionForWindowsReadsTheFirstGroup) {
    ParseMain("if Windows\na Cut\nelse\nb Copy\nendif\nc Paste\n");
    EXPECT_EQ(Find('a'), 1);
    EXPECT_EQ(Find('b'), 0);
    EXPECT_EQ(Find('c'), 3);
}

TEST_F(Keyfile, ConditionForAnotherPlatformReadsTheSecondGroup) {
    ParseMain("if Mac\na Cut\nelse\nb Copy\nendif\nc Paste\n");
    EXPECT_EQ(Find('a'), 0);
    EXPECT_EQ(Find('b'), 2);
    EXPECT_EQ(Find('c'), 3);
    EXPECT_TRUE(messages.empty());
}

TEST_F(Keyfile, SevenCharactersOfTheConditionAreCompared) {
    ParseMain("if WindowsNT\na Cut\nendif\nif windows\nb Copy\nendif\nif Window\nc Paste\nendif\n");
    EXPECT_EQ(Find('a'), 1);
    EXPECT_EQ(Find('b'), 2);
    EXPECT_EQ(Find('c'), 0);
}

TEST_F(Keyfile, CapitalIfIsNoCondition) {
    ParseMain("q Save\nIf Cut\na Cut\n");
    ASSERT_EQ(messages.size(), 2u);   // the key is unknown, and the last good one is bound already
    EXPECT_EQ(messages[0], "Error in key file at line 3");
    EXPECT_EQ(Find('a'), 1);
}

TEST_F(Keyfile, LineOfWhichNothingIsKnownEndsTheSection) {
    ParseMain("If Windows\na Cut\n");
    ASSERT_EQ(messages.size(), 2u);   // neither the key nor the command is known
    EXPECT_EQ(messages[0], "Error in key file at line 2");
    EXPECT_EQ(messages[1], "Error in key file at line 2");
    EXPECT_EQ(Find('a'), 0) << "its entry is all zero";
}

TEST_F(Keyfile, ConditionMayContinueItsLine) {
    ParseMain("if Windows a Cut\nif Mac b Copy\n");
    EXPECT_EQ(Find('a'), 1);
    EXPECT_EQ(Find('b'), 0);
}

TEST_F(Keyfile, ConditionIsAnyWordThatBeginsWithIf) {
    ParseMain("iffy Windows\na Cut\nendif\n");
    EXPECT_EQ(Find('a'), 1);
    EXPECT_TRUE(messages.empty());
}

TEST_F(Keyfile, ConditionsDoNotNest) {
    ParseMain("if Mac\nif Windows\na Cut\nendif\nb Copy\nendif\n");
    EXPECT_EQ(Find('a'), 0);
    EXPECT_EQ(Find('b'), 2);
}

TEST_F(Keyfile, WordThatEndsItsLineIsTheKey) {
    ParseMain("q Save\nSHIFT CONTROL\nALT if\na Cut\n");
    ASSERT_EQ(messages.size(), 4u);   // each has no known key and no command
    EXPECT_EQ(messages[0], "Error in key file at line 3");
    EXPECT_EQ(messages[2], "Error in key file at line 4");
    EXPECT_EQ(main_.Keys[3], KQKEY_Shift | 'q');
    EXPECT_EQ(main_.Keys[6], KQKEY_Alt | 'q');
    EXPECT_EQ(Find('a'), 1);
}

TEST_F(Keyfile, CommentAndBlankLinesKeepTheModifiers) {
    ParseMain("CONTROL // held\n\n  // still\na Cut\n");
    EXPECT_EQ(Find('a', KQKEY_Control), 1);
}

TEST_F(Keyfile, KeyBoundTwiceSaysSoAndTheFirstCounts) {
    ParseMain("CONTROL a Cut 1\nCONTROL a Copy 2\n");
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0], "Key 'a' already defined in KeyFile at line 3");
    EXPECT_EQ(Find('a', KQKEY_Control), 1);
    EXPECT_EQ(value_, 1);
    EXPECT_EQ(main_.Keys[4], 2) << "the second entry is there all the same";
}

TEST_F(Keyfile, SameKeyInTwoSectionsIsNoFault) {
    Parse("Section Main\na Cut\nSection Other\na Copy\n");
    EXPECT_TRUE(messages.empty());
    EXPECT_EQ(Find('a'), 1);
    EXPECT_EQ(kq::FindKeyCommand(&other_, 'a', 0, nullptr), 2);
}

TEST_F(Keyfile, SectionNamesMatchInAnyCaseOfLetters) {
    Parse("sECTION mAIN\na Cut\n");
    EXPECT_EQ(Find('a'), 1);
}

TEST_F(Keyfile, UnknownSectionSaysSoForItselfAndItsKeys) {
    Parse("Section Nowhere\na Cut\nb Copy\nSection Main\nc Paste\n");
    ASSERT_EQ(messages.size(), 3u);
    EXPECT_EQ(messages[0], "Unknown Section 'Nowhere' in KeyFile at line 1");
    EXPECT_EQ(messages[1], "Section undefined at line: 2");
    EXPECT_EQ(messages[2], "Section undefined at line: 3");
    EXPECT_EQ(Find('a'), 0);
    EXPECT_EQ(Find('c'), 3);
}

TEST_F(Keyfile, KeyOfNoSectionIsStoredWithoutACommand) {
    Parse("SHIFT a Cut 5\n");
    const u16* table = static_cast<u16*>(KQEnv->KeyTable);
    EXPECT_EQ(table[0], KQKEY_Shift | 97);
    EXPECT_EQ(table[1], 0);
    EXPECT_EQ(table[2], 0);
    EXPECT_EQ(messages.size(), 1u);
}

TEST_F(Keyfile, LongNamesAreCutInMessages) {
    Parse("Section " + std::string(60, 'x') + "\n");
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0], "Unknown Section '" + std::string(40, 'x') + "' in KeyFile at line 1");
}

TEST_F(Keyfile, PercentSignsInNamesAreShownAsTheyAre) {
    Parse("Section %s%n%d\n");
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0], "Unknown Section '%s%n%d' in KeyFile at line 1");
}

TEST_F(Keyfile, SectionNamedTwiceKeepsItsOldStart) {
    Parse("Section Main\na Cut\nSection Other\nSection Main\nb Copy\na Paste\n");
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[0], "Section 'Main' at line 4 already defined in KeyFile");
    EXPECT_EQ(messages[1], "Key 'a' already defined in KeyFile at line 6");
    EXPECT_EQ(Find('a'), 1);
    EXPECT_EQ(Find('b'), 0) << "look-ups end at the first zero triple";
}

TEST_F(Keyfile, SecondRunOfASectionIsNotSearchedForDuplicates) {
    Parse("Section Main\na Cut\nSection Main\nb Copy\nb Paste\n");
    EXPECT_EQ(messages.size(), 1u);
}

TEST_F(Keyfile, SectionNameComesFromTheCatalogueWithoutAName) {
    u32 ids[] = {70, 71};
    u32 offsets[] = {0, 6};
    char text[] = "Haupt\0Raus\0";
    KQStringTable strings = {2, ids, offsets, text};
    KQEnv->Strings = &strings;
    constexpr KQKeyCommandString commands[] = {{99, 7}, {71, 8}, {0, 0}};
    main_ = {nullptr, nullptr, 70, nullptr, commands, nullptr};
    Parse("Section HAUPT\na raus 3\nb rein\n");
    EXPECT_EQ(Find('a'), 8);
    EXPECT_EQ(value_, 3);
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0], "Error in key file at line 3");
}

TEST_F(Keyfile, SectionWithoutACommandTableHasShortEntries) {
    main_.Commands = nullptr;
    ParseMain("a Cut 5\nb Cut 6\n");
    ASSERT_NE(main_.Keys, nullptr);
    EXPECT_EQ(main_.Keys[0], 'a');
    EXPECT_EQ(main_.Keys[1], 5);
    EXPECT_EQ(main_.Keys[2], 'b');
    EXPECT_EQ(main_.Keys[3], 6);
}

TEST_F(Keyfile, UnknownKeyIsThatOfTheLastGoodOne) {
    ParseMain("q Cut\nALT F77 Copy\n");
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0], "Error in key file at line 3");
    EXPECT_EQ(Find('q', KQKEY_Alt), 2);
}

TEST_F(Keyfile, UnknownKeyBeforeAnyGoodOneHasCodeZero) {
    ParseMain("ALT F77 Copy\n");
    EXPECT_EQ(main_.Keys[0], KQKEY_Alt);
    EXPECT_EQ(main_.Keys[1], 2);
}

TEST_F(Keyfile, UnknownCommandSaysSoAndBindsNone) {
    ParseMain("a Fly 5\n");
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0], "Error in key file at line 2");
    EXPECT_EQ(main_.Keys[0], 'a');
    EXPECT_EQ(main_.Keys[1], 0);
    EXPECT_EQ(main_.Keys[2], 5);
}

TEST_F(Keyfile, LineNumbersCountBlankAndCommentLines) {
    Parse("\n// comment\n\n   \nSection Main\n\tFly Cut\n");
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0], "Error in key file at line 6");
}

TEST_F(Keyfile, CarriageReturnAndLineFeedAreOneLine) {
    Parse("// one\r\n// two\r\nSection Main\r\nFly Cut\r\na Cut\r\n");
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0], "Error in key file at line 4");
    EXPECT_EQ(Find('a'), 1);
}

TEST_F(Keyfile, CarriageReturnAloneEndsALine) {
    Parse("Section Main\r\ra Cut\rb Fly\r");
    EXPECT_EQ(Find('a'), 1);
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0], "Error in key file at line 4");
}

TEST_F(Keyfile, LastLineWithoutALineEndIsRead) {
    ParseMain("a Cut 12");
    EXPECT_EQ(Find('a'), 1);
    EXPECT_EQ(value_, 12);
}

TEST_F(Keyfile, LastCommentWithoutALineEndIsNoFault) {
    ParseMain("a Cut\n// the end");
    EXPECT_EQ(Find('a'), 1);
    EXPECT_TRUE(messages.empty());
}

TEST_F(Keyfile, LastSectionEndsInZeroes) {
    std::string lines;
    for (int i = 0; i < 200; ++i) lines += "CONTROL a Cut 1\n";
    ParseMain(lines);
    for (int i = 0; i < 15; ++i) EXPECT_EQ(main_.Keys[600 + i], 0);
}

TEST_F(Keyfile, MissingFileSaysSo) {
    kq::ParseKeyFile((Folder() + "none.txt").c_str(), &main_);
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0], "Can't open key file");
    EXPECT_EQ(KQEnv->KeyTable, nullptr);
    EXPECT_EQ(Find('a'), 0);
}

TEST_F(Keyfile, EmptyFileGivesNoTable) {
    for (const char* text : {"", "\n\n", "// nothing\n   \t\n"}) {
        Parse(text);
        EXPECT_EQ(KQEnv->KeyTable, nullptr);
    }
    EXPECT_TRUE(messages.empty());
}

TEST_F(Keyfile, NullNameIsSilent) {
    kq::ParseKeyFile(nullptr, &main_);
    EXPECT_TRUE(messages.empty());
}

TEST_F(Keyfile, NullSectionHasNoCommands) {
    ParseMain("a Cut\n");
    EXPECT_EQ(kq::FindKeyCommand(nullptr, 'a', 0, nullptr), 0);
    EXPECT_EQ(kq::FindKeyCommand(&other_, 'a', 0, nullptr), 0);
}

TEST_F(Keyfile, KeyOfACommandIsTheFirstInTheChain) {
    Parse("Section Other\nx Cut\ny Paste\nSection Main\nCONTROL c Cut\nd Cut\n");
    EXPECT_EQ(kq::FindCommandKey(1), KQKEY_Control | 'c') << "Main is first in the chain";
    EXPECT_EQ(kq::FindCommandKey(3), 'y');
    EXPECT_EQ(kq::FindCommandKey(4), 0);
    EXPECT_EQ(kq::FindCommandKey(0x10001), 0);
}

TEST_F(Keyfile, SectionsOfAnEarlierStartAreParsedAnew) {
    ParseMain("a Cut\n");
    ParseMain("b Copy\n");
    EXPECT_TRUE(messages.empty());
    EXPECT_EQ(Find('b'), 2);
    EXPECT_EQ(Find('a'), 0);
}

// Words that a key file is made of, in lines that mean something often enough.
std::string RandomKeyFile(std::mt19937* random) {
    const char* words[] = {"Section", "Main", "Other", "a",    "B",  "F3",    "CONTROL", "SHIFT",    "Cut",
                           "Copy",    "7",    "-2",    "else", "if", "endif", "Windows", "//",       "space",
                           "Nokey",   "\n",   "\r\n",  "\r",   "\n", "\t",    "COMMAND", "ALT Paste"};
    std::string text = (*random)() % 4 ? "Section Main\n" : "";
    for (u32 n = (*random)() % 200; n > 0; --n) {
        text += words[(*random)() % std::size(words)];
        text += (*random)() % 5 ? " " : "\n";
    }
    return text;
}

TEST_F(Keyfile, IndexAnswersAsTheWalkDoes) {
    u32 seed = std::random_device{}();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    for (int run = 0; run < 200; ++run) {
        main_.Commands = random() % 3 ? kCommands : nullptr;
        Parse(RandomKeyFile(&random));
        std::vector<u32> indexed, walked;
        for (std::vector<u32>* answers : {&indexed, &walked}) {
            for (KQKeySection* section : {&main_, &other_})
                for (u32 key = 0; key < 0x2000; ++key) {
                    i16 value = 0;
                    answers->push_back(kq::FindKeyCommand(section, key & 0x1FF, key & ~0x1FFu, &value));
                    answers->push_back(u16(value));
                }
            for (u32 command = 0; command < 400; ++command) answers->push_back(kq::FindCommandKey(command));
            kq::FreeKeyIndex();
        }
        ASSERT_EQ(indexed, walked);
    }
}

TEST_F(Keyfile, EveryFailedAllocationIsSurvived) {
    std::string path = Folder() + "keys.txt";
    kqtest::WriteWholeFile(path, std::string("Section Main\na Cut\nb Copy\n"));
    kqtest::FailEveryAllocation([&] {
        kq::ParseKeyFile(path.c_str(), &main_);
        if (main_.Keys) {
            EXPECT_EQ(Find('b'), 2);
        }
        kq::FreeKeyTable();
    });
}

TEST_F(Keyfile, EveryFailedFileCallIsSurvived) {
    std::string path = Folder() + "keys.txt";
    kqtest::WriteWholeFile(path, std::string("Section Main\na Cut\n"));
    kqtest::FailEveryFileCall([&] {
        kq::ParseKeyFile(path.c_str(), &main_);
        kq::FreeKeyTable();
    });
}

TEST(KeyfileStart, InitReadsTheKeyFile) {
    std::string folder = kqtest::MakeTemporaryFolder();
    std::string path = folder + "keys.txt";
    kqtest::WriteWholeFile(path, std::string("Section Main\nCONTROL c Copy\n"));
    KQKeySection section = {nullptr, "Main", 0, kCommands, nullptr, nullptr};
    TagItem tags[] = {{KQTAG_InitNoWindow, 0}, {KQTAG_InitKeySections, reinterpret_cast<uptr>(&section)}, {0, 0}};
    ASSERT_NE(InitKQ(nullptr, nullptr, path.c_str(), nullptr, nullptr, tags), nullptr);
    EXPECT_EQ(kq::FindKeyCommand(&section, 'c', KQKEY_Control, nullptr), 2);
    EXPECT_EQ(kq::FindCommandKey(2), KQKEY_Control | 'c');
    CleanUpKQ();
    kqtest::RemoveTemporaryFolder(folder);
}

TEST(KeyfileStart, KeyFileIsNotReadWithoutSections) {
    std::string folder = kqtest::MakeTemporaryFolder();
    std::string path = folder + "keys.txt";
    kqtest::WriteWholeFile(path, std::string("Section Main\nCONTROL c Copy\n"));
    TagItem tags[] = {{KQTAG_InitNoWindow, 0}, {0, 0}};
    ASSERT_NE(InitKQ(nullptr, nullptr, path.c_str(), nullptr, nullptr, tags), nullptr);
    EXPECT_EQ(KQEnv->KeyTable, nullptr);
    CleanUpKQ();
    kqtest::RemoveTemporaryFolder(folder);
}

// Keys that become commands.

std::vector<u16> sentCommands;
const KQKeySection* paletteSection = nullptr;
bool paletteIsModal = false;

class KeyfileEquivalents : public Keyfile {
protected:
    void SetUp() override {
        Keyfile::SetUp();
        sentCommands.clear();
        paletteSection = nullptr;
        paletteIsModal = false;
        kq::keyTarget = {[](KQPalette*) { return paletteSection; }, [](KQPalette*) { return paletteIsModal; },
                         [](u16 command) { sentCommands.push_back(command); }};
    }

    void TearDown() override {
        kq::keyTarget = {};
        if (KQEnv) KQEnv->ActivePalette = nullptr;
        Keyfile::TearDown();
    }

    void Activate() { KQEnv->ActivePalette = reinterpret_cast<KQPalette*>(this); }
};

TEST_F(KeyfileEquivalents, KeyOfTheFirstSectionSendsItsCommand) {
    ParseMain("x Cut\n");
    kq::TryKeyEquivalent('x', 0);
    EXPECT_EQ(sentCommands, std::vector<u16>{1});
}

TEST_F(KeyfileEquivalents, ReleaseMatchesNothing) {
    ParseMain("x Cut\n");
    kq::TryKeyEquivalent('x', 0x4000);
    EXPECT_TRUE(sentCommands.empty());
}

TEST_F(KeyfileEquivalents, KeyThatIsNotBoundSendsNothing) {
    ParseMain("x Cut\n");
    kq::TryKeyEquivalent('y', 0);
    EXPECT_TRUE(sentCommands.empty());
}

TEST_F(KeyfileEquivalents, PaletteSectionComesFirstAndEndsTheSearch) {
    Parse("Section Main\nx Cut\nSection Other\nx Copy\n");
    Activate();
    paletteSection = main_.Next;
    kq::TryKeyEquivalent('x', 0);
    EXPECT_EQ(sentCommands, std::vector<u16>{2});
}

TEST_F(KeyfileEquivalents, SecondSectionOfTheApplicationIsNotLookedAt) {
    Parse("Section Main\nx Cut\nSection Other\ny Copy\n");
    kq::TryKeyEquivalent('y', 0);
    EXPECT_TRUE(sentCommands.empty());
}

TEST_F(KeyfileEquivalents, ModalPaletteKeepsTheApplicationsKeysOut) {
    ParseMain("x Cut\n");
    Activate();
    paletteIsModal = true;
    kq::TryKeyEquivalent('x', 0);
    EXPECT_TRUE(sentCommands.empty());
    paletteIsModal = false;
    kq::TryKeyEquivalent('x', 0);
    EXPECT_EQ(sentCommands, std::vector<u16>{1});
}

}   // namespace
