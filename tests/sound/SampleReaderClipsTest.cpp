#include "SoundClips.h"
#include "support/MediaFolder.h"
#include "support/SoundMaker.h"
#include "support/TemporaryFolder.h"

#include <TARN/videoio/SampleReader.h>

#include <cctype>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <random>

/// @file
/// The bits of every sample that SampleReader gives, in every order, against FFmpeg called
/// directly, over tables of made and of real clips.

namespace tio::ffmpeg {
namespace {

using test::OracleSound;
using test::SoundClip;

class SoundOfAClip : public testing::Test {
protected:
    void openClip(const std::string& path, bool checksums = false) {
        expected = test::oracleSound(path);
        SampleReaderOptions options;
        options.checksums = checksums;
        reader.emplace(path, options);
        if (expected.changesAt < 0) {
            ASSERT_EQ(reader->sampleCount(), expected.count());
        }
        ASSERT_EQ(reader->channelCount(), expected.channels);
        ASSERT_EQ(reader->sampleRate(), expected.rate);
    }

    void expectRange(int64_t first, int64_t count) {
        const auto samples = reader->readSamples(first, count);
        ASSERT_EQ(samples.rows(), count);
        ASSERT_EQ(samples.cols(), expected.channels);
        const size_t numbers = static_cast<size_t>(count) * static_cast<size_t>(expected.channels);
        const float* wanted = expected.samples.data() + first * expected.channels;
        for (size_t i = 0; i < numbers; ++i)
            // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison): every bit
            ASSERT_EQ(std::memcmp(samples.data() + i, wanted + i, sizeof(float)), 0)
                << "sample " << first + static_cast<int64_t>(i) / expected.channels
                << " of the range from " << first << " on is " << samples.data()[i] << " and not "
                << wanted[i];
    }

    void expectForward() {
        const int64_t total = expected.count();
        for (int64_t first = 0; first < total;) {
            const int64_t count = std::min<int64_t>(total - first, upTo(3001));
            expectRange(first, count);
            if (HasFatalFailure())
                return;
            first += count;
        }
    }

    void expectBackward(int blocks) {
        int64_t end = expected.count();
        for (; end > 0 && blocks > 0 && !HasFatalFailure(); --blocks) {
            const int64_t count = std::min<int64_t>(end, upTo(3001));
            expectRange(end - count, count);
            end -= count;
        }
    }

    void expectRandomRanges(int ranges) {
        const int64_t total = expected.count();
        for (; total > 0 && ranges > 0 && !HasFatalFailure(); --ranges) {
            const int64_t first = upTo(total) - 1;
            expectRange(first, std::min<int64_t>(total - first, upTo(5000)));
        }
    }

    int64_t upTo(int64_t most) {
        return std::uniform_int_distribution<int64_t>(1, most)(generator);
    }

    OracleSound expected;
    std::optional<SampleReader> reader;
    std::mt19937 generator{19};
};

/// Made with what those codecs draw at random only where it is asked for.
bool drawsAtRandom(const std::string& name) {
    return name.find("noise") != std::string::npos;
}

class MadeSound : public SoundOfAClip, public testing::WithParamInterface<SoundClip> {
protected:
    test::TemporaryFolder folder;
};

TEST_P(MadeSound, IsThatOfADecodingFromItsStartInEveryOrder) {
    if (!test::canMake(GetParam().plan))
        GTEST_SKIP() << "this FFmpeg cannot make " << GetParam().name;
    const std::string path = folder.file(GetParam().name);
    test::makeSound(path, GetParam().plan);
    openClip(path, drawsAtRandom(GetParam().name));
    if (HasFatalFailure())
        return;
    expectForward();
    expectRandomRanges(60);
    expectBackward(40);
}

std::string testName(std::string name) {
    for (char& letter : name)
        if (std::isalnum(static_cast<unsigned char>(letter)) == 0)
            letter = '_';
    return name;
}

INSTANTIATE_TEST_SUITE_P(Codecs, MadeSound, testing::ValuesIn(test::soundClips()),
                         [](const auto& clip) { return testName(clip.param.name); });

/// Names of the real files that have sound which FFmpeg decodes.
std::vector<std::string> realSound() {
    std::vector<std::string> names;
    for (const auto& row : test::readTruth())
        if (row.at("type") == "audio" && row.at("packets") != "0" &&
            row.at("file").rfind("broken/", 0) != 0)
            names.push_back(row.at("file"));
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

class RealSound : public SoundOfAClip, public testing::WithParamInterface<std::string> {};
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(RealSound);

// With checksums, because real clips have noise that is drawn at random.
TEST_P(RealSound, IsThatOfADecodingFromItsStartInEveryOrder) {
    openClip(test::mediaFile(GetParam())->string(), true);
    if (HasFatalFailure())
        return;
    expectForward();
    expectRandomRanges(30);
    expectBackward(20);
}

INSTANTIATE_TEST_SUITE_P(Files, RealSound, testing::ValuesIn(realSound()),
                         [](const auto& file) { return testName(file.param); });

} // namespace
} // namespace tio::ffmpeg
