#pragma once

#include "ReadBack.h"
#include "support/ClipMaker.h"
#include "support/Oracle.h"
#include "support/TemporaryFolder.h"

#include <TARN/videoio/ClipCopier.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace tio::test {

/// What is seen of a clip: pictures and the times at which they are shown.
struct Seen {
    std::vector<Fraction> times;
    std::vector<uint64_t> hashes;
};

inline uint64_t hashOfFrame(const AVFrame& frame) {
    const auto format = static_cast<AVPixelFormat>(frame.format);
    const int size = av_image_get_buffer_size(format, frame.width, frame.height, 1);
    std::vector<uint8_t> bytes(static_cast<std::size_t>(check(size, "picture")));
    check(av_image_copy_to_buffer(bytes.data(), size, frame.data, frame.linesize, format,
                                  frame.width, frame.height, 1),
          "picture");
    return hashOf(bytes.data(), bytes.size());
}

inline Seen seenIn(const std::string& path) {
    Seen seen;
    ReadBack clip(path, AVMEDIA_TYPE_VIDEO);
    clip.decodeAll([&](const AVFrame& frame) {
        seen.times.push_back(secondsOf(frame.best_effort_timestamp, clip.stream().time_base));
        seen.hashes.push_back(hashOfFrame(frame));
    });
    return seen;
}

inline void appendFile(const std::string& path, const std::string& part) {
    std::ofstream(path, std::ios::binary | std::ios::app)
        << std::ifstream(part, std::ios::binary).rdbuf();
}

class ClipCopierTest : public ::testing::Test {
protected:
    [[nodiscard]] std::string file(const std::string& name) const { return folder.file(name); }

    [[nodiscard]] int filesLeft() const {
        int count = 0;
        for ([[maybe_unused]] const auto& one : std::filesystem::directory_iterator(folder.path()))
            ++count;
        return count;
    }

    void make(const std::string& name, const ClipPlan& plan = {}) const {
        makeClip(file(name), plan);
    }

    ffmpeg::CopiedClip copy(const std::string& from, const std::string& to,
                            const ffmpeg::ClipCopierOptions& options = {}) const {
        return ffmpeg::ClipCopier(file(from), file(to), options).run();
    }

    TemporaryFolder folder;
};

} // namespace tio::test
