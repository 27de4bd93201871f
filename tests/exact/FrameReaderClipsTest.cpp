#include "ffmpeg_compat.h"
#include "support/LogCapture.h"
#include "support/MediaFolder.h"
#include "support/ReaderClips.h"
#include "support/ReaderPictures.h"
#include "support/TemporaryFolder.h"

#include <algorithm>
#include <cctype>
#include <gtest/gtest.h>
#include <numeric>
#include <random>

/// @file
/// Every picture that FrameReader gives, in every order, against FFmpeg called directly, over
/// tables of made and of real clips.

namespace tio::ffmpeg {
namespace {

using test::hashOf;
using test::MadeClip;

std::vector<std::vector<int64_t>> ordersOf(size_t count) {
    std::vector<int64_t> forward(count);
    std::iota(forward.begin(), forward.end(), int64_t{0});
    const std::vector<int64_t> reverse(forward.rbegin(), forward.rend());
    std::vector<int64_t> shuffled = forward;
    std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937(1));
    std::vector<int64_t> strided;
    for (size_t frame = 0; frame < count; frame += 7)
        strided.push_back(static_cast<int64_t>(frame));
    return {forward, reverse, shuffled, strided};
}

class ReaderClip : public testing::Test {
protected:
    void openClip(const std::string& path, bool checksums) {
        reader = test::openReader(path, optionsFor(checksums));
        // A damaged stream has only one thread's pictures each time.
        expected = test::everyPictureOf(path, reader->index().isDamaged() ? 1 : 0);
        ASSERT_EQ(reader->frameCount(), static_cast<int64_t>(expected.size()));
    }

    static FrameReaderOptions optionsFor(bool checksums) {
        FrameReaderOptions options;
        options.checksums = checksums;
        return options;
    }

    void expectPictures(const std::vector<int64_t>& order) {
        for (const int64_t frame : order) {
            const auto picture = reader->readFrame(frame);
            ASSERT_EQ(picture.number, frame);
            ASSERT_EQ(hashOf(picture), expected[static_cast<size_t>(frame)].hash)
                << "frame " << frame << " shows another picture";
        }
    }

    void expectEveryOrder() {
        for (const auto& order : ordersOf(expected.size()))
            ASSERT_NO_FATAL_FAILURE(expectPictures(order));
    }

    void expectProvenPictures() {
        for (size_t frame = expected.size(); frame-- > 0;) {
            const auto picture = reader->readFrame(static_cast<int64_t>(frame));
            ASSERT_EQ(picture.reached, FrameReader::Reached::Proven);
            ASSERT_EQ(hashOf(picture), expected[frame].hash) << "frame " << frame;
        }
    }

    std::unique_ptr<FrameReader> reader;
    std::vector<test::OracleFrame> expected;
    test::LogCapture log;
    test::TemporaryFolder folder;
};

// ---- made clips ------------------------------------------------------------------------------

class MadeReaderClipTest : public ReaderClip, public testing::WithParamInterface<MadeClip> {
protected:
    void openMade(bool checksums) {
        const std::string path = folder.file("clip." + GetParam().extension);
        GetParam().make(path);
        openClip(path, checksums);
    }
};

using ProvenReaderClipTest = MadeReaderClipTest;

TEST_P(MadeReaderClipTest, GivesEveryPictureInEveryOrder) {
    ASSERT_NO_FATAL_FAILURE(openMade(false));
    expectEveryOrder();
}

TEST_P(ProvenReaderClipTest, ProvesEveryPicture) {
    ASSERT_NO_FATAL_FAILURE(openMade(true));
    expectProvenPictures();
}

// Times are those of the container, where it gives every picture one of its own.
TEST_P(MadeReaderClipTest, TellsTheTimesOfTheContainer) {
    ASSERT_NO_FATAL_FAILURE(openMade(false));
    for (size_t frame = 0; frame < expected.size(); ++frame) {
        if (expected[frame].pts == AV_NOPTS_VALUE)
            continue;
        const auto time = expected[frame].time();
        const Rational told = reader->frameTime(static_cast<int64_t>(frame));
        ASSERT_EQ(told, Rational(time.numerator, time.denominator)) << "frame " << frame;
    }
}

std::string nameOf(const testing::TestParamInfo<MadeClip>& info) {
    return info.param.name;
}

/// What lies about its key packets is exact with checksums alone.
std::vector<MadeClip> withoutLies(std::vector<MadeClip> clips) {
    clips.erase(std::remove_if(clips.begin(), clips.end(),
                               [](const MadeClip& clip) { return clip.name == "LyingKeys"; }),
                clips.end());
    return clips;
}

INSTANTIATE_TEST_SUITE_P(Table, MadeReaderClipTest, testing::ValuesIn(test::madeClips()), nameOf);
INSTANTIATE_TEST_SUITE_P(Odd, MadeReaderClipTest,
                         testing::ValuesIn(withoutLies(test::readerClips())), nameOf);
INSTANTIATE_TEST_SUITE_P(Odd, ProvenReaderClipTest, testing::ValuesIn(test::readerClips()), nameOf);

// ---- real clips ------------------------------------------------------------------------------

class RealReaderClipTest : public ReaderClip, public testing::WithParamInterface<std::string> {
protected:
    void SetUp() override {
        const auto file = test::mediaFile("video/" + GetParam());
        if (!file)
            GTEST_SKIP() << test::mediaMissingMessage();
        path = file->string();
    }

    std::string path;
};

TEST_P(RealReaderClipTest, GivesEveryPictureInEveryOrder) {
    ASSERT_NO_FATAL_FAILURE(openClip(path, false));
    expectEveryOrder();
}

std::string nameOfReal(const testing::TestParamInfo<std::string>& info) {
    std::string name = info.param;
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return !std::isalnum(c); }, '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Media, RealReaderClipTest, testing::ValuesIn(test::readerRealClips()),
                         nameOfReal);

} // namespace
} // namespace tio::ffmpeg
