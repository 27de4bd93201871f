#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <random>
#include <sys/resource.h>
#include <vector>

/// @file
/// What is measured of every reader in turn, in the same way.

namespace tio::bench {

/// The walks over a clip: 50 random frames, and every 10th of the first 1000.
inline std::vector<int64_t> randomFrames(int64_t count) {
    constexpr int wanted = 50;
    std::mt19937_64 random(11);
    std::vector<int64_t> frames;
    for (int i = 0; i < wanted; ++i)
        frames.push_back(static_cast<int64_t>(random() % static_cast<uint64_t>(count)));
    return frames;
}

inline std::vector<int64_t> everyTenth(int64_t count) {
    std::vector<int64_t> frames;
    for (int64_t frame = 0; frame < count && frame < 1000; frame += 10)
        frames.push_back(frame);
    return frames;
}

inline double cpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// Runs `work` and prints "NAME,TASK,seconds,CPU seconds".
inline void measure(const char* name, const char* task, const std::function<void()>& work) {
    const double cpu = cpuSeconds();
    const auto begin = std::chrono::steady_clock::now();
    work();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    std::printf("%s,%s,%.4f,%.4f\n", name, task, took.count(), cpuSeconds() - cpu);
}

} // namespace tio::bench
