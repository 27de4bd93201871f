#include "InputFormatContextFixture.h"
#include "support/ClipMaker.h"
#include "support/Expectations.h"
#include "support/Mp4Edits.h"
#include "support/Oracle.h"

#include <TARN/videoio/Exception.h>
#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/Stream.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::ClipPlan;
using test::InputFormatContextTest;
using test::IsFraction;
using test::IsLogLine;
using test::placeOf;
using test::thrownText;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int64_t noTime = AV_NOPTS_VALUE;

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

} // namespace
} // namespace tio::ffmpeg
