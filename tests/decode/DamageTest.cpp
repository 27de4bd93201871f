#include "support/ClipMaker.h"
#include "support/Encoding.h"
#include "support/HashedPicture.h"
#include "support/LogCapture.h"
#include "support/Oracle.h"
#include "support/ReaderPictures.h"
#include "support/TemporaryFolder.h"
#include "support/WrittenFile.h"

#include <TARN/videoio/AudioStreamDecoder.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/FrameReader.h>
#include <TARN/videoio/InputStream.h>
#include <TARN/videoio/VideoStreamDecoder.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <numeric>
#include <string>
#include <tuple>
#include <vector>

/// @file
/// Damage in the middle of a file: whatever a packet has become, what comes after it is as in the
/// undamaged clip, and nobody has to do anything for that but read on.

namespace tio::ffmpeg {
namespace {

/// What becomes of a packet's bytes.
struct Damage {
    const char* name;
    void (*apply)(std::vector<uint8_t>& bytes);
};

const Damage inverted = {"Inverted", [](std::vector<uint8_t>& bytes) {
                             for (uint8_t& byte : bytes)
                                 byte = static_cast<uint8_t>(~byte);
                         }};
const Damage zeroed = {"Zeroed", [](std::vector<uint8_t>& bytes) {
                           std::fill(bytes.begin(), bytes.end(), uint8_t{0});
                       }};
const Damage halved = {"Halved",
                       [](std::vector<uint8_t>& bytes) { bytes.resize(bytes.size() / 2); }};
const Damage holed = {"Holed", [](std::vector<uint8_t>& bytes) {
                          const auto third = static_cast<std::ptrdiff_t>(bytes.size() / 3);
                          std::fill(bytes.begin() + third, bytes.begin() + 2 * third,
                                    uint8_t{0xA5});
                      }};

/// What a reader met on the way: damage is told by a line on standard error or by an exception.
struct Reports {
    size_t lines = 0;
    size_t exceptions = 0;
};

class DamageTest : public ::testing::Test {
protected:
    /// Reads on, past exceptions, until nothing comes any more.
    template <typename Read>
    Reports readOn(Read read) {
        Reports reports;
        ::testing::internal::CaptureStderr();
        for (bool more = true; more;) {
            try {
                more = read();
            } catch (const Exception& failure) {
                // Of a packet, of the end, of a picture: all of them are passed.
                EXPECT_THAT(failure.what(), ::testing::HasSubstr("PacketDecoder:"));
                EXPECT_LE(++reports.exceptions, 3u) << failure.what();
                more = reports.exceptions <= 3;
            }
        }
        const std::string told = ::testing::internal::GetCapturedStderr();
        const std::string line = "Invalid data found, attempting to continue\n";
        for (size_t at = told.find(line); at != std::string::npos; at = told.find(line, at + 1))
            ++reports.lines;
        EXPECT_EQ(told.size(), reports.lines * line.size()) << told;
        return reports;
    }

    test::TemporaryFolder folder;
    std::string sound = folder.file("sound.mkv");
    std::string path = folder.file("damaged.mkv");
    test::LogCapture log;
};

// ---- pictures -----------------------------------------------------------------------------------

constexpr int group = 12;
constexpr int pictures = 3 * group;

class DamagedPictures
    : public DamageTest,
      public ::testing::WithParamInterface<std::tuple<const char*, Damage, bool>> {
protected:
    void SetUp() override {
        test::ClipPlan plan;
        plan.encoder = std::get<0>(GetParam());
        plan.frameCount = pictures;
        plan.gopSize = group;
        // Pictures that wait for their turn when a key picture is lost come out after those of its
        // group, and are dropped since their time has passed: not so without B-frames.
        const bool keyFrame = std::get<2>(GetParam());
        plan.maxBFrames = plan.encoder == "libx264" && !keyFrame ? 2 : 0;
        if (plan.encoder == "mjpeg")
            plan.pixelFormat = "yuvj420p";
        test::Track track = test::encodeVideo(plan);
        const std::string whole = folder.file("whole.mkv");
        test::writePackets(whole, "matroska", {track});
        for (const test::OracleFrame& frame : test::oracleFrames(whole))
            expected[Rational(frame.time().numerator, frame.time().denominator).toDouble()] =
                frame.hash;
        ASSERT_EQ(expected.size(), static_cast<size_t>(pictures));
        std::get<1>(GetParam()).apply(track.packets[group + (keyFrame ? 0 : 5)].data);
        test::writePackets(path, "matroska", {track});
    }

    static int numberAt(double time) { return static_cast<int>(std::lround(time * 25)); }

    /// Whether a picture is in one of the groups that are whole.
    static bool isWhole(double time) {
        return numberAt(time) < group || numberAt(time) >= 2 * group;
    }

    std::map<double, uint64_t> expected; // by time in seconds
};

TEST_P(DamagedPictures, LeaveTheOtherGroupsAsTheyWere) {
    VideoStreamDecoder decoder(std::make_shared<InputFormatContext>(path), PixelFormat::RGB);
    std::vector<double> times;
    readOn([&] {
        const auto frame = decoder.readNextFrame();
        if (!frame.frame)
            return false;
        times.push_back(frame.timestamp.toDouble());
        if (isWhole(times.back())) {
            EXPECT_EQ(test::hashedPicture(*frame.frame).hash, expected[times.back()])
                << times.back() << " s";
        }
        return true;
    });
    EXPECT_EQ(std::adjacent_find(times.begin(), times.end(), std::greater_equal<>()), times.end());
    std::vector<int> whole;
    for (const double time : times) {
        if (isWhole(time))
            whole.push_back(numberAt(time));
    }
    std::vector<int> all(2 * group);
    std::iota(all.begin(), all.begin() + group, 0);
    std::iota(all.begin() + group, all.end(), 2 * group);
    EXPECT_EQ(whole, all);
}

TEST_P(DamagedPictures, AreSoughtBehind) {
    const Rational time((2 * group + 3) * 40, 1000);
    const auto input = std::make_shared<InputFormatContext>(path);
    const auto times = InputStream(input, 0).getFrameMsMap();
    const auto place = std::find(times.begin(), times.end(), time);
    ASSERT_NE(place, times.end());
    VideoStreamDecoder decoder(std::make_shared<InputFormatContext>(path), PixelFormat::RGB);
    decoder.seek(place - times.begin());
    const auto frame = decoder.readNextFrame();
    ASSERT_TRUE(frame.frame);
    EXPECT_EQ(frame.timestamp, time);
    EXPECT_EQ(test::hashedPicture(*frame.frame).hash, expected[time.toDouble()]);
}

TEST_P(DamagedPictures, AreNotThoseThatTheReaderGivesForOthers) {
    const auto reader = test::openReader(path);
    for (int64_t number = reader->frameCount() - 1; number >= 0; number -= 5) {
        const auto picture = reader->readFrame(number);
        const double time = picture.time.toDouble();
        if (isWhole(time)) {
            EXPECT_EQ(test::hashOf(picture), expected[time]) << time << " s";
        }
    }
}

std::string nameOfPictures(const ::testing::TestParamInfo<DamagedPictures::ParamType>& info) {
    return std::string(std::get<0>(info.param)) + std::get<1>(info.param).name +
           (std::get<2>(info.param) ? "KeyFrame" : "InBetween");
}

INSTANTIATE_TEST_SUITE_P(
    Codecs, DamagedPictures,
    ::testing::Combine(::testing::Values("libx264", "mpeg2video", "mpeg4", "mjpeg", "ffv1"),
                       ::testing::Values(inverted, zeroed, halved, holed), ::testing::Bool()),
    nameOfPictures);

// ---- sound --------------------------------------------------------------------------------------

class DamagedSound : public DamageTest, public ::testing::WithParamInterface<Damage> {};

TEST_P(DamagedSound, LeavesTheBlocksBehindItAsTheyWere) {
    test::Track track = test::encodeTone(1.0, true);
    test::writePackets(sound, "matroska", {track});
    const auto expected = test::readSound(sound);
    constexpr size_t damaged = 20;
    GetParam().apply(track.packets[damaged].data);
    test::writePackets(path, "matroska", {track});
    AudioStreamDecoder decoder(std::make_shared<InputFormatContext>(path));
    std::vector<AudioPacketDecoder::Frame> blocks;
    readOn([&] {
        blocks.push_back(decoder.readNextFrame());
        return blocks.back().samples.count != 0;
    });
    blocks.pop_back();
    ASSERT_GE(blocks.size(), expected.size() - 1);
    // Each block is mixed with half of the one before.
    constexpr size_t touched = damaged + 2;
    for (size_t behind = 0; touched + behind < expected.size(); ++behind) {
        const auto& block = blocks[blocks.size() - 1 - behind];
        const auto& wanted = expected[expected.size() - 1 - behind];
        ASSERT_EQ(block.timestamp, Rational(wanted.pts, 1) * decoder.getUnitTime()) << behind;
        ASSERT_EQ(block.samples.count, static_cast<int>(wanted.samples.size()));
        // AAC puts noise where it is not heard, and draws it from what came before.
        for (int i = 0; i < block.samples.count; ++i)
            ASSERT_NEAR(block.samples.data()[i], wanted.samples[static_cast<size_t>(i)], 0.01)
                << i << ", " << behind << " blocks before the end";
    }
}

INSTANTIATE_TEST_SUITE_P(Damages, DamagedSound, ::testing::Values(inverted, zeroed, halved, holed),
                         [](const auto& damage) { return std::string(damage.param.name); });

} // namespace
} // namespace tio::ffmpeg
