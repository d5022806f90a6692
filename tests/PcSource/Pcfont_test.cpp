// The list of fonts: what the host has, and the folder that KQLIB_FONT_DIR names.
#include "kq/font.h"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <set>

#include "pal/fonts.h"
#include "support/Environment.h"
#include "support/Fixture.h"
#include "support/FontBuilder.h"

namespace {

using kqtest::FontBuilder;
using kqtest::Utf16;

class Pcfont : public kqtest::KQTest {
protected:
    void TearDown() override {
        FreeFontListKQ(&list);
        KQTest::TearDown();
    }

    void Put(const std::string& name, const std::string& bytes) { kqtest::WriteWholeFile(Folder() + name, bytes); }

    // Lists with the test's folder as the application's own.
    void ListFolder() {
        kqtest::Variable variable("KQLIB_FONT_DIR", Folder());
        GetAvailableFontsKQ(&list);
    }

    KQFont* Find(const char* name) {
        for (Node* node = list.Head; node->Succ; node = node->Succ)
            if (std::strcmp(node->Name, name) == 0) return KQFontOfNode(node);
        return nullptr;
    }

    // How many fonts were listed from the test's folder.
    int FromFolder() {
        int count = 0;
        for (Node* node = list.Head; node->Succ; node = node->Succ) {
            const char* file = KQFontOfNode(node)->fontFile;
            count += file && std::strncmp(file, Folder().c_str(), Folder().size()) == 0;
        }
        return count;
    }

    List list = {};
};

std::string Plain(const std::string& name) { return FontBuilder(name).Add("").Add("").Build(); }

TEST_F(Pcfont, FontOfTheFolderIsListedWithItsFullName) {
    Put("a.ttf", Plain("KQ Test Upright"));
    ListFolder();
    KQFont* font = Find("KQ Test Upright");
    ASSERT_NE(font, nullptr);
    EXPECT_EQ(std::string(font->logFont.faceName), "Family");
    EXPECT_EQ(font->logFont.weight, 400);
    EXPECT_EQ(font->state, 0u);
    EXPECT_EQ(font->fontData, nullptr);
}

TEST_F(Pcfont, ThirdWordOfTheNodePointsAtTheFont) {
    Put("a.ttf", Plain("KQ Test Upright"));
    ListFolder();
    KQFont* font = Find("KQ Test Upright");
    ASSERT_NE(font, nullptr);
    EXPECT_EQ(reinterpret_cast<Node*>(font), &font->node);
    EXPECT_EQ(KQFontOfNode(&font->node), font);
    EXPECT_NE(List_Empty(&font->styles), 0);
}

TEST_F(Pcfont, ListIsSortedByName) {
    for (const char* name : {"KQ c", "kq B", "KQ a"}) Put(std::string(name) + ".ttf", Plain(name));
    ListFolder();
    Node* a = reinterpret_cast<Node*>(Find("KQ a"));
    ASSERT_NE(a, nullptr);
    EXPECT_STREQ(a->Succ->Name, "kq B");
    EXPECT_STREQ(a->Succ->Succ->Name, "KQ c");
}

TEST_F(Pcfont, EveryFaceOfACollectionIsListed) {
    Put("both.ttc",
        kqtest::Collection({FontBuilder("KQ One").Add("", 1).Add("", 1), FontBuilder("KQ Two").Add("", 2)}));
    ListFolder();
    ASSERT_NE(Find("KQ One"), nullptr);
    KQFont* two = Find("KQ Two");
    ASSERT_NE(two, nullptr);
    EXPECT_EQ(two->faceIndex, 1);
    ASSERT_NE(OpenFontKQ(two, 0, 1000, 72, 72), 0);
    f64 x, y;
    GetCursorAdvanceKQ('z', two, &x, &y);
    EXPECT_EQ(x, 2.0);
}

TEST_F(Pcfont, FaceOfACollectionWhoseDirectoryIsNotThereDoesNotEndTheOthers) {
    kqtest::BigBytes file;
    FontBuilder empty("KQ Middle");
    file.Add(
        kqtest::Collection({FontBuilder("KQ First").Add("").Add(""), empty.Add(""), FontBuilder("KQ Last").Add("")}));
    file.Put32(16, 0xFFFFFFF0);
    Put("three.ttc", file);
    ListFolder();
    EXPECT_NE(Find("KQ First"), nullptr);
    EXPECT_EQ(Find("KQ Middle"), nullptr);
    KQFont* last = Find("KQ Last");
    ASSERT_NE(last, nullptr);
    EXPECT_EQ(last->faceIndex, 2);
}

// A file of a few KB that asks for thousands of walks over thousands of entries.
TEST_F(Pcfont, CollectionThatMakesTooMuchWorkIsLeftOut) {
    kqtest::BigBytes file;
    u32 faces = 4000, at = 12 + faces * 4;
    file.U32(KQCode4("ttcf")).U32(0x00010000).U32(faces);
    for (u32 i = 0; i < faces; ++i) file.U32(at);
    file.Add(FontBuilder("KQ Again").Add("").Build(at)).Put16(at + 4, 0xFFFF);
    Put("again.ttc", file);
    ListFolder();
    EXPECT_GT(FromFolder(), 0);
    EXPECT_LT(FromFolder(), 10);
}

TEST_F(Pcfont, FilesAreKnownByTheirBytesNotTheirNames) {
    Put("font.data", Plain("KQ Data"));
    Put("fake.ttf", "this is no font");
    Put("empty.ttf", "");
    ListFolder();
    EXPECT_NE(Find("KQ Data"), nullptr);
    EXPECT_EQ(FromFolder(), 1);
}

TEST_F(Pcfont, FacesWithoutOutlinesOrNamesArePassedOver) {
    Put("curves.ttf", FontBuilder("KQ Curves").Add("").Without("glyf").Build());
    Put("nameless.ttf", FontBuilder().Add("").Without("name").Build());
    ListFolder();
    EXPECT_EQ(FromFolder(), 0);
}

TEST_F(Pcfont, SubfoldersAreListedToo) {
    std::filesystem::create_directory(Folder() + "deep");
    Put("deep/a.ttf", Plain("KQ Deep"));
    ListFolder();
    EXPECT_NE(Find("KQ Deep"), nullptr);
}

TEST_F(Pcfont, EnglishNameOfWindowsIsPreferred) {
    Put("a.ttf", FontBuilder()
                     .Add("")
                     .Set("name", kqtest::Names({{1, 0, 0, 4, "Old"},
                                                 {3, 1, 0x407, 4, Utf16("Deutsch")},
                                                 {3, 1, 0x409, 4, Utf16("KQ English")},
                                                 {0, 3, 0, 4, Utf16("Plain")}}))
                     .Build());
    ListFolder();
    EXPECT_NE(Find("KQ English"), nullptr);
}

TEST_F(Pcfont, NamesBeyondAsciiAreUtf8) {
    std::string name = kqtest::BigBytes().Add(Utf16("KQ ")).U16(0xE9).U16(0x65E5);
    Put("a.ttf", FontBuilder().Add("").Set("name", kqtest::Names({{3, 1, 0x409, 4, name}})).Build());
    ListFolder();
    EXPECT_NE(Find("KQ \xC3\xA9\xE6\x97\xA5"), nullptr);
}

TEST_F(Pcfont, FaceWithoutFullNameTakesItsFamily) {
    Put("a.ttf", FontBuilder().Add("").Set("name", kqtest::Names({{3, 1, 0x409, 1, Utf16("KQ Alone")}})).Build());
    ListFolder();
    EXPECT_NE(Find("KQ Alone"), nullptr);
}

TEST_F(Pcfont, NameTableThatLiesIsPassedOver) {
    Put("a.ttf", FontBuilder().Add("").Set("name", kqtest::BigBytes().U16(0).U16(0xFFFF).U16(0xFFFF)).Build());
    ListFolder();
    EXPECT_EQ(FromFolder(), 0);
}

TEST_F(Pcfont, FolderThatIsNotThereAddsNothing) {
    kqtest::Variable variable("KQLIB_FONT_DIR", Folder() + "nowhere");
    GetAvailableFontsKQ(&list);
    EXPECT_EQ(FromFolder(), 0);
}

TEST_F(Pcfont, FreedListIsEmptyAndOpenFontsAreClosed) {
    Put("a.ttf", Plain("KQ Open"));
    ListFolder();
    KQFont* font = Find("KQ Open");
    ASSERT_NE(font, nullptr);
    ASSERT_NE(OpenFontKQ(font, 0, 12, 72, 72), 0);
    FreeFontListKQ(&list);
    EXPECT_NE(List_Empty(&list), 0);
    FreeFontListKQ(nullptr);
}

TEST_F(Pcfont, WalkEndsWithWhatItHasWhenMemoryIsOut) {
    for (const char* name : {"KQ 1", "KQ 2", "KQ 3"}) Put(std::string(name) + ".ttf", Plain(name));
    kqtest::Variable variable("KQLIB_FONT_DIR", Folder());
    for (i64 n : {1, 2, 3, 4, 5, 8, 12}) {
        List some = {};
        kq::allocationFaults.Set(n, false);
        GetAvailableFontsKQ(&some);
        kq::allocationFaults.Clear();
        EXPECT_LE(List_Entries(&some), n / 2);
        FreeFontListKQ(&some);
    }
}

// A host with many fonts would make the tests that follow long.
class PcfontWithFewFonts : public Pcfont {
protected:
    void SetUp() override {
        Pcfont::SetUp();
        Put("fonts.conf", "<fontconfig><dir>" + Folder() + "host</dir></fontconfig>");
        few_ = std::make_unique<kqtest::Variable>("FONTCONFIG_FILE", Folder() + "fonts.conf");
    }

private:
    std::unique_ptr<kqtest::Variable> few_;
};

TEST_F(PcfontWithFewFonts, EveryAllocationOfAListingMayFail) {
    Put("a.ttf", Plain("KQ 1"));
    kqtest::Variable variable("KQLIB_FONT_DIR", Folder());
    kqtest::FailEveryAllocation([&] {
        List some = {};
        GetAvailableFontsKQ(&some);
        FreeFontListKQ(&some);
    });
}

TEST_F(PcfontWithFewFonts, EveryFileCallOfAListingMayFail) {
    Put("a.ttf", Plain("KQ 1"));
    kqtest::Variable variable("KQLIB_FONT_DIR", Folder());
    kqtest::FailEveryFileCall([&] {
        List some = {};
        GetAvailableFontsKQ(&some);
        FreeFontListKQ(&some);
    });
}

TEST_F(Pcfont, NoFaceOfTheHostIsListedTwice) {
    kqtest::Variable variable("KQLIB_FONT_DIR", "");
    GetAvailableFontsKQ(&list);
    std::set<std::string> seen;
    for (Node* node = list.Head; node->Succ; node = node->Succ) {
        const KQFont* font = KQFontOfNode(node);
        std::string face = node->Name + std::string("|") + (font->fontFile ? font->fontFile : "") + "|" +
                           std::to_string(font->faceIndex) + "|" + std::to_string(font->logFont.weight) + "|" +
                           std::to_string(font->logFont.italic);
        EXPECT_TRUE(seen.insert(face).second) << face;
    }
}

// What the host has differs; what is listed has to be usable.
TEST_F(Pcfont, FontsOfTheHostOpenAndGiveOutlines) {
    kqtest::Variable variable("KQLIB_FONT_DIR", "");
    GetAvailableFontsKQ(&list);
    int fonts = 0, opened = 0, outlines = 0;
    for (Node* node = list.Head; node->Succ; node = node->Succ) {
        KQFont* font = KQFontOfNode(node);
        ++fonts;
        if (!OpenFontKQ(font, 0, 12, 96, 96)) continue;
        ++opened;
        KQOutlineCommand* outline = GetFontOutlineKQ('A', font, 0, 0);
        outlines += outline != nullptr;
        FreeMemoryKQ(outline);
        EXPECT_GT(GetLineAdvanceKQ(font), 0.0) << node->Name;
        CloseFontKQ(font);
    }
    std::printf("%d fonts, %d with TrueType tables, %d with an outline of 'A'\n", fonts, opened, outlines);
    if (fonts == 0) GTEST_SKIP() << "the host lists no TrueType font";
    EXPECT_GT(opened, 0);
    EXPECT_GT(outlines, 0);
}

#if !defined(_WIN32)

// The tables of a TrueType file, as they are, in the container of fonts for the web.
std::string Wrapped(const std::string& font) {
    auto word = [&font](size_t at, int bytes) {
        u32 value = 0;
        for (int i = 0; i < bytes; ++i) value = value << 8 | u8(font[at + size_t(i)]);
        return value;
    };
    u32 count = word(4, 2);
    kqtest::BigBytes head, directory, body;
    for (u32 i = 0; i < count; ++i) {
        size_t entry = 12 + i * size_t(16);
        u32 sum = word(entry + 4, 4), from = word(entry + 8, 4), length = word(entry + 12, 4);
        directory.Add(font.substr(entry, 4)).U32(u32(44 + count * 20 + body.Size())).U32(length).U32(length).U32(sum);
        body.Add(font.substr(from, length)).Zeros((4 - length % 4) % 4);
    }
    head.U32(KQCode4("wOFF")).U32(word(0, 4)).U32(u32(44 + directory.Size() + body.Size())).U16(count).U16(0);
    head.U32(u32(12 + count * 16 + body.Size())).U32(0).Zeros(20);
    return head.Add(directory).Add(body);
}

// Of the two files the host lists both, by its own means; only one is a TrueType file.
TEST_F(Pcfont, FontsInAWrapperAreNotListed) {
    GetAvailableFontsKQ(&list);
    KQFont* installed = Find("DejaVu Sans");
    ASSERT_NE(installed, nullptr) << "the package fonts-dejavu is missing";
    std::vector<u8> bytes = kqtest::ReadWholeFile(installed->fontFile);
    std::string font(bytes.begin(), bytes.end());
    FreeFontListKQ(&list);
    Put("plain.ttf", font);
    Put("wrapped.woff", Wrapped(font));
    Put("fonts.conf", "<fontconfig><dir>" + Folder() + "</dir><cachedir>" + Folder() + "cache</cachedir></fontconfig>");
    kqtest::Variable variable("FONTCONFIG_FILE", Folder() + "fonts.conf");
    int listed = 0;
    pal::EnumerateFonts([](const pal::FontFace&, void* user) { return ++*static_cast<int*>(user), true; }, &listed);
    EXPECT_EQ(listed, 2);
    GetAvailableFontsKQ(&list);
    EXPECT_EQ(FromFolder(), 1);
}

#endif

}   // namespace
