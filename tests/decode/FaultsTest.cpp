#include "FaultsFixture.h"
#include "support/ChildProcess.h"
#include "support/Expectations.h"
#include "support/Interception.h"
#include "support/Muxing.h"
#include "support/StillImages.h"

#include <TARN/videoio/Exception.h>
#include <TARN/videoio/FrameIndex.h>
#include <TARN/videoio/FrameReader.h>
#include <TARN/videoio/InputStream.h>
#include <TARN/videoio/ReadImage.h>
#include <TARN/videoio/VideoStreamDecoder.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <unistd.h>

/// @file
/// Faults of the system: codes that it gives, missing rights, folders, no descriptors left. Disks
/// and pipes are beside this file. What is thrown has the very words of
/// docs/reliability.md.

namespace tio::ffmpeg {
namespace {

using test::FaultsTest;
using test::ffmpegText;
using test::impossible;
using test::toldByChild;
using test::writeFile;
using ::testing::IsEmpty;

namespace fs = std::filesystem;

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
              "Too many open files: " + clip);
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

} // namespace
} // namespace tio::ffmpeg
