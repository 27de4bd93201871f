#include "support/ClipMaker.h"
#include "support/Expectations.h"
#include "support/TemporaryFolder.h"

#include <TARN/videoio/Metadata.h>

#include <cstdlib>
#include <gtest/gtest.h>

namespace tio::ffmpeg {
namespace {

class MetadataTest : public testing::Test {
protected:
    Metadata of(const test::ClipPlan& plan, int stream = 0) {
        const std::string clip = folder.file("clip");
        test::makeClip(clip, plan);
        return metadataOf(InputFormatContext(clip), stream);
    }

    /// Of a clip that the ffmpeg program makes.
    Metadata ofMade(const std::string& arguments, const std::string& name = "made.mp4") {
        const std::string clip = folder.file(name);
        const std::string command = "ffmpeg -v error -y " + arguments + " " + clip;
        if (std::system(command.c_str()) != 0)
            throw std::runtime_error(command);
        return metadataOf(InputFormatContext(clip), 0);
    }

    test::TemporaryFolder folder;
};

#define SKIP_WITHOUT_FFMPEG()                                                                      \
    if (std::system("ffmpeg -version > /dev/null 2>&1") != 0)                                      \
    GTEST_SKIP() << "the ffmpeg program is not installed"

TEST_F(MetadataTest, TellsWhatAVideoStreamIs) {
    const Metadata metadata = of({});
    EXPECT_EQ(metadata.container, "mov,mp4,m4a,3gp,3g2,mj2");
    EXPECT_EQ(metadata.type, StreamType::Video);
    EXPECT_EQ(metadata.codec, "h264");
    EXPECT_EQ(metadata.pixelFormat, "yuv420p");
    EXPECT_EQ(metadata.bits, 8);
    EXPECT_EQ(metadata.width, 96);
    EXPECT_EQ(metadata.height, 64);
    EXPECT_EQ(metadata.frameCount, 25);
    EXPECT_EQ(metadata.averageRate, Rational(25, 1));
    EXPECT_FALSE(metadata.rateVaries);
    EXPECT_EQ(metadata.duration, Rational(1, 1));
    EXPECT_GT(metadata.bitRate.value_or(0), 0);
    EXPECT_EQ(metadata.rate, std::nullopt);
}

TEST_F(MetadataTest, TellsTheBitsOfDeeperPictures) {
    test::ClipPlan plan;
    plan.pixelFormat = "yuv420p10le";
    const Metadata metadata = of(plan);
    EXPECT_EQ(metadata.pixelFormat, "yuv420p10le");
    EXPECT_EQ(metadata.bits, 10);
}

TEST_F(MetadataTest, TellsBothSizesOfATurnedClip) {
    test::ClipPlan plan;
    plan.rotation = 90;
    const Metadata metadata = of(plan);
    EXPECT_EQ(metadata.rotation, 90);
    EXPECT_FALSE(metadata.mirrored);
    EXPECT_TRUE(metadata.turnIsExact);
    EXPECT_EQ(metadata.codedWidth, 96);
    EXPECT_EQ(metadata.codedHeight, 64);
    EXPECT_EQ(metadata.width, 64);
    EXPECT_EQ(metadata.height, 96);
}

TEST_F(MetadataTest, TellsASoundStream) {
    test::ClipPlan plan;
    plan.audio = true;
    const Metadata metadata = of(plan, 1);
    EXPECT_EQ(metadata.type, StreamType::Audio);
    EXPECT_EQ(metadata.codec, "aac");
    EXPECT_EQ(metadata.sampleFormat, "fltp");
    EXPECT_EQ(metadata.rate, 48000);
    EXPECT_EQ(metadata.channels, 1);
    EXPECT_EQ(metadata.layout, "mono");
    EXPECT_EQ(metadata.width, std::nullopt);
}

TEST_F(MetadataTest, TellsTheLayoutOfManyChannels) {
    SKIP_WITHOUT_FFMPEG();
    const Metadata metadata =
        ofMade("-f lavfi -i anullsrc=r=44100:cl=5.1 -t 0.2 -c:a flac", "sound.flac");
    EXPECT_EQ(metadata.channels, 6);
    EXPECT_EQ(metadata.layout, "5.1");
    EXPECT_EQ(metadata.rate, 44100);
}

TEST_F(MetadataTest, TellsColourTagsAndTheShapeOfPixels) {
    SKIP_WITHOUT_FFMPEG();
    const Metadata metadata =
        ofMade("-f lavfi -i testsrc=s=64x48:r=25:d=0.2 -pix_fmt yuv420p -vf setsar=4/3,"
               "format=yuv420p,setparams=colorspace=bt709:range=pc:color_primaries=bt2020:"
               "color_trc=smpte2084 -colorspace bt709 -color_range pc -color_primaries bt2020 "
               "-color_trc smpte2084 -c:v libx264");
    EXPECT_EQ(metadata.colourSpace, "bt709");
    EXPECT_EQ(metadata.colourRange, "pc");
    EXPECT_EQ(metadata.colourPrimaries, "bt2020");
    EXPECT_EQ(metadata.colourTransfer, "smpte2084");
    EXPECT_EQ(metadata.sampleAspectRatio, Rational(4, 3));
}

TEST_F(MetadataTest, LeavesOpenWhatIsNotTold) {
    test::ClipPlan plan;
    plan.format = "h264";
    const Metadata metadata = of(plan);
    EXPECT_EQ(metadata.duration, std::nullopt);
    EXPECT_EQ(metadata.bitRate, std::nullopt);
    EXPECT_EQ(metadata.frameCount, std::nullopt);
    EXPECT_EQ(metadata.colourSpace, "");
    EXPECT_EQ(metadata.sampleAspectRatio, std::nullopt);
}

TEST_F(MetadataTest, TellsThatTheRateVaries) {
    test::ClipPlan plan;
    plan.timeBase = {1, 1000};
    plan.pts = {0, 40, 90, 100, 250, 251, 400};
    EXPECT_TRUE(of(plan).rateVaries);
}

TEST_F(MetadataTest, TellsTheTagsOfContainerAndStream) {
    SKIP_WITHOUT_FFMPEG();
    const Metadata metadata =
        ofMade("-f lavfi -i testsrc=s=64x48:r=25:d=0.2 -c:v libx264 -metadata title=Harbour "
               "-metadata:s:v:0 language=deu");
    EXPECT_EQ(metadata.tags.at("title"), "Harbour");
    EXPECT_EQ(metadata.tags.at("language"), "deu");
}

TEST_F(MetadataTest, RefusesAStreamThatIsNotThere) {
    const std::string clip = folder.file("clip.mp4");
    test::makeClip(clip, {});
    const InputFormatContext input(clip);
    for (const int stream : {-1, 1})
        EXPECT_EQ(
            test::thrownText<tio::Exception>([&] { static_cast<void>(metadataOf(input, stream)); }),
            "There is no stream " + std::to_string(stream) + ": " + clip);
}

} // namespace
} // namespace tio::ffmpeg
