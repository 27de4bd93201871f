#include "support/BareObjects.h"
#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/Encoding.h"
#include "support/Expectations.h"
#include "support/Interception.h"
#include "support/LogCapture.h"
#include "support/Mp4Edits.h"
#include "support/Oracle.h"
#include "support/PacketScript.h"
#include "support/TemporaryFolder.h"

#include <TARN/videoio/Exception.h>
#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/InputStream.h>
#include <TARN/videoio/PacketReader.h>
#include <TARN/videoio/Stream.h>

#include <array>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::ClipPlan;
using test::IsFraction;
using test::IsLogLine;
using test::thrownText;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::IsEmpty;
using ::testing::Pair;

static_assert(std::has_virtual_destructor_v<FormatContext> &&
              std::has_virtual_destructor_v<Stream>);

constexpr int64_t noTime = AV_NOPTS_VALUE;
constexpr int key = AV_PKT_FLAG_KEY;

std::string placeOf(int number) {
    return R"( @ ..\src\TARN\videoio\InputFormatContext:)" + std::to_string(number);
}

class InputFormatContextTest : public ::testing::Test {
protected:
    std::string clip(const std::string& name, ClipPlan plan = {}) {
        const std::string path = folder.file(name);
        plan.frameCount = 3;
        test::makeClip(path, plan);
        return path;
    }

    std::string clipIn(const std::string& format) {
        ClipPlan plan;
        plan.format = format;
        return clip("clip." + format, plan);
    }

    std::string clipWithSound() {
        ClipPlan plan;
        plan.audio = true;
        return clip("sound.mp4", plan);
    }

    std::string soundAlone() {
        const std::string path = folder.file("tone.mp4");
        test::writePackets(path, "mp4", {test::encodeTone(0.1, true)});
        return path;
    }

    // Answers what avformat_open_input was asked for, without opening anything.
    std::map<std::string, std::string> optionsFor(const std::string& url) {
        std::map<std::string, std::string> options;
        intercepted->avformat_open_input.instead = [&](AVFormatContext**, const char*,
                                                       AVDictionary** given) {
            const AVDictionaryEntry* entry = nullptr;
            while ((entry = av_dict_get(*given, "", entry, AV_DICT_IGNORE_SUFFIX)) != nullptr)
                options.emplace(entry->key, entry->value);
            return AVERROR_EOF;
        };
        EXPECT_THROW(InputFormatContext{url}, tio::ffmpeg::Exception);
        intercepted->avformat_open_input.instead = nullptr;
        return options;
    }

    test::TemporaryFolder folder;
    test::Interception intercepted;
    test::LogCapture log;
};

int openDescriptorsOf(const std::string& path) {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error; // the descriptor of this very listing
        if (std::filesystem::read_symlink(entry, error) == path)
            ++count;
    }
    return count;
}

using OpeningTest = InputFormatContextTest;

TEST_F(OpeningTest, AMissingFileIsToldWithItsNameAndNotLogged) {
    const std::string path = folder.file("missing.mp4");
    EXPECT_EQ(thrownText<tio::ffmpeg::Exception>([&] { InputFormatContext{path}; }),
              "No such file or directory: " + path);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(OpeningTest, AFolderIsAFileSystemErrorToo) {
    const std::string path = folder.path().string();
    EXPECT_EQ(thrownText<tio::ffmpeg::Exception>([&] { InputFormatContext{path}; }),
              "Is a directory: " + path);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(OpeningTest, AFileThatIsNoMediaIsToldAndLoggedWithItsPlace) {
    const std::string path = folder.file("noise.bin");
    test::writeBytes(path, std::vector<uint8_t>(4096, 0xA5));
    const std::string text = "Invalid data found when processing input: " + path + placeOf(60);
    EXPECT_EQ(thrownText<tio::ffmpeg::Exception>([&] { InputFormatContext{path}; }), text);
    EXPECT_THAT(log.linesAt(5), ElementsAre(text));
    EXPECT_TRUE(log.contains("root", 5, text));
    EXPECT_EQ(openDescriptorsOf(path), 0);
}

TEST_F(OpeningTest, UnknownStreamsAreToldAndLoggedWithTheirPlace) {
    const std::string path = clip("clip.mp4");
    AVFormatContext* left = nullptr;
    intercepted->avformat_find_stream_info.instead = [&left](AVFormatContext* context) {
        left = context;
        return AVERROR(ENOMEM);
    };
    const std::string text = "Cannot allocate memory: " + path + placeOf(65);
    EXPECT_EQ(thrownText<tio::ffmpeg::Exception>([&] { InputFormatContext{path}; }), text);
    EXPECT_THAT(log.lines(), ElementsAre(IsLogLine("root", 5, text)));
    EXPECT_EQ(openDescriptorsOf(path), 1) << "the constructor leaves the context as it is";
    avformat_close_input(&left);
}

TEST_F(OpeningTest, AnRtspUrlGetsABufferAndAsksForTcp) {
    EXPECT_THAT(optionsFor("rtsp://127.0.0.1/clip"),
                ElementsAre(Pair("buffer_size", "4194304"), Pair("rtsp_flags", "prefer_tcp")));
    EXPECT_EQ(optionsFor("rtsp://").size(), 2u);
}

TEST_F(OpeningTest, OtherUrlsGetNoOptions) {
    for (const char* url :
         {"RTSP://127.0.0.1/clip", "Rtsp://127.0.0.1/clip", "rtsps://127.0.0.1", "rtsp:/127.0.0.1",
          " rtsp://127.0.0.1", "file:rtsp://127.0.0.1", "rtsp", "", "clip.mp4"})
        EXPECT_THAT(optionsFor(url), IsEmpty()) << url;
}

TEST_F(OpeningTest, OpensExactlyTheGivenUrl) {
    std::string asked;
    intercepted->avformat_open_input.instead = [&](AVFormatContext**, const char* url,
                                                   AVDictionary**) {
        asked = url;
        return AVERROR_EOF;
    };
    EXPECT_EQ(
        thrownText<tio::ffmpeg::Exception>([] { InputFormatContext{"rtsp://127.0.0.1/a b"}; }),
        "End of file: rtsp://127.0.0.1/a b" + placeOf(60));
    EXPECT_EQ(asked, "rtsp://127.0.0.1/a b");
}

TEST_F(OpeningTest, KnowsTheUrlThatItOpened) {
    const std::string path = clip("clip.mp4");
    EXPECT_EQ(InputFormatContext(path).getUrl(), path);
}

TEST_F(OpeningTest, TheEndClosesTheFile) {
    const std::string path = clip("clip.mp4");
    {
        const InputFormatContext context(path);
        EXPECT_EQ(openDescriptorsOf(path), 1);
    }
    EXPECT_EQ(openDescriptorsOf(path), 0);
}

TEST_F(OpeningTest, ProbesTheStreamsOnce) {
    const InputFormatContext context(clip("clip.mp4"));
    EXPECT_EQ(intercepted->avformat_open_input.count, 1);
    EXPECT_EQ(intercepted->avformat_find_stream_info.count, 1);
}

TEST_F(OpeningTest, AStreamWithoutAContextIsRefused) {
    EXPECT_THROW(Stream(nullptr, 0), tio::Exception);
    EXPECT_THROW(InputStream(nullptr, 0), tio::Exception);
    EXPECT_THROW(PacketReader(nullptr, {0}), tio::Exception);
}

using StreamQueryTest = InputFormatContextTest;

TEST_F(StreamQueryTest, CountsStreams) {
    EXPECT_EQ(InputFormatContext(clip("clip.mp4")).getStreamCount(), 1);
    EXPECT_EQ(InputFormatContext(clipWithSound()).getStreamCount(), 2);
}

TEST_F(StreamQueryTest, FindsTheBestStreamOfEachKind) {
    const InputFormatContext context(clipWithSound());
    EXPECT_EQ(context.findBestVideoStreamIndex(), 0);
    EXPECT_EQ(context.findBestAudioStreamIndex(), 1);
    EXPECT_EQ(context.hasVideoStream(), 1);
    EXPECT_EQ(context.hasAudioStream(), 1);
}

TEST_F(StreamQueryTest, PrefersTheStreamThatFfmpegRatesBest) {
    const std::string path = folder.file("two.mp4");
    ClipPlan plan;
    plan.frameCount = 2;
    const test::Track track = test::encodeVideo(plan);
    test::writePackets(path, "mp4", {track, track});
    InputFormatContext context(path);
    context.getStream(0)->disposition = AV_DISPOSITION_VISUAL_IMPAIRED;
    context.getStream(1)->disposition = AV_DISPOSITION_DEFAULT;
    EXPECT_EQ(context.findBestVideoStreamIndex(), 1);
}

TEST_F(StreamQueryTest, AMissingKindIsToldAndLoggedWithItsPlace) {
    const std::string text =
        "Stream not found: Could not find stream of requested type" + placeOf(92);
    const InputFormatContext silent(clip("clip.mp4"));
    EXPECT_EQ(thrownText<tio::ffmpeg::Exception>([&] { (void)silent.findBestAudioStreamIndex(); }),
              text);
    const InputFormatContext dark(soundAlone());
    EXPECT_EQ(thrownText<tio::ffmpeg::Exception>([&] { (void)dark.findBestVideoStreamIndex(); }),
              text);
    EXPECT_THAT(log.lines(), ElementsAre(IsLogLine("root", 5, text), IsLogLine("root", 5, text)));
}

TEST_F(StreamQueryTest, AskingForAMissingKindIsQuiet) {
    EXPECT_EQ(InputFormatContext(clip("clip.mp4")).hasAudioStream(), 0);
    EXPECT_EQ(InputFormatContext(soundAlone()).hasVideoStream(), 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(StreamQueryTest, TellsTheContainer) {
    EXPECT_EQ(InputFormatContext(clipIn("mp4")).getContainerFormat(), Container::Mp4);
    EXPECT_EQ(InputFormatContext(clipIn("mov")).getContainerFormat(), Container::Mp4);
    EXPECT_EQ(InputFormatContext(clipIn("mpegts")).getContainerFormat(), Container::MpegTs);
    EXPECT_EQ(InputFormatContext(clipIn("matroska")).getContainerFormat(), Container::Unknown);
}

TEST_F(StreamQueryTest, TellsTheDemuxersName) {
    EXPECT_EQ(InputFormatContext(clipIn("mpegts")).getContainerName(), "mpegts");
    EXPECT_EQ(InputFormatContext(clipIn("mov")).getContainerName(),
              av_find_input_format("mp4")->name);
}

TEST_F(StreamQueryTest, TellsCodecs) {
    InputFormatContext context(clipWithSound());
    EXPECT_EQ(context.getCodecOfStream(0), Codec::H264);
    EXPECT_EQ(context.getCodecOfStream(1), Codec::Aac);
    EXPECT_EQ(context.getCodecNameOfStream(0), "h264");
    EXPECT_EQ(context.getCodecNameOfStream(1), "aac");
}

TEST_F(StreamQueryTest, NamesCodecsThatItDoesNotTellApart) {
    ClipPlan plan;
    plan.encoder = "mpeg4";
    InputFormatContext context(clip("clip.mp4", plan));
    EXPECT_EQ(context.getCodecOfStream(0), Codec::Unknown);
    EXPECT_EQ(context.getCodecNameOfStream(0), "mpeg4");
    context.getStream(0)->codecpar->codec_id = AV_CODEC_ID_NONE;
    EXPECT_EQ(context.getCodecNameOfStream(0), "none");
}

TEST_F(StreamQueryTest, GivesTheExtradataOfAStream) {
    const InputFormatContext context(clipWithSound());
    const AVCodecParameters& parameters = *context.getStream(0)->codecpar;
    const std::vector<unsigned char> extradata = context.getExtradataOfStream(0);
    ASSERT_GT(parameters.extradata_size, 0);
    EXPECT_THAT(extradata,
                ::testing::ElementsAreArray(parameters.extradata,
                                            static_cast<size_t>(parameters.extradata_size)));
}

TEST_F(StreamQueryTest, AStreamWithoutExtradataHasNone) {
    ClipPlan plan;
    plan.format = "avi";
    plan.encoder = "mjpeg";
    plan.pixelFormat = "yuvj420p";
    plan.maxBFrames = 0;
    EXPECT_TRUE(InputFormatContext(clip("clip.avi", plan)).getExtradataOfStream(0).empty());
}

TEST_F(StreamQueryTest, TellsKindsOfStreams) {
    InputFormatContext context(clipWithSound());
    EXPECT_EQ(context.getTypeOfStream(0), StreamType::Video);
    EXPECT_EQ(context.getTypeOfStream(1), StreamType::Audio);
    context.getStream(0)->codecpar->codec_type = AVMEDIA_TYPE_SUBTITLE;
    EXPECT_EQ(context.getTypeOfStream(0), StreamType::Subtitle);
}

TEST_F(StreamQueryTest, ReportsDurationsInReducedSeconds) {
    InputFormatContext context(clip("clip.mp4"));
    EXPECT_THAT(context.getDurationOfStream(0), IsFraction(3, 25)); // 3 pictures of 1/25 s
    EXPECT_TRUE(context.hasDurationOfStream(0));
    context.getStream(0)->duration = 3003;
    context.getStream(0)->time_base = {1, 90000};
    EXPECT_THAT(context.getDurationOfStream(0), IsFraction(1001, 30000));
    context.getStream(0)->time_base = {1001, 30000};
    EXPECT_THAT(context.getDurationOfStream(0), IsFraction(1002001, 10000));
}

TEST_F(StreamQueryTest, MultipliesAnUnknownDurationLikeAnyOther) {
    InputFormatContext context(clip("clip.mp4"));
    context.getStream(0)->duration = noTime;
    context.getStream(0)->time_base = {1, 90000};
    EXPECT_FALSE(context.hasDurationOfStream(0));
    // -2^63 / 90000, divided by the common factor 16.
    EXPECT_THAT(context.getDurationOfStream(0), IsFraction(-576460752303423488, 5625));
}

class ResolutionTest : public InputFormatContextTest {
protected:
    using Size = std::pair<int, int>;

    static constexpr Size untouched{-1, -2};
    static constexpr Size asStored{96, 64};
    static constexpr Size swapped{64, 96};

    Size sizeOf(int index) const {
        Size size = untouched;
        const bool known = context.getResolutionOfStream(index, size.first, size.second);
        EXPECT_EQ(known, size != untouched);
        return size;
    }

    Size sizeWithTag(const char* tag, const char* value) {
        AVStream& stream = *context.getStream(0);
        av_dict_free(&stream.metadata);
        av_dict_set(&stream.metadata, "language", "und", 0);
        av_dict_set(&stream.metadata, tag, value, 0);
        return sizeOf(0);
    }

    InputFormatContext context{clip("clip.mp4")};
};

TEST_F(ResolutionTest, IsTheStoredSizeWithoutATag) {
    EXPECT_EQ(sizeOf(0), asStored);
    av_dict_free(&context.getStream(0)->metadata);
    EXPECT_EQ(sizeOf(0), asStored);
}

TEST_F(ResolutionTest, SwapsItsSidesForExactlyTwoTags) {
    EXPECT_EQ(sizeWithTag("rotate", "90"), swapped);
    EXPECT_EQ(sizeWithTag("rotate", "270"), swapped);
}

TEST_F(ResolutionTest, KeepsItsSidesForAllOtherTags) {
    for (const char* value :
         {"-90", "-270", "180", "0", "90 ", " 90", "+90", "090", "90.0", "450", "9", "2700", ""})
        EXPECT_EQ(sizeWithTag("rotate", value), asStored) << value;
}

TEST_F(ResolutionTest, ComparesTheKeyOfTheTagByteForByte) {
    for (const char* tag : {"Rotate", "ROTATE", "rotate-eng", "rotat", "xrotate"})
        EXPECT_EQ(sizeWithTag(tag, "90"), asStored) << tag;
}

TEST_F(ResolutionTest, TakesTheFirstOfSeveralTags) {
    AVDictionary** metadata = &context.getStream(0)->metadata;
    av_dict_set(metadata, "Rotate", "90", AV_DICT_MULTIKEY);
    av_dict_set(metadata, "rotate", "180", AV_DICT_MULTIKEY);
    av_dict_set(metadata, "rotate", "90", AV_DICT_MULTIKEY);
    EXPECT_EQ(sizeOf(0), asStored);
}

TEST_F(ResolutionTest, IsUnknownForAStreamThatDoesNotExist) {
    EXPECT_EQ(sizeOf(-1), untouched);
    EXPECT_EQ(sizeOf(1), untouched);
    EXPECT_EQ(sizeOf(2147483647), untouched);
}

TEST_F(ResolutionTest, IsUnknownForAStreamThatWasNotProbed) {
    context.getStream(0)->codecpar->codec_id = AV_CODEC_ID_NONE;
    EXPECT_EQ(sizeOf(0), untouched);
}

class TurnedInputTest : public InputFormatContextTest {
protected:
    std::string turnedClip(const std::string& format, int degrees) {
        ClipPlan plan;
        plan.format = format;
        plan.rotation = degrees;
        return clip("turned." + format, plan);
    }

    static int widthOf(const InputFormatContext& context) {
        int width = 0;
        int height = 0;
        EXPECT_TRUE(context.getResolutionOfStream(0, width, height));
        return width;
    }
};

TEST_F(TurnedInputTest, AnMp4ThatWasHeldTurnedCarriesATag) {
    for (const std::string format : {"mp4", "mov"}) {
        for (const int degrees : {90, 180, 270}) {
            const InputFormatContext context(turnedClip(format, degrees));
            const AVStream* stream = context.getStream(0);
            const AVDictionaryEntry* tag = av_dict_get(stream->metadata, "rotate", nullptr, 0);
            ASSERT_NE(tag, nullptr) << format << " turned by " << degrees;
            EXPECT_EQ(tag->value, std::to_string(degrees));
            EXPECT_EQ(getStreamRotation(stream), degrees / 90);
            EXPECT_EQ(widthOf(context), degrees == 180 ? 96 : 64);
        }
    }
    EXPECT_THAT(log.linesAt(3), IsEmpty());
}

TEST_F(TurnedInputTest, AnUprightMp4CarriesNone) {
    const InputFormatContext context(clip("upright.mp4"));
    EXPECT_EQ(av_dict_get(context.getStream(0)->metadata, "rotate", nullptr, 0), nullptr);
    EXPECT_EQ(getStreamRotation(context.getStream(0)), 0);
}

TEST_F(TurnedInputTest, APictureTurnedByOtherAnglesStaysAsStoredAndIsLogged) {
    const std::string path = clip("odd.mp4");
    test::patchTkhdMatrix(path, {46341, 46341, 0, -46341, 46341, 0, 0, 0, 1 << 30});
    const InputFormatContext context(path);
    EXPECT_EQ(getStreamRotation(context.getStream(0)), 0);
    EXPECT_EQ(widthOf(context), 96);
    EXPECT_TRUE(log.contains(
        "root", 3, "Unable to parse video rotation metadata: \"45\". Assuming no rotation"));
}

TEST_F(TurnedInputTest, ATagThatTheDemuxerFoundGoesBeforeTheMatrix) {
    const std::string path = turnedClip("mp4", 90);
    intercepted->avformat_find_stream_info.instead = [](AVFormatContext* context) {
        return av_dict_set(&context->streams[0]->metadata, "rotate", "180", 0);
    };
    const InputFormatContext context(path);
    EXPECT_EQ(getStreamRotation(context.getStream(0)), 2);
    EXPECT_EQ(widthOf(context), 96);
}

class ReadingTest : public InputFormatContextTest {
protected:
    ReadingTest() {
        input.getStream(0)->time_base = {1, 1000};
        input.getStream(1)->time_base = {1, 90000};
    }

    // The pts of every packet of the stream, in the order of the input.
    std::vector<int64_t> readAll(int stream) {
        std::vector<int64_t> times;
        const test::PacketPointer packet(av_packet_alloc());
        while (input.getNextPacketForStream(packet.get(), stream)) {
            EXPECT_EQ(packet->stream_index, stream);
            times.push_back(packet->pts);
            av_packet_unref(packet.get());
        }
        return times;
    }

    InputFormatContext input{clipWithSound()};
};

TEST_F(ReadingTest, DeliversEveryPacketOfAFilesStream) {
    const auto expected = test::oraclePackets(folder.file("sound.mp4"));
    std::vector<int64_t> times;
    for (const test::OraclePacket& packet : expected)
        times.push_back(packet.pts);
    EXPECT_EQ(readAll(0), times);
}

TEST_F(ReadingTest, DropsPacketsOfOtherStreams) {
    test::PacketScript script({{1, 1, key, 4, 0}, {2, 2, key, 4, 1}, {3, 3, key, 4, 0}});
    EXPECT_THAT(readAll(0), ElementsAre(1, 3));
    EXPECT_THAT(readAll(1), IsEmpty()) << "they are not kept for later";
}

TEST_F(ReadingTest, PassesOverEmptyPackets) {
    test::PacketScript script({{1, 1, key, 0, 0}, {2, 2, key, 4, 0}, {3, 3, key, 0, 0}});
    EXPECT_THAT(readAll(0), ElementsAre(2));
}

TEST_F(ReadingTest, ReleasesWhatItPassesOver) {
    const test::PacketPointer foreign = test::makePacket({1});
    foreign->stream_index = 1;
    int reads = 0;
    intercepted->av_read_frame.instead = [&](AVFormatContext*, AVPacket* packet) {
        return ++reads == 1 ? av_packet_ref(packet, foreign.get()) : AVERROR_EOF;
    };
    const test::PacketPointer packet(av_packet_alloc());
    EXPECT_FALSE(input.getNextPacketForStream(packet.get(), 0));
    EXPECT_EQ(av_buffer_get_ref_count(foreign->buf), 1);
    EXPECT_EQ(packet->data, nullptr);
}

TEST_F(ReadingTest, ReadsNothingBeyondThePacketAskedFor) {
    test::PacketScript script({{1, 1, key, 4, 0}, {2, 2, key, 4, 0}});
    const test::PacketPointer packet(av_packet_alloc());
    EXPECT_TRUE(input.getNextPacketForStream(packet.get(), 0));
    EXPECT_EQ(script.packetsRead, 1);
}

TEST_F(ReadingTest, AFailureEndsTheInputQuietly) {
    intercepted->av_read_frame.instead = [](AVFormatContext*, AVPacket*) { return AVERROR(EIO); };
    EXPECT_THAT(readAll(0), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

using EarliestTimestampTest = ReadingTest;

TEST_F(EarliestTimestampTest, IsLaterThanAnyTimeBeforeTheFirstPacket) {
    EXPECT_THAT(input.getEarliestTimestamp(), IsFraction(2147483647, 1));
    test::PacketScript nothing({});
    readAll(0);
    EXPECT_THAT(input.getEarliestTimestamp(), IsFraction(2147483647, 1));
}

TEST_F(EarliestTimestampTest, IsTheSmallestTimeOfAnyStreamAndNeverGrows) {
    test::PacketScript script({{500, 0}, {400, 1}, {45000, 0, key, 4, 1}, {3003, 1, key, 4, 1}});
    const test::PacketPointer packet(av_packet_alloc());
    input.getNextPacketForStream(packet.get(), 0);
    EXPECT_THAT(input.getEarliestTimestamp(), IsFraction(1, 2));
    av_packet_unref(packet.get());
    input.getNextPacketForStream(packet.get(), 0);
    EXPECT_THAT(input.getEarliestTimestamp(), IsFraction(2, 5));
    av_packet_unref(packet.get());
    input.getNextPacketForStream(packet.get(), 1); // 1/2 s, later than the earliest
    EXPECT_THAT(input.getEarliestTimestamp(), IsFraction(2, 5));
    av_packet_unref(packet.get());
    EXPECT_FALSE(input.getNextPacketForStream(packet.get(), 0)); // only drops one of stream 1
    EXPECT_THAT(input.getEarliestTimestamp(), IsFraction(1001, 30000));
}

TEST_F(EarliestTimestampTest, CountsEmptyPacketsAndNegativeTimes) {
    test::PacketScript script({{-250, 0, key, 0, 0}});
    readAll(0);
    EXPECT_THAT(input.getEarliestTimestamp(), IsFraction(-1, 4));
}

TEST_F(EarliestTimestampTest, ReplacesZeroByANegativeTimeAndNotByZero) {
    test::PacketScript script({{0, 0}, {0, 0, key, 4, 1}, {-1, 1}});
    readAll(0);
    EXPECT_THAT(input.getEarliestTimestamp(), IsFraction(-1, 1000));
}

TEST_F(EarliestTimestampTest, TakesAnUnknownTimeAsTheSmallestThereIs) {
    test::PacketScript script({{0, 0}, {noTime, 1}});
    readAll(0);
    // -2^63 / 1000, divided by the common factor 8.
    EXPECT_THAT(input.getEarliestTimestamp(), IsFraction(-1152921504606846976, 125));
}

TEST_F(EarliestTimestampTest, AnUnknownTimeIsTheSmallestAtEveryTimeBase) {
    for (const AVRational base : {AVRational{1, 25}, {1, 30}, {1, 90000}, {1, 1000000}, {1, 3}}) {
        InputFormatContext fresh(clip("clip.mp4"));
        fresh.getStream(0)->time_base = base;
        test::PacketScript script({{0, 0}, {noTime, 1}, {-100, 2}});
        const test::PacketPointer packet(av_packet_alloc());
        while (fresh.getNextPacketForStream(packet.get(), 0))
            av_packet_unref(packet.get());
        const double expected = -9223372036854775808.0 * base.num / base.den;
        EXPECT_EQ(fresh.getEarliestTimestamp().toDouble(), expected) << base.num << "/" << base.den;
    }
}

TEST_F(EarliestTimestampTest, SurvivesASeek) {
    test::PacketScript script({{100, 0}, {200, 1}});
    readAll(0);
    input.seekStreamToOrBefore(1, 0);
    readAll(0);
    EXPECT_THAT(input.getEarliestTimestamp(), IsFraction(1, 10));
}

struct SeekCall {
    int stream;
    int64_t timestamp;
    int flags;
};

class SeekingTest : public InputFormatContextTest {
protected:
    // Records the seek and answers it with a result of FFmpeg.
    void answerSeeksWith(int result) {
        intercepted->av_seek_frame.instead = [this, result](AVFormatContext*, int stream,
                                                            int64_t timestamp, int flags) {
            seeks.push_back({stream, timestamp, flags});
            return result;
        };
    }

    static std::string seekFailureOf(InputFormatContext& context) {
        return thrownText<tio::ffmpeg::Exception>([&] { context.seekStreamToOrBefore(5, 0); });
    }

    std::vector<SeekCall> seeks;
};

TEST_F(SeekingTest, AsksTheDemuxerToGoToOrBeforeTheTicks) {
    InputFormatContext context(clipIn("mpegts"));
    answerSeeksWith(0);
    context.seekStreamToOrBefore(-9223372036854, 0);
    EXPECT_THAT(seeks, ElementsAre(AllOf(Field(&SeekCall::stream, 0),
                                         Field(&SeekCall::timestamp, -9223372036854),
                                         Field(&SeekCall::flags, AVSEEK_FLAG_BACKWARD))));
}

TEST_F(SeekingTest, PassesTheDemuxersSeekByPtsBitOn) {
    InputFormatContext context(clipWithSound());
    answerSeeksWith(1); // any result that is not negative
    context.seekStreamToOrBefore(48000, 1);
    EXPECT_THAT(seeks,
                ElementsAre(AllOf(Field(&SeekCall::stream, 1), Field(&SeekCall::timestamp, 48000),
                                  Field(&SeekCall::flags, 1 | 0x4000000))));
}

TEST_F(SeekingTest, LandsAtAKeyFrameAtOrBeforeTheTicks) {
    const std::string path = folder.file("groups.mp4");
    ClipPlan plan;
    plan.frameCount = 12;
    plan.gopSize = 4;
    plan.maxBFrames = 0;
    test::makeClip(path, plan);
    const auto packets = test::oraclePackets(path);
    InputFormatContext context(path);
    context.seekStreamToOrBefore(packets[6].pts, 0);
    const test::PacketPointer packet(av_packet_alloc());
    ASSERT_TRUE(context.getNextPacketForStream(packet.get(), 0));
    EXPECT_EQ(packet->pts, packets[4].pts);
}

TEST_F(SeekingTest, AFailureIsToldAndLoggedWithItsPlace) {
    InputFormatContext context(clip("clip.mp4"));
    answerSeeksWith(AVERROR_INVALIDDATA);
    const std::string text = "Invalid data found when processing input: Seeking" + placeOf(140);
    EXPECT_EQ(seekFailureOf(context), text);
    EXPECT_THAT(log.lines(), ElementsAre(IsLogLine("root", 5, text)));
}

TEST_F(SeekingTest, AnInputThatCannotSeekIsToldWithoutAPlace) {
    InputFormatContext context(clipIn("h264"));
    log.clear(); // FFmpeg remarks on raw streams while it opens them
    EXPECT_EQ(seekFailureOf(context), "Operation not permitted: Seeking");
    EXPECT_THAT(log.linesAt(5), IsEmpty());
}

TEST_F(SeekingTest, TellsWhetherTheDemuxerSeeksByPts) {
    EXPECT_TRUE(InputFormatContext(clipIn("mp4")).isPtsSeekable());
    EXPECT_TRUE(InputFormatContext(clipIn("mov")).isPtsSeekable());
    EXPECT_FALSE(InputFormatContext(clipIn("mpegts")).isPtsSeekable());
    EXPECT_FALSE(InputFormatContext(clipIn("matroska")).isPtsSeekable());
}

using StreamOfContextTest = InputFormatContextTest;

TEST_F(StreamOfContextTest, IsTheContextsStreamOfThatIndex) {
    auto context = std::make_shared<InputFormatContext>(clipWithSound());
    Stream stream(context, 1);
    EXPECT_EQ(stream.getStream(), context->getStream(1));
    EXPECT_EQ(std::as_const(stream).getStream(), std::as_const(*context).getStream(1));
    EXPECT_EQ(stream.getStream()->index, 1);
}

TEST_F(StreamOfContextTest, KeepsTheContextOpen) {
    const std::string path = clip("clip.mp4");
    auto context = std::make_shared<InputFormatContext>(path);
    {
        const Stream stream(std::move(context), 0);
        EXPECT_EQ(openDescriptorsOf(path), 1);
        EXPECT_EQ(stream.getStream()->codecpar->width, 96);
    }
    EXPECT_EQ(openDescriptorsOf(path), 0);
}

using InputFormatContextThreadsTest = InputFormatContextTest;

TEST_F(InputFormatContextThreadsTest, ContextsOfTheirOwnMayReadOneFileSideBySide) {
    const std::string path = clip("clip.mp4");
    std::array<int, 4> packetCounts{};
    std::vector<std::thread> threads;
    for (int& count : packetCounts)
        threads.emplace_back([&path, &count] {
            InputFormatContext context(path);
            const test::PacketPointer packet(av_packet_alloc());
            while (context.getNextPacketForStream(packet.get(), 0)) {
                ++count;
                av_packet_unref(packet.get());
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_THAT(packetCounts, ElementsAre(3, 3, 3, 3));
}

} // namespace
} // namespace tio::ffmpeg
