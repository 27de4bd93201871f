#include "ClipCopierFixture.h"
#include "ClipWriterFixture.h"
#include "support/Interception.h"

#include <TARN/videoio/ClipCopier.h>
#include <TARN/videoio/ClipWriter.h>
#include <TARN/videoio/Exception.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::ClipCopierTest;
using test::rgbPicture;
using ::testing::HasSubstr;

// A full disk, a folder that is gone, and memory that runs out, while clips are written.

class WritingFaultsTest : public ClipCopierTest {
protected:
    /// Does some work in a process that can write files of so many bytes, as on a full disk.
    /// @returns what it threw, empty for nothing
    static std::string workWithRoomFor(rlim_t bytes, const std::function<void()>& work) {
        std::array<int, 2> pipe{};
        EXPECT_EQ(::pipe(pipe.data()), 0);
        const pid_t child = ::fork();
        if (child == 0) {
            ::alarm(60);
            ::signal(SIGXFSZ, SIG_IGN);
            const rlimit limit{bytes, bytes};
            ::setrlimit(RLIMIT_FSIZE, &limit);
            std::string text;
            try {
                work();
            } catch (const Exception& failure) {
                text = failure.what();
            } catch (...) {
                text = "another exception";
            }
            const bool told =
                ::write(pipe[1], text.data(), text.size()) == static_cast<ssize_t>(text.size());
            ::_exit(told ? 0 : 1);
        }
        ::close(pipe[1]);
        std::string text(4096, '\0');
        const ssize_t got = ::read(pipe[0], text.data(), text.size());
        text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        ::close(pipe[0]);
        int status = 0;
        EXPECT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the process was ended";
        return text;
    }

    static void writeClip(const std::string& path, bool fragmented) {
        ClipWriterOptions options;
        options.rate = 25;
        options.fragmented = fragmented;
        options.codec = "mjpeg";
        options.threads = 1; // those of an encoder ask for packets too
        options.audioRate = 48000;
        ClipWriter writer(path, options);
        const std::vector<float> samples(1920);
        for (int i = 0; i < 100; ++i) {
            writer.writePicture(rgbPicture(i));
            writer.writeSamples(samples.data(), samples.size(), 1);
        }
        writer.finish();
    }

    test::Interception ffmpeg;
};

TEST_F(WritingFaultsTest, AFullDiskIsToldAndLeavesWhatWasThere) {
    for (const char* name : {"clip.mp4", "clip.mkv"}) {
        writeClip(file(name), false);
        const auto before = std::filesystem::file_size(file(name));
        const auto filesBefore = filesLeft();
        for (const rlim_t room :
             {rlim_t{0}, rlim_t{1000}, rlim_t{before / 2}, rlim_t{before - 1}}) {
            const std::string text = workWithRoomFor(room, [&] { writeClip(file(name), false); });
            EXPECT_THAT(text, HasSubstr(name)) << room;
            EXPECT_THAT(text, HasSubstr("File too large")) << room;
            EXPECT_EQ(std::filesystem::file_size(file(name)), before) << room;
            EXPECT_EQ(filesLeft(), filesBefore) << room;
        }
    }
}

TEST_F(WritingFaultsTest, AFullDiskLeavesTheFragmentsThatWereWritten) {
    for (const char* name : {"clip.mp4", "clip.mkv"}) {
        std::string text = workWithRoomFor(1000, [&] { writeClip(file(name), true); });
        EXPECT_THAT(text, HasSubstr("File too large"));
        EXPECT_FALSE(std::filesystem::exists(file(name)));
        writeClip(file(name), true);
        const auto whole = std::filesystem::file_size(file(name));
        std::filesystem::remove(file(name));
        text = workWithRoomFor(whole * 2 / 3, [&] { writeClip(file(name), true); });
        EXPECT_THAT(text, HasSubstr(name));
        EXPECT_THAT(text, HasSubstr("File too large"));
        ASSERT_TRUE(std::filesystem::exists(file(name)));
        test::ReadBack clip(file(name), AVMEDIA_TYPE_VIDEO);
        int pictures = 0;
        try {
            clip.decodeAll([&](const AVFrame&) { ++pictures; });
        } catch (const std::runtime_error&) { // the last packet is cut off
        }
        EXPECT_GE(pictures, 25) << name;
    }
    EXPECT_EQ(filesLeft(), 2);
}

TEST_F(WritingFaultsTest, AFullDiskEndsACopyWithoutATrace) {
    writeClip(file("source.mp4"), false);
    const auto whole = std::filesystem::file_size(file("source.mp4"));
    for (const char* name : {"copy.mp4", "copy.mkv"}) {
        for (const rlim_t room : {rlim_t{0}, rlim_t{1000}, rlim_t{whole / 2}}) {
            const std::string text =
                workWithRoomFor(room, [&] { ClipCopier(file("source.mp4"), file(name)).run(); });
            EXPECT_THAT(text, HasSubstr(name)) << room;
            EXPECT_THAT(text, HasSubstr("File too large")) << room;
            EXPECT_EQ(filesLeft(), 1) << room;
        }
    }
}

TEST_F(WritingFaultsTest, AFolderThatIsGoneIsTold) {
    for (const bool copies : {false, true}) {
        writeClip(file("source.mp4"), false);
        std::filesystem::create_directory(file("folder"));
        const std::string path = file("folder/clip.mp4");
        std::string text;
        try {
            if (copies) {
                ClipCopier copier(file("source.mp4"), path);
                std::filesystem::remove_all(file("folder"));
                copier.run();
            } else {
                ClipWriterOptions options;
                options.rate = 25;
                ClipWriter writer(path, options);
                writer.writePicture(rgbPicture(0));
                std::filesystem::remove_all(file("folder"));
                writer.finish();
            }
        } catch (const Exception& failure) {
            text = failure.what();
        }
        EXPECT_THAT(text, HasSubstr("clip.mp4")) << copies;
        EXPECT_THAT(text, HasSubstr("No such file or directory")) << copies;
    }
}

// Every call that may find no memory fails once, at its n-th time.
TEST_F(WritingFaultsTest, NoMemoryIsAnExceptionAndLeavesNothing) {
    writeClip(file("source.mp4"), false);
    const auto failAt = [&](int number, const std::function<void()>& work) {
        int packets = 0;
        ffmpeg->av_packet_alloc.instead = [&]() -> AVPacket* {
            return ++packets == number ? nullptr : test::real::allocatePacket();
        };
        bool threw = false;
        try {
            work();
        } catch (const tio::Exception&) {
            threw = true;
        } catch (const std::bad_alloc&) {
            threw = true;
        }
        ffmpeg->av_packet_alloc.instead = nullptr;
        EXPECT_EQ(threw, packets >= number) << number;
    };
    for (const int number : {1, 2, 3, 10, 30, 60, 100, 150, 200, 300}) {
        failAt(number, [&] { writeClip(file("clip.mp4"), false); });
        std::filesystem::remove(file("clip.mp4"));
        EXPECT_EQ(filesLeft(), 1) << number;
        failAt(number, [&] { ClipCopier(file("source.mp4"), file("copy.mkv")).run(); });
        std::filesystem::remove(file("copy.mkv"));
        EXPECT_EQ(filesLeft(), 1) << number;
        failAt(number, [&] { writeClip(file("clip.mkv"), true); });
        std::filesystem::remove(file("clip.mkv"));
        EXPECT_EQ(filesLeft(), 1) << number;
    }
}

} // namespace
} // namespace tio::ffmpeg
