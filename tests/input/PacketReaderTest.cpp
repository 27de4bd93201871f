#include "support/ClipMaker.h"
#include "support/Ffmpeg.h"
#include "support/Interception.h"
#include "support/LogCapture.h"
#include "support/PacketScript.h"
#include "support/TemporaryFolder.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/PacketReader.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace tio::ffmpeg {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

struct Read {
    int stream;
    int64_t pts;
    int64_t dts;
    int size;

    bool operator==(const Read& other) const {
        return stream == other.stream && pts == other.pts && dts == other.dts && size == other.size;
    }
};

/// All packets of a file in its order, by libavformat alone.
std::vector<Read> packetsOf(const std::string& path) {
    AVFormatContext* opened = nullptr;
    test::check(avformat_open_input(&opened, path.c_str(), nullptr, nullptr), "opening");
    const test::InputPointer input(opened);
    test::check(avformat_find_stream_info(opened, nullptr), "stream info");
    const test::PacketPointer packet(test::checkFound(av_packet_alloc(), "packet"));
    std::vector<Read> all;
    while (av_read_frame(opened, packet.get()) >= 0) {
        all.push_back({packet->stream_index, packet->pts, packet->dts, packet->size});
        av_packet_unref(packet.get());
    }
    return all;
}

class PacketReaderTest : public ::testing::Test {
protected:
    PacketReaderTest() {
        test::ClipPlan plan;
        plan.audio = true;
        test::makeClip(clip, plan);
    }

    static std::vector<Read> readAll(PacketReader& reader) {
        std::vector<Read> all;
        for (auto next = reader.getNextPacket(); next.packet; next = reader.getNextPacket()) {
            const AVPacket& packet = next.packet->getPacket();
            EXPECT_EQ(packet.stream_index, next.streamIndex);
            EXPECT_EQ(next.packet->getStream().index, next.streamIndex);
            all.push_back({next.streamIndex, packet.pts, packet.dts, packet.size});
        }
        return all;
    }

    test::TemporaryFolder folder;
    std::string clip = folder.file("clip.mp4");
    test::Interception intercepted;
    test::LogCapture log;
    std::shared_ptr<InputFormatContext> input;

    PacketReader reader(std::vector<int> streams) {
        input = std::make_shared<InputFormatContext>(clip);
        return PacketReader(input, std::move(streams));
    }
};

TEST_F(PacketReaderTest, GivesThePacketsOfAllStreamsInTheOrderOfTheFile) {
    PacketReader both = reader({0, 1});
    const std::vector<Read> all = readAll(both);
    ASSERT_THAT(all, Not(IsEmpty()));
    EXPECT_EQ(all, packetsOf(clip));
    EXPECT_EQ(input->getEndReason().kind, EndReason::Kind::EndOfStream);
}

TEST_F(PacketReaderTest, ReadsTheInputOnce) {
    const size_t packets = packetsOf(clip).size();
    PacketReader both = reader({1, 0});
    const int before = intercepted->av_read_frame.count;
    ASSERT_EQ(readAll(both).size(), packets);
    EXPECT_EQ(static_cast<size_t>(intercepted->av_read_frame.count - before), packets + 1);
}

TEST_F(PacketReaderTest, PassesOverTheStreamsThatItIsNotAskedFor) {
    std::vector<Read> expected;
    for (const Read& packet : packetsOf(clip))
        if (packet.stream == 1)
            expected.push_back(packet);
    PacketReader sound = reader({1});
    ASSERT_THAT(expected, Not(IsEmpty()));
    EXPECT_EQ(readAll(sound), expected);
}

TEST_F(PacketReaderTest, PassesOverEmptyPackets) {
    PacketReader both = reader({0, 1});
    const test::PacketScript script({{10, 10, 0, 0, 0}, {20, 20, 0, 5, 1}, {30, 30, 0, 0, 1}});
    EXPECT_THAT(readAll(both), ElementsAre(Read{1, 20, 20, 5}));
}

TEST_F(PacketReaderTest, GivesNothingFurtherAtTheEnd) {
    PacketReader both = reader({0, 1});
    (void)readAll(both);
    const PacketOfStream next = both.getNextPacket();
    EXPECT_EQ(next.packet, nullptr);
    EXPECT_EQ(next.streamIndex, -1);
}

TEST_F(PacketReaderTest, GivesAPacketForWhichMemoryRanOutWithTheNextCall) {
    PacketReader both = reader({0, 1});
    intercepted->av_packet_ref.instead = [](AVPacket*, const AVPacket*) { return AVERROR(ENOMEM); };
    EXPECT_ANY_THROW((void)both.getNextPacket());
    intercepted->av_packet_ref.instead = nullptr;
    EXPECT_EQ(readAll(both), packetsOf(clip));
}

TEST_F(PacketReaderTest, RefusesAStreamThatThereIsNot) {
    for (const int wrong : {-1, 2}) {
        try {
            (void)reader({0, wrong});
            ADD_FAILURE() << wrong;
        } catch (const tio::Exception& error) {
            EXPECT_EQ(std::string(error.what()),
                      "There is no stream " + std::to_string(wrong) + " in " + clip);
        }
    }
}

} // namespace
} // namespace tio::ffmpeg
