#include "kq/enumerate.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <map>

#include "pal/file.h"
#include "support/Fixture.h"

namespace fs = std::filesystem;

namespace {

using Found = std::map<std::string, std::string>;   // path, with `/`, and the four bytes of its type code

struct Call {
    Found* found;
    int calls;
};

int Note(const char* path, u32 typeCode, uptr user) {
    Call& call = *reinterpret_cast<Call*>(user);
    std::string name = path;
    std::replace(name.begin(), name.end(), '\\', '/');
    (*call.found)[name].assign(reinterpret_cast<const char*>(&typeCode), 4);
    ++call.calls;
    return 0;
}

std::string Numbered(const char* name, int number) { return std::string(name).append(std::to_string(number)); }

class Pcenum : public kqtest::KQTest {
protected:
    // The folder of the test as the tests compare it.
    std::string Root() {
        std::string root = fs::canonical(Folder()).string() + "/";
        std::replace(root.begin(), root.end(), '\\', '/');
        return root;
    }

    void Touch(const std::string& name) {
        fs::path path = fs::path(Root()) / name;
        fs::create_directories(path.parent_path());
        kqtest::WriteWholeFile(path.string(), "x");
    }

    Found Walk(std::vector<std::string> folders, int recursive) {
        std::vector<char*> list;
        for (std::string& folder : folders) list.push_back(folder.data());
        list.push_back(nullptr);
        Found found;
        Call call = {&found, 0};
        EXPECT_EQ(EnumFilesKQ(list.data(), nullptr, Note, reinterpret_cast<uptr>(&call), recursive), 1);
        calls = call.calls;
        return found;
    }

    std::string CodeOf(const std::string& name) {
        Touch(name);
        return Walk({Root()}, 0)[Root() + name];
    }

    // Makes a symbolic link, or says why this host has none.
    bool Link(const std::string& target, const std::string& name, bool folder) {
        std::error_code error;
        if (folder)
            fs::create_directory_symlink(target, Root() + name, error);
        else
            fs::create_symlink(target, Root() + name, error);
        return !error;
    }

    // Makes a shell link that holds its target's path alone.
    void ShellLink(const std::string& target, const std::string& name) {
        std::string path = (fs::path(Root()) / target).make_preferred().string();
        std::string link(76, 0);
        link[0] = 76;
        link.replace(4, 16, std::string("\x01\x14\x02\0\0\0\0\0\xC0\0\0\0\0\0\0\x46", 16));
        link[20] = 2;   // a location follows
        link[60] = 1;   // shown as usual
        std::string volume("\x11\0\0\0\3\0\0\0\0\0\0\0\x10\0\0\0\0", 17);
        size_t pathAt = 28 + volume.size(), suffixAt = pathAt + path.size() + 1;
        for (size_t word : {suffixAt + 1, size_t(28), size_t(1), size_t(28), pathAt, size_t(0), suffixAt})
            for (int shift = 0; shift < 32; shift += 8) link += char(word >> shift);
        link += volume + path + '\0' + '\0';
        link += std::string(4, 0);
        fs::create_directories(fs::path(Root() + name).parent_path());
        kqtest::WriteWholeFile(Root() + name, link);
    }

    int calls = 0;
};

TEST_F(Pcenum, GivesEachFileOfAFolderWithItsTypeCode) {
    Touch("a.tga");
    Touch("clip.Mov");
    Found expected = {{Root() + "a.tga", "TGA "}, {Root() + "clip.Mov", "MOV "}};
    EXPECT_EQ(Walk({Root()}, 0), expected);
    EXPECT_EQ(calls, 2);
}

TEST_F(Pcenum, FolderWithSeparatorGetsNoSecondOneAndOneWithoutGetsOne) {
    Touch("a.tga");
    std::string bare = Root();
    bare.pop_back();
    EXPECT_EQ(Walk({bare}, 0), Walk({Root()}, 0));
    EXPECT_EQ(Walk({bare}, 0).begin()->first, Root() + "a.tga");
}

TEST_F(Pcenum, TypeCodeBeginsAtFirstDotAndStopsAtSecond) { EXPECT_EQ(CodeOf("a.b.tga"), "B   "); }

TEST_F(Pcenum, TypeCodeOfTwoLettersHoldsANul) { EXPECT_EQ(CodeOf("a.ei"), std::string("EI\0 ", 4)); }

TEST_F(Pcenum, TypeCodeOfOneLetterHoldsNulsUpToTheThird) { EXPECT_EQ(CodeOf("a.c"), std::string("C\0\0 ", 4)); }

TEST_F(Pcenum, TypeCodeWithoutExtensionIsBlank) { EXPECT_EQ(CodeOf("name"), "    "); }

TEST_F(Pcenum, TypeCodeTakesThreeLettersOfALongExtension) { EXPECT_EQ(CodeOf("a.jpeg"), "JPE "); }

TEST_F(Pcenum, TypeCodeOfTwoDotsInARowIsBlank) { EXPECT_EQ(CodeOf("a..tga"), "    "); }

TEST_F(Pcenum, NonRecursiveWalkDoesNotCallBackForSubfolders) {
    Touch("sub/b.tga");
    Touch("sub.tga/c.tga");
    Touch("a.tga");
    Found expected = {{Root() + "a.tga", "TGA "}};
    EXPECT_EQ(Walk({Root()}, 0), expected);
}

TEST_F(Pcenum, RecursiveWalkEntersSubfolders) {
    Touch("sub/deep/b.tga");
    Touch("a.tga");
    Found expected = {{Root() + "a.tga", "TGA "}, {Root() + "sub/deep/b.tga", "TGA "}};
    EXPECT_EQ(Walk({Root()}, 1), expected);
}

TEST_F(Pcenum, FoldersThatBeginWithABraceAreSkipped) {
    Touch("{21EC2020}/b.tga");
    Touch("{file}.tga");
    Found expected = {{Root() + "{file}.tga", "TGA "}};
    EXPECT_EQ(Walk({Root()}, 1), expected);
}

TEST_F(Pcenum, EveryFolderOfTheListIsWalked) {
    Touch("one/a.tga");
    Touch("two/b.tga");
    Found expected = {{Root() + "one/a.tga", "TGA "}, {Root() + "two/b.tga", "TGA "}};
    EXPECT_EQ(Walk({Root() + "one", Root() + "missing", Root() + "two/"}, 0), expected);
}

TEST_F(Pcenum, NullCallbackAndEmptyListReturnOneAtOnce) {
    char* folders[] = {nullptr};
    std::string root = Root();
    char* some[] = {root.data(), nullptr};
    EXPECT_EQ(EnumFilesKQ(some, nullptr, nullptr, 0, 1), 1);
    EXPECT_EQ(EnumFilesKQ(folders, nullptr, Note, 0, 1), 1);
    EXPECT_EQ(EnumFilesKQ(nullptr, nullptr, Note, 0, 1), 1);
}

TEST_F(Pcenum, NameWithLnkThatIsNoShortcutIsSkippedInAnyCase) {
    Touch("a.lnk");
    Touch("b.LNK");
    Touch("c.Lnk.tga");
    Touch("lnk.tga");
    Found expected = {{Root() + "lnk.tga", "TGA "}};
    EXPECT_EQ(Walk({Root()}, 1), expected);
}

TEST_F(Pcenum, ShellLinkToAFileGivesTheTargetsPathAndItsOwnTypeCode) {
    if (pal::SlashPaths()) GTEST_SKIP() << "this host has no shell links";
    Touch("store/data.tga");
    ShellLink("store/data.tga", "in/frame.mov.lnk");
    ShellLink("store/data.tga", "in/other.LNK");
    Found found = Walk({Root() + "in"}, 0);
    EXPECT_EQ(found, (Found{{Root() + "store/data.tga", "LNK "}}));
    EXPECT_EQ(calls, 2);
}

TEST_F(Pcenum, ShellLinkToAFolderIsEnteredWhenRecursiveAlone) {
    if (pal::SlashPaths()) GTEST_SKIP() << "this host has no shell links";
    Touch("store/a.tga");
    ShellLink("store", "in/link.lnk");
    Found expected = {{Root() + "store/a.tga", "TGA "}};
    EXPECT_EQ(Walk({Root() + "in"}, 1), expected);
    EXPECT_EQ(Walk({Root() + "in"}, 0), Found());
}

TEST_F(Pcenum, ShellLinkToAFolderWhoseNameBeginsWithABraceIsSkipped) {
    if (pal::SlashPaths()) GTEST_SKIP() << "this host has no shell links";
    Touch("store/a.tga");
    ShellLink("store", "in/{link}.lnk");
    EXPECT_EQ(Walk({Root() + "in"}, 1), Found());
}

TEST_F(Pcenum, DanglingShellLinkIsSkipped) {
    if (pal::SlashPaths()) GTEST_SKIP() << "this host has no shell links";
    ShellLink("gone.tga", "in/link.lnk");
    EXPECT_EQ(Walk({Root() + "in"}, 1), Found());
}

TEST_F(Pcenum, LoopOfShellLinksEndsAndGivesEachFileOnce) {
    if (pal::SlashPaths()) GTEST_SKIP() << "this host has no shell links";
    Touch("a/b/file.tga");
    ShellLink("a", "a/b/up.lnk");
    ShellLink("a/b", "a/down.lnk");
    EXPECT_EQ(Walk({Root() + "a/b"}, 1), (Found{{Root() + "a/b/file.tga", "TGA "}}));
    EXPECT_EQ(calls, 1);
}

TEST_F(Pcenum, LinkToAFileGivesTheTargetsPathAndItsOwnTypeCode) {
    Touch("store/data.bin");
    fs::create_directory(Root() + "in");
    if (!Link(Root() + "store/data.bin", "in/frame.tga", false)) GTEST_SKIP() << "no symbolic links on this host";
    Found expected = {{Root() + "store/data.bin", "TGA "}};
    EXPECT_EQ(Walk({Root() + "in"}, 0), expected);
}

TEST_F(Pcenum, DanglingLinkIsSkipped) {
    Touch("a.tga");
    if (!Link(Root() + "gone.tga", "b.tga", false)) GTEST_SKIP() << "no symbolic links on this host";
    Found expected = {{Root() + "a.tga", "TGA "}};
    EXPECT_EQ(Walk({Root()}, 1), expected);
}

TEST_F(Pcenum, LinkToItselfIsSkipped) {
    if (!Link(Root() + "self.tga", "self.tga", false)) GTEST_SKIP() << "no symbolic links on this host";
    EXPECT_EQ(Walk({Root()}, 1), Found());
}

TEST_F(Pcenum, LinkToAFolderIsEnteredWhenRecursiveAlone) {
    Touch("store/a.tga");
    fs::create_directory(Root() + "in");
    if (!Link(Root() + "store", "in/link", true)) GTEST_SKIP() << "no symbolic links on this host";
    Found expected = {{Root() + "store/a.tga", "TGA "}};
    EXPECT_EQ(Walk({Root() + "in"}, 1), expected);
    EXPECT_EQ(Walk({Root() + "in"}, 0), Found());
}

TEST_F(Pcenum, LinkToAFolderWhoseNameBeginsWithABraceIsSkipped) {
    Touch("store/a.tga");
    fs::create_directory(Root() + "in");
    if (!Link(Root() + "store", "in/{link}", true)) GTEST_SKIP() << "no symbolic links on this host";
    EXPECT_EQ(Walk({Root() + "in"}, 1), Found());
}

TEST_F(Pcenum, LoopOfFolderLinksEndsAndGivesEachFileOnce) {
    Touch("a/b/file.tga");
    if (!Link(Root() + "a", "a/b/up", true)) GTEST_SKIP() << "no symbolic links on this host";
    Link(Root(), "a/b/root", true);
    Found expected = {{Root() + "a/b/file.tga", "TGA "}};
    EXPECT_EQ(Walk({Root()}, 1), expected);
    EXPECT_EQ(calls, 1);
}

TEST_F(Pcenum, LinkToTheParentOfTheWalkedFolderDoesNotLeadBackIntoIt) {
    Touch("a/b/file.tga");
    Touch("a/side.tga");
    if (!Link(Root() + "a", "a/b/up", true)) GTEST_SKIP() << "no symbolic links on this host";
    EXPECT_EQ(Walk({Root() + "a/b"}, 1), (Found{{Root() + "a/b/file.tga", "TGA "}, {Root() + "a/side.tga", "TGA "}}));
    EXPECT_EQ(calls, 2);
}

TEST_F(Pcenum, WebOfFolderLinksIsWalkedInBoundedTime) {
    constexpr int kFolders = 24;
    for (int i = 0; i < kFolders; ++i) Touch(Numbered("f", i) + "/file.tga");
    for (int i = 0; i < kFolders; ++i)
        for (int k = 0; k < kFolders; ++k)
            if (!Link(Root() + Numbered("f", k), Numbered("f", i) + Numbered("/to", k), true))
                GTEST_SKIP() << "no symbolic links on this host";
    EXPECT_EQ(Walk({Root()}, 1).size(), size_t(kFolders));
    EXPECT_LE(calls, 2 * kFolders);
}

TEST_F(Pcenum, PathsOfMoreThan260BytesAreGiven) {
    if (!pal::SlashPaths()) GTEST_SKIP() << "260 bytes are this host's limit";
    std::string deep;
    for (int i = 0; i < 8; ++i) deep += std::string(100, char('a' + i)) + "/";
    Touch(deep + "file.tga");
    Found expected = {{Root() + deep + "file.tga", "TGA "}};
    EXPECT_EQ(Walk({Root()}, 1), expected);
}

TEST_F(Pcenum, FolderWithANameBeyondEveryLimitYieldsNothing) {
    EXPECT_EQ(Walk({std::string(5000, 'x')}, 1), Found());
    EXPECT_EQ(Walk({std::string(4094, 'x')}, 1), Found());
    EXPECT_EQ(Walk({std::string(4095, 'x')}, 1), Found());
}

TEST_F(Pcenum, EveryFailingFileCallAndAllocationIsSurvived) {
    Touch("a/b/file.tga");
    Link(Root() + "a", "link", true);
    kqtest::FailEveryFileCall([&] { Walk({Root()}, 1); });
    kqtest::FailEveryAllocation([&] { Walk({Root()}, 1); });
}

}   // namespace
