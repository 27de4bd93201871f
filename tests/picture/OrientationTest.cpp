#include "picture/orientation.h"

#include "ffmpeg_compat.h"
#include "support/BareObjects.h"
#include "support/Ffmpeg.h"

extern "C" {
#include <libavutil/display.h>
#include <libavutil/frame.h>
}

#include <array>
#include <cstdint>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace tio::ffmpeg::detail {
namespace {

using ::testing::ElementsAre;
using Image = Mat<Vec<uint8_t, 3>, 2, MatOptions<1, 1>>;

class OrientationOfFrame : public ::testing::Test {
protected:
    void giveTag(const char* value) { av_dict_set(&frame->metadata, "Orientation", value, 0); }

    void giveMatrix(const std::array<int32_t, 9>& matrix) {
        auto* data = test::checkFound(
            av_frame_new_side_data(frame.get(), AV_FRAME_DATA_DISPLAYMATRIX, sizeof matrix),
            "side data");
        std::memcpy(data->data, matrix.data(), sizeof matrix);
    }

    test::FramePointer frame{av_frame_alloc()};
};

TEST_F(OrientationOfFrame, IsUprightWhereNothingIsStated) {
    EXPECT_EQ(orientationOf(*frame), 1);
}

class OrientationTag : public OrientationOfFrame,
                       public ::testing::WithParamInterface<std::pair<const char*, int>> {};

TEST_P(OrientationTag, IsTheOrientationUnlessItIsNoneOfTheEight) {
    giveTag(GetParam().first);
    EXPECT_EQ(orientationOf(*frame), GetParam().second);
}

INSTANTIATE_TEST_SUITE_P(Values, OrientationTag,
                         ::testing::Values(std::pair("1", 1), std::pair("    6", 6),
                                           std::pair("8", 8), std::pair("0", 1), std::pair("9", 1),
                                           std::pair("-1", 1), std::pair("99999999999", 1),
                                           std::pair("", 1), std::pair("left", 1)));

// From stored columns and rows to shown ones: (0, 1, -1, 0) leads the row from top to bottom to
// columns from right to left, a clockwise turn.
struct MatrixCase {
    std::array<int32_t, 4> corner;
    int orientation;
};

class OrientationMatrix : public OrientationOfFrame,
                          public ::testing::WithParamInterface<MatrixCase> {
protected:
    void giveCorner(int32_t scale) {
        const auto [a, b, c, d] = GetParam().corner;
        giveMatrix({a * scale, b * scale, 0, c * scale, d * scale, 0, 0, 0, 1 << 30});
    }
};

TEST_P(OrientationMatrix, IsReadByTheSignsOfItsCorner) {
    giveCorner(65536);
    EXPECT_EQ(orientationOf(*frame), GetParam().orientation);
}

TEST_P(OrientationMatrix, GivesWayToTheTag) {
    giveCorner(65536);
    giveTag("3");
    EXPECT_EQ(orientationOf(*frame), 3);
}

INSTANTIATE_TEST_SUITE_P(
    Eight, OrientationMatrix,
    ::testing::Values(MatrixCase{{1, 0, 0, 1}, 1}, MatrixCase{{-1, 0, 0, 1}, 2},
                      MatrixCase{{-1, 0, 0, -1}, 3}, MatrixCase{{1, 0, 0, -1}, 4},
                      MatrixCase{{0, 1, 1, 0}, 5}, MatrixCase{{0, 1, -1, 0}, 6},
                      MatrixCase{{0, -1, -1, 0}, 7}, MatrixCase{{0, -1, 1, 0}, 8}));

TEST_F(OrientationOfFrame, AMatrixThatIsNoQuarterTurnIsUpright) {
    std::array<int32_t, 9> matrix{};
    av_display_rotation_set(matrix.data(), 45);
    giveMatrix(matrix);
    EXPECT_EQ(orientationOf(*frame), 1);
}

TEST_F(OrientationOfFrame, AMatrixOfTooFewBytesIsIgnored) {
    ASSERT_NE(av_frame_new_side_data(frame.get(), AV_FRAME_DATA_DISPLAYMATRIX, 8), nullptr);
    EXPECT_EQ(orientationOf(*frame), 1);
}

TEST_P(OrientationMatrix, IsThatOfAStreamToo) {
    const auto [a, b, c, d] = GetParam().corner;
    const std::array<int32_t, 9> matrix = {a * 65536, b * 65536, 0, c * 65536, d * 65536,
                                           0,         0,         0, 1 << 30};
    const Turning found = turningOfMatrix(matrix.data());
    EXPECT_EQ(found.way, GetParam().orientation);
    EXPECT_TRUE(found.exact);
}

// Turning clockwise and then mirroring left to right, each as a matrix over (column, row), gives
// the corner of the display matrix again.
TEST_P(OrientationMatrix, IsATurnClockwiseAndThenAMirror) {
    const Turning found{GetParam().orientation, true};
    std::array<int32_t, 4> corner = {1, 0, 0, 1};
    for (int quarter = 0; quarter < found.degreesClockwise() / 90; ++quarter)
        corner = {-corner[1], corner[0], -corner[3], corner[2]};
    if (found.isMirrored())
        corner = {-corner[0], corner[1], -corner[2], corner[3]};
    EXPECT_EQ(corner, GetParam().corner);
    EXPECT_EQ(found.isOnItsSide(), corner[0] == 0);
}

class NearestTurn : public ::testing::TestWithParam<std::pair<double, int>> {};

TEST_P(NearestTurn, IsTakenOfAnAngleBetween) {
    std::array<int32_t, 9> matrix{};
    av_display_rotation_set(matrix.data(), GetParam().first); // clockwise
    const Turning found = turningOfMatrix(matrix.data());
    EXPECT_EQ(found.way, GetParam().second);
    EXPECT_FALSE(found.exact);
}

INSTANTIATE_TEST_SUITE_P(Angles, NearestTurn,
                         ::testing::Values(std::pair(10.0, 1), std::pair(44.0, 1),
                                           std::pair(46.0, 6), std::pair(100.0, 6),
                                           std::pair(170.0, 3), std::pair(-100.0, 8),
                                           std::pair(-10.0, 1)));

TEST(NearestTurnTest, OfAMatrixThatLeadsEverythingToOnePlaceIsNone) {
    const std::array<int32_t, 9> matrix{};
    const Turning found = turningOfMatrix(matrix.data());
    EXPECT_EQ(found.way, 1);
    EXPECT_FALSE(found.exact);
}

class OrientationOfStream : public ::testing::Test {
protected:
    void giveTag(const char* value) {
        test::check(av_dict_set(&context.stream().metadata, "rotate", value, 0), "tag");
    }

    const test::BareContext context;
};

TEST_F(OrientationOfStream, IsThatOfItsTagWhereItHasNoMatrix) {
    giveTag("90");
    EXPECT_EQ(turningOf(context.stream()).way, 6);
    giveTag("-90");
    EXPECT_EQ(turningOf(context.stream()).way, 8);
    giveTag("180");
    EXPECT_EQ(turningOf(context.stream()).way, 3);
}

TEST_F(OrientationOfStream, IsThatOfItsMatrixWhateverTheTagSays) {
    giveTag("180");
    test::check(compat::setRotation(context.stream(), 3), "matrix");
    EXPECT_EQ(turningOf(context.stream()).way, 8);
}

// A stored image of two rows and three columns:
//   1 2 3
//   4 5 6
Image stored() {
    Image image(Vec<int, 2>(2, 3));
    for (int i = 0; i < image.count; ++i)
        image.data()[i] = Vec<uint8_t, 3>(static_cast<uint8_t>(i + 1), 0, 0);
    return image;
}

std::vector<std::string> rowsOf(const Image& image) {
    std::vector<std::string> rows;
    for (int row = 0; row < image.rows(); ++row) {
        rows.emplace_back();
        for (int col = 0; col < image.cols(); ++col)
            rows.back() += std::to_string(image(row, col)[0]);
    }
    return rows;
}

TEST(TurnUpright, LeavesAnUprightImageInItsMemory) {
    const Image image = stored();
    EXPECT_EQ(turnUpright(image, 1).storage, image.storage);
}

TEST(TurnUpright, MirrorsAndTurnsOnItsFeet) {
    EXPECT_THAT(rowsOf(turnUpright(stored(), 2)), ElementsAre("321", "654"));
    EXPECT_THAT(rowsOf(turnUpright(stored(), 3)), ElementsAre("654", "321"));
    EXPECT_THAT(rowsOf(turnUpright(stored(), 4)), ElementsAre("456", "123"));
}

TEST(TurnUpright, MirrorsAndTurnsFromItsSide) {
    EXPECT_THAT(rowsOf(turnUpright(stored(), 5)), ElementsAre("14", "25", "36"));
    EXPECT_THAT(rowsOf(turnUpright(stored(), 6)), ElementsAre("41", "52", "63"));
    EXPECT_THAT(rowsOf(turnUpright(stored(), 7)), ElementsAre("63", "52", "41"));
    EXPECT_THAT(rowsOf(turnUpright(stored(), 8)), ElementsAre("36", "25", "14"));
}

} // namespace
} // namespace tio::ffmpeg::detail
