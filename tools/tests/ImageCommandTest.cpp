#include "PpmFile.h"
#include "ProgramRun.h"
#include "support/ByteEdits.h"
#include "support/StillImages.h"
#include "support/TemporaryFolder.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace tio::test;
using testing::HasSubstr;

namespace {

class ImageCommandTest : public testing::Test {
protected:
    ImageCommandTest() { makeImage(image, {}); }

    TemporaryFolder folder;
    std::string image = folder.file("image.png"); // of 33 x 21
};

TEST_F(ImageCommandTest, WritesThePixelsInTheFormatOfTheName) {
    const std::string ppm = folder.file("image.ppm");
    const ProgramResult result = runProgram({"image", image, ppm});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, ppm + ": 33 x 21\n");
    EXPECT_EQ(readPpmFile(ppm).pixels, oracleImage(image).pixels);
    const std::string back = folder.file("back.png");
    ASSERT_EQ(runProgram({"image", ppm, back, "-q"}).out, "");
    EXPECT_EQ(oracleImage(back).pixels, oracleImage(image).pixels);
}

TEST_F(ImageCommandTest, TurnsAPhotoUpright) {
    const std::string photo = folder.file("photo.jpg");
    ImagePlan plan;
    plan.encoder = "mjpeg";
    plan.pixelFormat = "yuvj444p";
    plan.width = 96;
    plan.height = 64;
    plan.number = 1234;
    makeImage(photo, plan);
    addExifOrientation(photo, 6);
    const std::string upright = folder.file("upright.ppm");
    ASSERT_EQ(runProgram({"image", photo, upright}).exitCode, 0);
    EXPECT_EQ(readPpmFile(upright).height, 96);
    EXPECT_EQ(pictureNumberIn(upright, 1), 1234);
}

TEST_F(ImageCommandTest, RefusesNamesThatAreNoImages) {
    for (const std::string name : {"image.gif", "image", "image.jpg.txt"}) {
        const ProgramResult out = runProgram({"image", image, folder.file(name)});
        EXPECT_EQ(out.exitCode, 2);
        EXPECT_THAT(out.err, HasSubstr(folder.file(name) + ": a picture is called .png"));
        EXPECT_EQ(runProgram({"image", folder.file(name), folder.file("a.png")}).exitCode, 2);
    }
}

TEST_F(ImageCommandTest, NamesAnImageThatCannotBeReadAndKeepsWhatWasThere) {
    const std::string broken = folder.file("broken.png");
    writeBytes(broken, {1, 2, 3});
    const std::string out = folder.file("out.png");
    writeBytes(out, {7});
    const ProgramResult result = runProgram({"image", broken, out});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_THAT(result.err, HasSubstr("tarn-videoio: " + broken + ": "));
    EXPECT_EQ(readBytes(out), std::vector<uint8_t>{7});
}

TEST_F(ImageCommandTest, TellsThatAnImageIsMissing) {
    const std::string absent = folder.file("absent.jpg");
    const ProgramResult result = runProgram({"image", absent, folder.file("a.png")});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.err, "tarn-videoio: " + absent + ": No such file or directory\n");
}

TEST_F(ImageCommandTest, NamesTheOutputThatCannotBeWritten) {
    const std::string out = folder.file("absent/a.png");
    const ProgramResult result = runProgram({"image", image, out});
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_EQ(result.err, "tarn-videoio: " + out + ": No such file or directory\n");
}

} // namespace
