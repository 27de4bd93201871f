#include "ProgramRun.h"
#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/StillImages.h"
#include "support/TemporaryFolder.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace tio::test;
using testing::HasSubstr;

namespace {

void append(std::vector<uint8_t>& bytes, const char* text) {
    for (const char* character = text; *character != 0; ++character)
        bytes.push_back(static_cast<uint8_t>(*character));
}

void append(std::vector<uint8_t>& bytes, uint32_t value, int count) {
    for (int i = 0; i < count; ++i)
        bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

/// An uncompressed sound of 8000 samples a second.
void writeWav(const std::string& path, uint32_t channels, uint32_t sampleBytes, uint32_t samples,
              const std::function<int(uint32_t sample, uint32_t channel)>& value) {
    const uint32_t size = channels * sampleBytes * samples;
    std::vector<uint8_t> bytes;
    append(bytes, "RIFF");
    append(bytes, 36 + size, 4);
    append(bytes, "WAVE");
    append(bytes, "fmt ");
    append(bytes, 16, 4);
    append(bytes, 1, 2);
    append(bytes, channels, 2);
    append(bytes, 8000, 4);
    append(bytes, 8000 * channels * sampleBytes, 4);
    append(bytes, channels * sampleBytes, 2);
    append(bytes, 8 * sampleBytes, 2);
    append(bytes, "data");
    append(bytes, size, 4);
    for (uint32_t i = 0; i < samples; ++i) {
        for (uint32_t channel = 0; channel < channels; ++channel)
            append(bytes, static_cast<uint32_t>(value(i, channel)), static_cast<int>(sampleBytes));
    }
    writeBytes(path, bytes);
}

class WaveCommandTest : public testing::Test {
protected:
    /// A waveform of 200 x 220 pixels, of which the last 20 rows are the axis.
    OracleImage draw() {
        const ProgramResult result =
            runProgram({"wave", sound, "-o", wave, "--width", "200", "--height", "220"});
        EXPECT_EQ(result.exitCode, 0) << result.err;
        return oracleImage(wave);
    }

    static std::array<uint8_t, 3> pixel(const OracleImage& image, int row, int col) {
        const auto* at = &image.pixels[static_cast<size_t>(3 * (row * image.width + col))];
        return {at[0], at[1], at[2]};
    }

    /// The first and the last row in which a column of a strip shows sound.
    static std::pair<int, int> extent(const OracleImage& image, int col, int top, int height) {
        std::pair<int, int> rows(-1, -1);
        for (int row = top; row < top + height; ++row) {
            if (pixel(image, row, col)[2] < 200) // neither background nor the line at 0
                continue;
            if (rows.first < 0)
                rows.first = row - top;
            rows.second = row - top;
        }
        return rows;
    }

    TemporaryFolder folder;
    std::string sound = folder.file("sound.wav");
    std::string wave = folder.file("wave.png");
};

// The upper edge of a strip of 200 rows is 1, the lower one -1, and 0 lies between the middle two.
TEST_F(WaveCommandTest, ReachesFromTheLowestToTheHighestSampleOfEachColumn) {
    writeWav(sound, 1, 2, 8000, [](uint32_t sample, uint32_t) {
        return sample < 4000 ? (sample % 2 == 0 ? 32767 : -32768) : (sample % 2 == 0 ? 16384 : 0);
    });
    const OracleImage image = draw();
    EXPECT_EQ(extent(image, 10, 0, 200), std::pair(0, 199));
    EXPECT_EQ(extent(image, 99, 0, 200), std::pair(0, 199)) << "the end of the first half";
    EXPECT_EQ(extent(image, 100, 0, 200), std::pair(50, 100)) << "a half is a quarter of the strip";
    EXPECT_EQ(extent(image, 199, 0, 200), std::pair(50, 100));
}

TEST_F(WaveCommandTest, GivesEachChannelAStrip) {
    writeWav(sound, 2, 2, 800, [](uint32_t sample, uint32_t channel) {
        return channel == 0 || sample % 2 == 0 ? 0 : 32767;
    });
    const OracleImage image = draw();
    EXPECT_EQ(extent(image, 50, 0, 100), std::pair(50, 50)) << "silence is a line";
    EXPECT_EQ(extent(image, 50, 100, 100), std::pair(0, 50));
}

TEST_F(WaveCommandTest, UnsignedSilenceIsInTheMiddle) {
    writeWav(sound, 1, 1, 800, [](uint32_t, uint32_t) { return 128; });
    EXPECT_EQ(extent(draw(), 50, 0, 200), std::pair(100, 100));
}

TEST_F(WaveCommandTest, StretchesFewerSamplesThanColumns) {
    writeWav(sound, 1, 2, 2,
             [](uint32_t sample, uint32_t) { return sample == 0 ? 32767 : -32768; });
    const OracleImage image = draw();
    EXPECT_EQ(extent(image, 0, 0, 200), std::pair(0, 0));
    EXPECT_EQ(extent(image, 99, 0, 200), std::pair(0, 0));
    EXPECT_EQ(extent(image, 100, 0, 200), std::pair(199, 199));
}

// Longer than the table of peaks, which is then thinned out.
TEST_F(WaveCommandTest, FindsAClickInALongSound) {
    constexpr uint32_t samples = 500000;
    writeWav(sound, 1, 1, samples,
             [](uint32_t sample, uint32_t) { return sample == 375000 ? 255 : 128; });
    const OracleImage image = draw();
    for (int col = 0; col < 200; ++col)
        EXPECT_EQ(extent(image, col, 0, 200).first < 10, col == 150) << col;
}

TEST_F(WaveCommandTest, DrawsAnAxisOfTime) {
    writeWav(sound, 1, 1, 16000, [](uint32_t, uint32_t) { return 128; });
    const OracleImage image = draw();
    EXPECT_EQ(pixel(image, 201, 0)[0], 200) << "a mark at 0";
    EXPECT_EQ(pixel(image, 201, 100)[0], 200) << "and one at the second of two seconds";
    EXPECT_NE(pixel(image, 201, 50)[0], 200);
}

TEST_F(WaveCommandTest, SaysWhatItDrew) {
    writeWav(sound, 2, 2, 4000, [](uint32_t, uint32_t) { return 0; });
    EXPECT_EQ(runProgram({"wave", sound, "-o", wave}).out, wave + ": 2 channels, 0.5 s\n");
    EXPECT_EQ(oracleImage(wave).width, 1600);
    EXPECT_EQ(oracleImage(wave).height, 320);
}

TEST_F(WaveCommandTest, TellsThatThereIsNoSound) {
    makeClip(folder.file("clip.mp4"), {});
    const ProgramResult result = runProgram({"wave", folder.file("clip.mp4"), "-o", wave});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_THAT(result.err, HasSubstr("clip.mp4: there is no sound"));
    EXPECT_FALSE(std::filesystem::exists(wave));
}

} // namespace
