#include "SourceFixture.h"
#include "support/ByteEdits.h"
#include "support/Demuxing.h"
#include "support/Expectations.h"
#include "support/ScriptedStream.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/InputStream.h>
#include <TARN/videoio/Source.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>
#include <vector>

extern "C" {
#include <libavutil/error.h>
}

namespace tio::ffmpeg {
namespace {

using test::Bytes;
using test::Failure;
using test::failureOf;
using test::scriptedSource;
using test::ScriptedStream;
using test::SourceTest;
using test::thrownText;
using ::testing::HasSubstr;

using Kind = EndReason::Kind;

// Where bytes come from

TEST_F(SourceTest, MemoryAndStreamsGiveThePacketsOfTheFile) {
    for (const char* format : {"mp4", "mpegts", "matroska", "avi", "h264", "mov", "flv"}) {
        const Bytes bytes = clip(format);
        std::vector<Bytes> expected;
        test::VideoDemuxer demuxer(path);
        while (demuxer.readPacket())
            expected.emplace_back(demuxer.packet().data,
                                  demuxer.packet().data + demuxer.packet().size);
        ASSERT_EQ(expected.size(), 100u);
        const std::shared_ptr<const uint8_t> shared(std::make_shared<int>(), bytes.data());
        for (const Source& source :
             {Source(path), Source::memory(bytes), Source::memory(shared, bytes.size()),
              Source::borrowed(bytes.data(), bytes.size()), scriptedSource({bytes, {}, {}, {}})}) {
            EXPECT_TRUE(packetsOf(source) == expected) << format << " " << source.name();
        }
    }
}

TEST_F(SourceTest, SeeksInMemoryAndStreams) {
    const Bytes bytes = clip("mp4");
    InputStream fromFile(std::make_shared<InputFormatContext>(path), 0);
    const int64_t expected = fromFile.seekToOrBefore(70);
    const Rational time = fromFile.getNextPacket()->getPts();
    for (const Source& source : {Source::memory(bytes), scriptedSource({bytes, {}, {}, {}})}) {
        InputStream stream(std::make_shared<InputFormatContext>(source), 0);
        EXPECT_EQ(stream.seekToOrBefore(70), expected);
        EXPECT_EQ(stream.getNextPacket()->getPts(), time);
    }
}

TEST_F(SourceTest, MayBeOpenedSideBySideAndOutlived) {
    auto source = std::make_unique<Source>(Source::memory(clip()));
    InputFormatContext first(*source);
    InputFormatContext second(Source{*source});
    source.reset();
    InputStream one(std::make_shared<InputFormatContext>(Source(path)), 0);
    EXPECT_EQ(first.getStreamCount(), 1);
    EXPECT_EQ(second.getStreamCount(), 1);
}

TEST_F(SourceTest, SharedMemoryIsHeldAsLongAsItIsReadFrom) {
    auto kept = std::make_shared<Bytes>(clip());
    const std::weak_ptr<Bytes> watched = kept;
    auto source = std::make_unique<Source>(
        Source::memory(std::shared_ptr<const uint8_t>(kept, kept->data()), kept->size()));
    kept.reset();
    auto input = std::make_unique<InputFormatContext>(*source);
    source.reset();
    EXPECT_FALSE(watched.expired());
    InputStream stream(std::shared_ptr<InputFormatContext>(std::move(input)), 0);
    EXPECT_EQ(stream.getFrameCount(), 100);
}

TEST_F(SourceTest, TheStreamIsReleasedWithTheInput) {
    auto alive = std::make_shared<int>();
    const Bytes bytes = clip();
    {
        const auto script = std::make_shared<const ScriptedStream::Script>(ScriptedStream::Script{
            bytes, [alive](int64_t, int64_t, int64_t honest) { return honest; }, {}, {}});
        const Source source =
            Source::streams([script] { return std::make_unique<ScriptedStream>(script); }, "clip");
        const InputFormatContext input(source);
        EXPECT_GT(alive.use_count(), 1);
    }
    EXPECT_EQ(alive.use_count(), 1);
}

TEST_F(SourceTest, IsToldByItsName) {
    const Bytes bytes = clip();
    EXPECT_EQ(InputFormatContext(Source::memory(bytes, "upload 7")).getUrl(), "upload 7");
    EXPECT_EQ(InputFormatContext(Source(path)).getUrl(), path);
    EXPECT_EQ(Source(path.c_str()).name(), path);
    EXPECT_EQ(Source::memory(bytes).kind(), Source::Kind::Memory);
    EXPECT_EQ(scriptedSource({}).kind(), Source::Kind::Streams);
}

// A moved source would be one that crashes.
TEST_F(SourceTest, MovingOneLeavesItUsable) {
    Source source = Source::memory(clip());
    const Source taken = std::move(source);
    EXPECT_EQ(packetsOf(source).size(), 100u); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(packetsOf(taken).size(), 100u);
}

TEST_F(SourceTest, NothingIsRefusedAtOnce) {
    EXPECT_THROW(Source(static_cast<const char*>(nullptr)), tio::Exception);
    EXPECT_EQ(thrownText<tio::Exception>(
                  [] { static_cast<void>(Source::borrowed(nullptr, 3, "block")); }),
              "There is no memory for the source \"block\"");
    EXPECT_EQ(thrownText<tio::Exception>([] { static_cast<void>(Source::streams({}, "archive")); }),
              "There is no factory of streams for the source \"archive\"");
}

// Memory that is no clip

TEST_F(SourceTest, EmptyMemoryIsAnErrorWithItsName) {
    const Failure failure =
        failureOf([] { InputFormatContext(Source::memory(Bytes(), "nothing")); });
    EXPECT_THAT(failure.text, HasSubstr(": nothing"));
    EXPECT_LT(failure.code, 0);
    EXPECT_THAT(failureOf([] { InputFormatContext(Source::borrowed(nullptr, 0, "nothing")); }).text,
                HasSubstr(": nothing"));
}

TEST_F(SourceTest, ATruncatedClipInMemoryIsReadAsFarAsTheFile) {
    for (const char* format : {"mpegts", "mp4", "matroska"}) {
        Bytes bytes = clip(format);
        for (const size_t size :
             {bytes.size() - 1, bytes.size() / 2, bytes.size() / 10, size_t{40}}) {
            const Bytes part(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size));
            test::writeBytes(path, part);
            int expected = AVERROR_BUG;
            size_t packets = 0;
            try {
                packets = packetsOf(Source(path)).size();
            } catch (const Exception& failure) {
                expected = failure.code();
            }
            try {
                EXPECT_EQ(packetsOf(Source::memory(part)).size(), packets) << format << size;
            } catch (const Exception& failure) {
                EXPECT_EQ(failure.code(), expected) << format << size;
            }
        }
    }
}

TEST_F(SourceTest, WhatLiesInMemoryOpensNoFile) {
    clip("mpegts");
    const std::string list =
        "#EXTM3U\n#EXT-X-TARGETDURATION:9\n#EXTINF:4,\n" + path + "\n#EXT-X-ENDLIST\n";
    OpenOptions options;
    options.formatName = "hls";
    options.demuxerOptions = {{"allowed_extensions", "ALL"}};
    const Source source = Source::memory(Bytes(list.begin(), list.end()), "list", options);
    EXPECT_THAT(failureOf([&] { InputFormatContext{source}; }).text, HasSubstr("list"));
}

// These demuxers open what they are told of by themselves, without asking the one that opened them.
TEST_F(SourceTest, AListInMemoryOpensNoFile) {
    clip("mpegts");
    const auto place = path.substr(0, path.rfind('/') + 1);
    const std::string list = "ffconcat version 1.0\nfile '" + path.substr(place.size()) + "'\n";
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(place);
    EXPECT_THROW(InputFormatContext{Source::memory(Bytes(list.begin(), list.end()))},
                 tio::Exception);
    std::filesystem::current_path(before);
}

TEST_F(SourceTest, TheNameDoesNotDecideWhatTheBytesAre) {
    const Bytes bytes = clip();
    for (const char* name : {"a%03d.jpg", "clip.h264", "rtsp://camera/1", "", "list.m3u8"})
        EXPECT_EQ(InputFormatContext(Source::memory(bytes, name)).getContainerName(), "mpegts");
}

// Options

TEST_F(SourceTest, OptionsHoldForMemory) {
    OpenOptions options;
    options.formatName = "h264";
    EXPECT_EQ(InputFormatContext(Source::memory(clip("h264"), "raw", options)).getContainerName(),
              "h264");
    options.demuxerOptions["no_such_option"] = "1";
    EXPECT_EQ(thrownText<tio::Exception>(
                  [&] { InputFormatContext(Source::memory(Bytes(64), "raw", options)); }),
              "There is no option \"no_such_option\" for raw");
}

TEST_F(SourceTest, AnEndlessStreamEndsWithTheTimeLimit) {
    OpenOptions options;
    options.openTimeout = std::chrono::milliseconds(50);
    options.formatName = "mpegts";
    const Source source = scriptedSource({{},
                                          [](int64_t, int64_t count, int64_t) { return count; },
                                          {},
                                          [](int64_t) { return ByteStream::unknownSize; }},
                                         options);
    const Failure failure = failureOf([&] { InputFormatContext{source}; });
    EXPECT_EQ(failure.text, "Opening took longer than 50 ms: scripted clip");
    EXPECT_EQ(failure.code, AVERROR(ETIMEDOUT));
}

TEST_F(SourceTest, CancellingEndsTheOpeningOfAStream) {
    OpenOptions options;
    const CancelToken token = options.cancelToken;
    const Source source = scriptedSource({clip(),
                                          [token](int64_t, int64_t, int64_t honest) {
                                              token.cancel();
                                              return std::min<int64_t>(honest, 188);
                                          },
                                          {},
                                          {}},
                                         options);
    try {
        InputFormatContext input(source);
        FAIL();
    } catch (const Exception& failure) {
        EXPECT_STREQ(failure.what(), "Opening was cancelled: scripted clip");
        EXPECT_TRUE(failure.isCancelled());
        EXPECT_FALSE(failure.isTimeout());
    }
}

} // namespace
} // namespace tio::ffmpeg
