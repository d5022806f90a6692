#include <cstring>
#include <string>
#include <vector>

#include "kq/files.h"
#include "kq/filespec.h"
#include "pal/file.h"
#include "pal/memory.h"
#include "support/Fixture.h"

namespace {

// Starts the library by itself: the fixture of the other tests is what is tested here.
class Init : public testing::Test {
protected:
    void TearDown() override {
        kq::allocationFaults.Clear();
        CleanUpKQ();
    }

    // Starts with NoWindow and up to one more tag.
    static KQEnvironment* Start(u32 tag = 0, uptr data = 0) {
        TagItem more[] = {{tag, data}, {0, 0}};
        return kqtest::InitWithoutWindow(more);
    }
};

uptr Word(const void* pointer) { return reinterpret_cast<uptr>(pointer); }

TEST_F(Init, ErrorIsOneBeforeAStartAndAfterCleanUp) {
    EXPECT_EQ(GetErrorKQ(), 1u);
    ASSERT_NE(Start(), nullptr);
    KQEnv->Error = KQERR_READ;
    EXPECT_EQ(GetErrorKQ(), 12u);
    CleanUpKQ();
    EXPECT_EQ(GetErrorKQ(), 1u);
}

TEST_F(Init, CleanUpTwiceIsHarmless) {
    CleanUpKQ();
    ASSERT_NE(Start(), nullptr);
    CleanUpKQ();
    EXPECT_EQ(KQEnv, nullptr);
    CleanUpKQ();
    EXPECT_EQ(KQEnv, nullptr);
}

TEST_F(Init, NullStringsAndNullTagsGiveAWorkingEnvironment) {
    ASSERT_NE(InitKQ(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(KQEnv->PrefsName, nullptr);
    EXPECT_EQ(KQEnv->KeyFileName, nullptr);
    EXPECT_EQ(KQEnv->StringFileName, nullptr);
    EXPECT_EQ(KQEnv->KeyTable, nullptr);
    EXPECT_EQ(KQEnv->Strings, nullptr);
    EXPECT_EQ(KQEnv->CommandLine, nullptr);
    EXPECT_EQ(KQEnv->MDI, 1);
    EXPECT_EQ(KQEnv->NoMDI, 0);
    void* block = AllocMemoryKQ(100, 0);
    EXPECT_NE(block, nullptr);
    FreeMemoryKQ(block);
}

TEST_F(Init, SecondStartIsRefusedAndLeavesTheFirst) {
    KQEnvironment* first = Start();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(InitKQ(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(KQEnv, first);
}

TEST_F(Init, EveryListIsEmptyAndValid) {
    ASSERT_NE(Start(), nullptr);
    for (List* list : {&KQEnv->SpareList, &KQEnv->WindowList, &KQEnv->PseudoWindowList, &KQEnv->JobList,
                       &KQEnv->PrefsSections, &KQEnv->ClipList, &KQEnv->formatModules})
        EXPECT_EQ(List_Entries(list), 0);
}

TEST_F(Init, SwitchesHaveTheirFirstValues) {
    ASSERT_NE(Start(), nullptr);
    EXPECT_EQ(KQEnv->EraseDocuments, 1);
    EXPECT_EQ(KQEnv->EraseTools, 1);
    EXPECT_EQ(KQEnv->RawCharMode, 0);
    EXPECT_EQ(KQEnv->QuickTimePresent, 0);
    EXPECT_GE(KQEnv->Processors, 1);
}

TEST_F(Init, ByteTablesHoldUnitAndWholeValues) {
    ASSERT_NE(Start(), nullptr);
    EXPECT_NEAR(KQEnv->ByteToUnit[255], 1.0, 1e-15);
    for (int i = 0; i < 256; ++i) {
        EXPECT_EQ(KQEnv->ByteToUnit[i], i * 0.00392156862745098);
        EXPECT_EQ(KQEnv->ByteToDouble[i], f64(i));
    }
}

TEST_F(Init, InterfaceDefaultsAreSet) {
    ASSERT_NE(Start(), nullptr);
    const KQGUIInfo& gui = *KQEnv->GUI;
    std::vector<i16> metrics = {gui.GroupSpacingX, gui.GroupSpacingY, gui.MarginLeft,   gui.MarginTop,
                                gui.MarginRight,   gui.MarginBottom,  gui.ItemSpacingX, gui.ItemSpacingY,
                                gui.Reserved0,     gui.Reserved1,     gui.PaletteInset, gui.TabHeight};
    EXPECT_EQ(metrics, (std::vector<i16>{4, 2, 12, 12, 12, 12, 2, 2, 0, 0, 12, 15}));
    std::vector<u32> colours = {gui.ColorHighlight, gui.ColorShadow,  gui.ColorSelected, gui.ColorBackground,
                                gui.ColorPanel,     gui.ColorAccent1, gui.ColorFill,     gui.ColorAccent2,
                                gui.ColorAccent3,   gui.ColorWarning, gui.ColorText,     gui.ColorTabStrip,
                                gui.ColorWhite,     gui.ShineBorders};
    EXPECT_EQ(colours, (std::vector<u32>{0xFFFFFF, 0x000000, 0xEECC55, 0xCCCCCC, 0xB3B3B3, 0xEE8877, 0xE1A899, 0xA3A3D7,
                                         0x000647, 0x009BFF, 0x000000, 0x808080, 0xFFFFFF, 1}));
}

TEST_F(Init, ProgramFolderEndsInTheSeparatorAndHoldsTheProgram) {
    ASSERT_NE(Start(), nullptr);
    std::string folder = KQEnv->AppDir;
    ASSERT_FALSE(folder.empty());
    EXPECT_EQ(folder.back(), pal::Separator());
#if defined(_WIN32)
    EXPECT_TRUE(FileExistsKQ((folder + "Init_test.exe").c_str()));
#else
    EXPECT_TRUE(FileExistsKQ((folder + "Init_test").c_str()));
#endif
}

TEST_F(Init, CallbackAndInstanceAreStored) {
    auto callback = [](KQEvent*) {};
    int instance = 0;
    ASSERT_NE(InitKQ(callback, nullptr, nullptr, nullptr, &instance, nullptr), nullptr);
    EXPECT_EQ(KQEnv->Callback, static_cast<void (*)(KQEvent*)>(callback));
    EXPECT_EQ(KQEnv->Instance, &instance);
}

TEST_F(Init, NamesAreOwnedCopies) {
    char prefs[] = "no such prefs", keys[] = "no such keys", strings[] = "no such strings";
    ASSERT_NE(InitKQ(nullptr, prefs, keys, strings, nullptr, nullptr), nullptr);
    prefs[0] = keys[0] = strings[0] = 'x';
    EXPECT_STREQ(KQEnv->PrefsName, "no such prefs");
    EXPECT_STREQ(KQEnv->KeyFileName, "no such keys");
    EXPECT_STREQ(KQEnv->StringFileName, "no such strings");
}

TEST_F(Init, TagsAreClonedFlat) {
    TagItem second[] = {{3000, 5}, {0, 0}};
    TagItem tags[] = {{KQTAG_InitNoWindow, 0}, {KQTAG_More, Word(second)}, {0, 0}};
    ASSERT_NE(InitKQ(nullptr, nullptr, nullptr, nullptr, nullptr, tags), nullptr);
    second[0].Data = 6;
    EXPECT_EQ(KQEnv->Tags[0].Tag, KQTAG_InitNoWindow);
    EXPECT_EQ(KQEnv->Tags[1].Tag, 3000u);
    EXPECT_EQ(KQEnv->Tags[1].Data, 5u);
    EXPECT_EQ(KQEnv->Tags[2].Tag, 0u);
}

TEST_F(Init, NoMDISelectsSingleWindowMode) {
    ASSERT_NE(Start(KQTAG_InitNoMDI), nullptr);
    EXPECT_EQ(KQEnv->NoMDI, 1);
    EXPECT_EQ(KQEnv->MDI, 0);
}

TEST_F(Init, CommandLineIsCopied) {
    char line[] = "movie.flm";
    ASSERT_NE(Start(KQTAG_InitCommandLine, Word(line)), nullptr);
    line[0] = 'x';
    EXPECT_STREQ(KQEnv->CommandLine, "movie.flm");
}

TEST_F(Init, EmptyCommandLineIsPassedOver) {
    ASSERT_NE(Start(KQTAG_InitCommandLine, Word("")), nullptr);
    EXPECT_EQ(KQEnv->CommandLine, nullptr);
}

TEST_F(Init, AutomationCommandLineIsPassedOver) {
    ASSERT_NE(Start(KQTAG_InitCommandLine, Word("/automATION and more")), nullptr);
    EXPECT_EQ(KQEnv->CommandLine, nullptr);
    CleanUpKQ();
    ASSERT_NE(Start(KQTAG_InitCommandLine, Word("/Automatic")), nullptr);
    EXPECT_STREQ(KQEnv->CommandLine, "/Automatic");
}

TEST_F(Init, StringsOfTheTagsServeAndAreNotFreed) {
    int table = 0;
    ASSERT_NE(Start(KQTAG_InitStrings, Word(&table)), nullptr);
    EXPECT_EQ(static_cast<void*>(KQEnv->Strings), &table);
}

TEST_F(Init, StringsOfTheTagsAreNotFreedWhenTheTagsCouldNotBeCloned) {
    int table = 0;
    for (i64 n = 1; n < 6; ++n) {
        kq::allocationFaults.Set(n, true);
        Start(KQTAG_InitStrings, Word(&table));
        kq::allocationFaults.Clear();
        if (KQEnv && !KQEnv->Tags) {
            EXPECT_EQ(static_cast<void*>(KQEnv->Strings), &table);
            CleanUpKQ();
            return;
        }
        CleanUpKQ();
    }
    FAIL() << "no start without its tags";
}

TEST_F(Init, ExitAndWindowCleanUpAreHarmlessWithoutADesktop) {
    ASSERT_NE(Start(), nullptr);
    ExitKQ();
    CleanUpWindowsKQ();
    EXPECT_NE(KQEnv, nullptr);
}

TEST_F(Init, EveryFailedAllocationOfAStartGivesNullOrAWorkingEnvironment) {
    i64 blocks = pal::BlocksOut();
    for (bool once : {true, false})
        for (i64 n = 1;; ++n) {
            ASSERT_LT(n, 1000);
            kq::allocationFaults.Set(n, once);
            TagItem tags[] = {{KQTAG_InitNoWindow, 0}, {KQTAG_InitCommandLine, Word("a line")}, {0, 0}};
            KQEnvironment* environment = InitKQ(nullptr, "prefs", "keys", "strings", nullptr, tags);
            bool reached = kq::allocationFaults.failures > 0;
            kq::allocationFaults.Clear();
            EXPECT_EQ(environment, KQEnv);
            EXPECT_TRUE(!KQEnv || reached || GetErrorKQ() == KQERR_NOTFOUND) << n;   // no text file is there
            CleanUpKQ();
            EXPECT_EQ(KQEnv, nullptr);
            EXPECT_EQ(pal::BlocksOut(), blocks) << n;
            if (!reached) break;
        }
}

}   // namespace
