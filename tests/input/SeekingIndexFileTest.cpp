#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/Interception.h"
#include "support/LogCapture.h"
#include "support/PacketScript.h"
#include "support/TemporaryFolder.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/InputStream.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace tio::ffmpeg {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class SeekingIndexFileTest : public ::testing::Test {
protected:
    SeekingIndexFileTest() {
        test::ClipPlan plan;
        plan.format = "mpegts"; // sought by dts, so the distance from dts to pts matters
        test::makeClip(clip, plan);
    }

    std::unique_ptr<InputStream> open() {
        return std::make_unique<InputStream>(std::make_shared<InputFormatContext>(clip), 0);
    }

    void writeIndex(const std::vector<int64_t>& values) {
        std::vector<uint8_t> bytes(values.size() * sizeof(int64_t));
        std::memcpy(bytes.data(), values.data(), bytes.size());
        test::writeBytes(index, bytes);
    }

    std::vector<int64_t> readIndex() {
        const auto bytes = test::readBytes(index);
        std::vector<int64_t> values(bytes.size() / sizeof(int64_t));
        std::memcpy(values.data(), bytes.data(), values.size() * sizeof(int64_t));
        return values;
    }

    // Runs `action`, which must fail with `prefix` and the quoted path, and gives the log lines.
    std::vector<std::string> linesOfFailure(const std::string& prefix,
                                            const std::function<void()>& action) {
        log.clear();
        try {
            action();
            ADD_FAILURE() << "expected \"" << prefix << "…\"";
        } catch (const tio::Exception& failure) {
            EXPECT_EQ(failure.what(), prefix + '"' + index + '"');
        }
        return log.linesAt(4);
    }

    // What the log holds for a failed check: the message with its place, then the expression.
    std::vector<std::string> checkLines(const std::string& prefix, int number,
                                        const std::string& expression) {
        return {prefix + '"' + index +
                    "\" @ ..\\src\\TARN\\videoio\\InputStream:" + std::to_string(number),
                "Assertion failed: " + expression};
    }

    void expectLoadFails(const std::string& prefix, int number, const std::string& expression) {
        auto stream = open();
        expectLoadFails(*stream, prefix, number, expression);
    }

    void expectLoadFails(InputStream& stream, const std::string& prefix, int number,
                         const std::string& expression) {
        EXPECT_EQ(linesOfFailure(prefix, [&] { stream.loadSeekingIndex(index); }),
                  checkLines(prefix, number, expression));
    }

    void expectStoreFails(const std::string& prefix, int number, const std::string& expression) {
        auto stream = open();
        stream->getFrameCount();
        EXPECT_EQ(linesOfFailure(prefix, [&] { stream->storeSeekingIndex(index); }),
                  checkLines(prefix, number, expression));
    }

    static std::vector<int64_t> ticks(InputStream& stream) {
        std::vector<int64_t> values;
        for (const Rational& time : stream.getFrameMsMap())
            values.push_back((time / stream.getUnitTime()).toInteger());
        return values;
    }

    test::TemporaryFolder folder;
    std::string clip = folder.file("clip.ts");
    std::string index = folder.file("clip.index");
    test::Interception intercepted;
    test::LogCapture log;
};

TEST_F(SeekingIndexFileTest, HoldsTheDistanceAndThenThePtsOfEveryFrame) {
    auto stream = open();
    test::PacketScript script({{0, -2}, {3, -1}, {1, 0}, {2, 1}});
    stream->storeSeekingIndex(index);
    EXPECT_THAT(readIndex(), ElementsAre(4, 0, 1, 2, 3));
}

TEST_F(SeekingIndexFileTest, GivesTheSameNumbersAndLandingsToAnotherStreamWithoutReadingIt) {
    auto scanned = open();
    scanned->storeSeekingIndex(index);
    const int64_t count = scanned->getFrameCount();

    auto loaded = open();
    const int readBefore = intercepted->av_read_frame.count;
    loaded->loadSeekingIndex(index);
    EXPECT_EQ(loaded->getFrameCount(), count);
    EXPECT_LE(intercepted->av_read_frame.count - readBefore, 1) << "the packet of frame 0 alone";
    for (int64_t frame = 0; frame < count; ++frame)
        EXPECT_EQ(loaded->seekToOrBefore(frame), scanned->seekToOrBefore(frame)) << frame;
}

TEST_F(SeekingIndexFileTest, StoringScansAStreamThatHasNoIndex) {
    auto stream = open();
    test::PacketScript script({{5, 5}, {6, 6}});
    stream->storeSeekingIndex(index);
    EXPECT_THAT(readIndex(), ElementsAre(0, 5, 6));
}

TEST_F(SeekingIndexFileTest, StoringDoesNotScanAgain) {
    auto stream = open();
    test::PacketScript script({{5, 5}, {6, 6}});
    stream->getFrameCount();
    const int read = script.packetsRead;
    stream->storeSeekingIndex(index);
    EXPECT_EQ(script.packetsRead, read);
}

TEST_F(SeekingIndexFileTest, LoadingGoesToFrameZero) {
    writeIndex({3, 10, 20});
    auto stream = open();
    test::PacketScript script({{10, 7}, {20, 17}});
    stream->loadSeekingIndex(index);
    EXPECT_THAT(script.seekTargets, ElementsAre(10 - 3));
    EXPECT_EQ(stream->getNextPacket()->getPacket().pts, 10);
}

TEST_F(SeekingIndexFileTest, AnIndexWithRepeatedTimesIsStoredAndThenRefused) {
    auto stream = open();
    test::PacketScript script({{10, 0}, {20, 1}, {10, 2}});
    stream->storeSeekingIndex(index);
    EXPECT_THAT(readIndex(), ElementsAre(18 + 1, 10, 10, 20));
    expectLoadFails("Seek data is not valid in ", 277, "last < element");
}

TEST_F(SeekingIndexFileTest, AMissingFileIsNamedWithoutPlaceOrExpression) {
    auto stream = open();
    EXPECT_THAT(linesOfFailure("Could not open ", [&] { stream->loadSeekingIndex(index); }),
                ElementsAre("Could not open \"" + index + '"'));
}

TEST_F(SeekingIndexFileTest, AFileThatCannotBeWrittenIsNamedWithoutPlaceOrExpression) {
    index = folder.file("no such folder/clip.index");
    auto stream = open();
    EXPECT_THAT(linesOfFailure("Could not open ", [&] { stream->storeSeekingIndex(index); }),
                ElementsAre("Could not open \"" + index + '"'));
}

TEST_F(SeekingIndexFileTest, AFileThatCannotBeSoughtInIsRefused) {
    writeIndex({0, 1});
    auto stream = open();
    intercepted->fseek.instead = [](std::FILE*, long, int origin) {
        return origin == SEEK_END ? -1 : 0;
    };
    expectLoadFails(*stream, "Could not seek to the end of ", 254, "fseek(f, 0, 2) == 0");
}

TEST_F(SeekingIndexFileTest, AFileThatCannotTellItsSizeIsRefused) {
    writeIndex({0, 1});
    auto stream = open();
    intercepted->ftell.instead = [](std::FILE*) { return -1L; };
    expectLoadFails(*stream, "Could not tell ", 256, "byteCount != (-1)");
}

TEST_F(SeekingIndexFileTest, AFileOfTwoGibibytesCannotTellItsSize) {
    writeIndex({0, 1});
    std::filesystem::resize_file(index, uint64_t{1} << 31); // sparse: it takes no room
    expectLoadFails("Could not tell ", 256, "byteCount != (-1)");
}

TEST_F(SeekingIndexFileTest, AFileThatCannotBeRewoundIsRefused) {
    writeIndex({0, 1});
    auto stream = open();
    intercepted->fseek.instead = [](std::FILE*, long, int origin) {
        return origin == SEEK_SET ? -1 : 0;
    };
    expectLoadFails(*stream, "Could not seek to the start of ", 258, "fseek(f, 0, 0) == 0");
}

TEST_F(SeekingIndexFileTest, ASizeThatIsNoMultipleOfEightIsInvalid) {
    test::writeBytes(index, std::vector<uint8_t>(12));
    expectLoadFails("Invalid seeking index size in ", 260, "byteCount % sizeof(int_fast64_t) == 0");
}

TEST_F(SeekingIndexFileTest, AnEmptyFileIsRefused) {
    test::writeBytes(index, {});
    expectLoadFails("Empty seeking index size in ", 262, "byteCount > 0");
}

TEST_F(SeekingIndexFileTest, AFailedReadOfTheDistanceIsTold) {
    writeIndex({0, 1});
    auto stream = open();
    intercepted->fread.instead = [](void*, size_t, size_t, std::FILE*) { return size_t{0}; };
    expectLoadFails(*stream, "Could not read pts difference from ", 265,
                    "fread(&maxPtsDtsDifference, sizeof(int_fast64_t), 1, f) == 1");
}

TEST_F(SeekingIndexFileTest, AFailedReadOfTheTimesIsTold) {
    writeIndex({0, 1, 2});
    auto stream = open();
    intercepted->fread.instead = [this](void* to, size_t size, size_t count, std::FILE* file) {
        return test::real::read(to, size, intercepted->fread.count == 1 ? count : 1, file);
    };
    expectLoadFails(*stream, "Could not read seek buffer from ", 270,
                    "fread(frameNumToTimestamp.data(), sizeof(int_fast64_t), count, f) == count");
}

TEST_F(SeekingIndexFileTest, TimesThatDoNotRiseAreNotValidAndStayLoaded) {
    writeIndex({0, 0, 0, 1});
    auto stream = open();
    test::PacketScript script({{0, 0}});
    expectLoadFails(*stream, "Seek data is not valid in ", 277, "last < element");
    EXPECT_THAT(ticks(*stream), ElementsAre(0, 0, 1));
    EXPECT_THAT(script.seekTargets, IsEmpty()) << "neither sought nor scanned";
}

TEST_F(SeekingIndexFileTest, TheSmallestIntegerIsNotValidEvenInFirstPlace) {
    writeIndex({0, std::numeric_limits<int64_t>::min(), 1});
    expectLoadFails("Seek data is not valid in ", 277, "last < element");
}

TEST_F(SeekingIndexFileTest, AFileWithoutTimesKeepsItsDistanceAndScans) {
    writeIndex({100});
    auto stream = open();
    test::PacketScript script({{10, 9}, {20, 18}});
    stream->loadSeekingIndex(index);
    EXPECT_THAT(ticks(*stream), ElementsAre(10, 20));
    EXPECT_EQ(script.seekTargets.back(), 10 - 100);
}

TEST_F(SeekingIndexFileTest, ARefusedSizeLeavesTheStreamAsItWas) {
    auto stream = open();
    test::PacketScript script({{10, 8}, {20, 18}});
    stream->getFrameCount();
    test::writeBytes(index, std::vector<uint8_t>(12));
    EXPECT_THROW(stream->loadSeekingIndex(index), tio::Exception);
    EXPECT_THAT(ticks(*stream), ElementsAre(10, 20));
    stream->seekToOrBefore(1);
    EXPECT_EQ(script.seekTargets.back(), 20 - 2);
}

TEST_F(SeekingIndexFileTest, ABrokenReadOfTheTimesLeavesTheNewDistanceAndCount) {
    auto stream = open();
    test::PacketScript script({{10, 8}, {20, 18}});
    stream->getFrameCount();
    writeIndex({50, 11, 12, 13});
    intercepted->fread.instead = [this](void* to, size_t size, size_t count, std::FILE* file) {
        return test::real::read(to, size, intercepted->fread.count == 1 ? count : 1, file);
    };
    EXPECT_THROW(stream->loadSeekingIndex(index), tio::Exception);
    EXPECT_THAT(ticks(*stream), ElementsAre(11, 20, 0)); // read, kept from before, new
    stream->seekToOrBefore(0);
    EXPECT_EQ(script.seekTargets.back(), 11 - 50);
}

/// Leaves the process only so much more memory while it lives.
class MemoryLimit {
public:
    explicit MemoryLimit(rlim_t more) {
        ::getrlimit(RLIMIT_AS, &before);
        rlim_t pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        rlimit now = before;
        now.rlim_cur = pages * static_cast<rlim_t>(::sysconf(_SC_PAGESIZE)) + more;
        ::setrlimit(RLIMIT_AS, &now);
    }
    MemoryLimit(const MemoryLimit&) = delete;
    MemoryLimit& operator=(const MemoryLimit&) = delete;
    ~MemoryLimit() { ::setrlimit(RLIMIT_AS, &before); }

private:
    rlimit before{};
};

TEST_F(SeekingIndexFileTest, MemoryThatRunsOutIsToldWithThePath) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizer takes memory of its own";
#endif
    writeIndex({0, 1, 2});
    intercepted->ftell.instead = [](std::FILE*) { return (long{1} << 31) - 8; };
    auto stream = open();
    const MemoryLimit limit(rlim_t{256} << 20);
    expectLoadFails(*stream, "Could not read seek buffer from ", 270,
                    "fread(frameNumToTimestamp.data(), sizeof(int_fast64_t), count, f) == count");
}

TEST_F(SeekingIndexFileTest, AFileStaysOpenAfterAFailedLoad) {
    test::writeBytes(index, std::vector<uint8_t>(12));
    auto stream = open();
    const int closed = intercepted->fclose.count;
    EXPECT_THROW(stream->loadSeekingIndex(index), tio::Exception);
    EXPECT_EQ(intercepted->fclose.count, closed);
}

TEST_F(SeekingIndexFileTest, AFailedWriteOfTheDistanceIsTold) {
    intercepted->fwrite.instead = [](const void*, size_t, size_t, std::FILE*) { return size_t{0}; };
    expectStoreFails("Could not write pts difference to ", 223,
                     "fwrite(&maxPtsDtsDifference, sizeof(int_fast64_t), 1, f) == 1");
}

TEST_F(SeekingIndexFileTest, AFailedWriteOfTheTimesIsToldAndLeavesAPartOfTheFile) {
    intercepted->fwrite.instead = [this](const void* from, size_t size, size_t count,
                                         std::FILE* file) {
        if (intercepted->fwrite.count > 1)
            return size_t{0};
        return test::real::write(from, size, count, file);
    };
    expectStoreFails("Could not write seek buffer to ", 228,
                     "fwrite(frameNumToTimestamp.data(), sizeof(int_fast64_t), count, f) == count");
    EXPECT_TRUE(std::filesystem::exists(index));
}

TEST_F(SeekingIndexFileTest, ADiskThatIsFullWhenTheFileIsClosedFailsTheWrite) {
    index = "/dev/full";
    if (!std::filesystem::exists(index))
        GTEST_SKIP() << "this system has no " << index;
    expectStoreFails("Could not write seek buffer to ", 228,
                     "fwrite(frameNumToTimestamp.data(), sizeof(int_fast64_t), count, f) == count");
}

} // namespace
} // namespace tio::ffmpeg
