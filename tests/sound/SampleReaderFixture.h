#pragma once

#include "support/SoundMaker.h"
#include "support/TemporaryFolder.h"

#include <TARN/videoio/SampleReader.h>

#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <utility>

namespace tio::test {

/// A clip of PCM whose sample n is n / 2^15 in every channel: `second` of them, up to 2^15.
inline SoundPlan ramp() {
    SoundPlan plan{"wav", "pcm_s16le", "s16", 8000, "stereo", 2, "n/32768", {}, {}};
    return plan;
}

class SampleReaderTest : public testing::Test {
protected:
    ffmpeg::SampleReader& open(const SoundPlan& plan, ffmpeg::SampleReaderOptions options = {}) {
        makeSound(clip, plan);
        return openAgain(std::move(options));
    }

    ffmpeg::SampleReader& openAgain(ffmpeg::SampleReaderOptions options = {}) {
        reader.emplace(clip, std::move(options));
        return *reader;
    }

    TemporaryFolder folder;
    std::string clip = folder.file("clip");
    std::optional<ffmpeg::SampleReader> reader;
};

} // namespace tio::test
