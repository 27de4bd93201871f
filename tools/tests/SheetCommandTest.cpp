#include "ProgramRun.h"
#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/Picture.h"
#include "support/StillImages.h"
#include "support/TemporaryFolder.h"

#include <algorithm>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace tio::test;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr int gap = 8; // pixels between pictures and around them

class SheetCommandTest : public testing::Test {
protected:
    std::string make(const std::string& name, const ClipPlan& plan) {
        makeClip(folder.file(name), plan);
        return folder.file(name);
    }

    /// A sheet whose pictures are 192 x 128, twice the size of those of the clip.
    OracleImage draw(const std::string& clip, int columns, int rows,
                     std::vector<std::string> more = {}) {
        std::vector<std::string> arguments = {
            "sheet",     clip,
            "-o",        sheet,
            "--columns", std::to_string(columns),
            "--rows",    std::to_string(rows),
            "--width",   std::to_string(columns * (192 + gap) + gap)};
        arguments.insert(arguments.end(), more.begin(), more.end());
        const ProgramResult result = runProgram(arguments);
        EXPECT_EQ(result.exitCode, 0) << result.err;
        return oracleImage(sheet);
    }

    /// The numbers that the pictures of a sheet show.
    static std::vector<int> numbersIn(const OracleImage& image, int columns, int cells) {
        std::vector<int> numbers;
        for (int cell = 0; cell < cells; ++cell) {
            std::vector<uint8_t> picture;
            for (int row = 0; row < 128; ++row) {
                const int y = gap + cell / columns * (128 + gap) + row;
                const int x = gap + cell % columns * (192 + gap);
                const auto from = image.pixels.begin() + std::ptrdiff_t{3} * (y * image.width + x);
                picture.insert(picture.end(), from, from + 3 * 192);
            }
            numbers.push_back(readPictureNumber(picture.data(), 192, 128));
        }
        return numbers;
    }

    TemporaryFolder folder;
    std::string sheet = folder.file("sheet.png");
};

ClipPlan clipOf(int frames, const std::string& format = "mp4") {
    ClipPlan plan;
    plan.frameCount = frames;
    plan.format = format;
    if (format == "avi") {
        plan.encoder = "mpeg4";
        plan.maxBFrames = 0;
    }
    return plan;
}

TEST_F(SheetCommandTest, ShowsTheMiddlesOfEqualPartsInRows) {
    const OracleImage image = draw(make("clip.mp4", clipOf(60)), 3, 2);
    EXPECT_EQ(image.width, 3 * (192 + gap) + gap);
    EXPECT_EQ(image.height, 2 * (128 + gap) + gap);
    EXPECT_THAT(numbersIn(image, 3, 6), ElementsAre(5, 15, 25, 35, 45, 55));
}

TEST_F(SheetCommandTest, ShowsTheRightFramesAcrossSeeks) {
    EXPECT_THAT(numbersIn(draw(make("clip.mp4", clipOf(400)), 2, 2), 2, 4),
                ElementsAre(50, 150, 250, 350));
}

// AVI cannot be rewound, so its frames are counted by reading them.
TEST_F(SheetCommandTest, ShowsAClipThatCannotBeSoughtIn) {
    EXPECT_THAT(numbersIn(draw(make("clip.avi", clipOf(60, "avi")), 2, 1), 2, 2),
                ElementsAre(15, 45));
}

TEST_F(SheetCommandTest, ShowsAllFramesOfAShortClipAndNoEmptyRows) {
    const OracleImage image = draw(make("clip.mp4", clipOf(3)), 2, 5);
    EXPECT_EQ(image.height, 2 * (128 + gap) + gap);
    EXPECT_THAT(numbersIn(image, 2, 3), ElementsAre(0, 1, 2));
}

TEST_F(SheetCommandTest, UsesAStoredIndex) {
    const std::string clip = make("clip.mp4", clipOf(400));
    const std::string index = folder.file("clip.index");
    ASSERT_EQ(runProgram({"index", clip, "-o", index}).exitCode, 0);
    EXPECT_THAT(numbersIn(draw(clip, 1, 2, {"--index", index}), 1, 2), ElementsAre(100, 300));
}

TEST_F(SheetCommandTest, ShowsTurnedClipsUpright) {
    ClipPlan plan = clipOf(3);
    plan.rotation = 90;
    const std::string clip = make("clip.mp4", plan);
    ASSERT_EQ(runProgram({"sheet", clip, "-o", sheet, "--columns", "1", "--rows", "1", "--width",
                          std::to_string(64 + 2 * gap)})
                  .exitCode,
              0);
    EXPECT_EQ(oracleImage(sheet).height, 96 + 2 * gap);
}

/// The rows in which two images of one size differ.
std::vector<int> differingRows(const OracleImage& a, const OracleImage& b) {
    std::vector<int> rows;
    const std::ptrdiff_t bytes = std::ptrdiff_t{3} * a.width;
    for (int row = 0; row < a.height; ++row) {
        const auto left = a.pixels.begin() + row * bytes;
        if (!std::equal(left, left + bytes, b.pixels.begin() + row * bytes))
            rows.push_back(row);
    }
    return rows;
}

class SheetLabelTest : public SheetCommandTest {
protected:
    /// The sheet of one picture out of a clip that shows the same one all the time.
    OracleImage drawMiddle(int frames, int64_t distance) {
        ClipPlan plan = clipOf(1);
        plan.encoder = "ffv1";
        plan.maxBFrames = 0;
        Track track = encodeVideo(plan);
        const RawPacket picture = track.packets.at(0);
        track.packets.assign(static_cast<size_t>(frames), picture);
        for (int i = 0; i < frames; ++i)
            track.packets[static_cast<size_t>(i)].pts = i * distance;
        for (RawPacket& packet : track.packets)
            packet.dts = packet.pts;
        const std::string clip = folder.file("clip.mkv");
        writePackets(clip, "matroska", {track});
        return draw(clip, 1, 1);
    }

    static void expectTheLastLineDiffers(const OracleImage& a, const OracleImage& b) {
        const std::vector<int> rows = differingRows(a, b);
        ASSERT_FALSE(rows.empty());
        EXPECT_GE(rows.front(), gap + 128 - 16);
        EXPECT_LT(rows.back(), gap + 128);
    }
};

TEST_F(SheetLabelTest, TheTimeStandsInTheLastLine) {
    expectTheLastLineDiffers(drawMiddle(3, 10), drawMiddle(3, 20)); // frame 1 at 10 and 20 ticks
}

TEST_F(SheetLabelTest, TheNumberStandsInTheLastLine) {
    expectTheLastLineDiffers(drawMiddle(3, 10), drawMiddle(11, 2)); // frames 1 and 5 at 10 ticks
}

TEST_F(SheetCommandTest, SaysHowManyFramesItShows) {
    const std::string clip = make("clip.mp4", clipOf(3));
    EXPECT_EQ(runProgram({"sheet", clip, "-o", sheet}).out, sheet + ": 3 frames\n");
    EXPECT_EQ(runProgram({"sheet", clip, "-o", sheet, "-q"}).out, "");
}

TEST_F(SheetCommandTest, TakesTheFormatFromTheName) {
    const std::string clip = make("clip.mp4", clipOf(1));
    const std::string jpeg = folder.file("sheet.jpg");
    ASSERT_EQ(runProgram({"sheet", clip, "-o", jpeg}).exitCode, 0);
    EXPECT_EQ(readBytes(jpeg).at(1), 0xD8);
    EXPECT_EQ(runProgram({"sheet", clip, "-o", folder.file("sheet.gif")}).exitCode, 2);
}

TEST_F(SheetCommandTest, RefusesASheetThatIsTooNarrow) {
    const std::string clip = make("clip.mp4", clipOf(1));
    const ProgramResult result =
        runProgram({"sheet", clip, "-o", sheet, "--columns", "20", "--width", "300"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_THAT(result.err, HasSubstr("--width leaves no room for the columns"));
    EXPECT_FALSE(std::filesystem::exists(sheet));
}

} // namespace
