#include "ClipCopierFixture.h"
#include "ClipWriterFixture.h"
#include "support/WrittenFile.h"

#include <TARN/videoio/ClipCopier.h>
#include <TARN/videoio/ClipWriter.h>

#include <cstddef>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <utility>

namespace tio::ffmpeg {
namespace {

using test::ClipCopierTest;
using ::testing::ElementsAreArray;

// Decoding times of copies.

// The demuxer ends a track at key pictures whose packets last longer than what is left of it.
TEST_F(ClipCopierTest, PicturesAtTheEndAreReadHoweverFarApartTheKeyPicturesAre) {
    for (const char* source : {"source.mp4", "source.mkv"}) {
        for (const auto& [g, bf] :
             {std::pair("1", "2"), std::pair("2", "2"), std::pair("2", "3")}) {
            ClipWriterOptions options = test::withCodec("mpeg4");
            options.options = {{"g", g}, {"bf", bf}};
            options.fragmented = true;
            for (int dense = 0; dense <= 5; ++dense) {
                const test::Times times = test::sparseThenDense(4, dense);
                ClipWriter writer(file(source), options);
                for (std::size_t i = 0; i < times.size(); ++i)
                    writer.writePicture(test::rgbPicture(static_cast<int>(i)), times[i]);
                writer.finish();
                copy(source, "copy.mp4");
                EXPECT_THAT(test::timesIn(file("copy.mp4")), ElementsAreArray(times))
                    << source << ", g " << g << ", bf " << bf << ", " << dense;
            }
        }
    }
}

// Readers take the rate of a track from how its packets are decoded.
TEST_F(ClipCopierTest, AnEvenRateIsDecodedEvenlyWhereverTheKeyPicturesAre) {
    for (const char* g : {"1", "2", "5"}) {
        ClipWriterOptions options = test::withCodec("mpeg4");
        options.options = {{"g", g}, {"bf", "1"}};
        options.rate = 25;
        ClipWriter writer(file("source.mp4"), options);
        for (int i = 0; i < 31; ++i)
            writer.writePicture(test::rgbPicture(i));
        writer.finish();
        copy("source.mp4", "copy.mp4");
        for (const char* name : {"source.mp4", "copy.mp4"}) {
            const test::FileContents contents = test::readFile(file(name));
            const auto& packets = contents.packets;
            ASSERT_EQ(packets.size(), 31U);
            for (std::size_t i = 1; i < packets.size(); ++i)
                EXPECT_EQ(packets[i].dts - packets[i - 1].dts, packets[1].dts - packets[0].dts)
                    << name << ", g " << g << ", packet " << i;
        }
    }
}

} // namespace
} // namespace tio::ffmpeg
