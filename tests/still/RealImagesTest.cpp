#include "support/ByteEdits.h"
#include "support/ImagePixels.h"
#include "support/LogCapture.h"
#include "support/MediaFolder.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/ReadImage.h>

#include <cctype>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

/// @file
/// Every image of the real media folder: read as FFmpeg reads it when called directly, or refused
/// where FFmpeg fails; PPM as its bytes spell it.

namespace tio {
namespace {

class RealImages : public ::testing::Test {
protected:
    void SetUp() override {
        if (!test::mediaFile("still"))
            GTEST_SKIP() << test::mediaMissingMessage();
    }

    static std::vector<std::string> filesOf(const std::vector<std::string>& extensions) {
        std::vector<std::string> files;
        for (const auto& entry : std::filesystem::directory_iterator(*test::mediaFile("still"))) {
            for (const std::string& extension : extensions) {
                if (entry.path().extension() == extension)
                    files.push_back(entry.path().string());
            }
        }
        EXPECT_FALSE(files.empty());
        return files;
    }

    static std::optional<test::OracleImage> byFfmpeg(const std::string& path) {
        try {
            return test::oracleImage(path);
        } catch (const std::runtime_error&) {
            return std::nullopt;
        }
    }

    static void expectAsFfmpegReadsThem(const std::vector<std::string>& files) {
        for (const std::string& path : files) {
            SCOPED_TRACE(path);
            if (const auto expected = byFfmpeg(path))
                test::expectSamePixels(readImage(path), *expected);
            else
                EXPECT_THROW((void)readImage(path), Exception);
        }
    }

    test::LogCapture log; // FFmpeg has much to say about some of them
};

TEST_F(RealImages, JpegHasThePixelsThatFfmpegDecodes) {
    expectAsFfmpegReadsThem(filesOf({".jpg", ".jpeg"}));
}

TEST_F(RealImages, PngHasThePixelsThatFfmpegDecodes) {
    expectAsFfmpegReadsThem(filesOf({".png"}));
}

/// A PPM image with 8-bit samples, taken apart by hand: the numbers of the header are its first
/// words once comments are gone, and the samples begin after the blank that ends the last.
test::OracleImage ppmByHand(const std::string& path) {
    const std::vector<uint8_t> bytes = test::readBytes(path);
    std::vector<std::string> words = {""};
    std::size_t at = 0;
    const bool plain = bytes.at(1) == '3';
    for (; at < bytes.size() && (plain || words.size() < 5); ++at) {
        if (bytes[at] == '#')
            while (bytes[at] != '\n')
                ++at;
        if (std::isspace(bytes[at]) == 0)
            words.back() += static_cast<char>(bytes[at]);
        else if (!words.back().empty())
            words.emplace_back();
    }
    test::OracleImage image{std::stoi(words.at(1)), std::stoi(words.at(2)), {}};
    const int highest = std::stoi(words.at(3));
    const std::size_t count = 3 * static_cast<std::size_t>(image.width * image.height);
    for (std::size_t i = 0; i < count; ++i) {
        const int sample = plain ? std::stoi(words.at(4 + i)) : bytes.at(at + i);
        image.pixels.push_back(static_cast<uint8_t>(std::lround(255.0 * sample / highest)));
    }
    return image;
}

TEST_F(RealImages, PpmHasTheSamplesThatItsBytesSpell) {
    for (const std::string& path : filesOf({".ppm"})) {
        SCOPED_TRACE(path);
        std::optional<test::OracleImage> expected;
        try {
            expected = ppmByHand(path);
        } catch (const std::logic_error&) { // it has fewer samples than pixels, or no numbers
        }
        if (expected)
            test::expectSamePixels(readImage(path), *expected);
        else
            EXPECT_THROW((void)readImage(path), Exception);
    }
}

} // namespace
} // namespace tio
