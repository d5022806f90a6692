// The fixture of tests that need the library: each test starts and cleans up an environment of its own, without a
// window, in a temporary folder of its own, and fails when it leaves allocations behind.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Source/Faults.h"
#include "Source/UserChannel.h"
#include "kq/environment.h"
#include "kq/memory.h"

namespace kqtest {

// Blocks of the memory manager that are out at present.
inline i64 LiveBlocks() { return i64(KQEnv->AllocCount) - i64(KQEnv->FreeCount); }

// A fresh temporary folder, with a separator at its end; removed with all that is in it by RemoveTemporaryFolder.
std::string MakeTemporaryFolder();
void RemoveTemporaryFolder(const std::string& folder);

// Whole files, for tests; a file that cannot be read gives no bytes, one that cannot be written fails the test.
std::vector<u8> ReadWholeFile(const std::string& path);
void WriteWholeFile(const std::string& path, const void* bytes, size_t count);
void WriteWholeFile(const std::string& path, const std::string& text);

// Initialises the library without a window; the rest of the arguments as InitKQ has them.
KQEnvironment* InitWithoutWindow(TagItem* more = nullptr);

class KQTest : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // The test's temporary folder, made at the first call.
    const std::string& Folder();

    // Messages that the library showed to the user so far; questions are answered with `answer`.
    std::vector<std::string> messages;
    int answer = 0;

private:
    std::string folder_;
    i64 liveAtStart_ = 0;
};

// Runs `call` with the n-th allocation failing, for n = 1, 2, ... until no failure was reached, once with that call
// alone failing and once with all from then on. After each run the live blocks must be back at their number.
template <class Call>
void FailEveryAllocation(Call call) {
    for (bool once : {true, false})
        for (i64 n = 1;; ++n) {
            i64 before = LiveBlocks();
            kq::allocationFaults.Set(n, once);
            call();
            bool reached = kq::allocationFaults.failures > 0;
            kq::allocationFaults.Clear();
            ASSERT_EQ(LiveBlocks(), before) << "allocation " << n << (once ? " once" : " and later");
            ASSERT_LT(n, 100000) << "the call never succeeds";
            if (!reached) break;
        }
}

// The same for calls of the file layer.
template <class Call>
void FailEveryFileCall(Call call) {
    for (bool once : {true, false})
        for (i64 n = 1;; ++n) {
            i64 before = LiveBlocks();
            kq::fileFaults.Set(n, once);
            call();
            bool reached = kq::fileFaults.failures > 0;
            kq::fileFaults.Clear();
            ASSERT_EQ(LiveBlocks(), before) << "file call " << n << (once ? " once" : " and later");
            ASSERT_LT(n, 100000) << "the call never succeeds";
            if (!reached) break;
        }
}

}   // namespace kqtest
