#pragma once

#include "support/ClipMaker.h"
#include "support/LogCapture.h"
#include "support/Muxing.h"
#include "support/TemporaryFolder.h"

#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/OutputStream.h>

#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace tio::test {

/// What a child says that could not make the surroundings of its test.
inline const std::string impossible = "impossible here: ";

class FaultsTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::filesystem::permissions(folder.path(), std::filesystem::perms::owner_all |
                                                        std::filesystem::perms::group_exec |
                                                        std::filesystem::perms::others_exec |
                                                        std::filesystem::perms::others_read);
        makeClip(clip, {});
    }

    [[nodiscard]] std::shared_ptr<ffmpeg::InputFormatContext> input() const {
        return std::make_shared<ffmpeg::InputFormatContext>(clip);
    }

    [[nodiscard]] std::string invalidData(const std::string& path) const {
        return "Invalid data found when processing input: " + path +
               placeText("InputFormatContext", 60);
    }

    TemporaryFolder folder;
    std::string clip = folder.file("clip.mp4");
    LogCapture log;
};

/// Writes one packet of so many bytes into a new file, and completes it.
inline void writeFile(const std::string& path, size_t bytes) {
    const auto output = std::make_shared<ffmpeg::OutputFormatContext>(path);
    const auto parameters = videoParameters();
    {
        ffmpeg::OutputStream stream(output, ffmpeg::Rational(1, 25));
        const auto packet = makePacket(std::vector<uint8_t>(bytes, 7));
        stream.writePacket(
            ffmpeg::OutputPacket(packet.get(), parameters.get(), ffmpeg::Rational(1, 25)));
    }
    output->finish();
}

// Of a test whose child said why it is not possible here.
#define SKIP_IF_IMPOSSIBLE(said)                                                                   \
    if ((said).compare(0, ::tio::test::impossible.size(), ::tio::test::impossible) == 0)           \
    GTEST_SKIP() << (said)

} // namespace tio::test
