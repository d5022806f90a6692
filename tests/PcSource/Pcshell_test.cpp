#include <filesystem>
#include <map>

#include "kq/enumerate.h"
#include "kq/filespec.h"
#include "pal/file.h"
#include "support/Environment.h"
#include "support/Fixture.h"

namespace fs = std::filesystem;

namespace {

// An object's path and whether it is a folder, by the name under which it is shown.
using Objects = std::map<std::string, std::pair<std::string, bool>>;

class Pcshell : public kqtest::KQTest {
protected:
    // The folder of the test in the host's full form, without a separator at its end.
    std::string Root() {
        std::string root = fs::canonical(Folder()).make_preferred().string();
        if (root.back() == pal::Separator()) root.pop_back();
        return root;
    }

    std::string Below(const std::string& name) { return (fs::path(Root()) / name).make_preferred().string(); }

    void Touch(const std::string& name) {
        fs::create_directories(fs::path(Below(name)).parent_path());
        kqtest::WriteWholeFile(Below(name), "x");
    }

    // Reads a folder to its end and frees it.
    Objects Read(KQShellFolderS* folder) {
        Objects objects;
        u32 isFolder = 7;
        while (KQEnumObjectS* object = GetNextFileObjectKQ(folder, &isFolder)) {
            char name[1024];
            EXPECT_EQ(GetDisplayNameKQ(object, name), 1);
            char* spec = GetFileSpecKQ(object);
            EXPECT_NE(spec, nullptr);
            EXPECT_LE(isFolder, 1u);
            objects[name] = {spec ? spec : "", isFolder == 1};
            FreeFileSpecKQ(spec);
            FreeEnumObjectKQ(object);
        }
        FreeShellFolderKQ(folder);
        return objects;
    }
};

TEST_F(Pcshell, FolderGivesItsFilesAndFoldersWithNamesAndPaths) {
    Touch("clip.mov");
    Touch("sub/inner.tga");
    KQShellFolderS* folder = EnumFileObjectsKQ(Root().c_str());
    ASSERT_NE(folder, nullptr);
    Objects expected = {{"clip.mov", {Below("clip.mov"), false}}, {"sub", {Below("sub"), true}}};
    EXPECT_EQ(Read(folder), expected);
}

TEST_F(Pcshell, ObjectThatIsAFolderOpensAsOne) {
    Touch("sub/inner.tga");
    KQShellFolderS* folder = EnumFileObjectsKQ(Root().c_str());
    KQEnumObjectS* object = GetNextFileObjectKQ(folder, nullptr);
    ASSERT_NE(object, nullptr);
    KQShellFolderS* sub = EnumFileObjectsKQ(object);
    ASSERT_NE(sub, nullptr);
    Objects expected = {{"inner.tga", {Below(fs::path("sub/inner.tga").make_preferred().string()), false}}};
    EXPECT_EQ(Read(sub), expected);
    FreeEnumObjectKQ(object);
    FreeShellFolderKQ(folder);
}

TEST_F(Pcshell, ObjectThatIsAFileDoesNotOpen) {
    Touch("clip.mov");
    KQShellFolderS* folder = EnumFileObjectsKQ(Root().c_str());
    KQEnumObjectS* object = GetNextFileObjectKQ(folder, nullptr);
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(EnumFileObjectsKQ(object), nullptr);
    FreeEnumObjectKQ(object);
    FreeShellFolderKQ(folder);
}

TEST_F(Pcshell, HiddenFilesComeOutToo) {
    Touch(".hidden");
    EXPECT_EQ(Read(EnumFileObjectsKQ(Root().c_str())).count(".hidden"), 1u);
}

TEST_F(Pcshell, EmptyFolderGivesNullAtOnce) {
    KQShellFolderS* folder = EnumFileObjectsKQ(Root().c_str());
    ASSERT_NE(folder, nullptr);
    EXPECT_EQ(GetNextFileObjectKQ(folder, nullptr), nullptr);
    FreeShellFolderKQ(folder);
}

TEST_F(Pcshell, FolderThatDoesNotExistIsNull) { EXPECT_EQ(EnumFileObjectsKQ(Below("missing").c_str()), nullptr); }

TEST_F(Pcshell, NullsAreTheDesktop) {
    KQShellFolderS* byPath = EnumFileObjectsKQ(static_cast<const char*>(nullptr));
    KQShellFolderS* byObject = EnumFileObjectsKQ(static_cast<KQEnumObjectS*>(nullptr));
    KQShellFolderS* byNull = EnumFileObjectsKQ(nullptr);
    ASSERT_NE(byPath, nullptr);
    Objects objects = Read(byPath);
    EXPECT_EQ(Read(byObject), objects);
    EXPECT_EQ(Read(byNull), objects);
}

TEST_F(Pcshell, NullsAreHarmless) {
    char name[1024] = "kept";
    EXPECT_EQ(GetNextFileObjectKQ(nullptr, nullptr), nullptr);
    EXPECT_EQ(GetFileSpecKQ(nullptr), nullptr);
    EXPECT_EQ(GetDisplayNameKQ(nullptr, name), 0);
    EXPECT_STREQ(name, "kept");
    FreeShellFolderKQ(nullptr);
    FreeEnumObjectKQ(nullptr);
}

TEST_F(Pcshell, NameThatCannotBeHadIsError) {
    Touch("clip.mov");
    KQShellFolderS* folder = EnumFileObjectsKQ(Root().c_str());
    KQEnumObjectS* object = GetNextFileObjectKQ(folder, nullptr);
    ASSERT_NE(object, nullptr);
    kq::fileFaults.Set(1, false);
    char* spec = GetFileSpecKQ(object);
    char name[1024] = "kept";
    EXPECT_EQ(GetDisplayNameKQ(object, name), 1);
    kq::fileFaults.Clear();
    EXPECT_STREQ(spec, "Error");
    EXPECT_STREQ(name, "");
    FreeFileSpecKQ(spec);
    FreeEnumObjectKQ(object);
    FreeShellFolderKQ(folder);
}

TEST_F(Pcshell, DanglingLinkIsPassedOverAndALinkIsWhatItLeadsTo) {
    std::error_code error;
    Touch("store/file.tga");
    fs::create_directory(Below("in"));
    fs::create_directory_symlink(Below("store"), fs::path(Below("in")) / "link", error);
    fs::create_symlink(Below("gone"), fs::path(Below("in")) / "dangling", error);
    if (error) GTEST_SKIP() << "no symbolic links on this host";
    Objects expected = {{"link", {Below("in/link"), true}}};
    EXPECT_EQ(Read(EnumFileObjectsKQ(Below("in").c_str())), expected);
}

TEST_F(Pcshell, DesktopIsTheOneOfTheUsersDirectories) {
    if (!pal::SlashPaths()) GTEST_SKIP() << "the shell knows the desktop of this host";
    Touch("My Desk/on.tga");
    Touch("Desktop/default.tga");
    Touch(".config/none");
    kqtest::Variable home("HOME", Root()), configuration("XDG_CONFIG_HOME", "");
    EXPECT_EQ(Read(EnumFileObjectsKQ(nullptr)).begin()->first, "default.tga");
    kqtest::WriteWholeFile(Below(".config/user-dirs.dirs"),
                           "# comment\nXDG_MUSIC_DIR=\"$HOME/Music\"\n  XDG_DESKTOP_DIR=\"$HOME/My\\ Desk\"\n");
    EXPECT_EQ(Read(EnumFileObjectsKQ(nullptr)).begin()->first, "on.tga");
    kqtest::WriteWholeFile(Below("user-dirs.dirs"), "XDG_DESKTOP_DIR=\"" + Below("Desktop") + "\"\n");
    kqtest::Variable elsewhere("XDG_CONFIG_HOME", Root());
    EXPECT_EQ(Read(EnumFileObjectsKQ(nullptr)).begin()->first, "default.tga");
}

TEST_F(Pcshell, WithoutADesktopFolderTheHomeFolderIsTheRoot) {
    if (!pal::SlashPaths()) GTEST_SKIP() << "the shell knows the desktop of this host";
    Touch("at home.tga");
    kqtest::Variable home("HOME", Root()), configuration("XDG_CONFIG_HOME", "");
    EXPECT_EQ(Read(EnumFileObjectsKQ(nullptr)).begin()->first, "at home.tga");
}

TEST_F(Pcshell, EveryFailingAllocationAndFileCallIsSurvived) {
    Touch("clip.mov");
    auto run = [&] {
        KQShellFolderS* folder = EnumFileObjectsKQ(Root().c_str());
        while (KQEnumObjectS* object = GetNextFileObjectKQ(folder, nullptr)) {
            FreeShellFolderKQ(EnumFileObjectsKQ(object));
            FreeFileSpecKQ(GetFileSpecKQ(object));
            FreeEnumObjectKQ(object);
        }
        FreeShellFolderKQ(folder);
    };
    kqtest::FailEveryAllocation(run);
    kqtest::FailEveryFileCall(run);
}

}   // namespace
