#pragma once

#include "ReadBack.h"
#include "support/TemporaryFolder.h"

#include <TARN/videoio/ClipWriter.h>

#include <cmath>
#include <cstddef>
#include <filesystem>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

namespace tio::test {

using Times = std::vector<Fraction>;

inline const Times steady = {0, {1, 25}, {2, 25}, {3, 25}, {4, 25}, {5, 25}, {6, 25}, {7, 25}};

inline Times ntsc(int count) {
    Times times;
    for (int i = 0; i < count; ++i)
        times.emplace_back(1001 * i, 30000);
    return times;
}

/// Pictures that stand for 1.2 s each, then some at 25 a second.
inline Times sparseThenDense(int sparse, int dense) {
    Times times;
    Fraction next = 0;
    for (int i = 0; i < sparse + dense; ++i) {
        times.push_back(next);
        next = next + (i < sparse ? Fraction(6, 5) : Fraction(1, 25));
    }
    return times;
}

class ClipWriterTest : public ::testing::Test {
protected:
    [[nodiscard]] std::string file(const std::string& name) const { return folder.file(name); }

    void write(const std::string& name, const Times& times,
               const ffmpeg::ClipWriterOptions& options,
               std::optional<Fraction> last = std::nullopt) const {
        ffmpeg::ClipWriter writer(file(name), options);
        for (std::size_t i = 0; i < times.size(); ++i)
            writer.writePicture(rgbPicture(static_cast<int>(i)), times[i],
                                i + 1 == times.size() ? last : std::nullopt);
        writer.finish();
    }

    [[nodiscard]] int filesLeft() const {
        int count = 0;
        for ([[maybe_unused]] const auto& one : std::filesystem::directory_iterator(folder.path()))
            ++count;
        return count;
    }

    TemporaryFolder folder;
};

inline ffmpeg::ClipWriterOptions withCodec(const std::string& codec) {
    ffmpeg::ClipWriterOptions options;
    options.codec = codec;
    return options;
}

inline Fraction durationIn(const std::string& path) {
    return ReadBack(path, AVMEDIA_TYPE_VIDEO).duration();
}

/// A click at one sample, silence else.
inline std::vector<float> click(std::size_t count, std::size_t at) {
    std::vector<float> samples(count, 0.0F);
    samples.at(at) = 0.9F;
    return samples;
}

inline std::size_t loudest(const std::vector<float>& samples) {
    std::size_t best = 0;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        if (std::fabs(samples[i]) > std::fabs(samples[best]))
            best = i;
    }
    return best;
}

} // namespace tio::test
