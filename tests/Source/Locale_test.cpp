#include <filesystem>
#include <map>
#include <random>

#include "Source/Startup.h"
#include "kq/catalogue.h"
#include "kq/user.h"
#include "support/Fixture.h"

namespace {

std::vector<std::string> diagnostics;

void NoteDiagnostic(const char* text) { diagnostics.push_back(text); }

class Locale : public kqtest::KQTest {
protected:
    void SetUp() override {
        KQTest::SetUp();
        diagnostics.clear();
        SetDebugSinkKQ(NoteDiagnostic);
    }

    void TearDown() override {
        SetDebugSinkKQ(nullptr);
        if (KQEnv) Forget();
        KQTest::TearDown();
    }

    // Frees what Load made.
    void Forget() { kq::FreeStringCatalogue(); }

    // Writes catalogue and header and loads them into KQEnv; the catalogue names the header unless told otherwise.
    KQStringTable* Load(const std::string& catalogue, const std::string& header, bool include = true) {
        Forget();
        kqtest::WriteWholeFile(Header(), header);
        std::string first = include ? "#include \"" + Escaped(Header()) + "\"\n" : "";
        kqtest::WriteWholeFile(Catalogue(), first + catalogue);
        KQEnv->Error = 99;
        KQEnv->Strings = LoadStringTable(Catalogue().c_str());
        kq::IndexStrings();
        return KQEnv->Strings;
    }

    std::string Catalogue() { return Folder() + "strings.txt"; }

    std::string Header() { return Folder() + "header.h"; }

    // A path as it stands between quotes: a backslash in front of an n would become a line feed.
    static std::string Escaped(std::string path) {
        for (char& c : path)
            if (c == '\\') c = '/';
        return path;
    }

    static std::string Text(u32 id) {
        const char* text = GetStringKQ(id);
        return text ? text : "(null)";
    }
};

TEST_F(Locale, StringsAreFoundByTheNumberOfTheHeader) {
    ASSERT_NE(Load("#define HELLO \"Good day\"\n#define BYE \"See you\"\n", "#define BYE 7\n#define HELLO 5\n"),
              nullptr);
    EXPECT_EQ(Text(5), "Good day");
    EXPECT_EQ(Text(7), "See you");
    EXPECT_EQ(GetStringKQ(6), nullptr);
    EXPECT_EQ(GetErrorKQ(), KQERR_NONE);
}

TEST_F(Locale, TableKeepsTheOrderOfTheFile) {
    KQStringTable* table = Load("#define B \"b\"\n#define A \"a\"\n", "#define A 1\n#define B 2\n");
    ASSERT_NE(table, nullptr);
    ASSERT_EQ(table->Count, 2);
    EXPECT_EQ(table->IDs[0], 2u);
    EXPECT_EQ(table->IDs[1], 1u);
    EXPECT_EQ(table->Offsets, table->IDs + 2);
    EXPECT_EQ(table->Text, reinterpret_cast<char*>(table->Offsets + 2));
}

TEST_F(Locale, OddAndEvenLengthsKeepOffsetsEven) {
    KQStringTable* table =
        Load("#define A \"a\"\n#define B \"bb\"\n#define C \"ccc\"\n", "#define A 1\n#define B 2\n#define C 3\n");
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->Offsets[0], 0u);
    EXPECT_EQ(table->Offsets[1], 2u);
    EXPECT_EQ(table->Offsets[2], 6u);
    EXPECT_EQ(std::string(table->Text, 10), std::string("a\0bb\0\0ccc\0", 10));
}

TEST_F(Locale, EmptyStringHasLengthZeroAndAnEvenOffset) {
    KQStringTable* table = Load("#define A \"\"\n#define B \"b\"\n", "#define A 1\n#define B 2\n");
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(Text(1), "");
    EXPECT_EQ(table->Offsets[1], 2u);
}

TEST_F(Locale, CatalogueWithoutIncludeGivesNoTable) {
    EXPECT_EQ(Load("#define A \"a\"\n", "#define A 1\n", false), nullptr);
    EXPECT_EQ(GetErrorKQ(), KQERR_BADDATA);
    EXPECT_EQ(diagnostics, std::vector<std::string>{"No include file."});
}

TEST_F(Locale, IncludeWithoutAQuotedNameGivesNoTable) {
    EXPECT_EQ(Load("#include header.h\n\"x\"\n", "", false), nullptr);
    EXPECT_EQ(diagnostics, std::vector<std::string>{"Invalid include file."});
}

TEST_F(Locale, IncludeNameThatIsTooLongGivesNoTable) {
    EXPECT_EQ(Load("#include \"" + std::string(1000, 'x') + "\"\n", "", false), nullptr);
    EXPECT_EQ(diagnostics, std::vector<std::string>{"Invalid include file."});
}

TEST_F(Locale, UnreadableHeaderGivesNoTable) {
    EXPECT_EQ(Load("#include \"" + Escaped(Folder()) + "none.h\"\n#define A \"a\"\n", "", false), nullptr);
    EXPECT_EQ(GetErrorKQ(), KQERR_NOTFOUND);
}

TEST_F(Locale, MissingCatalogueLeavesNotFound) {
    EXPECT_EQ(LoadStringTable((Folder() + "none.txt").c_str()), nullptr);
    EXPECT_EQ(GetErrorKQ(), KQERR_NOTFOUND);
}

TEST_F(Locale, NullNameGivesNoTable) { EXPECT_EQ(LoadStringTable(nullptr), nullptr); }

TEST_F(Locale, EmptyCatalogueGivesNoTable) {
    EXPECT_EQ(Load("", "", false), nullptr);
    EXPECT_EQ(GetErrorKQ(), KQERR_BADDATA);
}

TEST_F(Locale, RelativeHeaderIsRelativeToTheCurrentFolder) {
    std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::create_directory(Folder() + "inner");
    std::filesystem::current_path(Folder() + "inner");
    kqtest::WriteWholeFile("near.h", "#define A 4\n");
    EXPECT_NE(Load("#include \"near.h\"\n#define A \"a\"\n", "", false), nullptr);
    EXPECT_EQ(Text(4), "a");
    std::filesystem::current_path(before);
}

TEST_F(Locale, CatalogueWithoutDefinitionsIsAnEmptyTable) {
    KQStringTable* table = Load("nothing here\n", "");
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->Count, 0);
    EXPECT_EQ(GetStringKQ(0), nullptr);
}

TEST_F(Locale, NoTableGivesNullAndLeavesTheErrorAlone) {
    KQEnv->Error = 42;
    EXPECT_EQ(GetStringKQ(1), nullptr);
    EXPECT_EQ(GetErrorKQ(), 42u);
}

TEST_F(Locale, SymbolMissingInTheHeaderStopsTheWholeLoad) {
    EXPECT_EQ(Load("#define A \"a\"\n#define B \"b\"\n", "#define A 1\n"), nullptr);
    EXPECT_EQ(GetErrorKQ(), KQERR_BADDATA);
    EXPECT_EQ(diagnostics, std::vector<std::string>{"Undefined Symbol 'B'."});
}

TEST_F(Locale, SymbolInAnEarlierCommentMakesTheLoadFail) {
    EXPECT_EQ(Load("#define A \"a\"\n", "// A is the first\n#define A 1\n"), nullptr);
    EXPECT_EQ(diagnostics, std::vector<std::string>{"Undefined Symbol 'A'."});
}

TEST_F(Locale, SymbolAsTheEndOfAnotherWordHasThatLinesNumber) {
    ASSERT_NE(Load("#define FOO \"foo\"\n", "#define BARFOO 1\n#define FOO 2\n"), nullptr);
    EXPECT_EQ(Text(1), "foo");
    EXPECT_EQ(GetStringKQ(2), nullptr);
}

TEST_F(Locale, SymbolAsTheStartOfAnotherWordIsNotFoundThere) {
    ASSERT_NE(Load("#define FOO \"foo\"\n", "#define FOOBAR 1\n#define FOO 2\n"), nullptr);
    EXPECT_EQ(Text(2), "foo");
}

TEST_F(Locale, SymbolAsTheEndOfItsOwnValueIsNotLookedAtTwice) {
    ASSERT_NE(Load("#define A \"a\"\n#define AA \"aa\"\n", "#define AA 3\n#define A 4\n"), nullptr);
    EXPECT_EQ(Text(3), "a") << "the first of two strings with one number";
    EXPECT_EQ(GetStringKQ(4), nullptr);
}

TEST_F(Locale, WordThatEndsTheHeaderIsNoMatch) {
    EXPECT_EQ(Load("#define A \"a\"\n", "#define B 1\n#define A"), nullptr);
    EXPECT_EQ(Load("#define 1 \"a\"\n", "#define A 1"), nullptr);
}

TEST_F(Locale, NumberThatEndsTheHeaderIsRead) {
    ASSERT_NE(Load("#define A \"a\"\n", "#define A 12"), nullptr);
    EXPECT_EQ(Text(12), "a");
}

TEST_F(Locale, HeaderLineIsParsedAlone) {
    EXPECT_EQ(Load("#define A \"a\"\n", "#define A\n12\n"), nullptr);
    EXPECT_EQ(Load("#define A \"a\"\n", "#define A\r12\n"), nullptr);
}

TEST_F(Locale, HeaderLineMustBeginWithDefine) {
    EXPECT_EQ(Load("#define A \"a\"\n", "#DEFINE A 1\n"), nullptr);
    EXPECT_EQ(Load("#define A \"a\"\n", "x#define A 1\n"), nullptr);
    EXPECT_EQ(Load("#define A \"a\"\n", "# define A 1\n"), nullptr);
    EXPECT_EQ(Load("#define A \"a\"\n", "#define A one\n"), nullptr);
    EXPECT_NE(Load("#define A \"a\"\n", "\t #define\tA\t 1\n"), nullptr);
}

TEST_F(Locale, NumbersMayBeNegativeOrLarge) {
    ASSERT_NE(Load("#define A \"a\"\n#define B \"b\"\n#define C \"c\"\n",
                   "#define A -1 // x\n#define B 4000000000\n#define C +8x\n"),
              nullptr);
    EXPECT_EQ(Text(0xFFFFFFFF), "a");
    EXPECT_EQ(Text(4000000000u), "b");
    EXPECT_EQ(Text(8), "c");
}

TEST_F(Locale, EscapedQuoteStaysWithItsBackslash) {
    ASSERT_NE(Load("#define A \"say \\\"yes\\\"\"\n", "#define A 1\n"), nullptr);
    EXPECT_EQ(Text(1), "say \\\"yes\\\"");
}

TEST_F(Locale, BackslashAndNIsALineFeedAndNothingElseIsKnown) {
    ASSERT_NE(Load("#define A \"a\\nb\\tc\\\\n\"\n#define B \"\\n\"\n", "#define A 1\n#define B 2\n"), nullptr);
    EXPECT_EQ(Text(1), "a\nb\\tc\\\n");
    EXPECT_EQ(Text(2), "\n");
}

TEST_F(Locale, QuoteBehindTwoBackslashesEndsNothing) {
    EXPECT_EQ(Load("#define A \"a\\\\\"\n", "#define A 1\n"), nullptr);
}

TEST_F(Locale, StringCannotSpanLines) {
    EXPECT_EQ(Load("#define A \"a\nb\"\n", "#define A 1\n"), nullptr);
    EXPECT_EQ(diagnostics, std::vector<std::string>{"Invalid String for Symbol 'A'."});
    EXPECT_EQ(Load("#define A \"a\rb\"\n", "#define A 1\n"), nullptr);
    EXPECT_EQ(Load("#define A\n\"b\"\n", "#define A 1\n"), nullptr);
}

TEST_F(Locale, LastLineWithoutALineEndIsRead) {
    ASSERT_NE(Load("#define A \"a\"", "#define A 1\n"), nullptr);
    EXPECT_EQ(Text(1), "a");
}

TEST_F(Locale, LinesMayEndInCarriageReturns) {
    ASSERT_NE(Load("#define A \"a\"\r\n#define B \"b\"\r", "#define A 1\r#define B 2\r\n"), nullptr);
    EXPECT_EQ(Text(1), "a");
    EXPECT_EQ(Text(2), "b");
}

TEST_F(Locale, DefinitionWithoutASymbolStopsTheLoad) {
    EXPECT_EQ(Load("#define A \"a\"\n#define \n", "#define A 1\n"), nullptr);
    EXPECT_EQ(diagnostics, std::vector<std::string>{"Error in ID field."});
}

TEST_F(Locale, DefineThatEndsTheCatalogueIsNoMatch) {
    ASSERT_NE(Load("#define A \"a\"\n#define", "#define A 1\n"), nullptr);
    EXPECT_EQ(KQEnv->Strings->Count, 1);
}

TEST_F(Locale, DefineInsideAStringIsFoundToo) {
    EXPECT_EQ(Load("#define A \"see #define B there\"\n", "#define A 1\n#define B 2\n"), nullptr);
    EXPECT_EQ(diagnostics, std::vector<std::string>{"Invalid String for Symbol 'B'."});
    ASSERT_NE(Load("#define A #define B \"both\"\n", "#define A 1\n#define B 2\n"), nullptr);
    EXPECT_EQ(Text(1), "both");
    EXPECT_EQ(Text(2), "both");
}

TEST_F(Locale, DefineNeedNotBeginAWord) {
    ASSERT_NE(Load("xx#define A \"a\"\n", "#define A 1\n"), nullptr);
    EXPECT_EQ(Text(1), "a");
}

TEST_F(Locale, SymbolMayHoldAQuote) {
    ASSERT_NE(Load("#define A\"B \"text\"\n", "#define A\"B 1\n"), nullptr);
    EXPECT_EQ(Text(1), "B ") << "quotes are looked for right behind the word #define";
}

TEST_F(Locale, FirstOfTwoStringsWithOneNumberCounts) {
    ASSERT_NE(Load("#define A \"first\"\n#define B \"second\"\n#define A \"third\"\n", "#define A 1\n#define B 1\n"),
              nullptr);
    EXPECT_EQ(KQEnv->Strings->Count, 3);
    EXPECT_EQ(Text(1), "first");
}

TEST_F(Locale, TableOfTheApplicationIsSearchedToo) {
    u32 ids[] = {3, 1, 3};
    u32 offsets[] = {0, 2, 4};
    char text[] = "a\0b\0c";
    KQStringTable table = {3, ids, offsets, text};
    KQEnv->Strings = &table;
    EXPECT_EQ(Text(3), "a");
    kq::IndexStrings();
    EXPECT_EQ(Text(3), "a");
    EXPECT_EQ(Text(1), "b");
    EXPECT_EQ(GetStringKQ(2), nullptr);
    KQEnv->Strings = nullptr;
}

TEST_F(Locale, TableThatTookThePlaceOfAnotherIsSearchedItself) {
    u32 ids[] = {1}, otherIds[] = {1};
    u32 offsets[] = {0};
    char text[] = "a", otherText[] = "b";
    KQStringTable table = {1, ids, offsets, text}, other = {1, otherIds, offsets, otherText};
    KQEnv->Strings = &table;
    kq::IndexStrings();
    KQEnv->Strings = &other;
    EXPECT_EQ(Text(1), "b");
    KQEnv->Strings = nullptr;
}

// The rules as they are told, symbol by symbol, without a thought for speed.
size_t PlainFindWord(const std::string& text, const std::string& word) {
    for (size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1))
        if (at + word.size() < text.size() && std::isspace(u8(text[at + word.size()]))) return at;
    return std::string::npos;
}

bool PlainNumber(const std::string& header, const std::string& symbol, u32* number) {
    size_t at = PlainFindWord(header, symbol);
    if (at == std::string::npos) return false;
    size_t from = header.find_last_of("\r\n", at), to = header.find_first_of("\r\n", at);
    from = from == std::string::npos ? 0 : from + 1;
    std::string line = header.substr(from, to == std::string::npos ? to : to - from);
    std::vector<char> first(line.size() + 1), second(line.size() + 1);
    long third;
    if (std::sscanf(line.c_str(), "%s %s %ld", first.data(), second.data(), &third) != 3) return false;
    *number = u32(third);
    return std::string(first.data()) == "#define";
}

TEST_F(Locale, NumbersAreThoseOfAPlainSearch) {
    u32 seed = std::random_device{}();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    int loaded = 0;
    for (int run = 0; run < 400; ++run) {
        // Symbols of two letters end each other often.
        auto symbol = [&] {
            std::string name;
            for (u32 n = 1 + random() % 6; n > 0; --n) name += "AB"[random() % 2];
            return name;
        };
        std::string header;
        for (u32 n = random() % 60; n > 0; --n) {
            const char* starts[] = {"#define ", "#define ", "#define ", "#define ", "#define ", "#define ", "// ", "x"};
            header += starts[random() % 8] + symbol() + (random() % 8 ? " " : "\t") + std::to_string(random() % 50);
            header += random() % 10 ? "\n" : "\r";
        }
        std::vector<std::string> symbols;
        std::string catalogue;
        for (u32 n = 1 + random() % 5; n > 0; --n) {
            symbols.push_back(symbol());
            catalogue += "#define " + symbols.back() + " \"text of " + symbols.back() + "\"\n";
        }
        bool good = true;
        std::map<u32, std::string> expected;
        for (const std::string& name : symbols) {
            u32 number = 0;
            if (!PlainNumber(header, name, &number)) good = false;
            expected.emplace(number, "text of " + name);
        }
        ASSERT_EQ(Load(catalogue, header) != nullptr, good) << header << catalogue;
        if (!good) continue;
        ++loaded;
        for (auto& [number, text] : expected) ASSERT_EQ(Text(number), text) << header << catalogue;
    }
    EXPECT_GT(loaded, 20);
}

TEST_F(Locale, HashAnswersAsTheWalkDoes) {
    u32 seed = std::random_device{}();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    for (int run = 0; run < 50; ++run) {
        std::vector<u32> ids(1 + random() % 500), offsets(ids.size());
        u32 range = 1 + random() % 1000, step = random() % 3 ? 1 : 0x10000;
        for (size_t i = 0; i < ids.size(); ++i) {
            ids[i] = random() % range * step;
            offsets[i] = u32(i);
        }
        std::vector<char> text(ids.size() + 1);
        KQStringTable table = {i32(ids.size()), ids.data(), offsets.data(), text.data()};
        KQEnv->Strings = &table;
        std::vector<const char*> walked, hashed;
        for (u32 id = 0; id < range + 5; ++id) walked.push_back(GetStringKQ(id * step));
        kq::IndexStrings();
        for (u32 id = 0; id < range + 5; ++id) hashed.push_back(GetStringKQ(id * step));
        EXPECT_EQ(walked, hashed);
        KQEnv->Strings = nullptr;
        Forget();
    }
}

TEST_F(Locale, EveryFailedAllocationIsSurvived) {
    std::string path = Catalogue();
    Load("#define A \"a\"\n#define B \"bb\"\n", "#define A 1\n#define B 2\n");
    Forget();
    kqtest::FailEveryAllocation([&] {
        KQEnv->Strings = LoadStringTable(path.c_str());
        u32 error = GetErrorKQ();
        kq::IndexStrings();
        EXPECT_EQ(Text(2), KQEnv->Strings ? "bb" : "(null)");
        EXPECT_EQ(error, KQEnv->Strings ? KQERR_NONE : KQERR_NOMEM);
        kq::FreeStringCatalogue();
    });
}

TEST_F(Locale, EveryFailedFileCallIsSurvived) {
    std::string path = Catalogue();
    Load("#define A \"a\"\n", "#define A 1\n");
    Forget();
    kqtest::FailEveryFileCall([&] { FreeStringTable(LoadStringTable(path.c_str())); });
}

TEST_F(Locale, MessagesTakeTheirFormatFromTheCatalogue) {
    Load("#define A \"%d of %s\"\n", "#define A 1\n");
    UserMessageKQ(1u, 3, "four");
    StopAlertKQ(1u, 5, "six");
    answer = 1;
    EXPECT_EQ(AskUserKQ(1u, 7, "eight"), 1);
    answer = 0;
    EXPECT_EQ(AskUserKQ(1u, 9, "ten"), 0);
    EXPECT_EQ(messages, (std::vector<std::string>{"3 of four", "5 of six", "7 of eight", "9 of ten"}));
}

TEST_F(Locale, MessageOfAMissingStringReturnsAtOnce) {
    UserMessageKQ(1u);
    StopAlertKQ(1u);
    EXPECT_EQ(AskUserKQ(1u), 1);
    EXPECT_TRUE(messages.empty());
}

TEST(LocaleStart, InitLoadsTheCatalogue) {
    std::string folder = kqtest::MakeTemporaryFolder();
    std::string header = folder + "h.h";
    for (char& c : header)
        if (c == '\\') c = '/';
    kqtest::WriteWholeFile(folder + "h.h", std::string("#define A 1\n"));
    kqtest::WriteWholeFile(folder + "s.txt", "#include \"" + header + "\"\n#define A \"from the file\"\n");
    u32 ids[] = {1};
    u32 offsets[] = {0};
    char text[] = "from the tag";
    KQStringTable table = {1, ids, offsets, text};
    TagItem tags[] = {{KQTAG_InitNoWindow, 0}, {KQTAG_InitStrings, reinterpret_cast<uptr>(&table)}, {0, 0}};
    ASSERT_NE(InitKQ(nullptr, nullptr, nullptr, (folder + "s.txt").c_str(), nullptr, tags), nullptr);
    EXPECT_STREQ(GetStringKQ(1), "from the file");
    CleanUpKQ();
    ASSERT_NE(InitKQ(nullptr, nullptr, nullptr, (folder + "none.txt").c_str(), nullptr, tags), nullptr);
    EXPECT_STREQ(GetStringKQ(1), "from the tag");
    CleanUpKQ();
    ASSERT_NE(InitKQ(nullptr, nullptr, nullptr, nullptr, nullptr, tags), nullptr);
    EXPECT_STREQ(GetStringKQ(1), "from the tag");
    CleanUpKQ();
    kqtest::RemoveTemporaryFolder(folder);
}

}   // namespace
