#include "ClipCopierFixture.h"
#include "ClipWriterFixture.h"
#include "support/SoundMaker.h"
#include "support/WrittenFile.h"

#include <TARN/videoio/ClipCopier.h>
#include <TARN/videoio/ClipWriter.h>

#include <algorithm>
#include <cstddef>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::ClipCopierTest;
using test::Fraction;
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

// Matroska stores neither a length nor a rate of it.
TEST_F(ClipCopierTest, TheOnlyPictureIsShown) {
    ClipWriter writer(file("source.mkv"), test::withCodec("h264"));
    writer.writePicture(test::rgbPicture(0), Fraction(0));
    writer.finish();
    copy("source.mkv", "copy.mp4");
    EXPECT_EQ(test::timesIn(file("copy.mp4")).size(), 1U);
    EXPECT_EQ(test::durationIn(file("copy.mp4")), Fraction(1, 25));
}

struct LengthlessSound {
    const char* name;
    const char* muxer;
    const char* encoder;
    const char* sampleFormat;
    test::Options muxing;
    std::vector<const char*> targets; ///< that hold the codec in every release
};

// The last frame is shorter than the others.
TEST_F(ClipCopierTest, SoundWithoutLengthsEndsWithItsLastSample) {
    const test::Options inFragments = {{"movflags", "frag_keyframe+empty_moov"},
                                       {"frag_duration", "300000"},
                                       {"strict", "experimental"}}; // FLAC
    const std::vector<const char*> forAlac = {"copy.m4a", "copy.mov", "copy.mka"};
    for (const LengthlessSound& source :
         {LengthlessSound{"source.mka", "matroska", "alac", "s16p", {}, forAlac},
          LengthlessSound{"source.m4a", "ipod", "alac", "s16p", inFragments, forAlac},
          LengthlessSound{
              "source.mp4", "mp4", "flac", "s16", inFragments, {"copy.mp4", "copy.mka"}}}) {
        test::SoundPlan plan;
        plan.format = source.muxer;
        plan.encoder = source.encoder;
        plan.sampleFormat = source.sampleFormat;
        plan.muxerOptions = source.muxing;
        test::makeSound(file(source.name), plan);
        for (const char* target : source.targets) {
            copy(source.name, target);
            EXPECT_EQ(test::oracleSound(file(target)).samples,
                      test::oracleSound(file(source.name)).samples)
                << source.encoder << " from " << source.name << " to " << target;
            if (std::string(target) != "copy.mka") {
                EXPECT_EQ(test::ReadBack(file(target), AVMEDIA_TYPE_AUDIO).duration(), Fraction(2))
                    << source.encoder << " from " << source.name << " to " << target;
            }
        }
    }
}

// FFmpeg hides the first packet of AAC, which holds nothing but the encoder's run-in.
TEST_F(ClipCopierTest, TheHiddenRunInOfSoundComesWithIt) {
    test::SoundPlan plan;
    plan.format = "ipod";
    plan.rate = 48000;
    plan.encoderOptions = {{"aac_pns", "0"}};
    test::makeSound(file("source.m4a"), plan);
    const auto source = test::oracleSound(file("source.m4a")).samples;
    for (const ClipOrigin origin : {ClipOrigin::AsGiven, ClipOrigin::First}) {
        ClipCopierOptions options;
        options.origin = origin;
        copy("source.m4a", "copy.m4a", options);
        EXPECT_EQ(test::oracleSound(file("copy.m4a")).samples, source);
        copy("source.m4a", "copy.mka", options);
        // Most releases give the run-in of Matroska, at times before 0.
        const auto copied = test::oracleSound(file("copy.mka")).samples;
        constexpr std::ptrdiff_t runIn = 2 * 1024;
        constexpr std::ptrdiff_t compared = 2 * 48000;
        ASSERT_GE(copied.size(), static_cast<size_t>(compared + runIn));
        const auto same = [&](std::ptrdiff_t from) {
            return std::equal(source.begin(), source.begin() + compared, copied.begin() + from);
        };
        EXPECT_TRUE(same(0) || same(runIn));
    }
}

// Sound that begins before the pictures would be cut off, or could not be held.
TEST_F(ClipCopierTest, CountsFromWhatIsShownOrHeardFirst) {
    test::ClipPlan plan;
    plan.format = "mpegts";
    plan.audio = true; // its run-in is heard before the first picture
    make("source.ts", plan);
    ClipCopierOptions options;
    options.origin = ClipOrigin::First;
    for (const char* name : {"copy.mp4", "copy.mkv"}) {
        copy("source.ts", name, options);
        const test::Seen before = test::seenIn(file("source.ts"));
        const test::Seen after = test::seenIn(file(name));
        EXPECT_EQ(after.hashes, before.hashes) << name;
        EXPECT_EQ(test::oracleSound(file(name)).samples,
                  test::oracleSound(file("source.ts")).samples)
            << name;
        EXPECT_GE(after.times.front(), Fraction(0)) << name;
        EXPECT_LT(after.times.front(), Fraction(1, 20)) << name;
    }
}

} // namespace
} // namespace tio::ffmpeg
