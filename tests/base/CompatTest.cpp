#include "ffmpeg_compat.h"
#include "support/BareObjects.h"
#include "support/ClipMaker.h"
#include "support/Mp4Edits.h"
#include "support/TemporaryFolder.h"

#include <array>
#include <cmath>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::BareContext;
using test::InputPointer;
using ::testing::ElementsAreArray;

using Matrix = std::array<int32_t, 9>;

constexpr int32_t one = 1 << 16;  // 16.16 fixed point
constexpr int32_t unit = 1 << 30; // 2.30, in the last column
const std::string noTag = "(none)";

std::string rotateTag(const AVStream& stream) {
    const AVDictionaryEntry* tag = av_dict_get(stream.metadata, "rotate", nullptr, 0);
    return tag != nullptr ? tag->value : noTag;
}

void giveMatrix(AVStream& stream, const Matrix& matrix, int bytes = sizeof(Matrix)) {
#if TARN_FFMPEG_HAS_CODED_SIDE_DATA
    AVCodecParameters& owner = *stream.codecpar;
    AVPacketSideData* data =
        av_packet_side_data_new(&owner.coded_side_data, &owner.nb_coded_side_data,
                                AV_PKT_DATA_DISPLAYMATRIX, static_cast<size_t>(bytes), 0);
    uint8_t* target = test::checkFound(data, "side data")->data;
#else
    uint8_t* target = test::checkFound(
        av_stream_new_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX,
                                static_cast<decltype(AVPacketSideData::size)>(bytes)),
        "side data");
#endif
    std::memcpy(target, matrix.data(), static_cast<size_t>(bytes));
}

// A context as a demuxer of that name has it, with one stream and a quarter turn.
class TurnedStream {
public:
    explicit TurnedStream(const char* demuxer) {
        (*context).iformat = test::checkFound(av_find_input_format(demuxer), demuxer);
        giveMatrix(context.stream(), {0, one, 0, -one, 0, 0, 0, 0, unit});
    }

    void setTag(const char* key, const char* value) const {
        av_dict_set(&context.stream().metadata, key, value, 0);
    }

    [[nodiscard]] std::string restoredTag() const {
        test::check(compat::restoreRotateTags(*context), "rotate tags");
        return rotateTag(context.stream());
    }

private:
    BareContext context;
};

// One clip whose display matrix each test sets.
class Mp4MatrixTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        folder = std::make_unique<test::TemporaryFolder>();
        test::ClipPlan plan;
        plan.frameCount = 2;
        test::makeClip(path(), plan);
    }
    static void TearDownTestSuite() { folder.reset(); }

    static std::string path() { return folder->file("clip.mp4"); }

    static InputPointer openWith(const Matrix& matrix) {
        test::patchTkhdMatrix(path(), matrix);
        AVFormatContext* opened = nullptr;
        test::check(avformat_open_input(&opened, path().c_str(), nullptr, nullptr), "opening");
        return InputPointer(opened);
    }

    static std::string restoredTag(const Matrix& matrix) {
        const InputPointer input = openWith(matrix);
        test::check(compat::restoreRotateTags(*input), "rotate tags");
        return rotateTag(*input->streams[0]);
    }

private:
    static std::unique_ptr<test::TemporaryFolder> folder;
};

std::unique_ptr<test::TemporaryFolder> Mp4MatrixTest::folder;

Matrix linear(int32_t a, int32_t b, int32_t c, int32_t d) {
    return {a, b, 0, c, d, 0, 0, 0, unit};
}

TEST_F(Mp4MatrixTest, QuarterTurnsBecomeTagsInDegreesClockwise) {
    EXPECT_EQ(restoredTag(linear(0, one, -one, 0)), "90");
    EXPECT_EQ(restoredTag(linear(-one, 0, 0, -one)), "180");
    EXPECT_EQ(restoredTag(linear(0, -one, one, 0)), "270");
}

TEST_F(Mp4MatrixTest, FlipsBecomeTheTurnOfTheirFirstRow) {
    EXPECT_EQ(restoredTag(linear(-one, 0, 0, one)), "180");
    EXPECT_EQ(restoredTag(linear(one, 0, 0, -one)), "0");
    EXPECT_EQ(restoredTag(linear(0, one, one, 0)), "90");
    EXPECT_EQ(restoredTag(linear(0, -one, -one, 0)), "270");
}

TEST_F(Mp4MatrixTest, ScalingAndShiftingTurnNothing) {
    EXPECT_EQ(restoredTag(linear(2 * one, 0, 0, 2 * one)), "0");
    EXPECT_EQ(restoredTag(linear(one, 0, 0, one / 2)), "0");
    EXPECT_EQ(restoredTag({one, 0, 0, 0, one, 0, 5 * one, 7 * one, unit}), "0");
}

TEST_F(Mp4MatrixTest, OtherAnglesAreWrittenInTheShortestForm) {
    const auto eighth = static_cast<int32_t>(std::lround(one * std::sqrt(0.5)));
    EXPECT_EQ(restoredTag(linear(eighth, eighth, -eighth, eighth)), "45");
    EXPECT_EQ(restoredTag(linear(eighth, -eighth, eighth, eighth)), "315");
    // atan2(1, 2) is 26.565051… degrees: six digits remain.
    EXPECT_EQ(restoredTag(linear(2 * one, one, -one, 2 * one)), "26.5651");
}

TEST_F(Mp4MatrixTest, AnUnturnedPictureGetsNoTag) {
    EXPECT_EQ(restoredTag(linear(one, 0, 0, one)), noTag);
}

TEST_F(Mp4MatrixTest, AMatrixWithoutAnyScaleGetsNoTag) {
    EXPECT_EQ(restoredTag(linear(0, 0, 0, 0)), noTag);
}

TEST_F(Mp4MatrixTest, TheMatrixIsTheOneOfTheFile) {
    const Matrix matrix = {0, one, 0, -one, 0, 0, 64 * one, 0, unit};
    const InputPointer input = openWith(matrix);
    const int32_t* found = compat::displayMatrix(*input->streams[0]);
    ASSERT_NE(found, nullptr);
    EXPECT_THAT(std::vector<int32_t>(found, found + 9), ElementsAreArray(matrix));
}

TEST(CompatTest, AStreamWithoutAMatrixHasNone) {
    const BareContext context;
    EXPECT_EQ(compat::displayMatrix(context.stream()), nullptr);
}

TEST(CompatTest, ATruncatedMatrixIsNone) {
    const BareContext context;
    giveMatrix(context.stream(), {one, 0, 0, 0, one, 0, 0, 0, unit},
               8 * static_cast<int>(sizeof(int32_t)));
    EXPECT_EQ(compat::displayMatrix(context.stream()), nullptr);
}

TEST(CompatTest, ADroppedMatrixIsGoneFromCopiedParameters) {
    const BareContext context(2);
    giveMatrix(context.stream(0), linear(0, one, -one, 0));
    const AVStream& copy = context.stream(1);
    test::check(avcodec_parameters_copy(copy.codecpar, context.stream(0).codecpar), "copy");
    compat::dropDisplayMatrix(*copy.codecpar);
    EXPECT_EQ(compat::displayMatrix(copy), nullptr);
    EXPECT_NE(compat::displayMatrix(context.stream(0)), nullptr);
}

TEST(CompatTest, ABlankPacketIsLikeANewOne) {
    AVPacket packet;
    std::memset(&packet, 0xA5, sizeof packet);
    compat::makeBlank(packet);
    const test::PacketPointer fresh(test::checkFound(av_packet_alloc(), "packet"));
    EXPECT_EQ(packet.data, nullptr);
    EXPECT_EQ(packet.size, 0);
    EXPECT_EQ(packet.buf, nullptr);
    EXPECT_EQ(packet.pts, fresh->pts);
    EXPECT_EQ(packet.dts, fresh->dts);
    EXPECT_EQ(packet.pos, fresh->pos);
    EXPECT_EQ(packet.side_data_elems, 0);
}

TEST(CompatTest, ARotateTagOfTheFileGoesBeforeTheMatrix) {
    const TurnedStream turned("mov");
    turned.setTag("rotate", "180");
    EXPECT_EQ(turned.restoredTag(), "180");
}

TEST(CompatTest, RestoringTagsTwiceChangesNothing) {
    const TurnedStream turned("mov");
    EXPECT_EQ(turned.restoredTag(), "90");
    EXPECT_EQ(turned.restoredTag(), "90");
}

TEST(CompatTest, OnlyTheMp4DemuxerGetsTags) {
    for (const char* demuxer : {"matroska", "avi", "mpegts", "h264"})
        EXPECT_EQ(TurnedStream(demuxer).restoredTag(), noTag) << demuxer;
}

TEST(CompatTest, EveryStreamOfAnInputGetsItsOwnTag) {
    const BareContext context(3);
    (*context).iformat = av_find_input_format("mov");
    giveMatrix(context.stream(0), linear(0, one, -one, 0));
    giveMatrix(context.stream(2), linear(0, -one, one, 0));
    test::check(compat::restoreRotateTags(*context), "rotate tags");
    EXPECT_EQ(rotateTag(context.stream(0)), "90");
    EXPECT_EQ(rotateTag(context.stream(1)), noTag);
    EXPECT_EQ(rotateTag(context.stream(2)), "270");
}

TEST(CompatTest, AStreamIsProbedOnceItsCodecIsKnown) {
    const BareContext context;
    EXPECT_FALSE(compat::hasBeenProbed(context.stream()));
    context.stream().codecpar->codec_id = AV_CODEC_ID_H264;
    EXPECT_TRUE(compat::hasBeenProbed(context.stream()));
}

// Codec contexts, codec parameters and frames carry channels in the same way.
struct ChannelOwners {
    test::CodecPointer context{avcodec_alloc_context3(nullptr)};
    std::unique_ptr<AVCodecParameters, test::Close> parameters{avcodec_parameters_alloc()};
    test::FramePointer frame{av_frame_alloc()};

    template <typename Check>
    void forEach(Check&& check) const {
        check(*context);
        check(*parameters);
        check(*frame);
    }
};

TEST(CompatTest, ChannelsComeFromTheMaskThatWasSet) {
    ChannelOwners().forEach([](auto& owner) {
        compat::setChannelMask(owner, AV_CH_LAYOUT_5POINT1);
        EXPECT_EQ(compat::channelCount(owner), 6);
        EXPECT_EQ(compat::channelMask(owner), uint64_t{0x60F});
    });
}

TEST(CompatTest, AMaskReplacesTheOneBefore) {
    ChannelOwners().forEach([](auto& owner) {
        compat::setChannelMask(owner, AV_CH_LAYOUT_5POINT1);
        compat::setChannelMask(owner, AV_CH_LAYOUT_MONO);
        EXPECT_EQ(compat::channelCount(owner), 1);
        EXPECT_EQ(compat::channelMask(owner), uint64_t{4});
    });
}

TEST(CompatTest, AMaskOfNoSpeakersLeavesNoLayout) {
    ChannelOwners().forEach([](auto& owner) {
        compat::setChannelMask(owner, AV_CH_LAYOUT_STEREO);
        compat::setChannelMask(owner, 0);
        EXPECT_EQ(compat::channelCount(owner), 0);
        EXPECT_EQ(compat::channelMask(owner), 0u);
    });
}

TEST(CompatTest, MasksKeepTheirUpperHalf) {
    ChannelOwners().forEach([](auto& owner) {
        const uint64_t mask = (uint64_t{1} << 33) | 3;
        compat::setChannelMask(owner, mask);
        EXPECT_EQ(compat::channelCount(owner), 3);
        EXPECT_EQ(compat::channelMask(owner), mask);
    });
}

#if TARN_FFMPEG_HAS_CHANNEL_LAYOUT
TEST(CompatTest, ChannelsInAnOrderThatIsNoMaskAreCountedAndHaveNoMask) {
    ChannelOwners().forEach([](auto& owner) {
        owner.ch_layout.order = AV_CHANNEL_ORDER_UNSPEC;
        owner.ch_layout.nb_channels = 3;
        owner.ch_layout.u.mask = 7; // without meaning in this order
        EXPECT_EQ(compat::channelCount(owner), 3);
        EXPECT_EQ(compat::channelMask(owner), 0u);
    });
}
#endif

} // namespace
} // namespace tio::ffmpeg
