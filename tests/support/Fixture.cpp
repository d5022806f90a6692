#include "support/Fixture.h"

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>

#include "kq/tags.h"

namespace fs = std::filesystem;

namespace kqtest {

namespace {

int RecordUserText(kq::UserText, const char* text, void* data);

}   // namespace

std::string MakeTemporaryFolder() {
    static std::random_device device;
    for (;;) {
        fs::path path = fs::temp_directory_path() / ("kqtest-" + std::to_string(device()) + std::to_string(device()));
        if (fs::create_directory(path)) return (path / "").string();
    }
}

void RemoveTemporaryFolder(const std::string& folder) {
    std::error_code error;
    fs::remove_all(folder, error);
}

std::vector<u8> ReadWholeFile(const std::string& path) {
    std::ifstream file(fs::path(std::u8string(path.begin(), path.end())), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void WriteWholeFile(const std::string& path, const void* bytes, size_t count) {
    std::ofstream file(fs::path(std::u8string(path.begin(), path.end())), std::ios::binary | std::ios::trunc);
    file.write(static_cast<const char*>(bytes), std::streamsize(count));
    ASSERT_TRUE(file.flush()) << path;
}

void WriteWholeFile(const std::string& path, const std::string& text) {
    WriteWholeFile(path, text.data(), text.size());
}

KQEnvironment* InitWithoutWindow(TagItem* more) {
    TagItem tags[] = {{KQTAG_InitNoWindow, 0}, {more ? KQTAG_More : KQTAG_End, reinterpret_cast<uptr>(more)}};
    return InitKQ(nullptr, nullptr, nullptr, nullptr, nullptr, tags);
}

namespace {

struct Recorder {
    std::vector<std::string>* messages;
    int* answer;
};

Recorder recorder;

int RecordUserText(kq::UserText, const char* text, void*) {
    recorder.messages->push_back(text);
    return *recorder.answer;
}

}   // namespace

void KQTest::SetUp() {
    recorder = {&messages, &answer};
    kq::SetUserListener(RecordUserText, nullptr);
    ASSERT_NE(InitWithoutWindow(), nullptr);
    liveAtStart_ = LiveBlocks();
}

void KQTest::TearDown() {
    kq::allocationFaults.Clear();
    kq::fileFaults.Clear();
    if (KQEnv) {
        EXPECT_EQ(LiveBlocks(), liveAtStart_) << "allocations were left behind";
        CleanUpKQ();
    }
    kq::SetUserListener(nullptr, nullptr);
    if (!folder_.empty()) RemoveTemporaryFolder(folder_);
}

const std::string& KQTest::Folder() {
    if (folder_.empty()) folder_ = MakeTemporaryFolder();
    return folder_;
}

}   // namespace kqtest
