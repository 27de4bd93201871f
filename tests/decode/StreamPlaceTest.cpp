#include "support/ClipMaker.h"
#include "support/HashedPicture.h"
#include "support/Interception.h"
#include "support/LogCapture.h"
#include "support/MediaFolder.h"
#include "support/Oracle.h"
#include "support/TemporaryFolder.h"

#include <TARN/videoio/AudioStreamDecoder.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/VideoStreamDecoder.h>

#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

/// @file
/// What is asked of a stream decoder in mid-reading neither loses nor damages a frame.

namespace tio::ffmpeg {
namespace {

using Pictures = std::vector<uint64_t>;

struct Question {
    std::string name;
    std::function<void(VideoStreamDecoder&, const std::string& index)> ask;
};

std::vector<Question> questions() {
    return {
        {"getFrameCount",
         [](VideoStreamDecoder& video, const std::string&) { (void)video.getFrameCount(); }},
        {"storeSeekingIndex",
         [](VideoStreamDecoder& video, const std::string& index) {
             video.storeSeekingIndex(index + ".again");
         }},
        {"loadSeekingIndex", [](VideoStreamDecoder& video,
                                const std::string& index) { video.loadSeekingIndex(index); }},
        {"loadSeekingIndex of no file",
         [](VideoStreamDecoder& video, const std::string& index) {
             EXPECT_THROW(video.loadSeekingIndex(index + ".missing"), tio::Exception);
         }},
        {"seek behind the end",
         [](VideoStreamDecoder& video, const std::string&) {
             EXPECT_THROW(video.seek(1000000), tio::Exception);
         }},
        {"seek before the start",
         [](VideoStreamDecoder& video, const std::string&) {
             EXPECT_THROW(video.seek(-1), tio::Exception);
         }},
        {"seekToOrBefore behind the end",
         [](VideoStreamDecoder& video, const std::string&) {
             EXPECT_THROW((void)video.seekToOrBefore(1000000), tio::Exception);
         }},
    };
}

class StreamPlaceTest : public ::testing::Test {
protected:
    static std::unique_ptr<VideoStreamDecoder> open(const std::string& path) {
        return std::make_unique<VideoStreamDecoder>(std::make_shared<InputFormatContext>(path),
                                                    PixelFormat::RGB);
    }

    static void read(VideoStreamDecoder& video, Pictures& into, size_t most = SIZE_MAX) {
        while (most-- > 0) {
            const auto next = video.readNextFrame();
            if (!next.frame)
                return;
            into.push_back(test::hashedPicture(*next.frame).hash);
        }
    }

    static Pictures truthOf(const std::string& path) {
        Pictures pictures;
        for (const auto& frame : test::oracleFrames(path))
            pictures.push_back(frame.hash);
        return pictures;
    }

    void expectEveryPictureOnce(const std::string& path, const std::vector<size_t>& places) {
        const Pictures truth = truthOf(path);
        const std::string index = folder.file("clip.index");
        open(path)->storeSeekingIndex(index);
        for (const auto& [name, ask] : questions()) {
            for (const size_t place : places) {
                const auto video = open(path);
                Pictures pictures;
                read(*video, pictures, place);
                ask(*video, index);
                read(*video, pictures, 2);
                ask(*video, index);
                read(*video, pictures);
                EXPECT_EQ(pictures, truth) << name << " after " << place << " pictures";
            }
        }
    }

    void expectEveryPictureOnceOfReal(const std::string& name, const std::vector<size_t>& places) {
        const auto path = test::mediaFile(name);
        if (!path)
            GTEST_SKIP() << test::mediaMissingMessage();
        expectEveryPictureOnce(path->string(), places);
    }

    /// Whatever was read and asked before, a seek leads to the picture that it names.
    void expectSeeksToLead(const std::string& path) {
        const Pictures truth = truthOf(path);
        const std::string index = folder.file("clip.index");
        open(path)->storeSeekingIndex(index);
        auto asked = questions();
        asked.push_back({"nothing", [](VideoStreamDecoder&, const std::string&) {}});
        for (const auto& [name, ask] : asked) {
            const auto video = open(path);
            Pictures before;
            read(*video, before, 5);
            for (const int64_t wanted : {19, 2, 20}) {
                ask(*video, index);
                video->seek(wanted);
                Pictures pictures;
                read(*video, pictures, 3);
                EXPECT_EQ(pictures, Pictures(truth.begin() + wanted, truth.begin() + wanted + 3))
                    << wanted << " after " << name;
            }
        }
    }

    /// The next seek fails, after reading on a little.
    void refuseOneSeek() {
        intercepted->av_seek_frame.instead = [left = 1](AVFormatContext* context, int stream,
                                                        int64_t timestamp, int flags) mutable {
            if (left-- <= 0)
                return test::real::seekFrame(context, stream, timestamp, flags);
            AVPacket* packet = av_packet_alloc();
            for (int i = 0; i < 3 && test::real::readFrame(context, packet) >= 0; ++i)
                av_packet_unref(packet);
            av_packet_free(&packet);
            return AVERROR(EPERM);
        };
    }

    std::string clip(const test::ClipPlan& plan = {}) {
        std::string path = folder.file("clip." + plan.format);
        test::makeClip(path, plan);
        return path;
    }

    test::TemporaryFolder folder;
    test::Interception intercepted;
    test::LogCapture log;
};

TEST_F(StreamPlaceTest, InMp4) {
    expectEveryPictureOnce(clip(), {0, 1, 7, 13, 25});
}

TEST_F(StreamPlaceTest, InMp4WithOpenGroups) {
    test::ClipPlan plan;
    plan.openGop = true;
    plan.useEditList = false;
    expectEveryPictureOnce(clip(plan), {0, 13});
}

TEST_F(StreamPlaceTest, InMatroska) {
    test::ClipPlan plan;
    plan.format = "matroska";
    expectEveryPictureOnce(clip(plan), {0, 8});
}

TEST_F(StreamPlaceTest, InATransportStream) {
    test::ClipPlan plan;
    plan.format = "mpegts";
    expectEveryPictureOnce(clip(plan), {0, 8, 20});
}

TEST_F(StreamPlaceTest, InRealClips) {
    expectEveryPictureOnceOfReal("video/sample.mp4", {5, 12});
    expectEveryPictureOnceOfReal("video/h265_bframes.mp4", {6});
}

// It cannot be rewound, so that there is no index; what was asked is refused.
TEST_F(StreamPlaceTest, InAnAviFileWhereTheIndexCannotBeMade) {
    test::ClipPlan plan;
    plan.format = "avi";
    plan.encoder = "mpeg4";
    plan.maxBFrames = 0;
    const std::string path = clip(plan);
    const auto video = open(path);
    Pictures pictures;
    read(*video, pictures, 7);
    EXPECT_THROW((void)video->getFrameCount(), Exception);
    read(*video, pictures, 3);
    EXPECT_THROW(video->seek(2), Exception);
    read(*video, pictures);
    EXPECT_EQ(pictures, truthOf(path));
}

// It cannot be rewound either, and the attempt reads on to its end.
TEST_F(StreamPlaceTest, InAnFlvFileWhateverIsRefused) {
    test::ClipPlan plan;
    plan.format = "flv";
    plan.frameCount = 100;
    const std::string path = clip(plan);
    const Pictures truth = truthOf(path);
    ASSERT_EQ(truth.size(), 100u);
    const std::vector<Question> refused = {
        {"getFrameCount",
         [](VideoStreamDecoder& video, const std::string&) {
             EXPECT_THROW((void)video.getFrameCount(), Exception);
         }},
        {"seek", [](VideoStreamDecoder& video,
                    const std::string&) { EXPECT_THROW(video.seek(50), Exception); }},
        {"loadSeekingIndex of no file",
         [](VideoStreamDecoder& video, const std::string& index) {
             EXPECT_THROW(video.loadSeekingIndex(index), tio::Exception);
         }},
    };
    for (const auto& [name, ask] : refused) {
        for (const size_t place : {0U, 1U, 5U, 40U, 100U}) {
            const auto video = open(path);
            Pictures pictures;
            read(*video, pictures, place);
            ask(*video, folder.file("missing.index"));
            read(*video, pictures, 2);
            ask(*video, folder.file("missing.index"));
            read(*video, pictures);
            EXPECT_EQ(pictures, truth) << name << " after " << place << " pictures";
        }
    }
}

TEST_F(StreamPlaceTest, WhereTheInputRefusesASeek) {
    const std::string path = clip();
    const Pictures truth = truthOf(path);
    const auto video = open(path);
    Pictures pictures;
    read(*video, pictures, 7);
    EXPECT_EQ(video->getFrameCount(), 25);
    refuseOneSeek();
    EXPECT_THROW(video->seek(20), Exception);
    read(*video, pictures);
    EXPECT_EQ(pictures, truth);
    video->seek(3);
    refuseOneSeek();
    EXPECT_THROW(video->seek(20), Exception);
    pictures.clear();
    read(*video, pictures);
    EXPECT_EQ(pictures, Pictures(truth.begin() + 3, truth.end()));
}

TEST_F(StreamPlaceTest, ASeekLeadsToTheFrameWhateverWasRead) {
    test::ClipPlan plan;
    expectSeeksToLead(clip(plan));
    plan.format = "mov";
    plan.encoder = "mjpeg";
    plan.pixelFormat = "yuvj420p";
    plan.maxBFrames = 0;
    expectSeeksToLead(clip(plan));
    plan = {};
    plan.format = "matroska";
    plan.encoder = "mpeg4";
    expectSeeksToLead(clip(plan));
}

TEST_F(StreamPlaceTest, ASeekLeadsToTheBlockOfSound) {
    test::ClipPlan plan;
    plan.format = "mov";
    plan.audio = true;
    const std::string path = clip(plan);
    for (const bool askFirst : {false, true}) {
        AudioStreamDecoder sound(std::make_shared<InputFormatContext>(path));
        for (int i = 0; i < 5; ++i)
            (void)sound.readNextFrame();
        if (askFirst)
            (void)sound.getFrameCount();
        sound.seek(30);
        // Every packet has 1024 samples. The first, the priming, is to be discarded and no frame.
        EXPECT_EQ(sound.readNextFrame().timestamp, Rational(30 * 1024, 48000)) << askFirst;
    }
}

TEST_F(StreamPlaceTest, OfSound) {
    test::ClipPlan plan;
    plan.audio = true;
    const auto input = [path = clip(plan)] { return std::make_shared<InputFormatContext>(path); };
    const auto readSome = [](AudioStreamDecoder& sound, size_t most, std::vector<Rational>& times) {
        while (most-- > 0) {
            const auto block = sound.readNextFrame();
            if (block.samples.count == 0)
                return;
            times.push_back(block.timestamp);
        }
    };
    std::vector<Rational> expected;
    AudioStreamDecoder undisturbed(input());
    readSome(undisturbed, SIZE_MAX, expected);
    std::vector<Rational> times;
    AudioStreamDecoder sound(input());
    readSome(sound, 9, times);
    EXPECT_GT(sound.getFrameCount(), 40);
    readSome(sound, SIZE_MAX, times);
    EXPECT_EQ(times, expected);
    EXPECT_GT(times.size(), 40u);
}

TEST_F(StreamPlaceTest, AfterASeekAsWell) {
    const std::string path = clip();
    const Pictures truth = truthOf(path);
    const std::string index = folder.file("clip.index");
    open(path)->storeSeekingIndex(index);
    for (const int64_t start : {0, 5, 20}) {
        const auto video = open(path);
        video->seek(start);
        EXPECT_THROW(video->seek(25), tio::Exception);
        video->loadSeekingIndex(index);
        Pictures pictures;
        read(*video, pictures);
        EXPECT_EQ(pictures, Pictures(truth.begin() + start, truth.end())) << start;
    }
}

TEST_F(StreamPlaceTest, ANewReaderThatIsAskedFirstBeginsWithTheFirstFrame) {
    const std::string path = clip();
    const auto video = open(path);
    EXPECT_EQ(video->getFrameCount(), 25);
    Pictures pictures;
    read(*video, pictures);
    EXPECT_EQ(pictures, truthOf(path));
}

TEST_F(StreamPlaceTest, WhereThePlaceIsNotFoundAgainThisIsSaid) {
    const auto video = open(clip());
    Pictures pictures;
    read(*video, pictures, 3);
    // From now on every packet has another time.
    intercepted->av_read_frame.instead = [](AVFormatContext* context, AVPacket* packet) {
        const int result = test::real::readFrame(context, packet);
        if (result >= 0)
            packet->dts -= 1;
        return result;
    };
    (void)video->readNextFrame(); // so that the next packet is one of those
    int shift = 2;
    intercepted->av_read_frame.instead = [&](AVFormatContext* context, AVPacket* packet) {
        const int result = test::real::readFrame(context, packet);
        if (result >= 0)
            packet->dts -= shift++;
        return result;
    };
    EXPECT_THROW((void)video->getFrameCount(), tio::Exception);
}

} // namespace
} // namespace tio::ffmpeg
