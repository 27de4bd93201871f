// Reads ranges of sound of clips in several orders through SampleReader and compares each sample,
// to the bit, with a decoding from start to end by FFmpeg called directly:
//   tarn_sound_exactness FOLDER CLIP...
// prints a line of comma-separated values for each clip, way of reading and order, and leaves in
// FOLDER what others are compared with: NAME.f32, the samples, and NAME.ranges, what was asked for.

#include "support/SoundMaker.h"

#include <TARN/logging/log.h>
#include <TARN/videoio.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <string>
#include <vector>

namespace tio::bench {
namespace {

struct Range {
    int64_t first;
    int64_t count;
};

struct Order {
    std::string name;
    std::vector<Range> ranges;
};

/// 200 random ranges, and the whole file in blocks of odd sizes forward and then backward, where a
/// long file has larger ones: each may cost a decoding from the start.
std::vector<Order> ordersFor(int64_t samples) {
    constexpr int ranges = 200;
    constexpr int64_t longestRange = 8192;
    constexpr int64_t longestBlock = 3001;
    if (samples == 0)
        return {};
    std::mt19937_64 generator(19);
    const auto upTo = [&](int64_t most) {
        return 1 + static_cast<int64_t>(generator() % static_cast<uint64_t>(most));
    };
    Order random{"random", {}};
    for (int i = 0; i < ranges; ++i) {
        const int64_t first = upTo(samples) - 1;
        random.ranges.push_back({first, std::min(samples - first, upTo(longestRange))});
    }
    Order forward{"forward", {}};
    for (int64_t first = 0; first < samples; first += forward.ranges.back().count)
        forward.ranges.push_back({first, std::min(samples - first, upTo(longestBlock) | 1)});
    Order backward{"backward", {}};
    const int64_t longest = std::max(longestBlock, samples / 100);
    for (int64_t end = samples; end > 0; end = backward.ranges.back().first) {
        const int64_t count = std::min(end, upTo(longest) | 1);
        backward.ranges.push_back({end - count, count});
    }
    return {random, forward, backward};
}

struct Tally {
    int wrong = 0; // ranges
    int failed = 0;
    int64_t samples = 0; // that differ, in any channel
    double largest = 0;  // difference
    std::string note;
};

/// Compares a range of samples, bit by bit.
void judge(const test::OracleSound& truth, const Range& range, const float* got, Tally& tally) {
    const int channels = truth.channels;
    int64_t differing = 0;
    for (int64_t sample = 0; sample < range.count; ++sample) {
        const float* wanted = truth.samples.data() + (range.first + sample) * channels;
        const float* given = got + sample * channels;
        if (std::memcmp(wanted, given, sizeof(float) * static_cast<size_t>(channels)) == 0)
            continue;
        ++differing;
        for (int channel = 0; channel < channels; ++channel)
            tally.largest =
                std::max(tally.largest, std::abs(double{given[channel]} - double{wanted[channel]}));
    }
    tally.samples += differing;
    tally.wrong += differing > 0 ? 1 : 0;
}

Tally ask(ffmpeg::SampleReader& reader, const Order& order, const test::OracleSound& truth) {
    Tally tally;
    for (const Range& range : order.ranges) {
        try {
            const auto samples = reader.readSamples(range.first, range.count);
            judge(truth, range, samples.data(), tally);
        } catch (const std::exception& error) {
            ++tally.failed;
            tally.note = error.what();
        }
    }
    return tally;
}

std::string oneField(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == ',' || c == '\n' || c == '"'; }, ' ');
    return text;
}

void print(const std::string& name, const std::string& kind, const std::string& order,
           int64_t samples, size_t asked, const Tally& tally, double seconds) {
    std::cout << name << ',' << kind << ',' << order << ',' << samples << ',' << asked << ','
              << tally.wrong << ',' << tally.failed << ',' << tally.samples << ',' << tally.largest
              << ',' << seconds << ',' << oneField(tally.note) << std::endl;
}

void check(const std::string& path, bool checksums, const test::OracleSound& truth,
           const std::vector<Order>& orders) {
    const std::string name = std::filesystem::path(path).filename();
    const std::string kind = checksums ? "checksums" : "reader";
    ffmpeg::SampleReaderOptions options;
    options.checksums = checksums;
    try {
        ffmpeg::SampleReader reader(path, options);
        const bool whole = truth.changesAt < 0;
        for (const Order& order : orders) {
            const auto begin = std::chrono::steady_clock::now();
            Tally tally = ask(reader, order, truth);
            const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
            if (whole && reader.sampleCount() != truth.count()) {
                ++tally.failed;
                tally.note = std::to_string(reader.sampleCount()) + " samples counted";
            }
            print(name, kind, order.name, truth.count(), order.ranges.size(), tally, took.count());
        }
        if (!whole)
            std::cerr << name << ": changes at sample " << truth.changesAt << "\n";
    } catch (const std::exception& error) {
        Tally tally;
        tally.note = error.what();
        print(name, kind, "none", truth.count(), 0, tally, 0);
    }
}

void leave(const std::filesystem::path& base, const test::OracleSound& truth,
           const std::vector<Order>& orders) {
    std::ofstream samples(base.string() + ".f32", std::ios::binary);
    samples.write(reinterpret_cast<const char*>(truth.samples.data()),
                  static_cast<std::streamsize>(truth.samples.size() * sizeof(float)));
    std::ofstream ranges(base.string() + ".ranges");
    ranges << truth.rate << ' ' << truth.channels << '\n';
    for (const Order& order : orders)
        for (const Range& range : order.ranges)
            ranges << order.name << ' ' << range.first << ' ' << range.count << '\n';
}

void checkClip(const std::filesystem::path& folder, const std::string& path) {
    test::OracleSound truth;
    try {
        truth = test::oracleSound(path);
    } catch (const std::exception&) { // no sound
        return;
    }
    const std::vector<Order> orders = ordersFor(truth.count());
    if (orders.empty())
        return;
    check(path, false, truth, orders);
    check(path, true, truth, orders);
    leave(folder / std::filesystem::path(path).filename(), truth, orders);
}

} // namespace
} // namespace tio::bench

int main(int argc, char** argv) {
    if (argc < 3) {
        std::cerr << "usage: tarn_sound_exactness FOLDER CLIP...\n";
        return 2;
    }
    tio::log::setSink([](const auto&, auto, const auto&) {});
    for (int i = 2; i < argc; ++i)
        tio::bench::checkClip(argv[1], argv[i]);
}
