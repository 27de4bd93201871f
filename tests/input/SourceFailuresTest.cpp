#include "SourceFixture.h"
#include "support/ScriptedStream.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/InputStream.h>
#include <TARN/videoio/Source.h>

#include <algorithm>
#include <array>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <stdexcept>
#include <system_error>

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
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

using Kind = EndReason::Kind;

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
