#include "support/EncoderInput.h"
#include "support/MediaFolder.h"
#include "support/TemporaryFolder.h"
#include "support/WrittenFile.h"

#include <TARN/videoio/AudioStreamDecoder.h>
#include <TARN/videoio/AudioStreamEncoder.h>
#include <TARN/videoio/VideoStreamDecoder.h>
#include <TARN/videoio/VideoStreamEncoder.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::Block;
using test::Image;
using test::Pixel;

constexpr double pi = 3.14159265358979;

// A camera that pans over a landscape of soft shapes of all sizes, as natural pictures have them
// (the coarser, the stronger), with a round thing moving before it and some noise of the sensor.
class Landscape {
public:
    Landscape() {
        std::uniform_real_distribution<double> any(0, 2 * pi);
        for (Wave& wave : waves) {
            const double frequency = 0.01 * std::pow(60.0, any(random) / (2 * pi));
            const double direction = any(random);
            wave = {frequency * std::cos(direction), frequency * std::sin(direction), any(random),
                    0.35 / frequency, any(random)};
        }
    }

    Image picture(int rows, int cols, int number) {
        std::normal_distribution<double> noise(0, 1);
        Image image(tio::Vec<int, 2>(rows, cols));
        for (int r = 0; r < rows; ++r) {
            for (int c = 0; c < cols; ++c) {
                const auto colour = colourAt(r, c, rows, cols, number);
                for (int k = 0; k < 3; ++k) {
                    const double value = colour[static_cast<size_t>(k)] + noise(random);
                    image(r, c)[k] = static_cast<uint8_t>(std::clamp(value, 0.0, 255.0));
                }
            }
        }
        return image;
    }

private:
    struct Wave {
        double x, y, phase, strength, tint;
    };

    std::array<double, 3> colourAt(int r, int c, int rows, int cols, int number) const {
        const double dx = c - cols * (0.2 + 0.01 * number);
        const double dy = r - rows * 0.6;
        if (dx * dx + dy * dy < 0.02 * rows * rows)
            return {180 + 0.8 * dx, 120 + 0.6 * dy, 60};
        std::array<double, 3> colour = {120, 125, 115};
        for (const Wave& wave : waves) {
            const double value =
                wave.strength * std::sin(wave.x * (c + 1.5 * number) + wave.y * r + wave.phase);
            colour[0] += value;
            colour[1] += value * (1 + 0.15 * std::sin(wave.tint));
            colour[2] += value * (1 + 0.3 * std::cos(wave.tint));
        }
        return colour;
    }

    std::minstd_rand random{7};
    std::array<Wave, 24> waves{};
};

class WrittenQualityTest : public ::testing::Test {
protected:
    // Squared differences of all channels between two pictures, added up.
    static double squaredError(const uint8_t* a, const uint8_t* b, int count) {
        double sum = 0;
        for (int i = 0; i < count; ++i)
            sum += (a[i] - b[i]) * (a[i] - b[i]);
        return sum;
    }

    // Writes the pictures with default options, reads them back and compares: in dB.
    double psnrOf(const std::vector<Image>& pictures) const {
        const int rows = pictures[0].rows();
        const int cols = pictures[0].cols();
        const auto output = std::make_shared<OutputFormatContext>(path);
        {
            VideoStreamEncoder video(output, {rows, cols}, Rational(1, 25));
            for (size_t n = 0; n < pictures.size(); ++n)
                video.writeNextFrame(pictures[n], Rational(static_cast<int64_t>(n), 25));
        }
        output->finish();
        VideoStreamDecoder decoder(std::make_shared<InputFormatContext>(path), PixelFormat::RGB);
        double sum = 0;
        for (const Image& picture : pictures) {
            const auto frame = decoder.readNextFrame();
            if (!frame.frame)
                throw std::runtime_error("a picture is missing");
            const auto& plane = static_cast<tio::Frame<tio::PixelFormat::RGB>&>(*frame.frame).plane;
            sum += squaredError(plane.data(), reinterpret_cast<const uint8_t*>(picture.data()),
                                plane.count);
        }
        const double values = 3.0 * pictures[0].count * static_cast<double>(pictures.size());
        return 10 * std::log10(255 * 255 * values / sum);
    }

    static void note(const std::string& what, double value) {
        RecordProperty(what, std::to_string(value));
    }

    test::TemporaryFolder folder;
    std::string path = folder.file("out.mp4");
};

// How alike two signals are: 1 when one is a multiple of the other.
double correlation(const std::vector<double>& a, const std::vector<double>& b) {
    double ab = 0, aa = 0, bb = 0;
    for (size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
        ab += a[i] * b[i];
        aa += a[i] * a[i];
        bb += b[i] * b[i];
    }
    return ab / std::sqrt(aa * bb);
}

TEST_F(WrittenQualityTest, PicturesOfALandscapeComeBackAt35DecibelsAtLeast) {
    Landscape landscape;
    std::vector<Image> pictures;
    for (int n = 0; n < 30; ++n)
        pictures.push_back(landscape.picture(240, 320, n));
    const double psnr = psnrOf(pictures);
    note("psnr", psnr);
    EXPECT_GE(psnr, 35.0);
}

TEST_F(WrittenQualityTest, PicturesOfACameraComeBackAt35DecibelsAtLeast) {
    const auto clip = test::mediaFile("video/flipping_a_pancake.mkv");
    if (!clip)
        GTEST_SKIP() << test::mediaMissingMessage();
    VideoStreamDecoder decoder(std::make_shared<InputFormatContext>(clip->string()),
                               PixelFormat::RGB);
    std::vector<Image> pictures;
    for (int n = 0; n < 50; ++n) {
        const auto frame = decoder.readNextFrame();
        if (!frame.frame)
            break;
        const auto& plane = static_cast<tio::Frame<tio::PixelFormat::RGB>&>(*frame.frame).plane;
        pictures.emplace_back(tio::Vec<int, 2>(plane.rows(), plane.cols() / 3), plane.storage);
    }
    ASSERT_FALSE(pictures.empty());
    const double psnr = psnrOf(pictures);
    note("psnr", psnr);
    EXPECT_GE(psnr, 35.0);
}

// A tune of plucked notes, a fifth apart in the two channels: one note every quarter of a second.
double tune(int channel, int64_t sample) {
    constexpr std::array<double, 8> notes = {220, 277.2, 329.6, 440, 392, 349.2, 293.7, 246.9};
    const int64_t since = sample % 12000;
    const double frequency =
        notes[static_cast<size_t>(sample / 12000) % notes.size()] * (channel == 0 ? 1 : 1.5);
    const double t = static_cast<double>(since) / 48000;
    double value = 0;
    for (int harmonic = 1; harmonic <= 5; ++harmonic)
        value += std::sin(2 * pi * frequency * harmonic * t) / (harmonic * harmonic);
    return 0.25 * value * std::exp(-3 * t);
}

// One vector per channel.
using Sound = std::vector<std::vector<double>>;

Sound readSound(const std::string& path) {
    Sound sound;
    AudioStreamDecoder decoder(std::make_shared<InputFormatContext>(path));
    for (auto frame = decoder.readNextFrame(); frame.samples.count != 0;
         frame = decoder.readNextFrame()) {
        sound.resize(static_cast<size_t>(frame.samples.cols()));
        for (int i = 0; i < frame.samples.count; ++i)
            sound[static_cast<size_t>(i % frame.samples.cols())].push_back(frame.samples.data()[i]);
    }
    return sound;
}

class WrittenSoundTest : public WrittenQualityTest {
protected:
    // Writes two channels at 48 kHz, reads them back and compares all but the encoder's delay of
    // 1024 samples. What does not fill a block is left out.
    void expectComesBack(const Sound& original) const {
        const auto blocks = static_cast<int64_t>(original[0].size() / 1024);
        const auto output = std::make_shared<OutputFormatContext>(path);
        {
            AudioStreamEncoder audio(output, 3, 48000, Rational());
            for (int64_t n = 0; n < blocks; ++n) {
                Block block(tio::Vec<int, 2>(1024, 2));
                for (int i = 0; i < block.count; ++i)
                    block.data()[i] =
                        static_cast<float>(original[static_cast<size_t>(i % 2)]
                                                   [static_cast<size_t>(1024 * n + i / 2)]);
                audio.writeNextFrame(block, Rational(1024 * n, 48000));
            }
        }
        output->finish();

        Sound decoded = readSound(path);
        ASSERT_EQ(decoded.size(), 2u);
        for (size_t channel = 0; channel < 2; ++channel) {
            auto& samples = decoded[channel];
            ASSERT_EQ(samples.size(), static_cast<size_t>(1024 * (blocks + 1)))
                << "every block and the delay";
            samples.erase(samples.begin(), samples.begin() + 1024);
            const double alike = correlation(original[channel], samples);
            note("correlation" + std::to_string(channel), alike);
            EXPECT_GE(alike, 0.99) << "channel " << channel;
        }
    }
};

TEST_F(WrittenSoundTest, ATuneComesBackAlike) {
    Sound sound(2);
    for (int channel = 0; channel < 2; ++channel) {
        for (int64_t i = 0; i < 96256; ++i)
            sound[static_cast<size_t>(channel)].push_back(tune(channel, i));
    }
    expectComesBack(sound);
}

TEST_F(WrittenSoundTest, ARecordingComesBackAlike) {
    const auto recording = test::mediaFile("audio/bear.flac");
    if (!recording)
        GTEST_SKIP() << test::mediaMissingMessage();
    expectComesBack(readSound(recording->string()));
}

TEST_F(WrittenQualityTest, AFlashAndABeepOfOneMomentComeBackTogether) {
    constexpr int flash = 25; // picture number, at one second
    const auto output = std::make_shared<OutputFormatContext>(path);
    {
        VideoStreamEncoder video(output, {64, 96}, Rational(1, 25));
        AudioStreamEncoder audio(output, 4, 48000, Rational());
        int64_t sample = 0;
        for (int n = 0; n < 50; ++n) {
            const uint8_t light = n >= flash ? 235 : 16;
            video.writeNextFrame(test::plainImage(64, 96, Pixel(light, light, light)),
                                 Rational(n, 25));
            for (; sample * 25 < 48000 * int64_t{n + 1}; sample += 1024) {
                Block block(tio::Vec<int, 2>(1024, 1));
                for (int i = 0; i < 1024; ++i)
                    block(i, 0) = sample + i >= 48000 ? static_cast<float>(tune(0, i)) : 0.0F;
                audio.writeNextFrame(block, Rational(sample, 48000));
            }
        }
    }
    output->finish();

    VideoStreamDecoder video(std::make_shared<InputFormatContext>(path), PixelFormat::RGB);
    double flashTime = -1;
    for (auto frame = video.readNextFrame(); frame.frame; frame = video.readNextFrame()) {
        const auto& plane = static_cast<tio::Frame<tio::PixelFormat::RGB>&>(*frame.frame).plane;
        if (flashTime < 0 && plane.data()[0] > 128)
            flashTime = frame.timestamp.toDouble();
    }
    AudioStreamDecoder audio(std::make_shared<InputFormatContext>(path));
    double beepTime = -1;
    for (auto frame = audio.readNextFrame(); frame.samples.count != 0;
         frame = audio.readNextFrame()) {
        for (int i = 0; i < frame.samples.rows() && beepTime < 0; ++i) {
            if (std::abs(frame.samples(i, 0)) > 0.1F)
                beepTime = frame.timestamp.toDouble() + i / 48000.0;
        }
    }
    EXPECT_DOUBLE_EQ(flashTime, 1.0);
    EXPECT_NEAR(beepTime, 1.0, 0.04);
}

} // namespace
} // namespace tio::ffmpeg
