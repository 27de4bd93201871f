#include "ClipWriterFixture.h"
#include "ReadBack.h"
#include "support/Expectations.h"

#include <TARN/videoio/ClipWriter.h>
#include <TARN/videoio/Exception.h>

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::click;
using test::ClipWriterTest;
using test::Fraction;
using test::loudest;
using test::ReadBack;
using test::readHeard;
using test::rgbPicture;
using test::steady;
using test::timesIn;
using test::withCodec;
using ::testing::HasSubstr;

// What is told about a clip.

TEST_F(ClipWriterTest, TurnsAndMirrorsAreWritten) {
    for (int number = 0; number < 8; ++number) {
        ClipWriterOptions options;
        options.rate = 25;
        options.rotation = 90 * (number % 4);
        options.mirrored = number >= 4;
        write("clip.mov", {0}, options);
        const ReadBack clip(file("clip.mov"), AVMEDIA_TYPE_VIDEO);
        const int32_t* matrix = compat::displayMatrix(clip.stream());
        if (number == 0)
            continue;
        ASSERT_NE(matrix, nullptr) << number;
        // Where the corner right of the top left one, and the one below it, come to lie: by hand.
        constexpr int right[8][2] = {{1, 0},  {0, 1}, {-1, 0}, {0, -1},
                                     {-1, 0}, {0, 1}, {1, 0},  {0, -1}};
        constexpr int below[8][2] = {{0, 1}, {-1, 0}, {0, -1}, {1, 0},
                                     {0, 1}, {1, 0},  {0, -1}, {-1, 0}};
        EXPECT_EQ(matrix[0], right[number][0] * 65536) << number;
        EXPECT_EQ(matrix[1], right[number][1] * 65536) << number;
        EXPECT_EQ(matrix[3], below[number][0] * 65536) << number;
        EXPECT_EQ(matrix[4], below[number][1] * 65536) << number;
    }
}

TEST_F(ClipWriterTest, WordsChaptersAndShapesOfPixelsAreWritten) {
    for (const char* name : {"clip.mp4", "clip.mkv"}) {
        ClipWriterOptions options;
        options.rate = 25;
        options.audioRate = 48000;
        options.metadata = {{"title", "Böen"},
                            {"comment", "two\nlines"},
                            {"creation_time", "2024-02-29T12:34:56.000000Z"}};
        options.language = "deu";
        options.sampleAspectRatio = Fraction(4, 3);
        options.chapters = {{0, Fraction(1, 5), "One"}, {Fraction(1, 5), Fraction(2, 5), "Two"}};
        ClipWriter writer(file(name), options);
        for (int i = 0; i < 10; ++i)
            writer.writePicture(rgbPicture(i));
        const std::vector<float> samples(19200);
        writer.writeSamples(samples.data(), samples.size(), 1);
        writer.finish();
        const ReadBack clip(file(name), AVMEDIA_TYPE_VIDEO);
        const auto tag = [&](AVDictionary* tags, const char* key) {
            const auto* entry = av_dict_get(tags, key, nullptr, 0);
            return std::string(entry != nullptr ? entry->value : "");
        };
        EXPECT_EQ(tag(clip.file().metadata, "title"), "Böen") << name;
        EXPECT_EQ(tag(clip.file().metadata, "comment"), "two\nlines") << name;
        EXPECT_EQ(tag(clip.file().metadata, "creation_time"), "2024-02-29T12:34:56.000000Z");
        EXPECT_EQ(clip.stream().codecpar->sample_aspect_ratio.num, 4);
        EXPECT_EQ(clip.stream().codecpar->sample_aspect_ratio.den, 3);
        const ReadBack sound(file(name), AVMEDIA_TYPE_AUDIO);
        EXPECT_EQ(tag(sound.stream().metadata, "language"), "deu");
        ASSERT_EQ(clip.file().nb_chapters, 2U) << name;
        EXPECT_EQ(tag(clip.file().chapters[1]->metadata, "title"), "Two");
        EXPECT_EQ(
            test::secondsOf(clip.file().chapters[1]->start, clip.file().chapters[1]->time_base),
            Fraction(1, 5));
    }
}

TEST_F(ClipWriterTest, TheIndexLiesInFrontUnlessItIsNotWanted) {
    for (const bool inFront : {true, false}) {
        ClipWriterOptions options;
        options.faststart = inFront;
        write("clip.mp4", steady, options);
        std::ifstream stream(file("clip.mp4"), std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
        EXPECT_EQ(bytes.find("moov") < bytes.find("mdat"), inFront);
    }
}

// What is refused, and what stays then.

TEST_F(ClipWriterTest, OptionsAreRefusedBeforeThereIsAFile) {
    const auto refused = [&](const std::string& name, const auto& change) {
        ClipWriterOptions options;
        options.rate = 25;
        change(options);
        const std::string text =
            test::thrownText<ClipRefusal>([&] { ClipWriter(file(name), options); });
        EXPECT_THAT(text, HasSubstr(name));
        EXPECT_EQ(filesLeft(), 0);
        return text;
    };
    using Options = ClipWriterOptions;
    EXPECT_THAT(refused("clip.avi", [](Options&) {}), HasSubstr(".mp4, .m4v, .mov"));
    EXPECT_THAT(refused("clip", [](Options&) {}), HasSubstr(".mkv"));
    EXPECT_THAT(refused("c.mp4", [](Options& o) { o.codec = "none"; }), HasSubstr("none"));
    refused("c.mp4", [](Options& o) { o.codec = "aac"; });
    EXPECT_THAT(refused("c.webm", [](Options& o) { o.codec = "h264"; }),
                HasSubstr(".mp4, .m4v, .mov, .mkv can"));
    EXPECT_THAT(refused("c.mp4", [](Options& o) { o.options["no-such"] = "1"; }),
                HasSubstr("\"no-such\""));
    refused("c.mp4", [](Options& o) { o.options["bf"] = "many"; });
    EXPECT_THAT(refused("c.mp4", [](Options& o) { o.preset = "warp"; }), HasSubstr("libx264"));
    refused("c.mp4", [](Options& o) {
        o.codec = "av1";
        o.crf = 500;
    });
    refused("c.mp4", [](Options& o) { o.bitRate = 0; });
    refused("c.mp4", [](Options& o) { o.rate = Fraction(0); });
    refused("c.mp4", [](Options& o) { o.rate = Fraction(1, 0); });
    refused("c.mp4", [](Options& o) { o.timeBase = Fraction(1, 30); });
    refused("c.mp4", [](Options& o) { o.threads = -1; });
    refused("c.mp4", [](Options& o) { o.rotation = 45; });
    EXPECT_THAT(refused("c.mkv", [](Options& o) { o.rotation = 90; }), HasSubstr(".mov"));
    refused("c.mp4", [](Options& o) { o.pixelFormat = "pink"; });
    refused("c.mp4", [](Options& o) { o.language = "german"; });
    refused("c.mp4", [](Options& o) { o.metadata["creation_time"] = "soon"; });
    refused("c.mp4", [](Options& o) { o.chapters = {{1, 1, "None"}}; });
    refused("c.mp4", [](Options& o) { o.sampleAspectRatio = Fraction(0); });
    refused("c.wav", [](Options&) {});
    EXPECT_THAT(refused("c.mp4",
                        [](Options& o) {
                            o.audioRate = 44100;
                            o.audioCodec = "opus";
                        }),
                HasSubstr("48000"));
    refused("c.wav", [](Options& o) {
        o.audioRate = 44100;
        o.audioCodec = "aac";
        o.audioOptions["no-such"] = "1";
    });
    refused("c.mp4", [](Options& o) {
        o.audioRate = 44100;
        o.audioChannels = 99;
    });
}

TEST_F(ClipWriterTest, ARefusedCallChangesNothing) {
    ClipWriterOptions options;
    options.rate = 25;
    options.audioRate = 48000;
    ClipWriter writer(file("clip.mp4"), options);
    EXPECT_THROW(writer.writePicture(rgbPicture(0, 63, 96)), ClipRefusal); // decides on no size
    EXPECT_THROW(writer.finish(), ClipRefusal);
    const std::vector<float> samples = click(24000, 12000);
    const float none[2] = {0, NAN};
    for (int i = 0; i < 20; ++i) {
        writer.writePicture(rgbPicture(i));
        EXPECT_THROW(writer.writePicture(rgbPicture(i), Fraction(1, 1000)), TimeRefusal);
        EXPECT_THROW(writer.writePicture(rgbPicture(i), Fraction(0)), TimeRefusal);
        EXPECT_THROW(writer.writePicture(rgbPicture(i, 64, 98)), ClipRefusal);
        EXPECT_THROW(writer.writePicture(ConstImageView{}), ClipRefusal);
        writer.writeSamples(samples.data() + 1200 * i, 1200, 1);
        EXPECT_THROW(writer.writeSamples(samples.data(), 100, 2), ClipRefusal);
        EXPECT_THROW(writer.writeSamples(samples.data(), 100, 1, Fraction(1)), ClipRefusal);
        EXPECT_THROW(writer.writeSamples(none, 2, 1), ClipRefusal);
        writer.writeSamples(nullptr, 0, 1);
    }
    writer.finish();
    writer.finish();
    EXPECT_THROW(writer.writePicture(rgbPicture(0)), ClipRefusal);
    EXPECT_THAT(timesIn(file("clip.mp4")).size(), 20);
    EXPECT_NEAR(static_cast<double>(loudest(readHeard(file("clip.mp4")).samples)), 12000, 1);
}

TEST_F(ClipWriterTest, OddSizesAreRefusedWithThoseThatCan) {
    ClipWriter writer(file("clip.mp4"), withCodec("h264"));
    const std::string text = test::thrownText<ClipRefusal>(
        [&] { writer.writePicture(rgbPicture(0, 65, 97), Fraction(0)); });
    EXPECT_THAT(text, HasSubstr("96 x 64 or 98 x 66"));
    writer.writePicture(rgbPicture(0, 64, 96), Fraction(0));
    writer.finish();
}

TEST_F(ClipWriterTest, AnUnfinishedClipLeavesWhatWasThere) {
    std::ofstream(file("clip.mp4")) << "before";
    {
        ClipWriter writer(file("clip.mp4"));
        for (int i = 0; i < 100; ++i)
            writer.writePicture(rgbPicture(i), Fraction(i, 25));
        const ClipWriter moved = std::move(writer);
    }
    std::ifstream stream(file("clip.mp4"));
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(stream), {}), "before");
    EXPECT_EQ(filesLeft(), 1);
}

TEST_F(ClipWriterTest, AFileThatIsToStayStays) {
    std::ofstream(file("clip.mp4")) << "before";
    ClipWriterOptions options;
    options.overwrite = false;
    EXPECT_THAT(test::thrownText<Exception>([&] { ClipWriter(file("clip.mp4"), options); }),
                HasSubstr("clip.mp4"));
    EXPECT_THAT(test::thrownText<Exception>([&] { ClipWriter(file("no/clip.mp4")); }),
                HasSubstr("no/clip.mp4"));
}

} // namespace
} // namespace tio::ffmpeg
