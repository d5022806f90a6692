#include <cstring>
#include <filesystem>

#include "Source/Startup.h"
#include "kq/clip.h"
#include "kq/enumerate.h"
#include "kq/filespec.h"
#include "kq/formats.h"
#include "kq/frames.h"
#include "kq/plugins.h"
#include "pal/module.h"
#include "support/BuiltModules.h"
#include "support/Fixture.h"

namespace {

using kqtest::ModulePath;

std::vector<std::string> diagnostics;

class IFMPlugn : public kqtest::KQTest {
protected:
    void SetUp() override {
        KQTest::SetUp();
        diagnostics.clear();
        SetDebugSinkKQ([](const char* text) { diagnostics.push_back(text); });
    }

    void TearDown() override {
        SetDebugSinkKQ(nullptr);
        kq::FreeFormatModules();
        pal::ModuleClose(faulty);
        KQTest::TearDown();
    }

    void Scan(const std::string& file) { ScanPath(ModulePath(file)); }

    void ScanPath(const std::string& path) {
        EXPECT_EQ(FormatModule_CheckFile(path.c_str(), kqtest::TypeCodeOf("IFM "), 0), 1);
    }

    KQFormatDesc* Last() {
        return List_Empty(&KQEnv->formatModules) ? nullptr
                                                 : reinterpret_cast<KQFormatDesc*>(KQEnv->formatModules.TailPred);
    }

    // Sets how faulty.ifm behaves, and keeps it loaded so that it remembers.
    void SetFaulty(const char* null, const char* failing, i32 result) {
        char reason[256];
        if (!faulty) faulty = pal::ModuleOpen(ModulePath("faulty.ifm").c_str(), reason, sizeof reason);
        ASSERT_NE(faulty, nullptr) << reason;
        Call<void (*)(const char*, const char*, i32)>("SetFaulty")(null, failing, result);
    }

    template <class Function>
    Function Call(const char* name) {
        return reinterpret_cast<Function>(pal::ModuleSymbol(faulty, name));
    }

    i32 Entries() { return Call<i32 (*)()>("FaultyEntries")(); }

    std::string File(const std::string& name) {
        kqtest::WriteWholeFile(Folder() + name, "x");
        return Folder() + name;
    }

    void ExpectRefused(const std::string& file, const std::string& reason) {
        EXPECT_EQ(Last(), nullptr) << reason;
        ASSERT_EQ(diagnostics.size(), 1u) << reason;
        EXPECT_NE(diagnostics[0].find(file), std::string::npos) << diagnostics[0];
        EXPECT_NE(diagnostics[0].find(reason), std::string::npos) << diagnostics[0];
        diagnostics.clear();
    }

    pal::Module* faulty = nullptr;
};

TEST_F(IFMPlugn, ScannedModuleStandsInTheRegistryUnloaded) {
    Scan("example.ifm");
    ASSERT_NE(Last(), nullptr);
    EXPECT_STREQ(Last()->node.Name, "Example");
    EXPECT_EQ(Last()->pluginInfo->Flags, 73u);
    EXPECT_EQ(Last()->pluginInfo->LoadCount, 1);
    EXPECT_EQ(Last()->pluginInfo->Module, nullptr);
    EXPECT_EQ(Last()->pluginInfo->FileSpec, ModulePath("example.ifm"));
    EXPECT_EQ(Last()->cachedProperties, 14u);
    EXPECT_EQ(Last()->hostInterface, &KQEnv);
    EXPECT_TRUE(diagnostics.empty());
}

TEST_F(IFMPlugn, PropertiesAndTablesAnswerWithoutLoading) {
    Scan("example.ifm");
    EXPECT_EQ(GetImportPropertiesKQ(Last()), 14u);
    EXPECT_TRUE(Last()->CheckFile(Last(), "a.kqx", KQ_ANYCODE, KQ_ANYCODE, KQExtension("kqx")));
    EXPECT_EQ(Last()->pluginInfo->Module, nullptr);
}

TEST_F(IFMPlugn, ExportPropertiesLoad) {
    Scan("example.ifm");
    KQClip* clip = NewClipKQ();
    clip->format = Last();
    EXPECT_EQ(GetExportPropertiesKQ(clip), 14u);
    EXPECT_NE(Last()->pluginInfo->Module, nullptr);
    FreeClipKQ(clip);
}

TEST_F(IFMPlugn, PluginModuleSitsBehindTheBuiltInOnes) {
    InitFormatModulesKQ(nullptr);
    i32 builtIn = List_Entries(&KQEnv->formatModules);
    Scan("example.ifm");
    EXPECT_EQ(Find_Index(&KQEnv->formatModules, "Example"), builtIn);
}

TEST_F(IFMPlugn, EnumerationOfAFolderAddsItsModules) {
    std::string folder = ModulePath("");
    std::string copy = Folder() + "sub.ifm";
    std::filesystem::copy_file(ModulePath("example.ifm"), copy);
    std::string wanted = Folder();
    char* folders[] = {wanted.data(), nullptr};
    EnumFilesKQ(folders, nullptr, FormatModule_CheckFile, 0, 0);
    ASSERT_NE(Last(), nullptr);
    EXPECT_STREQ(Last()->node.Name, "Example");
    kq::FreeFormatModules();
}

TEST_F(IFMPlugn, ProgressIsShownForAScannedModule) {
    std::string shown;
    KQScanDesc scan = {};
    scan.progress = [](const char* text, void* data) { *static_cast<std::string*>(data) = text; };
    scan.progressData = &shown;
    FormatModule_CheckFile(ModulePath("example.ifm").c_str(), kqtest::TypeCodeOf("IFM "),
                           reinterpret_cast<uptr>(&scan));
    EXPECT_EQ(shown, "Scanning for Format Plug-ins: Example");
}

TEST_F(IFMPlugn, OtherTypeCodesAddNothing) {
    FormatModule_CheckFile(ModulePath("example.ifm").c_str(), kqtest::TypeCodeOf("TXT "), 0);
    EXPECT_EQ(Last(), nullptr);
    EXPECT_TRUE(diagnostics.empty());
}

TEST_F(IFMPlugn, ExampleWritesAFilmAndReadsItBack) {
    Scan("example.ifm");
    std::string path = Folder() + "film.kqx";
    KQClip* out = NewClipKQ();
    out->format = Last();
    out->fileSpec = MakeFileSpecKQ(path.c_str());
    out->width = 5, out->height = 3, out->frameRate = 23.976, out->alphaMode = 2, out->alphaPremultiplied = 0;
    KQBitmap* bitmap = AllocBitmapKQ(5, 3, 32);
    ASSERT_TRUE(CreateClipKQ(out, 0));
    ASSERT_TRUE(BeginClipIOKQ(out, nullptr));
    for (u32 i = 0; i < 4; ++i) {
        FillBitmapKQ(bitmap, 0x80102030 + i);
        ASSERT_TRUE(AddFrameKQ(out, bitmap, nullptr, nullptr, nullptr));
    }
    ASSERT_TRUE(EndClipIOKQ(out, nullptr));
    CloseClipKQ(out);
    FreeClipKQ(out);

    KQClip* in = OpenClipKQ(path.c_str(), nullptr);
    ASSERT_NE(in, nullptr);
    EXPECT_EQ(in->frameCount, 4);
    EXPECT_EQ(in->width, 5);
    EXPECT_EQ(in->frameRate, 23.976);
    ASSERT_TRUE(BeginClipIOKQ(in, nullptr));
    KQTimeValue third = {2, 23.976};
    ASSERT_TRUE(GetFrameKQ(in, bitmap, &third, nullptr, nullptr));
    const u8 wanted[4] = {0x80, 0x10, 0x20, 0x32};
    EXPECT_EQ(std::memcmp(bitmap->data, wanted, 4), 0);
    EXPECT_EQ(std::memcmp(bitmap->data + bitmap->dataSize - 4, wanted, 4), 0);
    EXPECT_TRUE(EndClipIOKQ(in, nullptr));
    CloseClipKQ(in);
    FreeClipKQ(in);
    FreeBitmapKQ(bitmap);
}

TEST_F(IFMPlugn, ExampleRefusesAFileThatClaimsMoreThanItHolds) {
    Scan("example.ifm");
    std::string path = Folder() + "short.kqx";
    const u8 head[20] = {'K', 'Q', 'E', 'X', 0, 0, 0x7F, 0xFF, 0, 0, 0x7F, 0xFF, 0x7F, 0xFF, 0xFF, 0xFF, 0, 0, 0, 1};
    kqtest::WriteWholeFile(path, head, sizeof head);
    EXPECT_EQ(OpenClipKQ(path.c_str(), nullptr), nullptr);
    EXPECT_EQ(GetErrorKQ(), KQERR_OPENFAILED);
}

TEST_F(IFMPlugn, MissingFileIsRefused) {
    Scan("none.ifm");
    ExpectRefused("none.ifm", "not loaded");
}

TEST_F(IFMPlugn, FileThatIsNoLibraryIsRefused) {
    ScanPath(File("text.ifm"));
    ExpectRefused("text.ifm", "not loaded");
}

TEST_F(IFMPlugn, LibraryWithoutEntryIsRefused) {
    Scan("noentry.ifm");
    ExpectRefused("noentry.ifm", "no entry ENTRYPOINT1");
}

TEST_F(IFMPlugn, EntryThatReturns0IsRefused) {
    SetFaulty("", "", 0);
    Scan("faulty.ifm");
    ExpectRefused("faulty.ifm", "the entry returned 0");
}

TEST_F(IFMPlugn, EachRequiredSlotLeftNullIsRefusedByName) {
    for (const char* slot : {"Open", "Close", "Create", "BeginIO", "EndIO", "GetFrame", "AddFrame", "CheckFile",
                             "ImportProperties", "ExportProperties"}) {
        SetFaulty(slot, "", 1);
        Scan("faulty.ifm");
        ExpectRefused("faulty.ifm", std::string("the ") + slot + " slot is null");
    }
}

TEST_F(IFMPlugn, ModuleWithoutNameIsRefused) {
    SetFaulty("Name", "", 1);
    Scan("faulty.ifm");
    ExpectRefused("faulty.ifm", "no name");
}

TEST_F(IFMPlugn, CountWithoutItsTableIsRefused) {
    SetFaulty("Table", "", 1);
    Scan("faulty.ifm");
    ExpectRefused("faulty.ifm", "importExts");
}

TEST_F(IFMPlugn, FailureAtEachSlotIsReportedAndLeavesTheClipUsable) {
    SetFaulty("", "", 1);
    Scan("faulty.ifm");
    KQClip* clip = OpenClipKQ(File("a.bad").c_str(), nullptr);
    ASSERT_NE(clip, nullptr);
    KQBitmap* bitmap = AllocBitmapKQ(4, 3, 32);
    for (const char* slot : {"Open", "BeginIO", "EndIO", "GetFrame", "AddFrame", "Create", "ExportProperties"}) {
        CloseClipKQ(clip);
        SetFaulty("", slot, 1);
        bool opened = OpenClipKQ(clip, nullptr), begun = opened && BeginClipIOKQ(clip, nullptr);
        bool got = begun && GetFrameKQ(clip, bitmap, nullptr, nullptr, nullptr);
        bool added = begun && AddFrameKQ(clip, bitmap, nullptr, nullptr, nullptr);
        bool ended = EndClipIOKQ(clip, nullptr), created = CreateClipKQ(clip, 0);
        EXPECT_FALSE(opened && begun && got && added && ended && created) << slot;
        CloseClipKQ(clip);
        SetFaulty("", "", 1);
        clip->flags &= ~KQCLIP_WRITING;
        ASSERT_TRUE(OpenClipKQ(clip, nullptr)) << slot;
        ASSERT_TRUE(BeginClipIOKQ(clip, nullptr)) << slot;
        ASSERT_TRUE(GetFrameKQ(clip, bitmap, nullptr, nullptr, nullptr)) << slot;
        EXPECT_EQ(bitmap->data[3], 0x10) << slot;
        EXPECT_TRUE(EndClipIOKQ(clip, nullptr)) << slot;
    }
    FreeBitmapKQ(bitmap);
    CloseClipKQ(clip);
    FreeClipKQ(clip);
}

TEST_F(IFMPlugn, LibraryIsLoadedOnceForAllClips) {
    SetFaulty("", "", 1);
    Scan("faulty.ifm");
    EXPECT_EQ(Entries(), 1);
    for (const char* name : {"a.bad", "b.bad"}) {
        KQClip* clip = OpenClipKQ(File(name).c_str(), nullptr);
        ASSERT_NE(clip, nullptr);
        CloseClipKQ(clip);
        FreeClipKQ(clip);
    }
    EXPECT_EQ(Entries(), 2);
}

TEST_F(IFMPlugn, ShutdownIsCalledForALoadedModuleAlone) {
    SetFaulty("", "", 1);
    Scan("faulty.ifm");
    kq::FreeFormatModules();
    EXPECT_EQ(Call<i32 (*)()>("FaultyShutdowns")(), 0);
    Scan("faulty.ifm");
    KQClip* clip = OpenClipKQ(File("a.bad").c_str(), nullptr);
    CloseClipKQ(clip);
    FreeClipKQ(clip);
    kq::FreeFormatModules();
    EXPECT_EQ(Call<i32 (*)()>("FaultyShutdowns")(), 1);
}

TEST_F(IFMPlugn, ModuleThatCannotBeReloadedFailsItsSlotsAndStaysWhole) {
    std::string path = Folder() + "gone.ifm";
    std::filesystem::copy_file(ModulePath("example.ifm"), path);
    ScanPath(path);
    ASSERT_NE(Last(), nullptr);
    std::filesystem::remove(path);
    EXPECT_EQ(OpenClipKQ(File("a.kqx").c_str(), nullptr), nullptr);
    EXPECT_EQ(GetErrorKQ(), KQERR_MODULE);
    EXPECT_EQ(diagnostics.size(), 1u);
    EXPECT_STREQ(Last()->node.Name, "Example");
    EXPECT_EQ(Last()->importExtCount, 1);
    EXPECT_EQ(GetImportPropertiesKQ(Last()), 14u);
    KQClip* clip = NewClipKQ();
    clip->format = Last();
    KQFormatDesc* m = Last();
    EXPECT_EQ(m->Create(clip, 0), 0);
    EXPECT_EQ(m->BeginIO(clip, 0), 0);
    EXPECT_EQ(m->EndIO(clip, 0), 0);
    EXPECT_EQ(m->GetFrame(clip, nullptr, 0, nullptr, 1, 1, 0), 0);
    EXPECT_EQ(m->AddFrame(clip, nullptr, 0, nullptr), 0);
    EXPECT_EQ(m->GetGBuffers(clip, 0, 1, nullptr), 0);
    EXPECT_EQ(GetExportPropertiesKQ(clip), 0u);
    CloseClipKQ(clip);
    FreeClipKQ(clip);
}

TEST_F(IFMPlugn, StubsOfOptionalSlotsThatAreNullReturn0) {
    Scan("example.ifm");
    KQClip* clip = NewClipKQ();
    clip->format = Last();
    EXPECT_EQ(clip->format->GetGBuffers(clip, 0, 1, nullptr), 0);
    EXPECT_EQ(clip->format->GetGBuffers, nullptr);
    ClipOptionsKQ(clip);
    FreeClipKQ(clip);
}

TEST_F(IFMPlugn, EveryAllocationOfScanningMayFail) {
    kqtest::FailEveryAllocation([&] {
        Scan("example.ifm");
        kq::FreeFormatModules();
    });
}

TEST_F(IFMPlugn, EveryFileCallOfScanningAndLoadingMayFail) {
    std::string path = File("a.kqx");
    kqtest::FailEveryFileCall([&] {
        Scan("example.ifm");
        KQClip* clip = OpenClipKQ(path.c_str(), nullptr);
        CloseClipKQ(clip);
        FreeClipKQ(clip);
        kq::FreeFormatModules();
    });
}

i32 EntryOf(const char* name) {
    std::string path = ModulePath("underscore.ifm"), entry = name ? name : "";
    KQPlugin plugin = {};
    plugin.FileSpec = path.data();
    plugin.EntryName = name ? entry.data() : nullptr;
    void* address = LoadPluginKQ(&plugin, 0);
    if (!address) return 0;
    i32 result = reinterpret_cast<i32 (*)()>(address)();
    EXPECT_NE(plugin.Module, nullptr);
    void* module = plugin.Module;
    PluginIdleKQ(&plugin, 0);
    PluginIdleKQ(&plugin, 1);
    EXPECT_EQ(plugin.Module, module);
    return result;
}

TEST_F(IFMPlugn, EntryIsFoundUnderTheNamesThatAreTried) {
    EXPECT_EQ(EntryOf(nullptr), 1);
    EXPECT_EQ(EntryOf("Main"), 2);
    EXPECT_EQ(EntryOf("_Main"), 2);
    EXPECT_EQ(EntryOf("Other"), 3);
    EXPECT_EQ(EntryOf("_Other"), 3);
    EXPECT_EQ(EntryOf("Nothing"), 0);
    EXPECT_EQ(EntryOf(std::string(300, 'x').c_str()), 0);
}

TEST_F(IFMPlugn, IdleOfAPluginThatWasNeverLoadedDoesNothing) {
    KQPlugin plugin = {};
    PluginIdleKQ(&plugin, 1);
    EXPECT_EQ(plugin.Module, nullptr);
    EXPECT_EQ(IsPluginValidKQ(&plugin), 1);
}

TEST_F(IFMPlugn, AModuleThatClaimsABuiltInExtensionDoesNotGetItsFiles) {
    InitFormatModulesKQ(nullptr);
    SetFaulty("", "Extension", 1);
    Scan("faulty.ifm");
    ASSERT_STREQ(Last()->node.Name, "Faulty");
    ASSERT_EQ(Last()->importExts[0], KQExtension("flm"));
    EXPECT_EQ(OpenClipKQ(File("a.flm").c_str(), nullptr), nullptr);
    EXPECT_NE(GetErrorKQ(), KQERR_BADFORMAT);
    EXPECT_EQ(Entries(), 1) << "nobody asked the module to open";
}

TEST_F(IFMPlugn, AModuleThatClaimsAnExtensionOfNobodyElseGetsItsFiles) {
    SetFaulty("", "Extension", 1);
    Scan("faulty.ifm");
    KQClip* clip = OpenClipKQ(File("a.flm").c_str(), nullptr);
    ASSERT_NE(clip, nullptr);
    CloseClipKQ(clip);
    FreeClipKQ(clip);
}

TEST_F(IFMPlugn, PhotoshopFilesWithoutResourcesAddNothing) {
    for (const char* name : {"a.8bf", "a.8be", "a.8bi", "a.8ba", "a.8bp", "a.8bx", "a.8by"}) File(name);
    std::string wanted = Folder();
    char* folders[] = {wanted.data(), nullptr};
    EnumFilesKQ(folders, nullptr, FormatModule_CheckFile, 0, 0);
    EXPECT_EQ(Last(), nullptr);
    for (u32 code : {kqtest::TypeCodeOf("8BF "), kqtest::TypeCodeOf("8BE "), kqtest::TypeCodeOf("8BIF"),
                     kqtest::TypeCodeOf("8BEM")})
        EXPECT_EQ(FormatModule_CheckFile((Folder() + "a.8bf").c_str(), code, 0), 1);
    EXPECT_EQ(Last(), nullptr);
    EXPECT_TRUE(diagnostics.empty());
}

TEST_F(IFMPlugn, AnEntryThatZeroesItsRecordKeepsItsPlaceInTheRegistry) {
    InitFormatModulesKQ(nullptr);
    i32 builtIn = List_Entries(&KQEnv->formatModules);
    SetFaulty("Record", "", 1);
    Scan("faulty.ifm");
    EXPECT_EQ(Find_Index(&KQEnv->formatModules, "Faulty"), builtIn);
    KQFormatDesc* module = Last();
    ASSERT_NE(module->pluginInfo, nullptr);
    EXPECT_EQ(module->hostInterface, &KQEnv);
    Scan("example.ifm");
    KQClip* clip = OpenClipKQ(File("a.bad").c_str(), nullptr);
    ASSERT_NE(clip, nullptr);
    EXPECT_EQ(clip->format, module);
    EXPECT_EQ(Find_Index(&KQEnv->formatModules, "Faulty"), builtIn) << "loading left it where it was";
    EXPECT_EQ(Find_Index(&KQEnv->formatModules, "Example"), builtIn + 1);
    EXPECT_EQ(module->hostInterface, &KQEnv);
    CloseClipKQ(clip);
    FreeClipKQ(clip);
}

}   // namespace
