#include "Source/PEResources.h"

#include <cstdio>
#include <cstdlib>
#include <random>
#include <set>

#include "kq/enumerate.h"
#include "pal/file.h"
#include "support/Fixture.h"
#include "support/Modules.h"

namespace {

using kqtest::Bytes;
using kqtest::ModuleBuilder;
using kqtest::Put16;
using kqtest::Put32;

// A copy of what a callback was given.
struct Seen {
    i32 id;
    std::string data;   // from Data to the end of the resource
    bool named;
    std::string name;
    u32 size;
};

struct Gathered {
    std::vector<Seen> seen;
    size_t head;   // bytes in front of Data that the test expects
};

int Gather(KQResource* resource, uptr user) {
    auto& gathered = *reinterpret_cast<Gathered*>(user);
    Seen seen = {resource->ID, "", resource->Name != nullptr, resource->Name ? resource->Name : "", resource->Size};
    seen.data.assign(reinterpret_cast<const char*>(resource->Data), resource->Size - gathered.head);
    gathered.seen.push_back(seen);
    return 0;
}

int Count(KQResource*, uptr user) {
    ++*reinterpret_cast<int*>(user);
    return 1;
}

class PEResources : public kqtest::KQTest {
protected:
    void TearDown() override {
        EndResourceAccessKQ(module);
        KQTest::TearDown();
    }

    void Open(const Bytes& bytes) {
        EndResourceAccessKQ(module);
        std::string path = Folder() + "module.dll";
        kqtest::WriteWholeFile(path, bytes.data(), bytes.size());
        module = BeginResourceAccessKQ(path.c_str());
    }

    std::vector<Seen> All(const char* type, TagItem* tags = nullptr, size_t head = 0) {
        Gathered gathered = {{}, head};
        EXPECT_EQ(EnumResourceIDKQ(module, type, Gather, reinterpret_cast<uptr>(&gathered), tags), 1);
        return gathered.seen;
    }

    std::vector<i32> Ids(const char* type, TagItem* tags = nullptr) {
        std::vector<i32> ids;
        for (const Seen& seen : All(type, tags)) ids.push_back(seen.id);
        return ids;
    }

    // How often the callback is called for a type of a file in memory that may be damaged.
    int Calls(Bytes bytes, const char* type) {
        int calls = 0;
        kq::ResourceModule* opened =
            kq::OpenResources(OpenFileinMemoryKQ(bytes.data(), i64(bytes.size()), KQFILE_Read));
        EnumResourceIDKQ(opened, type, Count, reinterpret_cast<uptr>(&calls), nullptr);
        NumResourceIDKQ(opened, type);
        EndResourceAccessKQ(opened);
        return calls;
    }

    ModuleBuilder FivePipls() {
        ModuleBuilder builder;
        for (int id = 3; id < 8; ++id) builder.Add("PIPL", id, std::string(1, char('0' + id)));
        return builder;
    }

    void* module = nullptr;
};

TEST_F(PEResources, SmallAndLargeWordsOfBothFormsGiveTheSame) {
    ModuleBuilder builder = FivePipls();
    for (const Bytes& bytes : {builder.PE(false), builder.PE(true), builder.Elf(false), builder.Elf(true)}) {
        Open(bytes);
        ASSERT_NE(module, nullptr);
        EXPECT_EQ(NumResourceIDKQ(module, "PiPL"), 5);
        std::vector<Seen> all = All("PiPL");
        ASSERT_EQ(all.size(), 5u);
        EXPECT_EQ(all[0].id, 3);
        EXPECT_EQ(all[0].data, "3");
        EXPECT_EQ(all[0].size, 1u);
        EXPECT_FALSE(all[0].named);
        EXPECT_EQ(all[4].id, 7);
        EXPECT_EQ(all[4].data, "7");
    }
}

TEST_F(PEResources, TypeThatBeginsWithADigitIsLookedUpWithAnUnderscore) {
    Open(ModuleBuilder().Add("_8BIF", 1, "right").Add("8BIF", 2, "wrong").PE(false));
    std::vector<Seen> all = All("8BIF");
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].data, "right");
    EXPECT_EQ(NumResourceIDKQ(module, "8BIF"), 1);
}

TEST_F(PEResources, OtherTypesStayAsTheyAre) {
    Open(ModuleBuilder().Add("_PIPL", 1, "wrong").Add("PIPL", 2, "right").PE(false));
    std::vector<Seen> all = All("PiPL");
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].data, "right");
}

TEST_F(PEResources, TypeNamesCompareWithoutCase) {
    Open(ModuleBuilder().Add("PiMi", 1, "x").PE(true));
    EXPECT_EQ(NumResourceIDKQ(module, "pImI"), 1);
    EXPECT_EQ(NumResourceIDKQ(module, "pImIx"), 0);
    EXPECT_EQ(NumResourceIDKQ(module, "pIm"), 0);
    EXPECT_EQ(NumResourceIDKQ(module, ""), 0);
}

TEST_F(PEResources, NumberedTypeIsAskedForWithAHash) {
    Open(ModuleBuilder().Add(16, 1, "version").Add(24, 2, "manifest").PE(true));
    EXPECT_EQ(Ids("#16"), std::vector<i32>{1});
    EXPECT_EQ(Ids("#24"), std::vector<i32>{2});
    EXPECT_EQ(Ids("#2"), std::vector<i32>{});
    EXPECT_EQ(Ids("#"), std::vector<i32>{});
    EXPECT_EQ(Ids("#99999999999999"), std::vector<i32>{});
}

TEST_F(PEResources, HeadThreeHasANameAndTheDataBehindIt) {
    Open(ModuleBuilder().Add("PIPL", 1, std::string("\3\0Foo\0data", 10)).PE(false));
    TagItem tags[] = {{KQTAG_ResourceStripHead, 0}, {0, 0}};
    std::vector<Seen> all = All("PiPL", tags, 6);
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].name, "Foo");
    EXPECT_EQ(all[0].data, "data");
    EXPECT_EQ(all[0].size, 10u);
}

TEST_F(PEResources, HeadThreeWithEmptyNameHasItsDataAtThree) {
    Open(ModuleBuilder().Add("PIPL", 1, std::string("\3\0\0data", 7)).PE(false));
    TagItem tags[] = {{KQTAG_ResourceStripHead, 0}, {0, 0}};
    std::vector<Seen> all = All("PiPL", tags, 3);
    ASSERT_EQ(all.size(), 1u);
    EXPECT_TRUE(all[0].named);
    EXPECT_EQ(all[0].name, "");
    EXPECT_EQ(all[0].data, "data");
}

TEST_F(PEResources, HeadOneHasNoNameAndTheDataTwoBytesOn) {
    Open(ModuleBuilder().Add("PIPL", 1, std::string("\1\0\3\0data", 8)).PE(false));
    TagItem tags[] = {{KQTAG_ResourceStripHead, 0}, {0, 0}};
    std::vector<Seen> all = All("PiPL", tags, 2);
    ASSERT_EQ(all.size(), 1u);
    EXPECT_FALSE(all[0].named);
    EXPECT_EQ(all[0].data, std::string("\3\0data", 6));
}

TEST_F(PEResources, OtherHeadsLeaveTheDataAtTheStart) {
    ModuleBuilder builder;
    builder.Add("PIPL", 1, std::string("\2\0data", 6)).Add("PIPL", 2, std::string("\1\1data", 6));
    builder.Add("PIPL", 3, std::string("\1", 1)).Add("PIPL", 4, std::string());
    builder.Add("PIPL", 5, std::string("\3\0name without end", 18));
    Open(builder.PE(false));
    TagItem tags[] = {{KQTAG_ResourceStripHead, 0}, {0, 0}};
    std::vector<Seen> all = All("PiPL", tags);
    ASSERT_EQ(all.size(), 5u);
    for (const Seen& seen : all) {
        EXPECT_EQ(seen.data.size(), seen.size);
        EXPECT_FALSE(seen.named);
    }
}

TEST_F(PEResources, HeadStaysWhenStrippingIsNotAskedFor) {
    Open(ModuleBuilder().Add("PIPL", 1, std::string("\1\0data", 6)).PE(false));
    std::vector<Seen> all = All("PiPL");
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].data, std::string("\1\0data", 6));
}

TEST_F(PEResources, RangeOfFiveToFiveGivesFiveAlone) {
    Open(FivePipls().PE(false));
    TagItem tags[] = {{KQTAG_ResourceFirstID, 5}, {KQTAG_ResourceLastID, 5}, {0, 0}};
    EXPECT_EQ(Ids("PiPL", tags), std::vector<i32>{5});
}

TEST_F(PEResources, OneEndOfTheRangeLeavesTheOtherOpen) {
    Open(FivePipls().PE(false));
    TagItem first[] = {{KQTAG_ResourceFirstID, 6}, {0, 0}};
    TagItem last[] = {{KQTAG_ResourceLastID, 4}, {0, 0}};
    EXPECT_EQ(Ids("PiPL", first), (std::vector<i32>{6, 7}));
    EXPECT_EQ(Ids("PiPL", last), (std::vector<i32>{3, 4}));
}

TEST_F(PEResources, TwinTakesPairsInLine) {
    Open(FivePipls().PE(false));
    int calls = 0;
    EXPECT_EQ(EnumResourceIDKQ(module, "PiPL", Count, reinterpret_cast<uptr>(&calls), KQTAG_ResourceFirstID, 4,
                               KQTAG_ResourceLastID, 6, 0),
              1);
    EXPECT_EQ(calls, 3);
    calls = 0;
    EnumResourceIDKQ(module, "PiPL", Count, reinterpret_cast<uptr>(&calls), 0);
    EXPECT_EQ(calls, 5);
}

TEST_F(PEResources, ResourceWithATextForANumberHasIdZeroAndNoPlaceInARange) {
    Open(ModuleBuilder().Add("PIPL", "NAMED", "text").Add("PIPL", 1, "number").PE(false));
    EXPECT_EQ(Ids("PiPL"), (std::vector<i32>{0, 1}));
    EXPECT_EQ(NumResourceIDKQ(module, "PiPL"), 2);
    TagItem tags[] = {{KQTAG_ResourceFirstID, 0}, {0, 0}};
    EXPECT_EQ(Ids("PiPL", tags), std::vector<i32>{1});
}

TEST_F(PEResources, OfSeveralLanguagesTheFirstCounts) {
    Open(ModuleBuilder().Add("PIPL", 1, 9, {'n'}).Add("PIPL", 1, 7, {'s'}).PE(false));
    std::vector<Seen> all = All("PiPL");
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].data, "s");
}

TEST_F(PEResources, CallbackMayEnumerateTheSameModule) {
    Open(ModuleBuilder().Add("PIPL", 1, "outer").Add("PIPL", 2, "last").Add("PIMI", 1, "inner").PE(false));
    struct Nested {
        void* module;
        std::vector<std::string> texts;
    } nested = {module, {}};
    EnumResourceIDKQ(
        module, "PiPL",
        [](KQResource* resource, uptr user) {
            auto* n = reinterpret_cast<Nested*>(user);
            Gathered inner = {{}, 0};
            EnumResourceIDKQ(n->module, "PiMI", Gather, reinterpret_cast<uptr>(&inner), nullptr);
            n->texts.push_back(inner.seen.at(0).data);
            n->texts.emplace_back(reinterpret_cast<const char*>(resource->Data), resource->Size);
            return 1;
        },
        reinterpret_cast<uptr>(&nested), nullptr);
    EXPECT_EQ(nested.texts, (std::vector<std::string>{"inner", "outer", "inner", "last"}));
}

TEST_F(PEResources, DataInAnotherSectionIsFound) {
    Bytes file = ModuleBuilder().Add("PIPL", 1, "here").PE(false);
    size_t leafData = 0x400 + 3 * 24 + 4 * 2 + 2;   // behind three folders of one entry and the text "PIPL"
    ASSERT_EQ(file[leafData + 4], 4);
    Put32(file, leafData, 0x9000);
    Put16(file, 0x86, 2);
    size_t head = 0x98 + 224 + 40;
    Put32(file, head + 8, 4);
    Put32(file, head + 12, 0x9000);
    Put32(file, head + 16, 4);
    Put32(file, head + 20, u32(file.size()));
    file.insert(file.end(), {'t', 'h', 'e', 'r'});
    Open(file);
    std::vector<Seen> all = All("PiPL");
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].data, "ther");
}

TEST_F(PEResources, ModuleWithoutResourcesIsOpenAndHasNone) {
    Bytes file = ModuleBuilder().PE(false);
    Put32(file, 0x98 + 96 + 16, 0);
    Open(file);
    EXPECT_NE(module, nullptr);
    EXPECT_EQ(NumResourceIDKQ(module, "PiPL"), 0);
    EXPECT_EQ(Ids("PiPL"), std::vector<i32>{});
}

TEST_F(PEResources, FileThatIsNoModuleIsRefusedAsBadFormat) {
    for (const char* text : {"", "MZ", "not a module at all",
                             "\x7F"
                             "ELF"}) {
        Open(Bytes(text, text + std::strlen(text)));
        EXPECT_EQ(module, nullptr);
        EXPECT_EQ(GetErrorKQ(), u32(KQERR_BADFORMAT));
    }
}

TEST_F(PEResources, MissingFileIsNotFound) {
    EXPECT_EQ(BeginResourceAccessKQ((Folder() + "missing.dll").c_str()), nullptr);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_NOTFOUND));
    EXPECT_EQ(BeginResourceAccessKQ(nullptr), nullptr);
}

TEST_F(PEResources, NullModuleTypeAndCallbackAreHarmless) {
    EndResourceAccessKQ(nullptr);
    EXPECT_EQ(NumResourceIDKQ(nullptr, "PiPL"), 0);
    EXPECT_EQ(EnumResourceIDKQ(nullptr, "PiPL", Count, 0, nullptr), 1);
    Open(FivePipls().PE(false));
    EXPECT_EQ(EnumResourceIDKQ(module, nullptr, Count, 0, nullptr), 1);
    EXPECT_EQ(EnumResourceIDKQ(module, "PiPL", nullptr, 0, nullptr), 1);
}

TEST_F(PEResources, EveryTruncationGivesNoneOrSome) {
    ModuleBuilder builder = FivePipls();
    for (const Bytes& whole : {builder.PE(false), builder.PE(true), builder.Elf(false), builder.Elf(true)})
        for (size_t length = 1; length <= whole.size(); ++length) {
            int calls = Calls(Bytes(whole.begin(), whole.begin() + std::ptrdiff_t(length)), "PiPL");
            EXPECT_GE(calls, 0);
            EXPECT_LE(calls, 5);
            if (length == whole.size()) {
                EXPECT_EQ(calls, 5);
            }
        }
}

TEST_F(PEResources, FolderThatLeadsBackToItselfEndsAfterThreeLevels) {
    Bytes file = FivePipls().PE(false);
    Put32(file, 0x400 + 16 + 4, 0x80000000);   // the type leads to the folder of types
    EXPECT_EQ(Calls(file, "PiPL"), 0);
}

TEST_F(PEResources, TypeThatLeadsToDataIsEmpty) {
    Bytes file = FivePipls().PE(false);
    Put32(file, 0x400 + 16 + 4, 24);
    EXPECT_EQ(Calls(file, "PiPL"), 0);
}

TEST_F(PEResources, NameThatLeadsToDataIsPassedOver) {
    Bytes file = FivePipls().PE(false);
    size_t names = 0x400 + 24 + 16;
    Put32(file, names + 4, 24);
    EXPECT_EQ(Calls(file, "PiPL"), 4);
}

TEST_F(PEResources, CountOfEntriesBeyondTheSectionIsCutToIt) {
    Bytes file = FivePipls().PE(false);
    Put16(file, 0x400 + 24 + 14, 0xFFFF);
    Put16(file, 0x400 + 24 + 12, 0xFFFF);
    kq::ResourceModule* opened = kq::OpenResources(OpenFileinMemoryKQ(file.data(), i64(file.size()), KQFILE_Read));
    EXPECT_LE(NumResourceIDKQ(opened, "PiPL"), int(file.size() / 8));
    EndResourceAccessKQ(opened);
    EXPECT_GE(Calls(file, "PiPL"), 5);
}

TEST_F(PEResources, DataThatEndBehindTheFileArePassedOver) {
    Bytes file = ModuleBuilder().Add("PIPL", 1, "text").PE(false);
    size_t leaf = 0x400 + 3 * 24 + 4 * 2 + 2;
    ASSERT_EQ(file[leaf + 4], 4);
    Put32(file, leaf + 4, 5);
    EXPECT_EQ(Calls(file, "PiPL"), 0);
    Put32(file, leaf + 4, 0xFFFFFFFF);
    EXPECT_EQ(Calls(file, "PiPL"), 0);
    Put32(file, leaf + 4, 4);
    EXPECT_EQ(Calls(file, "PiPL"), 1);
    Put32(file, leaf, 0xFFFFFFFE);
    EXPECT_EQ(Calls(file, "PiPL"), 0);
}

// A module of 102 resources of one type, of which the last two hold 100,000 bytes each; every other one is made to
// share the bytes of one of the two, by turns or not.
Bytes SharingModule(bool byTurns) {
    ModuleBuilder builder;
    for (int id = 0; id < 100; ++id) builder.Add("PIPL", id, "");
    for (int id = 100; id < 102; ++id) builder.Add("PIPL", id, std::string(100000, 'x'));
    Bytes file = builder.PE(false);
    auto targetAt = [](size_t folder, size_t index) { return 0x400 + folder + 16 + index * 8 + 4; };
    auto target = [&](size_t folder, size_t index) {
        u32 word;
        std::memcpy(&word, &file[targetAt(folder, index)], 4);
        return size_t(word & 0x7FFFFFFF);
    };
    constexpr size_t kNames = 24;
    size_t leaves[] = {target(target(kNames, 100), 0), target(target(kNames, 101), 0)};
    for (size_t id = 0; id < 100; ++id) Put32(file, targetAt(target(kNames, id), 0), u32(leaves[byTurns ? id % 2 : 0]));
    return file;
}

TEST_F(PEResources, ResourcesThatShareTheBytesAtHandAreAllGiven) {
    EXPECT_EQ(Calls(SharingModule(false), "PiPL"), 102);
}

TEST_F(PEResources, ResourcesThatShareFarBytesEndAfterFourModulesOfThem) {
    int calls = Calls(SharingModule(true), "PiPL");
    EXPECT_GE(calls, 4);
    EXPECT_LE(calls, 10);
}

TEST_F(PEResources, ElfSectionThatTakesNoBytesIsNotUsed) {
    Bytes file = FivePipls().Elf(true);
    u32 table;
    std::memcpy(&table, &file[0x28], 4);
    Put32(file, table + 2 * 64 + 4, 8);
    EXPECT_EQ(Calls(file, "PiPL"), 0);
}

TEST_F(PEResources, BigEndianElfIsRefused) {
    Bytes file = FivePipls().Elf(true);
    file[5] = 2;
    Open(file);
    EXPECT_EQ(module, nullptr);
}

TEST_F(PEResources, RandomDamageIsSurvived) {
    u32 seed = std::random_device()();
    std::printf("seed %u\n", seed);
    std::mt19937 random(seed);
    ModuleBuilder builder = FivePipls();
    builder.Add(16, 1, "version").Add("PIPL", "NAMED", "x");
    for (const Bytes& whole : {builder.PE(false), builder.PE(true), builder.Elf(false), builder.Elf(true)})
        for (int round = 0; round < 3000; ++round) {
            Bytes file = whole;
            for (u32 k = random() % 8; k < 8; ++k) {
                static constexpr u8 kValues[] = {0, 1, 0x7F, 0x80, 0xFF};
                file[random() % file.size()] = random() % 2 ? u8(random()) : kValues[random() % 5];
            }
            EXPECT_LE(Calls(file, "PiPL"), int(file.size() / 8));
        }
}

TEST_F(PEResources, EveryFailingAllocationAndFileCallIsSurvived) {
    Bytes file = FivePipls().PE(false);
    std::string path = Folder() + "module.dll";
    kqtest::WriteWholeFile(path, file.data(), file.size());
    auto run = [&] {
        int calls = 0;
        void* opened = BeginResourceAccessKQ(path.c_str());
        NumResourceIDKQ(opened, "PiPL");
        EnumResourceIDKQ(opened, "PiPL", Count, reinterpret_cast<uptr>(&calls), nullptr);
        EXPECT_LE(calls, 5);
        EndResourceAccessKQ(opened);
    };
    kqtest::FailEveryAllocation(run);
    kqtest::FailEveryFileCall(run);
}

// One resource of a list; texts stand in quotes.
struct Listed {
    std::string type, name, language, size;

    auto operator<=>(const Listed&) const = default;
};

using List = std::multiset<Listed>;

void PrintTo(const Listed& listed, std::ostream* out) {
    *out << listed.type << " " << listed.name << " " << listed.language << " " << listed.size;
}

std::string KeyOf(kq::ResourceModule* module, const kq::ResourceEntry& entry) {
    char name[4096];
    if (!entry.named) return std::to_string(entry.id);
    return kq::ReadName(module, entry, name, sizeof name) ? "'" + std::string(name) + "'" : "unreadable";
}

// Calls `visit` with each entry of a folder.
template <class Visit>
void EachEntry(kq::ResourceModule* module, const kq::ResourceFolder& folder, Visit visit) {
    kq::ResourceEntry entry;
    for (u32 i = 0; i < folder.count && kq::ReadEntry(module, folder, i, &entry); ++i) visit(entry);
}

List ListResources(kq::ResourceModule* module) {
    List list;
    kq::ResourceFolder types, names, languages;
    if (!kq::OpenTypes(module, &types)) return list;
    EachEntry(module, types, [&](const kq::ResourceEntry& type) {
        if (!kq::OpenFolder(module, type, &names)) return;
        EachEntry(module, names, [&](const kq::ResourceEntry& name) {
            if (!kq::OpenFolder(module, name, &languages)) return;
            EachEntry(module, languages, [&](const kq::ResourceEntry& language) {
                kq::ResourceSpan span;
                if (kq::LocateData(module, language, &span))
                    list.insert(
                        {KeyOf(module, type), KeyOf(module, name), KeyOf(module, language), std::to_string(span.size)});
            });
        });
    });
    return list;
}

// What a program of the host writes to standard output.
std::string RunProgram(const std::string& command) {
    std::string folder = kqtest::MakeTemporaryFolder();
    std::string path = folder + "output";
    bool ran = std::system((command + " >" + path + " 2>/dev/null").c_str()) == 0;
    Bytes output = kqtest::ReadWholeFile(path);
    kqtest::RemoveTemporaryFolder(folder);
    return ran ? std::string(output.begin(), output.end()) : std::string();
}

// What stands behind `key` up to the next blank or bracket, quotes included.
std::string ValueOf(const std::string& line, const char* key) {
    size_t at = line.find(key);
    if (at == std::string::npos) return "";
    at += std::strlen(key);
    if (line[at] == '\'') return line.substr(at, line.find('\'', at + 1) + 1 - at);
    return line.substr(at, line.find_first_of(" ]", at) - at);
}

List ListByWrestool(const std::string& path, const std::string& filter) {
    List list;
    std::string output = RunProgram("wrestool --list " + filter + " '" + path + "'");
    for (size_t at = 0; at < output.size();) {
        size_t end = output.find('\n', at);
        if (end == std::string::npos) end = output.size();
        std::string line = output.substr(at, end - at);
        at = end + 1;
        list.insert(
            {ValueOf(line, "--type="), ValueOf(line, "--name="), ValueOf(line, "--language="), ValueOf(line, "size=")});
    }
    return list;
}

// The other reader prints a type that is a text in place of a name that is one too. So such names are put as it prints
// them, and each is asked for by its own filter.
List AsWrestoolPrints(const List& list, const std::string& path) {
    List printed;
    for (const Listed& listed : list) {
        Listed shown = listed;
        if (listed.type[0] == '\'' && listed.name[0] == '\'') {
            shown.name = listed.type;
            EXPECT_TRUE(ListByWrestool(path, "--type=" + listed.type + " --name=" + listed.name).contains(shown))
                << path << ": " << listed.name;
        }
        printed.insert(shown);
    }
    return printed;
}

TEST_F(PEResources, ListEqualsThatOfAnotherReader) {
    if (!pal::SlashPaths()) GTEST_SKIP() << "the other reader, wrestool, is a program for Linux";
    if (RunProgram("wrestool --version").empty()) GTEST_SKIP() << "wrestool (icoutils) is missing";
    std::string paths = RunProgram("dpkg -L libwine:amd64 | grep '[.]dll$'");
    if (paths.empty()) GTEST_SKIP() << "the DLLs of libwine are missing";
    int modules = 0, resources = 0;
    for (size_t at = 0; at < paths.size();) {
        size_t end = paths.find('\n', at);
        std::string path = paths.substr(at, end - at);
        at = end + 1;
        void* opened = BeginResourceAccessKQ(path.c_str());
        ASSERT_NE(opened, nullptr) << path;
        List ours = ListResources(static_cast<kq::ResourceModule*>(opened));
        EndResourceAccessKQ(opened);
        EXPECT_EQ(AsWrestoolPrints(ours, path), ListByWrestool(path, "")) << path;
        ++modules;
        resources += int(ours.size());
    }
    std::printf("%d modules, %d resources\n", modules, resources);
    EXPECT_GE(modules, 200);
    EXPECT_GE(resources, 1000);
}

}   // namespace
