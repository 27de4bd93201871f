#include "FaultsFixture.h"
#include "support/ByteEdits.h"
#include "support/ChildProcess.h"
#include "support/Expectations.h"
#include "support/Interception.h"
#include "support/TemporaryFolder.h"

#include <TARN/videoio/Exception.h>
#include <TARN/videoio/FrameIndex.h>
#include <TARN/videoio/InputStream.h>
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
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::ChildProcess;
using test::FaultsTest;
using test::impossible;
using test::toldByChild;
using test::writeFile;
using ::testing::StartsWith;

namespace fs = std::filesystem;

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
