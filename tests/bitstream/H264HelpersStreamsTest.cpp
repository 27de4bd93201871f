#include "H264HelperResults.h"
#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/Demuxing.h"
#include "support/MediaFolder.h"
#include "support/TemporaryFolder.h"

extern "C" {
#include <libavcodec/bsf.h>
}

#include <cstddef>
#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace tio::videolib {
namespace {

using test::Sets;
using test::setsOf;
using test::Unit;
using test::unitsOf;

/// Video packets of a clip as FFmpeg's own filter turns them from MP4 to Annex-B.
class AnnexBPackets {
public:
    explicit AnnexBPackets(const std::string& path)
        : demuxer(path), turned(test::checkFound(av_packet_alloc(), "packet")) {
        const AVBitStreamFilter* kind = av_bsf_get_by_name("h264_mp4toannexb");
        test::check(av_bsf_alloc(test::checkFound(kind, "filter"), &filter), "filter");
        test::check(avcodec_parameters_copy(filter->par_in, demuxer.stream().codecpar), "filter");
        test::check(av_bsf_init(filter), "filter");
    }
    ~AnnexBPackets() { av_bsf_free(&filter); }
    AnnexBPackets(const AnnexBPackets&) = delete;
    AnnexBPackets& operator=(const AnnexBPackets&) = delete;

    bool next() {
        if (!demuxer.readPacket())
            return false;
        const test::PacketPointer copy(av_packet_clone(&demuxer.packet()));
        test::check(av_bsf_send_packet(filter, copy.get()), "filter");
        av_packet_unref(turned.get());
        test::check(av_bsf_receive_packet(filter, turned.get()), "filter");
        return true;
    }

    [[nodiscard]] Unit annexB() const { return {turned->data, turned->data + turned->size}; }
    [[nodiscard]] const AVPacket& stored() const { return demuxer.packet(); }
    [[nodiscard]] const AVCodecParameters& before() const { return *filter->par_in; }
    [[nodiscard]] const AVCodecParameters& after() const { return *filter->par_out; }

private:
    test::VideoDemuxer demuxer;
    test::PacketPointer turned;
    AVBSFContext* filter = nullptr;
};

/// The units of a packet of an MP4 file, each after its length in four bytes.
std::vector<Unit> unitsByLength(const AVPacket& packet) {
    std::vector<Unit> units;
    for (int at = 0; at + 4 <= packet.size;) {
        const uint8_t* const bytes = packet.data + at;
        const int length = bytes[0] << 24 | bytes[1] << 16 | bytes[2] << 8 | bytes[3];
        units.emplace_back(bytes + 4, bytes + 4 + length);
        at += 4 + length;
    }
    return units;
}

class EncodedStream : public ::testing::Test {
protected:
    EncodedStream() {
        test::ClipPlan plan;
        plan.encoderOptions = {{"slices", "3"}};
        test::makeClip(path, plan);
    }

    test::TemporaryFolder folder;
    std::string path = folder.file("clip.mp4");
};

/// Compares the units of every packet of a clip with those that its container counts by length.
/// @returns how many there are
std::size_t compareUnits(const std::string& path) {
    std::size_t count = 0;
    AnnexBPackets packets(path);
    while (packets.next()) {
        std::vector<Unit> found;
        for (auto& [codeLength, unit] : unitsOf(packets.annexB()))
            found.push_back(unit);
        const std::vector<Unit> stored = unitsByLength(packets.stored());
        // FFmpeg's filter puts parameter sets before key frames.
        std::size_t matched = 0;
        for (const Unit& unit : found)
            matched += matched < stored.size() && unit == stored[matched] ? 1 : 0;
        EXPECT_EQ(matched, stored.size()) << "in order";
        EXPECT_LE(found.size(), stored.size() + 2);
        count += stored.size();
    }
    return count;
}

TEST_F(EncodedStream, UnitsAreThoseThatTheContainerCountsByLength) {
    EXPECT_GE(compareUnits(path), 25u * 3) << "slices";
}

TEST_F(EncodedStream, SetsOfTheRecordAreThoseThatFfmpegsFilterPutsInFront) {
    const AnnexBPackets packets(path);
    const auto extradataOf = [](const AVCodecParameters& parameters) {
        return Unit(parameters.extradata, parameters.extradata + parameters.extradata_size);
    };
    const Unit stored = extradataOf(packets.before());
    ASSERT_EQ(stored.at(0), 1) << "a record";
    const Sets sets = setsOf(stored);
    Unit both = sets.sps;
    both.insert(both.end(), sets.pps.begin(), sets.pps.end());
    EXPECT_EQ(both, extradataOf(packets.after()));
    EXPECT_EQ(setsOf(extradataOf(packets.after())).sps, sets.sps) << "from Annex-B too";
    EXPECT_EQ(setsOf(extradataOf(packets.after())).pps, sets.pps);
}

TEST_F(EncodedStream, ARawFileBeginsWithItsSets) {
    test::ClipPlan plan;
    plan.format = "h264";
    test::makeClip(folder.file("clip.h264"), plan);
    const Unit raw = test::readBytes(folder.file("clip.h264"));
    const Sets sets = setsOf(raw);
    EXPECT_EQ(sets.sps.at(4) & 0x1F, 7);
    EXPECT_EQ(sets.pps.at(4) & 0x1F, 8);
    EXPECT_EQ(Unit(raw.begin(), raw.begin() + static_cast<std::ptrdiff_t>(sets.sps.size())),
              sets.sps);
}

class RealStream : public ::testing::TestWithParam<const char*> {};

TEST_P(RealStream, HasTheUnitsThatTheContainerCountsByLength) {
    const auto file = test::mediaFile(std::string("video/") + GetParam());
    if (!file)
        GTEST_SKIP() << test::mediaMissingMessage();
    EXPECT_GT(compareUnits(file->string()), 0u);
}

INSTANTIATE_TEST_SUITE_P(Clips, RealStream,
                         ::testing::Values("A4.mp4", "bbb_800x640_768kbps_30fps_avc_pyramid_3b.mp4",
                                           "bbb_prog_10s.mp4", "carphone_pristine.mp4",
                                           "h264_10bits.mp4", "in.mp4", "rabbit320.mp4",
                                           "scene_cuts.mp4", "smpte-2997.mp4", "sample_640x360.mov",
                                           "sowt-with-video.mov", "video_90.mov", "white.mp4"));

} // namespace
} // namespace tio::videolib
