#include "OutputStreamFixture.h"
#include "support/Expectations.h"
#include "support/KeptPacket.h"
#include "support/Muxing.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/OutputStream.h>

#include <cstdint>
#include <deque>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <utility>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::IsFraction;
using test::OutputStreamTest;
using test::ownLines;
using test::thrownText;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(OutputStreamTest, AnnouncesItselfWhenMadeAndAddsItselfWithItsFirstPacket) {
    open();
    const auto first = makeStream();
    const auto second = makeStream();
    EXPECT_EQ(intercepted->avformat_new_stream.count, 0);
    first->writePacket(picture(1, 0));
    EXPECT_EQ(intercepted->avformat_new_stream.count, 1);
    EXPECT_FALSE(context->readyForPackets()) << "two were announced";
    second->writePacket(picture(2, 0));
    EXPECT_EQ(intercepted->avformat_new_stream.count, 2);
    EXPECT_TRUE(context->readyForPackets());
}

TEST_F(OutputStreamTest, TheHeaderIsWrittenBeforeTheFirstPacketIsHandedOn) {
    open();
    const auto stream = makeStream();
    bool ready = false;
    intercepted->av_interleaved_write_frame.instead = [&](AVFormatContext*, AVPacket* written) {
        ready = context->readyForPackets();
        av_packet_unref(written);
        return 0;
    };
    stream->writePacket(picture(1, 0));
    EXPECT_TRUE(ready);
}

TEST_F(OutputStreamTest, KeepsTheTimeBaseThatItWasGiven) {
    open();
    EXPECT_THAT(makeStream(Rational(1001, 30000))->getUnitTime(), IsFraction(1001, 30000));
}

TEST_F(OutputStreamTest, CannotBeMadeAfterTheHeader) {
    open();
    const auto stream = makeStream();
    stream->writePacket(picture(1, 0));
    EXPECT_EQ(thrownText<tio::Exception>([this] { makeStream(); }),
              "Streams must be made before the header of \"" + path + "\" is written");
}

TEST_F(OutputStreamTest, TheFirstPacketsParametersDecide) {
    open();
    const auto stream = makeStream();
    stream->writePacket(picture(1, 0));
    stream->writePacket(packet(2, 3600, test::videoParameters(640, 480)));
    EXPECT_EQ(intercepted->avformat_new_stream.count, 1);
    EXPECT_EQ(std::as_const(*stream).getStream()->codecpar->width, 96);
}

TEST_F(OutputStreamTest, RescalesFromThePacketsOwnTimeBaseWhateverTheStreamWasGiven) {
    test::MuxerRecord muxer;
    open();
    const auto stream = makeStream(Rational(1, 1000));
    auto timed = packet(1, 0, video, Rational(1, 25));
    timed.getPacket().duration = 2;
    stream->writePacket(timed);
    stream->writePacket(packet(2, 1, video, Rational(1, 25)));
    stream->writePacket(packet(3, 1, video, Rational(1001, 30000)));
    EXPECT_THAT(muxer.pts(), ElementsAre(0, 3600, 3003));
    EXPECT_THAT(muxer.dts(), ElementsAre(0, 3600, 3003));
    EXPECT_EQ(muxer.packets[0].duration, 7200);
}

TEST_F(OutputStreamTest, PacketsGoToTheirOwnStream) {
    test::MuxerRecord muxer;
    open();
    const auto sounds = makeStream(); // announced first, but added second
    const auto pictures = makeStream();
    pictures->writePacket(picture(1, 0));
    sounds->writePacket(sound(2, 0));
    pictures->writePacket(picture(3, 3600));
    EXPECT_THAT(muxer.marks(), ElementsAre(2, 1, 3));
    EXPECT_THAT(muxer.all(&test::MuxedPacket::stream), ElementsAre(1, 0, 0));
}

TEST_F(OutputStreamTest, LeavesThePacketAsItIs) {
    open();
    const auto stream = makeStream();
    const auto first = picture(1, 700);
    stream->writePacket(first);
    EXPECT_EQ(first.getPacket().pts, 700);
    EXPECT_EQ(first.getPacket().size, 1);
    EXPECT_THAT(first.getUnitTime(), IsFraction(1, 90000));
}

// Holding back

TEST_F(OutputStreamTest, PicturesWaitForTheHeaderAndSoundWaitsForThePictures) {
    test::MuxerRecord muxer;
    open();
    const auto pictures = makeStream();
    const auto sounds = makeStream();
    for (uint8_t i = 0; i < 3; ++i)
        pictures->writePacket(picture(static_cast<uint8_t>(10 + i), 3600 * i));
    EXPECT_EQ(intercepted->avformat_new_stream.count, 1);
    EXPECT_FALSE(std::filesystem::exists(path));
    sounds->writePacket(sound(20, 0));
    EXPECT_TRUE(context->readyForPackets());
    EXPECT_THAT(muxer.packets, IsEmpty()) << "the context does not know the time origin yet";
    pictures->writePacket(picture(13, 10800));
    EXPECT_THAT(muxer.marks(), ElementsAre(20, 10, 11, 12, 13));
}

TEST_F(OutputStreamTest, TheDestructorWritesWhatIsHeldInOrder) {
    test::MuxerRecord muxer;
    open();
    auto pictures = makeStream();
    const auto sounds = makeStream();
    pictures->writePacket(picture(10, 0));
    pictures->writePacket(picture(11, 3600));
    sounds->writePacket(sound(20, 0));
    EXPECT_THAT(muxer.packets, IsEmpty());
    pictures.reset();
    EXPECT_THAT(muxer.marks(), ElementsAre(20, 10, 11));
    EXPECT_THAT(ownLines(log), IsEmpty());
}

TEST_F(OutputStreamTest, HeldPacketsKeepTheirDataAndParametersOwnerAlive) {
    test::MuxerRecord muxer;
    open();
    const auto pictures = makeStream();
    const auto sounds = makeStream();
    std::weak_ptr<std::vector<uint8_t>> watched;
    {
        const auto bytes = std::make_shared<std::vector<uint8_t>>(4);
        watched = bytes;
        test::KeptPacket kept(picture(10, 0));
        kept.setKeepAlive(bytes);
        pictures->writePacket(kept);
    }
    EXPECT_FALSE(watched.expired());
    sounds->writePacket(sound(20, 0));
    pictures->writePacket(picture(11, 3600));
    EXPECT_TRUE(watched.expired()) << "nothing is kept once it is written";
    EXPECT_THAT(muxer.marks(), ElementsAre(20, 10, 11));
}

TEST_F(OutputStreamTest, TheTrailerFollowsTheLastStreamThatHoldsTheContext) {
    open();
    auto pictures = makeStream();
    pictures->writePacket(picture(10, 0));
    context.reset();
    EXPECT_EQ(intercepted->av_write_trailer.count, 0);
    pictures.reset();
    EXPECT_EQ(intercepted->av_write_trailer.count, 1);
}

// What is there for the other classes of the wing alone

#define IS_PUBLIC(name, call)                                                                      \
    template <typename T, typename = void>                                                         \
    struct name : std::false_type {};                                                              \
    template <typename T>                                                                          \
    struct name<T, std::void_t<decltype(call)>> : std::true_type {}

IS_PUBLIC(HasFailedIsPublic, std::declval<const T&>().hasFailed());
IS_PUBLIC(RethrowIsPublic, std::declval<const T&>().rethrowFailure());
IS_PUBLIC(LetGoIsPublic, std::declval<const T&>().letGo(1));
IS_PUBLIC(AdoptIsPublic, std::declval<T&>().adopt(0, std::deque<OutputPacket>()));
IS_PUBLIC(WriteLastIsPublic, std::declval<T&>().writeLast(std::vector<OutputPacket>()));
IS_PUBLIC(SetKeepAliveIsPublic, std::declval<T&>().setKeepAlive(nullptr));
IS_PUBLIC(AddStreamIsPublic, std::declval<T&>().addStream(nullptr));

TEST(WritingInterfaceTest, PlumbingIsNotPublic) {
    EXPECT_FALSE(HasFailedIsPublic<OutputFormatContext>::value);
    EXPECT_FALSE(RethrowIsPublic<OutputFormatContext>::value);
    EXPECT_FALSE(LetGoIsPublic<OutputFormatContext>::value);
    EXPECT_FALSE(AdoptIsPublic<OutputFormatContext>::value);
    EXPECT_FALSE(WriteLastIsPublic<OutputStream>::value);
    EXPECT_FALSE(SetKeepAliveIsPublic<OutputPacket>::value);
    EXPECT_TRUE(AddStreamIsPublic<OutputFormatContext>::value)
        << "the question can be answered yes";
}

} // namespace
} // namespace tio::ffmpeg
