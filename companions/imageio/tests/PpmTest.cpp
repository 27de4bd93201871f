#include <TARN/core/Exception.h>
#include <TARN/imageio/ppm.h>

#include <cstddef>
#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <streambuf>
#include <string>
#include <sys/resource.h>
#include <vector>

using testing::ElementsAre;

namespace {

using Image = tio::Mat<tio::Vec<uint8_t, 3>, 2, tio::MatOptions<1, 1>>;

Image read(const std::string& bytes) {
    std::istringstream stream(bytes);
    return tio::readPpm(stream);
}

std::vector<int> samplesOf(const Image& image) {
    std::vector<int> samples;
    for (int i = 0; i < image.count; ++i)
        samples.insert(samples.end(), image.data()[i].begin(), image.data()[i].end());
    return samples;
}

std::string bytes(const std::vector<int>& values) {
    return {values.begin(), values.end()};
}

std::string failureOf(std::istream& stream) {
    try {
        (void)tio::readPpm(stream);
    } catch (const tio::Exception& failure) {
        return failure.what();
    }
    return "nothing was thrown";
}

TEST(ReadPpm, BinaryRowsFollowEachOtherFromTheTop) {
    const Image image = read(
        "P6\n2 3\n255\n" + bytes({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 255}));
    EXPECT_EQ(image.size, (tio::Vec<int, 2>(3, 2))) << "rows, then columns";
    EXPECT_EQ(image(0, 1), (tio::Vec<uint8_t, 3>(4, 5, 6)));
    EXPECT_EQ(image(2, 0), (tio::Vec<uint8_t, 3>(13, 14, 15)));
    EXPECT_EQ(image(2, 1), (tio::Vec<uint8_t, 3>(16, 17, 255)));
}

TEST(ReadPpm, PlainSamplesMayBeSpreadOverAnyLines) {
    EXPECT_THAT(samplesOf(read("P3 2 1 255 0 128\n255\n\n\t1\v2\f3")),
                ElementsAre(0, 128, 255, 1, 2, 3));
}

TEST(ReadPpm, PassesOverCommentsInTheHeader) {
    const Image image = read("P6#made by hand\n# 9 9\n1 # width\n#\n1\n255\n" + bytes({7, 8, 9}));
    EXPECT_THAT(samplesOf(image), ElementsAre(7, 8, 9));
}

TEST(ReadPpm, ACommentRightBehindTheMaximumEndsTheHeaderWithItsLine) {
    EXPECT_THAT(samplesOf(read("P6 1 1 255#end\n" + bytes({7, 8, 9}))), ElementsAre(7, 8, 9));
}

TEST(ReadPpm, PassesOverCommentsBetweenPlainSamples) {
    EXPECT_THAT(samplesOf(read("P3 1 1 255 7#red\n8 # green\n9")), ElementsAre(7, 8, 9));
}

TEST(ReadPpm, TakesLineEndsOfOtherSystems) {
    EXPECT_THAT(samplesOf(read("P3\r\n# comment\r\n1 1\r\n255\r\n7 8 9\r\n")),
                ElementsAre(7, 8, 9));
}

// One character, so that samples may look like blanks and comments.
TEST(ReadPpm, ExactlyOneBlankPrecedesBinarySamples) {
    EXPECT_THAT(samplesOf(read("P6 1 1 255\n\n #")), ElementsAre('\n', ' ', '#'));
}

struct Scaling {
    int highest;
    int sample;
    int expected; // sample × 255 / highest, rounded to nearest
};

class ScaledPpm : public testing::TestWithParam<Scaling> {};

TEST_P(ScaledPpm, PlainSamplesAreScaledAndRounded) {
    const std::string sample = " " + std::to_string(GetParam().sample);
    const Image image =
        read("P3 1 1 " + std::to_string(GetParam().highest) + sample + sample + sample);
    EXPECT_THAT(samplesOf(image), testing::Each(GetParam().expected));
}

TEST_P(ScaledPpm, BinarySamplesAreScaledAndRounded) {
    const auto [highest, sample, expected] = GetParam();
    const std::vector<int> one =
        highest > 255 ? std::vector<int>{sample / 256, sample % 256} : std::vector<int>{sample};
    const Image image =
        read("P6 1 1 " + std::to_string(highest) + "\n" + bytes(one) + bytes(one) + bytes(one));
    EXPECT_THAT(samplesOf(image), testing::Each(expected));
}

INSTANTIATE_TEST_SUITE_P(
    Maxima, ScaledPpm,
    testing::Values(Scaling{1, 0, 0}, Scaling{1, 1, 255}, Scaling{2, 1, 128}, // 127.5
                    Scaling{15, 7, 119},                                      // 119
                    Scaling{100, 33, 84},                                     // 84.15
                    Scaling{200, 3, 4},                                       // 3.825
                    Scaling{254, 1, 1},                                       // 1.004
                    Scaling{254, 254, 255}, Scaling{255, 254, 254}, Scaling{256, 256, 255},
                    Scaling{256, 1, 1}, Scaling{1023, 512, 128},        // 127.62
                    Scaling{65535, 65535, 255}, Scaling{65535, 128, 0}, // 0.498
                    Scaling{65535, 129, 1}));

TEST(ReadPpm, LeavesTheStreamAtTheNextImage) {
    std::istringstream stream("P6 1 1 255\n123P3 1 1 255 7 8 9 P6 1 1 255\n456");
    EXPECT_THAT(samplesOf(tio::readPpm(stream)), ElementsAre('1', '2', '3'));
    EXPECT_THAT(samplesOf(tio::readPpm(stream)), ElementsAre(7, 8, 9));
    EXPECT_THAT(samplesOf(tio::readPpm(stream)), ElementsAre('4', '5', '6'));
}

struct BadPpm {
    std::string bytes;
    std::string reason;
};

class RefusedPpm : public testing::TestWithParam<BadPpm> {};

TEST_P(RefusedPpm, IsRefusedWithAReason) {
    std::istringstream stream(GetParam().bytes);
    EXPECT_EQ(failureOf(stream), "PPM: " + GetParam().reason);
}

const std::string otherFormat = "the image begins with neither P6 nor P3";
const std::string breaksOff = "the image breaks off";

INSTANTIATE_TEST_SUITE_P(
    Files, RefusedPpm,
    testing::Values(BadPpm{"", otherFormat}, BadPpm{"P", otherFormat},
                    BadPpm{"p6 1 1 255\nabc", otherFormat}, BadPpm{"P5 1 1 255\na", otherFormat},
                    BadPpm{"P7\nWIDTH 1\n", otherFormat}, BadPpm{"\xff\xd8\xff\xe0", otherFormat},
                    BadPpm{"P6", breaksOff}, BadPpm{"P6 1", breaksOff}, BadPpm{"P6 1 1", breaksOff},
                    BadPpm{"P6 1 1 255", breaksOff}, BadPpm{"P6 1 1 255\nab", breaksOff},
                    BadPpm{"P6 1 1 256\nabcde", breaksOff}, BadPpm{"P3 1 1 255 1 2", breaksOff},
                    BadPpm{"P6 1 1 #255\n", breaksOff}, BadPpm{"P61 1 1 255\n", otherFormat},
                    BadPpm{"P6 x 1 255\nabc", "the width is not a number"},
                    BadPpm{"P6 1x 1 255\nabc", "the width is not a number"},
                    BadPpm{"P6 -1 1 255\nabc", "the width is not a number"},
                    BadPpm{"P6 1 1.5 255\nabc", "the height is not a number"},
                    BadPpm{"P6 1 1 2f5\nabc", "the maximum is not a number"},
                    BadPpm{"P3 1 1 255 1 2 -3", "the sample is not a number"},
                    BadPpm{"P6 0 1 255\n", "the image has no pixels"},
                    BadPpm{"P6 1 0 255\n", "the image has no pixels"},
                    BadPpm{"P6 1 1 0\nabc", "the maximum is 0"},
                    BadPpm{"P6 1 1 65536\nabcdef", "the maximum exceeds 65535"},
                    BadPpm{"P6 2147483648 1 255\n", "the width exceeds 2147483647"},
                    BadPpm{"P6 99999999999999999999 1 255\n", "the width exceeds 2147483647"},
                    BadPpm{"P6 65536 32768 255\n", "the image has too many pixels: 65536 x 32768"},
                    BadPpm{"P6 1 1 100\na\x65z", "a sample of 101 exceeds the maximum of 100"},
                    BadPpm{"P3 1 1 100 1 101 2", "a sample of 101 exceeds the maximum of 100"},
                    BadPpm{"P3 1 1 255 1 65536 2", "the sample exceeds 65535"}));

TEST(ReadPpm, AStreamThatDidNotOpenIsRefused) {
    std::istringstream stream("P6 1 1 255\nabc");
    stream.setstate(std::ios::failbit);
    EXPECT_EQ(failureOf(stream), "PPM: the stream cannot be read");
}

TEST(ReadPpm, AStreamThatThrowsAtItsEndFailsInTheSameWay) {
    std::istringstream stream("P6 1 1 255\nab");
    stream.exceptions(std::ios::eofbit | std::ios::failbit);
    EXPECT_EQ(failureOf(stream), "PPM: the image breaks off");
}

/// While it lives, the process cannot take much more memory than it has.
class MemoryLimit {
public:
    explicit MemoryLimit(rlim_t bytes) {
        getrlimit(RLIMIT_DATA, &before);
        const rlimit limited = {bytes, before.rlim_max};
        setrlimit(RLIMIT_DATA, &limited);
    }
    ~MemoryLimit() { setrlimit(RLIMIT_DATA, &before); }
    MemoryLimit(const MemoryLimit&) = delete;
    MemoryLimit& operator=(const MemoryLimit&) = delete;

private:
    rlimit before{};
};

// Two thousand million pixels of six bytes.
TEST(ReadPpm, MemoryForAnEmptyPromiseIsNotTaken) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizer takes more memory than the limit of this test";
#endif
    const MemoryLimit limit(rlim_t{256} << 20);
    std::istringstream binary("P6 46340 46340 65535\nabcdef");
    EXPECT_EQ(failureOf(binary), "PPM: the image breaks off");
    std::istringstream plain("P3 46340 46340 65535\n1 2 3");
    EXPECT_EQ(failureOf(plain), "PPM: the image breaks off");
}

} // namespace
