#include "support/ByteEdits.h"
#include "support/ChildProcess.h"
#include "support/ClipMaker.h"
#include "support/Expectations.h"
#include "support/Interception.h"
#include "support/LogCapture.h"
#include "support/Muxing.h"
#include "support/Oracle.h"
#include "support/StillImages.h"
#include "support/TemporaryFolder.h"

#include <TARN/videoio/Exception.h>
#include <TARN/videoio/FrameIndex.h>
#include <TARN/videoio/FrameReader.h>
#include <TARN/videoio/InputStream.h>
#include <TARN/videoio/OutputStream.h>
#include <TARN/videoio/ReadImage.h>
#include <TARN/videoio/VideoStreamDecoder.h>
#include <TARN/videoio/VideoStreamEncoder.h>
#include <TARN/videoio/WriteImage.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <memory>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

/// @file
/// Faults of the system: a full disk, missing rights, no descriptors left, pipes that break off, a
/// process that is killed. What is thrown has to be told in the very words of docs/reliability.md.

namespace tio::ffmpeg {
namespace {

namespace fs = std::filesystem;

using test::ChildProcess;
using test::ffmpegText;
using test::toldByChild;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

/// What a child says that could not make the surroundings of its test.
const std::string impossible = "impossible here: ";

class FaultsTest : public ::testing::Test {
protected:
    void SetUp() override {
        fs::permissions(folder.path(), fs::perms::owner_all | fs::perms::group_exec |
                                           fs::perms::others_exec | fs::perms::others_read);
        test::makeClip(clip, {});
    }

    [[nodiscard]] std::shared_ptr<InputFormatContext> input() const {
        return std::make_shared<InputFormatContext>(clip);
    }

    [[nodiscard]] std::string invalidData(const std::string& path) const {
        return "Invalid data found when processing input: " + path +
               test::placeText("InputFormatContext", 60);
    }

    test::TemporaryFolder folder;
    std::string clip = folder.file("clip.mp4");
    test::LogCapture log;
};

/// Writes one packet of so many bytes into a new file, and completes it.
void writeFile(const std::string& path, size_t bytes) {
    const auto output = std::make_shared<OutputFormatContext>(path);
    const auto parameters = test::videoParameters();
    {
        OutputStream stream(output, Rational(1, 25));
        const auto packet = test::makePacket(std::vector<uint8_t>(bytes, 7));
        stream.writePacket(OutputPacket(packet.get(), parameters.get(), Rational(1, 25)));
    }
    output->finish();
}

// ---- codes of the file system -------------------------------------------------------------------

// Of the eight that are thrown without a place and not logged, some cannot be brought about at
// will.
class FileSystemCode : public FaultsTest, public ::testing::WithParamInterface<int> {
protected:
    [[nodiscard]] std::string words() const { return ffmpegText(GetParam()); }

    test::Interception intercepted;
};

TEST_P(FileSystemCode, OfAnInputIsFollowedByItsNameAloneAndNotLogged) {
    intercepted->avformat_open_input.instead = [](AVFormatContext**, const char*, AVDictionary**) {
        return GetParam();
    };
    EXPECT_EQ(test::thrownText<Exception>([this] { InputFormatContext{clip}; }),
              words() + ": " + clip);
    EXPECT_EQ(test::thrownText<Exception>([this] { InputFormatContext(clip, OpenOptions()); }),
              words() + ": " + clip);
    EXPECT_THAT(test::ownLines(log), IsEmpty());
}

TEST_P(FileSystemCode, OfAnOutputStandsAloneAndIsNotLogged) {
    intercepted->avio_open.instead = [](AVIOContext**, const char*, int) { return GetParam(); };
    OutputFormatContext output(folder.file("out.mp4"));
    output.addExpectedStream();
    const auto parameters = test::videoParameters();
    EXPECT_EQ(test::thrownText<Exception>([&] { output.addStream(parameters.get()); }), words());
    EXPECT_THAT(test::ownLines(log), IsEmpty());
}

TEST_P(FileSystemCode, OfAPacketThatIsWrittenStandsAloneAndIsNotLogged) {
    OutputFormatContext output(folder.file("out.mp4"));
    output.addExpectedStream();
    const auto parameters = test::videoParameters();
    output.addStream(parameters.get());
    intercepted->av_interleaved_write_frame.instead = [](AVFormatContext*, AVPacket*) {
        return GetParam();
    };
    const auto packet = test::makePacket({1});
    EXPECT_EQ(test::thrownText<Exception>([&] { output.writePacket(*packet); }), words());
    EXPECT_THAT(test::ownLines(log), IsEmpty());
}

TEST_P(FileSystemCode, OfASeekIsFollowedByWhatWasDone) {
    const auto opened = input();
    intercepted->av_seek_frame.instead = [](AVFormatContext*, int, int64_t, int) {
        return GetParam();
    };
    EXPECT_EQ(test::thrownText<Exception>([&] { opened->seekStreamToOrBefore(0, 0); }),
              words() + ": Seeking");
    EXPECT_THAT(test::ownLines(log), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Codes, FileSystemCode,
                         ::testing::Values(AVERROR(EPERM), AVERROR(ENOENT), AVERROR(EACCES),
                                           AVERROR(EBUSY), AVERROR(EISDIR), AVERROR(EMFILE),
                                           AVERROR(ENOSPC), AVERROR(EROFS)));

// ---- a full disk --------------------------------------------------------------------------------

/// A small file system that only the test's child processes see, where the machine lets them.
class FullDiskTest : public FaultsTest {
protected:
    /// What `act` says in a child that has the disk.
    template <typename Act>
    std::string onTheDisk(const Act& act) {
        fs::create_directory(disk);
        return toldByChild([&] {
            const bool alone =
                ::unshare(CLONE_NEWNS) == 0 || ::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0;
            if (!alone || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
                ::mount("none", disk.c_str(), "tmpfs", 0, "size=128k") != 0)
                return impossible + std::strerror(errno);
            return act();
        });
    }

    /// Leaves no room.
    void fill() const {
        const int file = ::open((disk + "/filling").c_str(), O_WRONLY | O_CREAT, 0600);
        const std::vector<uint8_t> page(4096);
        while (::write(file, page.data(), page.size()) > 0)
            continue;
        ::close(file);
    }

    std::string disk = folder.file("disk");
};

#define SKIP_IF_IMPOSSIBLE(said)                                                                   \
    if ((said).compare(0, impossible.size(), impossible) == 0)                                     \
    GTEST_SKIP() << (said)

TEST_F(FullDiskTest, IsToldByTheWriteThatDoesNotFit) {
    const std::string said = onTheDisk([this]() -> std::string {
        writeFile(disk + "/out.mp4", size_t{1} << 20);
        return "written";
    });
    SKIP_IF_IMPOSSIBLE(said);
    EXPECT_EQ(said, "No space left on device");
}

TEST_F(FullDiskTest, IsToldWhenAFileIsFinishedThatStillWasInMemory) {
    const std::string said = onTheDisk([this]() -> std::string {
        fill();
        writeFile(disk + "/out.mp4", 2000);
        return "written";
    });
    SKIP_IF_IMPOSSIBLE(said);
    EXPECT_THAT(said, StartsWith("No space left on device"));
}

TEST_F(FullDiskTest, IsToldByTheSeekingIndex) {
    const std::string said = onTheDisk([this]() -> std::string {
        InputStream stream(input(), 0);
        fill();
        stream.storeSeekingIndex(disk + "/clip.index");
        return "stored";
    });
    SKIP_IF_IMPOSSIBLE(said);
    EXPECT_EQ(said, "Could not write seek buffer to \"" + disk + "/clip.index\"");
}

TEST_F(FullDiskTest, LeavesTheFrameIndexThatWasThere) {
    const std::string said = onTheDisk([this]() -> std::string {
        const FrameIndex made = FrameIndex::build(input());
        const std::string index = disk + "/clip.index";
        made.save(index);
        fill();
        std::string text = "saved";
        try {
            made.save(index);
        } catch (const tio::Exception& failure) {
            text = failure.what();
        }
        const bool fresh = FrameIndex::load(index, input()).match == FrameIndex::Match::Fresh;
        const bool rest = test::unfinishedFilesIn(disk) > 0;
        return text + (fresh ? ", the old one is whole" : "") + (rest ? ", a part lies about" : "");
    });
    SKIP_IF_IMPOSSIBLE(said);
    EXPECT_EQ(said, "Could not write \"" + disk + "/clip.index\", the old one is whole");
}

TEST_F(FullDiskTest, IsToldByAnImage) {
    const std::string said = onTheDisk([this]() -> std::string {
        fill();
        Mat<Vec<uint8_t, 3>, 2, MatOptions<1, 1>> image(Vec<int, 2>(64, 64));
        std::fill_n(image.data(), image.count, Vec<uint8_t, 3>(1, 2, 3));
        writeImage(disk + "/image.ppm", image);
        return "written";
    });
    SKIP_IF_IMPOSSIBLE(said);
    EXPECT_EQ(said, "Could not write to " + disk + "/image.ppm");
}

// ---- rights -------------------------------------------------------------------------------------

/// Permissions do not bind root, so the child becomes nobody where it is root.
class RightsTest : public FaultsTest {
protected:
    template <typename Act>
    static std::string withoutRights(const Act& act) {
        return toldByChild([&]() -> std::string {
            constexpr unsigned nobody = 65534;
            const bool changed =
                ::geteuid() != 0 ||
                (::setgroups(0, nullptr) == 0 && ::setgid(nobody) == 0 && ::setuid(nobody) == 0);
            return changed ? act() : impossible + std::strerror(errno);
        });
    }

    /// The same for something that has to throw.
    template <typename Act>
    static std::string refusalOf(const Act& act) {
        return withoutRights([&]() -> std::string {
            act();
            return "done";
        });
    }
};

TEST_F(RightsTest, AFileThatMayNotBeReadIsNamed) {
    fs::permissions(clip, fs::perms::none);
    const std::string said = refusalOf([this] { InputFormatContext{clip}; });
    SKIP_IF_IMPOSSIBLE(said);
    EXPECT_EQ(said, "Permission denied: " + clip);
}

TEST_F(RightsTest, AnImageThatMayNotBeReadIsNamed) {
    const std::string image = folder.file("image.png");
    test::makeImage(image, {});
    fs::permissions(image, fs::perms::none);
    const std::string said = refusalOf([&] { static_cast<void>(readImage(image)); });
    SKIP_IF_IMPOSSIBLE(said);
    EXPECT_EQ(said, "Permission denied: " + image);
}

TEST_F(RightsTest, AnIndexThatMayNotBeReadIsNamed) {
    const std::string index = folder.file("clip.index");
    InputStream(input(), 0).storeSeekingIndex(index);
    fs::permissions(index, fs::perms::none);
    const std::string said = refusalOf([&] { InputStream(input(), 0).loadSeekingIndex(index); });
    SKIP_IF_IMPOSSIBLE(said);
    EXPECT_EQ(said, "Could not open \"" + index + "\"");
}

TEST_F(RightsTest, AFolderThatMayNotBeWrittenIntoIsFfmpegsWordsAlone) {
    const std::string said = refusalOf([this] { writeFile(folder.file("out.mp4"), 10); });
    SKIP_IF_IMPOSSIBLE(said);
    EXPECT_EQ(said, "Permission denied");
    EXPECT_FALSE(fs::exists(folder.file("out.mp4")));
}

// ---- a folder in place of a file ----------------------------------------------------------------

class FolderTest : public FaultsTest {
protected:
    void SetUp() override {
        FaultsTest::SetUp();
        fs::create_directory(place);
    }

    std::string place = folder.file("folder.png");
};

TEST_F(FolderTest, IsNoImage) {
    EXPECT_EQ(test::thrownText<Exception>([this] { static_cast<void>(readImage(place)); }),
              "Is a directory: " + place);
}

TEST_F(FolderTest, IsNoOutput) {
    EXPECT_EQ(test::thrownText<Exception>([this] { writeFile(place, 10); }), "Is a directory");
}

// Some file systems have an end for a folder, at a place that no file can have; others have none.
bool hasEnd(const std::string& folder) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(folder.c_str(), "rb"),
                                                               &std::fclose);
    return std::fseek(file.get(), 0, SEEK_END) == 0;
}

TEST_F(FolderTest, IsNoSeekingIndex) {
    InputStream stream(input(), 0);
    const std::string failure = hasEnd(place) ? "Could not tell" : "Could not seek to the end of";
    EXPECT_EQ(test::thrownText<tio::Exception>([&] { stream.loadSeekingIndex(place); }),
              failure + " \"" + place + "\"");
    EXPECT_EQ(test::thrownText<tio::Exception>([&] { stream.storeSeekingIndex(place); }),
              "Could not open \"" + place + "\"");
}

TEST_F(FolderTest, IsNoFrameIndex) {
    EXPECT_EQ(test::thrownText<tio::Exception>(
                  [this] { static_cast<void>(FrameIndex::load(place, input())); }),
              "Could not open \"" + place + "\"");
    EXPECT_EQ(test::thrownText<tio::Exception>([this] { FrameIndex::build(input()).save(place); }),
              "Could not write \"" + place + "\"");
    EXPECT_TRUE(fs::is_directory(place));
}

// ---- no descriptors left ------------------------------------------------------------------------

class DescriptorsTest : public FaultsTest {
protected:
    void SetUp() override {
#ifdef __SANITIZE_ADDRESS__
        GTEST_SKIP() << "the undefined-behaviour sanitizer needs descriptors to look at an object";
#endif
        FaultsTest::SetUp();
    }

    static void allow(rlim_t count) {
        rlimit limits{};
        ::getrlimit(RLIMIT_NOFILE, &limits);
        limits.rlim_cur = std::min(count, limits.rlim_max);
        ::setrlimit(RLIMIT_NOFILE, &limits);
    }

    /// What `act` throws in a child that can open nothing.
    template <typename Act>
    static std::string refusalOf(const Act& act) {
        return toldByChild([&]() -> std::string {
            allow(0);
            act();
            return "done";
        });
    }
};

TEST_F(DescriptorsTest, AnInputIsNamed) {
    EXPECT_EQ(refusalOf([this] { InputFormatContext{clip}; }), "Too many open files: " + clip);
}

TEST_F(DescriptorsTest, AnOutputIsFfmpegsWordsAlone) {
    EXPECT_EQ(refusalOf([this] { writeFile(folder.file("out.mp4"), 10); }), "Too many open files");
}

TEST_F(DescriptorsTest, ASourceThatIsOpenedOnceMoreForFramesByNumberIsNamed) {
    const auto opened = input();
    EXPECT_EQ(refusalOf([&] { FrameReader(opened, PixelFormat::RGB); }),
              "Could not identify \"" + clip + "\": Too many open files");
}

TEST_F(DescriptorsTest, AnIndexIsNamed) {
    InputStream stream(input(), 0);
    const std::string index = folder.file("clip.index");
    EXPECT_EQ(refusalOf([&] { stream.storeSeekingIndex(index); }),
              "Could not open \"" + index + "\"");
}

TEST_F(DescriptorsTest, AnOpenInputReadsOnAndANewOneOpensOnceThereAreSomeAgain) {
    EXPECT_EQ(toldByChild([this]() -> std::string {
                  rlimit before{};
                  ::getrlimit(RLIMIT_NOFILE, &before);
                  VideoStreamDecoder decoder(input(), PixelFormat::RGB);
                  allow(0);
                  const bool reads = decoder.readNextFrame().frame != nullptr;
                  EXPECT_THROW(InputFormatContext{clip}, Exception);
                  allow(before.rlim_cur);
                  return std::string(reads ? "reads, " : "") + "finds " +
                         std::to_string(input()->getStreamCount());
              }),
              "reads, finds 1");
}

// ---- pipes that break off -----------------------------------------------------------------------

class PipeTest : public FaultsTest {
protected:
    void SetUp() override {
        std::signal(SIGPIPE, SIG_IGN); // the writer may find nobody at the other end
        test::ClipPlan plan;
        plan.format = "mpegts";
        plan.frameCount = 60;
        plan.muxerOptions = {{"muxrate", "3000000"}}; // bits a second, filled up
        test::makeClip(clip, plan);
        bytes = test::readBytes(clip);
        ASSERT_GT(bytes.size(), 200000u) << "more than a pipe holds";
        ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    }
    void TearDown() override {
        if (writer.joinable())
            writer.join();
        std::signal(SIGPIPE, SIG_DFL);
    }

    /// Has so many bytes of the clip written into the pipe, whose writer then goes.
    void write(size_t count) {
        writer = std::thread([this, count] {
            const int file = ::open(pipe.c_str(), O_WRONLY | O_CLOEXEC); // waits for a reader
            size_t done = 0;
            while (done < count) {
                const ssize_t now = ::write(file, bytes.data() + done, count - done);
                if (now <= 0)
                    break;
                done += static_cast<size_t>(now);
            }
            ::close(file);
        });
    }

    std::string clip = folder.file("clip.ts");
    std::string pipe = folder.file("pipe.ts");
    std::vector<uint8_t> bytes;
    std::thread writer;
};

TEST_F(PipeTest, APipeWhoseWriterGoesGivesThePicturesThatCameThrough) {
    const size_t half = bytes.size() / 2;
    write(half);
    const auto source = std::make_shared<InputFormatContext>(pipe);
    VideoStreamDecoder decoder(source, PixelFormat::RGB);
    std::vector<Rational> times;
    for (auto frame = decoder.readNextFrame(); frame.frame; frame = decoder.readNextFrame())
        times.push_back(frame.timestamp);
    EXPECT_EQ(source->getEndReason().kind, EndReason::Kind::EndOfStream);
    test::truncateFile(clip, half);
    test::OracleOptions options;
    options.skipDamaged = true; // the last packet is a part of one
    const auto expected = test::oracleFrames(clip, options);
    ASSERT_GT(expected.size(), 10u);
    ASSERT_EQ(times.size(), expected.size());
    for (size_t i = 0; i < times.size(); ++i)
        EXPECT_EQ(times[i], Rational(expected[i].time().numerator, expected[i].time().denominator));
}

TEST_F(PipeTest, APipeWithoutAByteIsNoClip) {
    write(0);
    EXPECT_EQ(test::thrownText<Exception>([this] { InputFormatContext{pipe}; }), invalidData(pipe));
}

// FFmpeg goes back in a pipe as far as it has it in memory.
TEST_F(PipeTest, FramesOfAPipeAreCountedRightOrNotAtAll) {
    write(bytes.size());
    InputStream stream(std::make_shared<InputFormatContext>(pipe), 0);
    while (stream.getNextPacket() != nullptr)
        continue;
    try {
        EXPECT_EQ(stream.getFrameCount(), 60);
    } catch (const Exception& failure) {
        EXPECT_THAT(failure.what(), HasSubstr(": Seeking"));
    }
}

// Opening it again would wait for another writer, for ever if there is none.
TEST_F(PipeTest, FramesOfAPipeAreNotToBeHadByNumber) {
    write(bytes.size());
    const auto source = std::make_shared<InputFormatContext>(pipe);
    const std::string refusal = "\"" + pipe + "\" is a pipe, which cannot be opened once more";
    EXPECT_EQ(test::thrownText<tio::Exception>([&] { FrameReader(source, PixelFormat::RGB); }),
              refusal);
    EXPECT_EQ(
        test::thrownText<tio::Exception>([&] { static_cast<void>(FrameIndex::build(source)); }),
        refusal);
    EXPECT_TRUE(log.contains("root", 4, refusal));
}

// MP4 is completed at its beginning, which FFmpeg knows to be impossible before anything is
// written: nobody is killed by a pipe that no one reads.
TEST_F(PipeTest, APipeIsNoOutput) {
    const int reader = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    ChildProcess child([&]() -> std::string {
        std::signal(SIGPIPE, SIG_DFL);
        const auto output = std::make_shared<OutputFormatContext>(pipe);
        const auto parameters = test::videoParameters();
        output->addExpectedStream();
        try {
            output->addStream(parameters.get());
        } catch (const Exception& failure) {
            return failure.what();
        }
        return "opened";
    });
    EXPECT_EQ(child.text(),
              ffmpegText(AVERROR(EINVAL)) + test::placeText("OutputFormatContext", 56));
    EXPECT_EQ(child.signal(), 0);
    ::close(reader);
}

// ---- killed
// ---------------------------------------------------------------------------------------

class KilledTest : public FaultsTest {};

TEST_F(KilledTest, WhatAKilledWriterLeavesIsRefusedAndItsNeighboursAreWhole) {
    const std::string path = folder.file("out.mp4");
    const auto before = test::readBytes(clip);
    ChildProcess child([&]() -> std::string {
        const auto output = std::make_shared<OutputFormatContext>(path);
        VideoStreamEncoder encoder(output, {64, 96}, {1, 25});
        VideoPacketEncoder::Image image(Vec<int, 2>(64, 96));
        for (int number = 0;; ++number) { // for ever
            for (int i = 0; i < image.count; ++i)
                image.data()[i] = Vec<uint8_t, 3>(static_cast<uint8_t>(i * number),
                                                  static_cast<uint8_t>(i ^ number), 5);
            encoder.writeNextFrame(image, Rational(number, 25));
        }
    });
    std::error_code notYet;
    while (!fs::exists(path) || fs::file_size(path, notYet) < 50000)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    child.kill();
    EXPECT_EQ(test::thrownText<Exception>([&] { InputFormatContext{path}; }), invalidData(path));
    EXPECT_EQ(test::readBytes(clip), before);
}

TEST_F(KilledTest, AKilledSaveLeavesTheOldFrameIndex) {
    const std::string index = folder.file("clip.index");
    const FrameIndex made = FrameIndex::build(input());
    made.save(index);
    const auto before = test::readBytes(index);
    ChildProcess child([&]() -> std::string {
        test::Interception intercepted;
        intercepted->fclose.instead = [](std::FILE*) { return ::raise(SIGKILL); };
        made.save(index);
        return "saved";
    });
    EXPECT_EQ(child.signal(), SIGKILL);
    EXPECT_EQ(test::readBytes(index), before);
    made.save(index); // and what the other left is not in the way
    EXPECT_EQ(test::readBytes(index), before);
}

} // namespace
} // namespace tio::ffmpeg
