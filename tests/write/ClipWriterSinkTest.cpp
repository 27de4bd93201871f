#include "ClipWriterFixture.h"
#include "ReadBack.h"

#include <TARN/videoio/ClipWriter.h>
#include <TARN/videoio/Exception.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::click;
using test::ClipWriterTest;
using test::Fraction;
using test::loudest;
using test::readHeard;
using test::rgbPicture;
using test::Times;
using test::timesIn;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;

// Clips that go into sinks of the caller's, and into pipes.

Times atRate25(int count) {
    Times times;
    for (int i = 0; i < count; ++i)
        times.emplace_back(i, 25);
    return times;
}

/// Keeps what it gets, until it breaks.
class KeepingSink : public ByteSink {
public:
    explicit KeepingSink(std::size_t most = SIZE_MAX) : left(most) {}
    void write(const uint8_t* data, std::size_t count) override {
        if (count > left)
            throw std::runtime_error("the line is dead");
        left -= count;
        bytes.append(reinterpret_cast<const char*>(data), count);
    }
    std::string bytes;

private:
    std::size_t left;
};

TEST_F(ClipWriterTest, ASinkGetsTheWholeClip) {
    for (const bool fragmented : {false, true}) {
        for (const char* name : {"clip.mp4", "clip.mkv"}) {
            ClipWriterOptions options;
            options.fragmented = fragmented;
            options.rate = 25;
            options.audioRate = 48000;
            options.options["sc_threshold"] = "0"; // no key picture but the first of each second
            const auto sink = std::make_shared<KeepingSink>();
            ClipWriter writer(sink, name, options);
            const std::vector<float> samples = click(96000, 72000);
            for (int i = 0; i < 50; ++i) {
                writer.writePicture(rgbPicture(i));
                writer.writeSamples(samples.data() + std::ptrdiff_t{i} * 1920, 1920, 1);
            }
            EXPECT_EQ(sink->bytes.empty(), true) << "the first second is not complete";
            writer.finish();
            std::ofstream(file(name), std::ios::binary) << sink->bytes;
            EXPECT_THAT(timesIn(file(name)), ElementsAreArray(atRate25(50)));
            const test::HeardSound heard = readHeard(file(name));
            EXPECT_NEAR(heard.begin.toDouble() +
                            static_cast<double>(loudest(heard.samples)) / 48000,
                        1.5, 0.0006)
                << name << fragmented;
        }
    }
    EXPECT_EQ(filesLeft(), 2);
}

TEST_F(ClipWriterTest, ABrokenSinkIsToldWithTheClipsName) {
    for (const bool fragmented : {false, true}) {
        for (const std::size_t most : {0U, 100U, 5000U}) {
            ClipWriterOptions options;
            options.fragmented = fragmented;
            options.rate = 25;
            const auto sink = std::make_shared<KeepingSink>(most);
            ClipWriter writer(sink, "line.mp4", options);
            try {
                for (int i = 0; i < 200; ++i)
                    writer.writePicture(rgbPicture(i));
                writer.finish();
                ADD_FAILURE() << "nothing was thrown";
            } catch (const Exception& failure) {
                EXPECT_THAT(failure.what(), HasSubstr("line.mp4"));
                EXPECT_THAT(failure.what(), HasSubstr("the line is dead"));
                EXPECT_THROW(std::rethrow_if_nested(failure), std::runtime_error);
            }
            EXPECT_ANY_THROW(writer.finish());
        }
    }
    EXPECT_THROW(ClipWriter(nullptr, "line.mp4"), ClipRefusal);
}

TEST_F(ClipWriterTest, ASinkGetsItsClipWhateverLiesInTheFolderForTemporaryFiles) {
    const std::string temporary = file("temporary");
    const char* const usual = std::getenv("TMPDIR");
    const std::string before = usual != nullptr ? usual : "/tmp";
    ASSERT_EQ(::setenv("TMPDIR", temporary.c_str(), 1), 0);
    const auto write = [&] {
        ClipWriterOptions options;
        options.rate = 25;
        const auto sink = std::make_shared<KeepingSink>();
        ClipWriter writer(sink, "line.mp4", options);
        for (int i = 0; i < 5; ++i)
            writer.writePicture(rgbPicture(i));
        writer.finish();
        return sink->bytes;
    };
    try {
        write();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const Exception& failure) {
        EXPECT_THAT(failure.what(), HasSubstr("line.mp4"));
    }
    std::filesystem::create_directories(temporary + "/clip");
    std::ofstream(file("clip.mp4"), std::ios::binary) << write();
    EXPECT_THAT(timesIn(file("clip.mp4")), ElementsAreArray(atRate25(5)));
    std::filesystem::remove(temporary + "/clip");
    ASSERT_EQ(::mkfifo((temporary + "/clip").c_str(), 0600), 0);
    std::ofstream(file("clip.mp4"), std::ios::binary) << write();
    EXPECT_THAT(timesIn(file("clip.mp4")), ElementsAreArray(atRate25(5)));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(temporary), {}), 1);
    ::setenv("TMPDIR", before.c_str(), 1);
}

TEST_F(ClipWriterTest, ASinkCannotCallItsWriter) {
    class Caller : public KeepingSink {
    public:
        void write(const uint8_t* data, std::size_t count) override {
            KeepingSink::write(data, count);
            EXPECT_THROW(writer->writePicture(rgbPicture(0)), ClipRefusal);
            EXPECT_THROW(writer->finish(), ClipRefusal);
        }
        ClipWriter* writer = nullptr;
    };
    for (const bool fragmented : {false, true}) {
        ClipWriterOptions options;
        options.fragmented = fragmented;
        options.rate = 25;
        const auto sink = std::make_shared<Caller>();
        ClipWriter writer(sink, "line.mp4", options);
        sink->writer = &writer;
        for (int i = 0; i < 120; ++i)
            writer.writePicture(rgbPicture(i));
        writer.finish();
        std::ofstream(file("clip.mp4"), std::ios::binary) << sink->bytes;
        EXPECT_THAT(timesIn(file("clip.mp4")), ElementsAreArray(atRate25(120)));
    }
}

TEST_F(ClipWriterTest, APipeGetsFragmentsAsTheyCome) {
    const std::string pipe = file("pipe.mp4");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    std::string got;
    std::thread reader([&] {
        std::ifstream stream(pipe, std::ios::binary);
        got.assign(std::istreambuf_iterator<char>(stream), {});
    });
    {
        ClipWriterOptions options;
        options.fragmented = true;
        options.rate = 25;
        ClipWriter writer(pipe, options);
        for (int i = 0; i < 60; ++i)
            writer.writePicture(rgbPicture(i));
        writer.finish();
    }
    reader.join();
    std::ofstream(file("clip.mp4"), std::ios::binary) << got;
    EXPECT_THAT(timesIn(file("clip.mp4")), ElementsAreArray(atRate25(60)));
    EXPECT_TRUE(std::filesystem::is_fifo(pipe));
}

} // namespace
} // namespace tio::ffmpeg
