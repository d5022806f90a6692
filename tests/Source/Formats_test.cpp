#include "kq/formats.h"

#include <cstring>

#include "Source/Formats.h"
#include "Source/Startup.h"
#include "kq/plugins.h"
#include "support/Fixture.h"
#include "support/RecordingModule.h"

namespace {

using kqtest::recording;

class Formats : public kqtest::KQTest {
protected:
    void SetUp() override {
        KQTest::SetUp();
        recording = {};
    }

    void TearDown() override {
        kq::FreeFormatModules();
        KQTest::TearDown();
    }

    KQClip* Open(const std::string& name) {
        kqtest::WriteWholeFile(Folder() + name, "x");
        return OpenClipKQ((Folder() + name).c_str(), nullptr);
    }
};

std::vector<std::string> RegisteredNames() {
    std::vector<std::string> names;
    for (Node* node = KQEnv->formatModules.Head; node->Succ; node = node->Succ) names.push_back(node->Name);
    return names;
}

TEST_F(Formats, BuiltInModulesStandInTheirOrder) {
    InitFormatModulesKQ(nullptr);
    std::vector<std::string> order = {"Video for Windows", "QuickTime",   "Filmstrip",
                                      "ElectricImage",     "Quantel VPB", ""};
    std::vector<std::string> names = RegisteredNames();
    size_t at = 0;
    for (auto& name : names) {
        while (at < order.size() && order[at] != name) ++at;
        EXPECT_LT(at, order.size()) << name << " is unknown or out of its order";
    }
    ASSERT_FALSE(names.empty());
    EXPECT_EQ(names.back(), "");
}

TEST_F(Formats, EveryBuiltInModuleFillsItsRequiredSlots) {
    InitFormatModulesKQ(nullptr);
    for (Node* node = KQEnv->formatModules.Head; node->Succ; node = node->Succ) {
        auto m = reinterpret_cast<KQFormatDesc*>(node);
        EXPECT_TRUE(m->Open && m->Close && m->Create && m->BeginIO && m->EndIO && m->GetFrame && m->AddFrame &&
                    m->CheckFile && m->ImportProperties && m->ExportProperties)
            << node->Name;
        EXPECT_EQ(m->maxWidth, 32767);
        EXPECT_EQ(m->maxHeight, 32767);
        EXPECT_EQ(m->ImportProperties(m), m->ExportProperties(m, nullptr));
    }
}

TEST_F(Formats, EveryAllocationOfRegistrationMayFail) {
    kqtest::FailEveryAllocation([] {
        InitFormatModulesKQ(nullptr);
        kq::FreeFormatModules();
    });
}

TEST_F(Formats, ModulesAreShownAsTheyAreAdded) {
    std::vector<std::string> shown;
    KQScanDesc scan = {};
    scan.progressData = &shown;
    scan.progress = [](const char* text, void* data) { static_cast<std::vector<std::string>*>(data)->push_back(text); };
    InitFormatModulesKQ(&scan);
    std::vector<std::string> wanted;
    for (auto& name : RegisteredNames()) wanted.push_back("Scanning for Format Plug-ins: " + name);
    EXPECT_EQ(shown, wanted);
}

TEST_F(Formats, ExtensionCodeStandsInTheTopBytes) {
    EXPECT_EQ(KQExtension("avi"), 0x61766900u);
    EXPECT_EQ(KQExtension("ei"), 0x65690000u);
    EXPECT_EQ(KQExtension(""), 0u);
}

TEST_F(Formats, CheckFileTakesAMatchingTypeAndCreator) {
    KQFormatDesc* m = kqtest::RegisterRecording("rec");
    m->importTypes[0] = {KQCode4("Film"), KQCode4("Make")};
    EXPECT_TRUE(kq::CheckFileByTables(m, "", KQCode4("Make"), KQCode4("Film"), 0));
    EXPECT_FALSE(kq::CheckFileByTables(m, "", KQCode4("Else"), KQCode4("Film"), 0));
    EXPECT_FALSE(kq::CheckFileByTables(m, "", KQCode4("Make"), KQCode4("Else"), 0));
    EXPECT_FALSE(kq::CheckFileByTables(m, "", KQ_ANYCODE, KQ_ANYCODE, 0));
}

TEST_F(Formats, BlanksOfTheTableMatchAnyCode) {
    KQFormatDesc* m = kqtest::RegisterRecording("rec");
    m->importTypes[0] = {KQCode4("Film"), KQ_ANYCODE};
    EXPECT_TRUE(kq::CheckFileByTables(m, "", KQCode4("Else"), KQCode4("Film"), 0));
    m->importTypes[0] = {KQ_ANYCODE, KQ_ANYCODE};
    EXPECT_TRUE(kq::CheckFileByTables(m, "", KQCode4("Else"), KQCode4("Else"), 0));
}

TEST_F(Formats, CheckFileTakesAMatchingExtension) {
    KQFormatDesc* m = kqtest::RegisterRecording("rec");
    EXPECT_TRUE(kq::CheckFileByTables(m, "", KQ_ANYCODE, KQ_ANYCODE, KQExtension("rec")));
    EXPECT_FALSE(kq::CheckFileByTables(m, "", KQ_ANYCODE, KQ_ANYCODE, KQExtension("re")));
}

TEST_F(Formats, ShutdownIsCalledOncePerModule) {
    kqtest::RegisterRecording("rec");
    kq::FreeFormatModules();
    EXPECT_EQ(recording.Count("Shutdown"), 1);
    EXPECT_TRUE(List_Empty(&KQEnv->formatModules));
}

TEST_F(Formats, FreedModulesGiveBackAllTables) {
    KQFormatDesc* m = kqtest::RegisterRecording("rec");
    m->exportTypes = static_cast<KQFileType*>(AllocMemoryKQ(8, 0));
    m->exportExts = static_cast<u32*>(AllocMemoryKQ(4, 0));
    m->defaultOptions = static_cast<KQClipOptions*>(AllocMemoryKQ(sizeof(KQClipOptions), 0));
    i64 before = kqtest::LiveBlocks();
    kq::FreeFormatModules();
    EXPECT_EQ(kqtest::LiveBlocks(), before - 7);
}

TEST_F(Formats, EachFileSystemNumberHasItsText) {
    for (i32 number : {-30900, -30501, -39, -19, -108, -46, -45, -43, -36, -34, -23, -20})
        kq::ShowFileSystemError(number);
    ASSERT_EQ(messages.size(), 12u);
    EXPECT_EQ(messages[0], "Format plugin cannot be used with this program");
    EXPECT_EQ(messages[1], "Error Reading File, Possibly Corrupted");
    EXPECT_EQ(messages[3], messages[1]);
    EXPECT_EQ(messages[6], "Cannot Write File\n File is in use by another program");
    EXPECT_EQ(messages[11], "Error Writing File");
}

TEST_F(Formats, UnknownFileSystemNumbersShowNothing) {
    kq::ShowFileSystemError(0);
    kq::ShowFileSystemError(-1);
    EXPECT_TRUE(messages.empty());
}

TEST_F(Formats, CopyOfOptionsPointsIntoItself) {
    auto options = static_cast<KQClipOptions*>(AllocMemoryKQ(sizeof(KQClipOptions) + 2, 0));
    options->data = reinterpret_cast<u8*>(options + 1);
    options->length = 2;
    std::memcpy(options->data, "ab", 2);
    KQClipOptions* copy = kq::CopyOptions(options);
    FreeMemoryKQ(options);
    EXPECT_EQ(copy->data, reinterpret_cast<u8*>(copy + 1));
    EXPECT_EQ(std::memcmp(copy->data, "ab", 2), 0);
    FreeMemoryKQ(copy);
    EXPECT_EQ(kq::CopyOptions(nullptr), nullptr);
}

// A failed open leaves a fresh object: bad, good, then close twice, over every module that stands in the registry.
TEST_F(Formats, AWrongFileIsRefusedByItsModuleAndNotPassedOn) {
    InitFormatModulesKQ(nullptr);
    for (Node* node = KQEnv->formatModules.Head; node->Succ; node = node->Succ) {
        auto m = reinterpret_cast<KQFormatDesc*>(node);
        if (m->importExtCount == 0) continue;
        std::string name = "wrong.";
        for (int shift = 24; shift > 0 && u8(m->importExts[0] >> shift); shift -= 8)
            name += char(m->importExts[0] >> shift);
        EXPECT_EQ(Open(name), nullptr) << name;
        EXPECT_NE(GetErrorKQ(), KQERR_NONE) << name;
        EXPECT_NE(GetErrorKQ(), KQERR_BADFORMAT) << name;
    }
}

TEST_F(Formats, ALongerExtensionThanABuiltInOneIsTakenByNobody) {
    InitFormatModulesKQ(nullptr);
    EXPECT_EQ(Open("x.flmx"), nullptr);
    EXPECT_EQ(GetErrorKQ(), KQERR_BADFORMAT);
    EXPECT_EQ(Open("x.FLM"), nullptr);
    EXPECT_NE(GetErrorKQ(), KQERR_BADFORMAT) << "its module takes it and refuses what is in it";
}

}   // namespace
