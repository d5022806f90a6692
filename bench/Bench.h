// The harness of the benchmarks: contenders take turns in one run, and each row shows ours beside its peers and its
// limit as medians and ratios.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace bench {

// Keeps the compiler from dropping what `pointer` shows.
inline void Keep(const void* pointer) { asm volatile("" : : "g"(pointer) : "memory"); }

// One way of doing the work. The first contender of a row is ours.
struct Contender {
    std::string name;
    std::function<void()> run;
};

// What a row's ratio has to reach: ours must be at least `ratio` times as fast as contender `against` (1: the first
// peer). "Within 1.2 times" is a ratio of 1 / 1.2.
struct Target {
    size_t against;
    double ratio;
};

inline double Seconds(const std::function<void()>& run) {
    auto start = std::chrono::steady_clock::now();
    run();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Runs all contenders in turn, `rounds` times after a warm-up, each turn as many runs as take about 10 ms; returns the
// median seconds of one run of each.
inline std::vector<double> Medians(const std::vector<Contender>& contenders, int rounds = 15) {
    std::vector<int> repeats;
    for (const Contender& c : contenders) {
        c.run();
        double once = std::max(Seconds(c.run), 1e-9);
        repeats.push_back(std::clamp(int(0.01 / once), 1, 1000000));
    }
    std::vector<std::vector<double>> times(contenders.size());
    for (int round = 0; round < rounds; ++round)
        for (size_t i = 0; i < contenders.size(); ++i) {
            int n = repeats[i];
            times[i].push_back(Seconds([&] {
                                   for (int k = 0; k < n; ++k) contenders[i].run();
                               }) /
                               n);
        }
    std::vector<double> medians;
    for (auto& t : times) {
        std::nth_element(t.begin(), t.begin() + std::ptrdiff_t(t.size() / 2), t.end());
        medians.push_back(t[t.size() / 2]);
    }
    return medians;
}

// Measures and prints one row. `amount` is the work of one run in `unit` ("Mpixel", "MB", "call"); rates are amount per
// second, or nanoseconds a call when the unit is "call".
inline void Row(const std::string& work, double amount, const std::string& unit,
                const std::vector<Contender>& contenders, const std::vector<Target>& targets, int rounds = 15) {
    std::vector<double> medians = Medians(contenders, rounds);
    std::printf("%s\n", work.c_str());
    for (size_t i = 0; i < contenders.size(); ++i) {
        if (unit == "call")
            std::printf("    %-44s %12.1f ns", contenders[i].name.c_str(), medians[i] / amount * 1e9);
        else
            std::printf("    %-44s %12.1f %s/s", contenders[i].name.c_str(), amount / medians[i], unit.c_str());
        if (i > 0) std::printf("   ours is %.2f times as fast", medians[i] / medians[0]);
        std::printf("\n");
    }
    for (const Target& t : targets) {
        double ratio = medians[t.against] / medians[0];
        std::printf("    to reach: %.2f times %s: %s (%.2f)\n", t.ratio, contenders[t.against].name.c_str(),
                    ratio >= t.ratio ? "reached" : "NOT reached", ratio);
    }
    std::fflush(stdout);
}

}   // namespace bench
