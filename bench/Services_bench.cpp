// Runtime services: the fork over two threads beside a bare exchange between threads, and strings by number.
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include <linux/futex.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "bench/Bench.h"
#include "kq/catalogue.h"
#include "kq/environment.h"
#include "kq/tasks.h"

namespace {

constexpr int kStrings = 20000;

// Two words that two threads hand to each other through the kernel: a round trip wakes each of them once. On one
// processor that is a change of threads, on two each wakes the other's processor up.
class RoundTrips {
public:
    explicit RoundTrips(int otherProcessor)
        : other_([this, otherProcessor] {
              StayOn(otherProcessor);
              Answer();
          }) {}

    ~RoundTrips() {
        quit_ = true;
        Put(&ping_);
        other_.join();
    }

    // So many round trips, with this thread on the first processor.
    void Run(int count) {
        StayOn(0);
        for (int i = 0; i < count; ++i) {
            Put(&ping_);
            Take(&pong_);
        }
        sched_setaffinity(0, sizeof all_, &all_);
    }

private:
    static cpu_set_t Allowed() {
        cpu_set_t set;
        sched_getaffinity(0, sizeof set, &set);
        return set;
    }

    static void StayOn(int processor) {
        cpu_set_t set;
        CPU_ZERO(&set);
        CPU_SET(processor, &set);
        sched_setaffinity(0, sizeof set, &set);
    }

    static void Put(std::atomic<u32>* word) {
        word->store(1, std::memory_order_release);
        syscall(SYS_futex, word, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
    }

    static void Take(std::atomic<u32>* word) {
        while (word->exchange(0, std::memory_order_acquire) == 0)
            syscall(SYS_futex, word, FUTEX_WAIT_PRIVATE, 0, nullptr, nullptr, 0);
    }

    void Answer() {
        for (;;) {
            Take(&ping_);
            if (quit_) return;
            Put(&pong_);
        }
    }

    std::atomic<u32> ping_{0}, pong_{0};
    std::atomic<bool> quit_{false};
    cpu_set_t all_ = Allowed();
    std::thread other_;
};

constexpr int kForks = 100;

void BenchFork() {
    RoundTrips near(0), far(1);
    bench::Row("MPForkKQ of an empty routine, 2 slices", kForks, "call",
               {{"MPForkKQ",
                 [] {
                     for (int i = 0; i < kForks; ++i) MPForkKQ([](i32, i32, void*) { return 1; }, nullptr, 2);
                 }},
                {"two futex round trips, on one processor", [&] { near.Run(2 * kForks); }},
                {"two futex round trips, between two", [&] { far.Run(2 * kForks); }}},
               {{1, 1.0 / 3}, {2, 1.0 / 3}});
}

void BenchRegion() {
    KQCriticalRegion* region = CreateCriticalRegionKQ();
    std::recursive_mutex mutex;
    bench::Row("enter and exit a region that nobody else wants, 1000 times", 1000, "call",
               {{"EnterCriticalRegionKQ, ExitCriticalRegionKQ",
                 [&] {
                     for (int i = 0; i < 1000; ++i) {
                         EnterCriticalRegionKQ(region);
                         ExitCriticalRegionKQ(region);
                     }
                 }},
                {"std::recursive_mutex",
                 [&] {
                     for (int i = 0; i < 1000; ++i) {
                         mutex.lock();
                         mutex.unlock();
                     }
                 }}},
               {});
    FreeCriticalRegionKQ(region);
}

// A catalogue of kStrings strings with its header in the folder; returns the catalogue's path.
std::string WriteCatalogue(const std::filesystem::path& folder) {
    std::ofstream header(folder / "numbers.h"), catalogue(folder / "strings.txt");
    catalogue << "#include \"" << (folder / "numbers.h").string() << "\"\n";
    for (int i = 0; i < kStrings; ++i) {
        header << "#define STR_MESSAGE_" << i << " " << 1000 + 3 * i << "\n";
        catalogue << "#define STR_MESSAGE_" << i << " \"The text of message number " << i << ", as users see it\"\n";
    }
    return (folder / "strings.txt").string();
}

void BenchLoad(const std::string& path) {
    auto readBoth = [path] {
        for (std::string name : {path, path.substr(0, path.size() - 11) + "numbers.h"}) {
            std::ifstream file(name, std::ios::binary);
            std::string bytes{std::istreambuf_iterator<char>(file), {}};
            bench::Keep(bytes.data());
        }
    };
    bench::Row("load a catalogue of 20,000 strings with its header", 1, "call",
               {{"LoadStringTable", [path] { FreeStringTable(LoadStringTable(path.c_str())); }},
                {"reading both files", readBoth}},
               {});
    double seconds = bench::Medians({{"", [path] { FreeStringTable(LoadStringTable(path.c_str())); }}})[0];
    std::printf("    to reach: under 50 ms: %s (%.2f ms)\n", seconds < 0.05 ? "reached" : "NOT reached", seconds * 1e3);
}

void BenchGet() {
    std::unordered_map<u32, const char*> map;
    const KQStringTable* table = KQEnv->Strings;
    for (i32 i = 0; i < table->Count; ++i) map.emplace(table->IDs[i], table->Text + table->Offsets[i]);
    std::mt19937 random(1);
    std::vector<u32> wanted(kStrings);
    for (u32& id : wanted) id = table->IDs[random() % u32(table->Count)];
    bench::Row("strings of a catalogue of 20,000 by random numbers", kStrings, "call",
               {{"GetStringKQ",
                 [&] {
                     for (u32 id : wanted) bench::Keep(GetStringKQ(id));
                 }},
                {"std::unordered_map",
                 [&] {
                     for (u32 id : wanted) bench::Keep(map.find(id)->second);
                 }}},
               {{1, 1.0 / 2}});
}

}   // namespace

int main() {
    std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("kqbench-" + std::to_string(std::random_device{}()));
    std::filesystem::create_directory(folder);
    std::string path = WriteCatalogue(folder);
    TagItem tags[] = {{KQTAG_InitNoWindow, 0}, {KQTAG_End, 0}};
    bool started = InitKQ(nullptr, nullptr, nullptr, path.c_str(), nullptr, tags) && KQEnv->Strings;
    if (started) {
        BenchFork();
        BenchRegion();
        BenchLoad(path);
        BenchGet();
    }
    CleanUpKQ();
    std::filesystem::remove_all(folder);
    return started ? 0 : 1;
}
