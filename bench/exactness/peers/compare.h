#pragma once

#include "../orders.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

/// @file
/// Asks another program's library for frames and compares them with what they should be.

namespace tio::bench {

inline std::vector<uint32_t> readTruth(const char* path) {
    std::vector<uint32_t> truth;
    std::ifstream file(path);
    for (uint32_t crc = 0; file >> crc;)
        truth.push_back(crc);
    return truth;
}

/// `read` gives the CRC of a frame, or throws. Prints the same columns as tarn_exactness.
inline void comparePeer(const char* clip, const char* name, int64_t count,
                        const std::vector<uint32_t>& truth, double seconds,
                        const std::function<uint32_t(int64_t)>& read) {
    using Clock = std::chrono::steady_clock;
    for (const Order& order : ordersFor(static_cast<int64_t>(truth.size()))) {
        int asked = 0;
        int wrong = 0;
        int failed = 0;
        const auto begin = Clock::now();
        for (const int64_t frame : order.frames) {
            if (Clock::now() - begin > std::chrono::duration<double>(seconds))
                break;
            ++asked;
            try {
                wrong += read(frame) != truth[static_cast<size_t>(frame)] ? 1 : 0;
            } catch (const std::exception&) {
                ++failed;
            }
        }
        const std::chrono::duration<double> took = Clock::now() - begin;
        std::printf("%s,%s,%s,%zu,%lld,%d,%d,%d,0,0,0,sound,%.3f,\n", clip, name,
                    order.name.c_str(), truth.size(), static_cast<long long>(count), asked, wrong,
                    failed, took.count());
        std::fflush(stdout);
    }
}

} // namespace tio::bench
