#include "support/ClipMaker.h"
#include "support/Oracle.h"
#include "support/Picture.h"
#include "support/SoundMaker.h"
#include "support/StillImages.h"
#include "support/TemporaryFolder.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>

using tio::test::ClipPlan;

namespace {

/// Runs the example programs as their reader would, on a clip of 25 numbered pictures.
class Examples : public testing::Test {
protected:
    static constexpr int frameCount = 25;

    Examples() { tio::test::makeClip(clip, ClipPlan{}); }

    /// Runs an example with arguments; what it prints goes to the file `output`.
    int run(const std::string& example, const std::string& arguments) const {
        const std::string command =
            TARN_EXAMPLES "/" + example + " " + arguments + " > " + output + " 2>&1";
        return std::system(command.c_str()); // NOLINT(cert-env33-c): fixed names, no outside input
    }

    static std::string contentOf(const std::string& path) {
        std::ostringstream content;
        content << std::ifstream(path, std::ios::binary).rdbuf();
        return content.str();
    }

    tio::test::TemporaryFolder folder;
    std::string clip = folder.file("clip.mp4");
    std::string output = folder.file("output");
};

TEST_F(Examples, ReadFramesPrintsTimeAndSizeOfEveryPicture) {
    ASSERT_EQ(run("read_frames", clip), 0);
    const auto lines = contentOf(output);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), frameCount);
    EXPECT_EQ(lines.substr(0, lines.find('\n')), "0/1 s: 96 x 64");
    EXPECT_EQ(lines.substr(lines.rfind('\n', lines.size() - 2) + 1), "24/25 s: 96 x 64\n");
}

TEST_F(Examples, ReadFramesSaysWhichFileIsMissing) {
    const auto missing = folder.file("none.mp4");
    EXPECT_NE(run("read_frames", missing), 0);
    EXPECT_EQ(contentOf(output), "No such file or directory: " + missing + "\n");
}

// Any source will do; the tests of RTSP have a server.
TEST_F(Examples, WatchCameraPrintsTheTimeOfEveryPictureAndWhyItEnded) {
    ASSERT_EQ(run("watch_camera", clip), 0);
    const auto lines = contentOf(output);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), frameCount + 1);
    EXPECT_EQ(lines.substr(lines.find("24/25")), "24/25 s\nthe stream has ended\n");
}

TEST_F(Examples, ConvertImageTurnsAPhotoUpright) {
    const auto photo = folder.file("photo.jpg");
    tio::test::ImagePlan plan;
    plan.encoder = "mjpeg";
    plan.pixelFormat = "yuvj420p";
    tio::test::makeImage(photo, plan);
    tio::test::addExifOrientation(photo, 6);
    const auto upright = folder.file("upright.png");
    ASSERT_EQ(run("convert_image", photo + " " + upright), 0);
    EXPECT_EQ(contentOf(output), "21 x 33\n");
    EXPECT_EQ(tio::test::oracleImage(upright).height, 33);
}

TEST_F(Examples, SeekFrameWritesThePictureOfThatNumber) {
    const auto picture = folder.file("picture.ppm");
    ASSERT_EQ(run("seek_frame", clip + " 17 " + picture), 0);
    const std::string header = "P6\n96 64\n255\n";
    const auto content = contentOf(picture);
    ASSERT_EQ(content.substr(0, header.size()), header);
    ASSERT_EQ(content.size(), header.size() + 96 * 64 * 3);
    const auto* pixels = reinterpret_cast<const uint8_t*>(content.data() + header.size());
    EXPECT_EQ(tio::test::readPictureNumber(pixels, 96, 64), 17);
}

TEST_F(Examples, StoreIndexWritesOneEntryPerPictureAndUsesThem) {
    const auto index = folder.file("clip.index");
    ASSERT_EQ(run("store_index", clip + " " + index), 0);
    EXPECT_EQ(std::filesystem::file_size(index), 8u * (1 + frameCount));
    EXPECT_EQ(contentOf(output), "the last of 25 pictures is shown at 24/25 s\n");
}

TEST_F(Examples, FramesByNumberReadsPicturesInTheOrderAskedFor) {
    const auto index = folder.file("clip.index");
    const std::string expected = "25 pictures\n20 at 4/5 s: 96 x 64\n3 at 3/25 s: 96 x 64\n";
    ASSERT_EQ(run("frames_by_number", clip + " " + index + " 20 3"), 0);
    EXPECT_EQ(contentOf(output), expected);
    ASSERT_TRUE(std::filesystem::exists(index));
    ASSERT_EQ(run("frames_by_number", clip + " " + index + " 20 3"), 0); // by that index
    EXPECT_EQ(contentOf(output), expected);
}

TEST_F(Examples, WriteClipWritesASecondOfPictures) {
    const auto written = folder.file("written.mp4");
    ASSERT_EQ(run("write_clip", written), 0);
    const auto frames = tio::test::oracleFrames(written);
    ASSERT_EQ(frames.size(), 25u);
    EXPECT_EQ(frames.back().time().numerator, 24);
    EXPECT_EQ(frames.back().time().denominator, 25);
    EXPECT_EQ(frames.back().width, 320);
}

TEST_F(Examples, WriteClipSaysThatAFileCannotBeWritten) {
    EXPECT_NE(run("write_clip", folder.file("no-such-folder/clip.mp4")), 0);
    const auto said = contentOf(output);
    EXPECT_EQ(said.substr(said.find('\n') + 1), "No such file or directory\n");
    EXPECT_NE(said.find("could not be written"), std::string::npos); // the log's line before it
}

TEST_F(Examples, WriteClipWithSoundWritesPicturesAndATone) {
    const auto written = folder.file("written.mp4");
    ASSERT_EQ(run("write_clip_with_sound", written), 0);
    EXPECT_EQ(tio::test::oracleFrames(written).size(), 50u);
    const auto sound = tio::test::oracleSound(written);
    EXPECT_EQ(sound.rate, 48000);
    EXPECT_GE(sound.count(), 96000);
    EXPECT_NEAR(*std::max_element(sound.samples.begin(), sound.samples.end()), 0.2, 0.05);
}

TEST_F(Examples, CutSoundWritesTheVerySamples) {
    tio::test::SoundPlan plan;
    plan.encoderOptions = {{"aac_pns", "0"}};
    const auto source = folder.file("sound.mp4");
    tio::test::makeSound(source, plan);
    const auto part = folder.file("part.wav");
    ASSERT_EQ(run("cut_sound", source + " " + part + " 22050 50001"), 0);
    const auto whole = tio::test::oracleSound(source);
    EXPECT_EQ(contentOf(output),
              "50001 of " + std::to_string(whole.count()) + " samples, from 1/2 s on\n");
    const auto cut = tio::test::oracleSound(part);
    ASSERT_EQ(cut.count(), 50001);
    EXPECT_TRUE(
        std::equal(cut.samples.begin(), cut.samples.end(), whole.samples.begin() + 2 * 22050));
}

TEST_F(Examples, CutSoundLeavesNothingWhereThereAreNotSoManySamples) {
    const auto source = folder.file("sound.mp4");
    tio::test::makeSound(source, {});
    const auto part = folder.file("part.wav");
    EXPECT_NE(run("cut_sound", source + " " + part + " 80000 50000"), 0);
    EXPECT_FALSE(std::filesystem::exists(part));
}

TEST_F(Examples, CopyClipCopiesPicturesAndSaysWhereACutCanBegin) {
    const auto copy = folder.file("copy.mkv");
    ASSERT_EQ(run("copy_clip", clip + " " + copy), 0);
    EXPECT_EQ(contentOf(output), "1 streams, 25 packets\n");
    const auto before = tio::test::oracleFrames(clip);
    const auto after = tio::test::oracleFrames(copy);
    ASSERT_EQ(after.size(), before.size());
    for (size_t i = 0; i < before.size(); ++i)
        EXPECT_EQ(after[i].hash, before[i].hash) << i;
    EXPECT_NE(run("copy_clip", clip + " " + copy + " 1"), 0);
    EXPECT_NE(contentOf(output).find("it can begin at 24/25 s\n"), std::string::npos);
}

} // namespace
