#include "ReadImageFixture.h"
#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/Encoding.h"
#include "support/Expectations.h"
#include "support/Interception.h"
#include "support/LogCapture.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/ReadImage.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <system_error>
#include <vector>

namespace tio {
namespace {

using test::IsLogLine;
using test::thrownText;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

using test::motionJpeg;
using test::ReadImageTest;

TEST_F(ReadImageTest, AMissingFileIsNamedBehindTheSystemsWordsAndNotLogged) {
    const std::string path = folder.file("none.jpg");
    EXPECT_EQ(thrownText<ffmpeg::Exception>([&] { (void)readImage(path); }),
              std::generic_category().message(ENOENT) + ": " + path);
    EXPECT_THAT(log.lines(), Not(Contains(::testing::Field(&test::LogLine::logger, "root"))));
}

TEST_F(ReadImageTest, AnEmptyFileIsNamedWithThePlace) {
    const std::string path = write("empty.png", "");
    const std::string text = thrownText<ffmpeg::Exception>([&] { (void)readImage(path); });
    EXPECT_THAT(text, HasSubstr(path));
    EXPECT_EQ(text, "Invalid data found when processing input: " + path +
                        R"( @ ..\src\TARN\videoio\ReadImage:44)");
    EXPECT_THAT(log.lines(), Contains(IsLogLine("root", 5, text)));
}

class DamagedImage : public ReadImageTest {
protected:
    // What a failed reading says, and that the log has one line of it.
    std::string failureOf(const std::string& path) {
        const std::string text = thrownText<ffmpeg::Exception>([&] { (void)readImage(path); });
        EXPECT_THAT(log.lines(), Contains(IsLogLine("root", 5, text)));
        const auto lines = log.lines();
        EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                                [](const auto& line) { return line.logger == "root"; }),
                  1);
        return text;
    }
};

constexpr const char* invalidAt81 =
    R"(Invalid data found when processing input @ ..\src\TARN\videoio\ReadImage:81)";

TEST_F(DamagedImage, ATextFileNamedJpgIsInvalid) {
    EXPECT_EQ(failureOf(write("text.jpg", "Not a picture at all.\nReally not.\n")), invalidAt81);
}

TEST_F(DamagedImage, ATruncatedPngIsInvalid) {
    const std::string path = make("cut.png", {});
    test::truncateFile(path, 60);
    EXPECT_EQ(failureOf(path), invalidAt81);
}

TEST_F(DamagedImage, AFileThatEndsBeforeItsFirstPictureIsNamed) {
    const test::Interception intercepted;
    intercepted->av_read_frame.instead = [](AVFormatContext*, AVPacket*) { return AVERROR_EOF; };
    const std::string path = make("image.png", {});
    EXPECT_EQ(failureOf(path), "End of file: " + path + R"( @ ..\src\TARN\videoio\ReadImage:70)");
}

TEST_F(DamagedImage, AFileWhoseDecoderOnlyAsksForMoreIsNamed) {
    const test::Interception intercepted;
    intercepted->avcodec_receive_frame.instead = [](AVCodecContext*, AVFrame*) {
        return AVERROR(EAGAIN);
    };
    const std::string path = make("image.png", {});
    EXPECT_THAT(failureOf(path), StartsWith("End of file: " + path));
}

TEST_F(ReadImageTest, AClipThatBeginsWithSoundIsRefusedByName) {
    const std::string path = folder.file("sound.jpg");
    test::writePackets(path, "matroska",
                       {test::encodeTone(0.1, true), test::encodeVideo(motionJpeg())});
    const std::string message = "The first stream of " + path + " holds no pictures";
    EXPECT_EQ(thrownText<Exception>([&] { (void)readImage(path); }), message);
    EXPECT_THAT(log.linesAt(4), ElementsAre(message + R"( @ ..\src\TARN\videoio\ReadImage:52)",
                                            "Assertion failed: pictures"));
}

TEST_F(DamagedImage, ACodecThatNobodyKnowsFailsWhereItIsOpened) {
    const std::string path = folder.file("unknown.jpg");
    test::writePackets(path, "matroska", {test::encodeVideo(motionJpeg())});
    std::vector<uint8_t> bytes = test::readBytes(path);
    const std::string codec = "V_MJPEG";
    const auto place = std::search(bytes.begin(), bytes.end(), codec.begin(), codec.end());
    ASSERT_NE(place, bytes.end());
    place[2] = 'X';
    test::writeBytes(path, bytes);
    EXPECT_EQ(failureOf(path), R"(Invalid argument @ ..\src\TARN\videoio\ReadImage:58)");
}

struct FailingCall {
    int number;
    std::function<void(test::Calls&)> set;
};

class FailingRead : public DamagedImage, public ::testing::WithParamInterface<FailingCall> {};

TEST_P(FailingRead, ThrowsFfmpegsWordsAndThePlace) {
    const test::Interception intercepted;
    const std::string path = make("image.png", {});
    GetParam().set(test::calls());
    EXPECT_EQ(failureOf(path), "Invalid argument @ ..\\src\\TARN\\videoio\\ReadImage:" +
                                   std::to_string(GetParam().number));
}

const auto fails = [](auto&&...) { return AVERROR(EINVAL); };

INSTANTIATE_TEST_SUITE_P(
    Calls, FailingRead,
    ::testing::Values(
        FailingCall{48, [](test::Calls& c) { c.avformat_find_stream_info.instead = fails; }},
        FailingCall{58, [](test::Calls& c) { c.avcodec_open2.instead = fails; }},
        FailingCall{81, [](test::Calls& c) { c.avcodec_send_packet.instead = fails; }},
        FailingCall{91, [](test::Calls& c) { c.avcodec_receive_frame.instead = fails; }}),
    [](const auto& call) { return "At" + std::to_string(call.param.number); });

class RefusedPacket : public ReadImageTest, public ::testing::WithParamInterface<int> {};

TEST_P(RefusedPacket, IsSentAgain) {
    const test::Interception intercepted;
    const std::string path = make("image.png", {});
    int refusals = 3;
    std::vector<const uint8_t*> sent;
    intercepted->avcodec_send_packet.instead = [&](AVCodecContext* codec, const AVPacket* packet) {
        sent.push_back(packet->data);
        return refusals-- > 0 ? GetParam() : test::real::sendPacket(codec, packet);
    };
    EXPECT_EQ(readImage(path).rows(), 21);
    ASSERT_EQ(sent.size(), 4u);
    EXPECT_THAT(sent, ::testing::Each(sent.front()));
}

TEST_P(RefusedPacket, IsNotSentForEver) {
    const test::Interception intercepted;
    const std::string path = make("image.png", {});
    intercepted->avcodec_send_packet.instead = [](AVCodecContext*, const AVPacket*) {
        return GetParam();
    };
    EXPECT_THAT(thrownText<ffmpeg::Exception>([&] { (void)readImage(path); }),
                HasSubstr(R"( @ ..\src\TARN\videoio\ReadImage:81)"));
}

INSTANTIATE_TEST_SUITE_P(Codes, RefusedPacket, ::testing::Values(AVERROR(EAGAIN), AVERROR_EOF));

} // namespace
} // namespace tio
