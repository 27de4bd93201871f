#include "InputFormatContextFixture.h"
#include "support/ByteEdits.h"
#include "support/Expectations.h"

#include <TARN/videoio/Exception.h>
#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/InputStream.h>
#include <TARN/videoio/PacketReader.h>
#include <TARN/videoio/Stream.h>

#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::InputFormatContextTest;
using test::IsLogLine;
using test::openDescriptorsOf;
using test::placeOf;
using test::thrownText;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// What the header says never throws.
static_assert(noexcept(std::declval<const InputFormatContext&>().hasVideoStream()) && noexcept(
    std::declval<const InputFormatContext&>()
        .hasAudioStream()) && noexcept(std::declval<const InputFormatContext&>()
                                           .getStreamCount()) && noexcept(std::declval<const InputFormatContext&>()
                                                                              .getCodecOfStream(
                                                                                  0)) && noexcept(std::declval<const InputFormatContext&>()
                                                                                                      .isPtsSeekable()) && noexcept(std::declval<Stream&>()
                                                                                                                                        .getStream()));
using ::testing::Pair;

static_assert(std::has_virtual_destructor_v<FormatContext> &&
              std::has_virtual_destructor_v<Stream>);

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
