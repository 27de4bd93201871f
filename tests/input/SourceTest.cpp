#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/Demuxing.h"
#include "support/Expectations.h"
#include "support/LogCapture.h"
#include "support/ScriptedStream.h"
#include "support/TemporaryFolder.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/InputStream.h>
#include <TARN/videoio/Source.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

extern "C" {
#include <libavutil/error.h>
}

namespace tio::ffmpeg {
namespace {

using test::ClipPlan;
using test::scriptedSource;
using test::ScriptedStream;
using test::thrownText;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using Kind = EndReason::Kind;
using Bytes = std::vector<uint8_t>;

/// What an exception of the library says, and what it holds.
struct Failure {
    std::string text;
    int code = 0;
    std::string nested;
};

template <typename Call>
Failure failureOf(Call&& call) {
    try {
        call();
    } catch (const Exception& failure) {
        Failure told{failure.what(), failure.code(), {}};
        try {
            std::rethrow_if_nested(failure);
        } catch (const std::exception& nested) {
            told.nested = nested.what();
        } catch (...) {
            told.nested = "something else";
        }
        return told;
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
}

class SourceTest : public ::testing::Test {
protected:
    /// A clip that is far longer than what is read of it when it is opened, also under `path`.
    Bytes clip(const std::string& format = "mpegts") {
        static std::map<std::string, Bytes> made;
        path = folder.file("clip." + format);
        if (made.count(format) == 0)
            made[format] = makeClip(format);
        test::writeBytes(path, made[format]);
        return made[format];
    }

    [[nodiscard]] Bytes makeClip(const std::string& format) const {
        ClipPlan plan;
        plan.format = format;
        plan.frameCount = 100;
        plan.width = 384;
        plan.height = 256;
        plan.encoderOptions = {{"qp", "1"}};
        test::makeClip(path, plan);
        Bytes bytes = test::readBytes(path);
        EXPECT_GT(bytes.size(), 100000u) << "or FFmpeg has all of it from the start";
        return bytes;
    }

    OpenOptions littleProbing() {
        OpenOptions options;
        options.probeSize = 5000;
        return options;
    }

    /// The payloads of the first stream up to its end.
    static std::vector<Bytes> packetsOf(const Source& source) {
        InputStream stream(std::make_shared<InputFormatContext>(source), 0);
        std::vector<Bytes> packets;
        while (const auto packet = stream.getNextPacket()) {
            int size = 0;
            const unsigned char* data = packet->getData(size);
            packets.emplace_back(data, data + size);
        }
        return packets;
    }

    /// Opens a source and reads it to its end.
    static void readAll(const Source& source) { packetsOf(source); }

    test::TemporaryFolder folder;
    test::LogCapture log;
    std::string path;
};

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

// Streams that misbehave

struct Misdeed {
    const char* words;
    std::function<void(ScriptedStream::Script&)> commit;
};

const std::array<Misdeed, 8> misdeeds = {{
    {"the tape is torn",
     [](auto& script) {
         script.read = [](int64_t, int64_t, int64_t) -> int64_t {
             throw std::runtime_error("the tape is torn");
         };
     }},
    {"the stream threw something unknown",
     [](auto& script) { script.read = [](int64_t, int64_t, int64_t) -> int64_t { throw 5; }; }},
    {"the stream gave -3 bytes",
     [](auto& script) { script.read = [](int64_t, int64_t, int64_t) { return int64_t{-3}; }; }},
    {"bytes where",
     [](auto& script) { script.read = [](int64_t, int64_t count, int64_t) { return count + 1; }; }},
    {"the stream ended at byte",
     [](auto& script) { script.size = [](int64_t honest) { return honest + 1000; }; }},
    {"the stream goes on after its size of 1000 bytes",
     [](auto& script) { script.size = [](int64_t) { return int64_t{1000}; }; }},
    {"its size is -7 bytes",
     [](auto& script) { script.size = [](int64_t) { return int64_t{-7}; }; }},
    {"no size",
     [](auto& script) {
         script.size = [](int64_t) -> int64_t { throw std::runtime_error("no size"); };
     }},
}};

TEST_F(SourceTest, EveryMisdeedEndsInAnExceptionThatNamesTheSource) {
    for (const char* format : {"mpegts", "mp4", "matroska", "avi", "h264"}) {
        const Bytes bytes = clip(format);
        for (const Misdeed& misdeed : misdeeds) {
            ScriptedStream::Script script{bytes, {}, {}, {}};
            misdeed.commit(script);
            const Failure failure = failureOf([&] { readAll(scriptedSource(script)); });
            EXPECT_THAT(failure.text, AllOf(StartsWith("Reading \"scripted clip\" failed: "),
                                            HasSubstr(misdeed.words)))
                << format;
            EXPECT_LT(failure.code, 0);
        }
    }
}

TEST_F(SourceTest, AStreamThatFailsAnywhereEndsInAnException) {
    for (const char* format : {"mpegts", "mp4", "matroska"}) {
        const Bytes bytes = clip(format);
        const auto end = static_cast<int64_t>(bytes.size());
        for (int64_t limit = 0; limit < end; limit += end / 23) {
            const auto torn = [limit](int64_t position, int64_t, int64_t honest) {
                if (position + honest > limit)
                    throw std::runtime_error("torn");
                return std::min<int64_t>(honest, 1000);
            };
            const Failure failure = failureOf([&] {
                readAll(scriptedSource({bytes, torn, {}, {}}, littleProbing()));
            });
            EXPECT_EQ(failure.text, "Reading \"scripted clip\" failed: torn") << format << limit;
            EXPECT_EQ(failure.nested, "torn");
        }
    }
}

TEST_F(SourceTest, ASeekThatFailsEndsInAnException) {
    const auto stuck = [](int64_t) { throw std::runtime_error("stuck"); };
    for (const char* format : {"mp4", "matroska", "mov"}) { // their indices stand at the end
        const Failure failure = failureOf([&] {
            InputStream stream(
                std::make_shared<InputFormatContext>(scriptedSource({clip(format), {}, stuck, {}})),
                0);
            static_cast<void>(stream.seekToOrBefore(80));
        });
        EXPECT_EQ(failure.text, "Reading \"scripted clip\" failed: stuck") << format;
    }
}

TEST_F(SourceTest, ShortReadsDoNoHarm) {
    for (const char* format : {"mpegts", "mp4"}) {
        const auto mean = [](int64_t position, int64_t, int64_t honest) {
            return std::min<int64_t>(honest, 1 + position % 7);
        };
        EXPECT_EQ(packetsOf(scriptedSource({clip(format), mean, {}, {}})).size(), 100u);
    }
}

TEST_F(SourceTest, AnUnknownSizeDoesNoHarm) {
    const auto unknown = [](int64_t) { return ByteStream::unknownSize; };
    for (const char* format : {"mpegts", "mp4", "matroska"})
        EXPECT_EQ(packetsOf(scriptedSource({clip(format), {}, {}, unknown})).size(), 100u);
}

TEST_F(SourceTest, AFailureIsToldOnceInOneLine) {
    auto torn = std::make_shared<bool>(false);
    const auto reading = [torn](int64_t, int64_t, int64_t honest) {
        if (*torn)
            throw std::system_error(ECONNRESET, std::generic_category(), "tape");
        return std::min<int64_t>(honest, 2000);
    };
    InputStream stream(std::make_shared<InputFormatContext>(
                           scriptedSource({clip(), reading, {}, {}}, littleProbing())),
                       0);
    *torn = true;
    const Failure failure = failureOf([&] {
        while (stream.getNextPacket() != nullptr) {
        }
    });
    EXPECT_EQ(failure.code, AVERROR(ECONNRESET));
    EXPECT_THAT(failure.text, HasSubstr("Connection reset by peer"));
    EXPECT_EQ(log.count("Reading \"scripted clip\" failed"), 1u);
    for (int i = 0; i < 1000; ++i)
        ASSERT_EQ(stream.getNextPacket(), nullptr);
    EXPECT_EQ(log.count("Reading \"scripted clip\" failed"), 1u);
}

TEST_F(SourceTest, AfterAFailureASeekAsksAgain) {
    const Bytes bytes = clip();
    auto torn = std::make_shared<bool>(false);
    const auto reading = [torn](int64_t, int64_t, int64_t honest) {
        if (*torn)
            throw std::runtime_error("torn");
        return std::min<int64_t>(honest, 2000);
    };
    auto input = std::make_shared<InputFormatContext>(
        scriptedSource({bytes, reading, {}, {}}, littleProbing()));
    InputStream stream(input, 0);
    *torn = true;
    EXPECT_THROW(while (stream.getNextPacket() != nullptr){}, Exception);
    EXPECT_EQ(input->getEndReason().kind, Kind::Error);
    *torn = false;
    EXPECT_EQ(stream.getFrameCount(), 100);
}

// What was read of an index before would be taken for the whole.
TEST_F(SourceTest, AnIndexThatFailedInItsMiddleIsMadeAgain) {
    const Bytes bytes = clip();
    auto limit = std::make_shared<int64_t>(static_cast<int64_t>(bytes.size()));
    const auto torn = [limit](int64_t position, int64_t, int64_t honest) {
        if (position > *limit)
            throw std::runtime_error("torn");
        return std::min<int64_t>(honest, 2000);
    };
    const InputStream stream(std::make_shared<InputFormatContext>(
                                 scriptedSource({bytes, torn, {}, {}}, littleProbing())),
                             0);
    *limit /= 2;
    EXPECT_THROW(static_cast<void>(stream.getFrameCount()), Exception);
    *limit *= 3;
    EXPECT_EQ(stream.getFrameCount(), 100);
}

TEST_F(SourceTest, AFactoryThatFailsIsToldWithTheSource) {
    const Source throwing = Source::streams(
        []() -> std::unique_ptr<ByteStream> {
            throw std::system_error(ENOENT, std::generic_category());
        },
        "archive");
    const Failure failure = failureOf([&] { InputFormatContext{throwing}; });
    EXPECT_EQ(failure.text, "Reading \"archive\" failed: No such file or directory");
    EXPECT_EQ(failure.code, AVERROR(ENOENT));
    const Source empty = Source::streams([] { return nullptr; }, "archive");
    EXPECT_EQ(failureOf([&] { InputFormatContext{empty}; }).text,
              "Reading \"archive\" failed: its factory gave no stream");
}

TEST_F(SourceTest, MemoryThatRunsOutInAStreamStaysThat) {
    const auto greedy = [](int64_t, int64_t, int64_t) -> int64_t { throw std::bad_alloc(); };
    EXPECT_THROW(InputFormatContext(scriptedSource({clip(), greedy, {}, {}})), std::bad_alloc);
}

} // namespace
} // namespace tio::ffmpeg
