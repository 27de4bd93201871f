#include "support/ClipMaker.h"
#include "support/LogCapture.h"
#include "support/MediaFolder.h"
#include "support/Muxing.h"
#include "support/Oracle.h"
#include "support/TemporaryFolder.h"
#include "support/WrittenFile.h"

#include <TARN/videoio/InputStream.h>
#include <TARN/videoio/OutputStream.h>

#include <algorithm>
#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::FileContents;
using test::FilePacket;
using ::testing::SizeIs;

// Copies packets as they are from one file into another.
class RemuxTest : public ::testing::Test {
protected:
    // One stream of the source on its way. A context of its own keeps the packets of the other
    // streams from being dropped.
    struct Copy {
        std::shared_ptr<InputFormatContext> input;
        std::unique_ptr<InputStream> from;
        std::unique_ptr<OutputStream> to;
        std::shared_ptr<InputPacket> next;
    };

    void remux(const std::vector<int>& streams, int rotation = 0) const {
        const auto output = std::make_shared<OutputFormatContext>(path);
        std::vector<Copy> copies;
        for (const int stream : streams) {
            Copy copy;
            copy.input = std::make_shared<InputFormatContext>(source);
            copy.from = std::make_unique<InputStream>(copy.input, stream);
            copy.to = std::make_unique<OutputStream>(output, copy.from->getUnitTime());
            copy.to->setRotation(rotation);
            copy.next = copy.from->getNextPacket();
            copies.push_back(std::move(copy));
        }
        while (Copy* copy = earliest(copies)) {
            copy->to->writePacket(*copy->next);
            copy->next = copy->from->getNextPacket();
        }
        copies.clear();
        output->finish();
    }

    // The packets of one kind of stream, which must be the same in the same order, with the same
    // distances in time.
    void expectSamePackets(AVMediaType type) const {
        const FileContents before = test::readFile(source);
        const FileContents after = test::readFile(path);
        const auto from = before.of(before.find(type));
        const auto to = after.of(after.find(type));
        const AVRational fromBase = before.streams[static_cast<size_t>(before.find(type))].timeBase;
        const AVRational toBase = after.streams[static_cast<size_t>(after.find(type))].timeBase;
        ASSERT_THAT(to, SizeIs(from.size()));
        const auto seconds = [](int64_t ticks, AVRational base) {
            return Rational(ticks, 1) * Rational(base);
        };
        for (size_t i = 0; i < from.size(); ++i) {
            EXPECT_EQ(to[i].data, from[i].data) << i;
            EXPECT_EQ(to[i].key, from[i].key) << i;
            EXPECT_EQ(seconds(to[i].pts - to[0].pts, toBase),
                      seconds(from[i].pts - from[0].pts, fromBase))
                << i;
            EXPECT_EQ(seconds(to[i].pts - to[i].dts, toBase),
                      seconds(from[i].pts - from[i].dts, fromBase))
                << i;
        }
    }

    static int quarterTurnsOf(const std::string& file) {
        const auto input = test::openInput(file);
        return test::oracleQuarterTurns(input->streams[0]);
    }

    void expectSamePictures() const {
        test::OracleOptions options;
        options.rotate = false;
        const auto before = test::oracleFrames(source, options);
        const auto after = test::oracleFrames(path, options);
        ASSERT_THAT(after, SizeIs(before.size()));
        for (size_t i = 0; i < before.size(); ++i)
            EXPECT_EQ(after[i].hash, before[i].hash) << i;
    }

    test::TemporaryFolder folder;
    std::string source = folder.file("source.mp4");
    std::string path = folder.file("copy.mp4");
    test::LogCapture log;

private:
    static Copy* earliest(std::vector<Copy>& copies) {
        Copy* first = nullptr;
        for (Copy& copy : copies) {
            if (copy.next && (!first || timeOf(*copy.next) < timeOf(*first->next)))
                first = &copy;
        }
        return first;
    }

    static Rational timeOf(const InputPacket& packet) {
        return Rational(packet.getPacket().dts, 1) * packet.getUnitTime();
    }
};

TEST_F(RemuxTest, PacketsOfAClipWithBFramesAreTheSame) {
    test::ClipPlan plan;
    plan.maxBFrames = 3;
    test::makeClip(source, plan);
    remux({0});
    const auto packets = test::readFile(source).of(0);
    EXPECT_TRUE(std::any_of(packets.begin(), packets.end(), [](const FilePacket& p) {
        return p.dts != p.pts;
    })) << "the clip has B-frames";
    expectSamePackets(AVMEDIA_TYPE_VIDEO);
    expectSamePictures();
}

TEST_F(RemuxTest, PicturesAndSoundAreTheSame) {
    test::ClipPlan plan;
    plan.audio = true;
    test::makeClip(source, plan);
    remux({0, 1});
    expectSamePackets(AVMEDIA_TYPE_VIDEO);
    expectSamePackets(AVMEDIA_TYPE_AUDIO);
    expectSamePictures();
}

TEST_F(RemuxTest, SoundKeepsItsDistanceToThePictures) {
    test::ClipPlan plan;
    plan.audio = true;
    test::makeClip(source, plan);
    remux({0, 1});
    const auto distance = [](const FileContents& file) {
        const int video = file.find(AVMEDIA_TYPE_VIDEO);
        const int audio = file.find(AVMEDIA_TYPE_AUDIO);
        return Rational(file.ptsOf(audio)[0], 1) *
                   Rational(file.streams[static_cast<size_t>(audio)].timeBase) -
               Rational(file.ptsOf(video)[0], 1) *
                   Rational(file.streams[static_cast<size_t>(video)].timeBase);
    };
    EXPECT_EQ(distance(test::readFile(path)), distance(test::readFile(source)));
}

TEST_F(RemuxTest, AClipThatStartsLateStartsAtZero) {
    test::ClipPlan plan;
    plan.pts = {100, 101, 102, 103};
    plan.maxBFrames = 0;
    test::makeClip(source, plan);
    remux({0});
    EXPECT_EQ(test::readFile(path).ptsOf(0).front(), 0);
    expectSamePackets(AVMEDIA_TYPE_VIDEO);
}

TEST_F(RemuxTest, ADisplayMatrixIsNotCarriedOver) {
    test::ClipPlan plan;
    plan.rotation = 90;
    test::makeClip(source, plan);
    remux({0});
    EXPECT_EQ(quarterTurnsOf(source), 1);
    EXPECT_EQ(quarterTurnsOf(path), 0);
    expectSamePackets(AVMEDIA_TYPE_VIDEO);
}

TEST_F(RemuxTest, ARotationThatIsAskedForIsWritten) {
    test::makeClip(source, {});
    for (int turns = 0; turns < 4; ++turns) {
        remux({0}, turns);
        EXPECT_EQ(quarterTurnsOf(path), turns);
    }
}

TEST_F(RemuxTest, AMatroskaClipBecomesMp4) {
    source = folder.file("source.mkv");
    test::ClipPlan plan;
    plan.format = "matroska";
    plan.maxBFrames = 0;
    test::makeClip(source, plan);
    remux({0});
    EXPECT_THAT(test::readFile(path).format, ::testing::HasSubstr("mp4"));
    expectSamePictures();
}

TEST_F(RemuxTest, RealClipsWithBFramesAreTheSame) {
    for (const char* name :
         {"video/bbb_prog_10s.mp4", "video/midroll-5s.mp4", "video/white.mp4", "video/small.mp4"}) {
        const auto clip = test::mediaFile(name);
        if (!clip)
            GTEST_SKIP() << test::mediaMissingMessage();
        SCOPED_TRACE(name);
        source = clip->string();
        const FileContents before = test::readFile(source);
        remux({before.find(AVMEDIA_TYPE_VIDEO)});
        expectSamePackets(AVMEDIA_TYPE_VIDEO);
    }
}

} // namespace
} // namespace tio::ffmpeg
