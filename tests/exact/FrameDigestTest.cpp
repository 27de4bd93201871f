#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/Demuxing.h"
#include "support/Ffmpeg.h"
#include "support/LogCapture.h"
#include "support/TemporaryFolder.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/FrameDigest.h>
#include <TARN/videoio/FrameReader.h>
#include <TARN/videoio/Source.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

namespace tio::ffmpeg {
namespace {

// --- The definitions, written down once more from docs/index-file.md ---

__extension__ typedef unsigned __int128 Wide;

uint64_t mixed(uint64_t state, uint64_t word) {
    const uint64_t product = (state ^ word) * 0x9E3779B97F4A7C15u;
    return product ^ product >> 29;
}

uint64_t wordAt(const uint8_t* bytes, size_t count) {
    uint64_t word = 0;
    for (size_t i = count; i-- > 0;)
        word = word << 8 | bytes[i];
    return word;
}

uint64_t hashed(const std::vector<uint8_t>& bytes, uint64_t seed) {
    uint64_t hash = mixed(seed, bytes.size());
    std::array<uint64_t, 4> lanes = {hash, hash + 1, hash + 2, hash + 3};
    size_t at = 0;
    for (; bytes.size() - at >= 32; at += 32)
        for (size_t lane = 0; lane < 4; ++lane)
            lanes[lane] = mixed(lanes[lane], wordAt(&bytes[at + 8 * lane], 8));
    for (const uint64_t lane : lanes)
        hash = mixed(hash, lane);
    for (; bytes.size() - at >= 8; at += 8)
        hash = mixed(hash, wordAt(&bytes[at], 8));
    return mixed(hash, wordAt(bytes.data() + at, bytes.size() - at));
}

/// Of planar YUV.
uint32_t checksumOf(const AVFrame& frame) {
    const auto format = static_cast<AVPixelFormat>(frame.format);
    const AVPixFmtDescriptor& told = *av_pix_fmt_desc_get(format);
    uint64_t hash = hashed({told.nb_components, told.log2_chroma_w, told.log2_chroma_h},
                           static_cast<uint64_t>(frame.width)) +
                    static_cast<uint64_t>(frame.height);
    for (int plane = 0; plane < 3; ++plane) {
        const int rows = plane == 0 ? frame.height : frame.height >> told.log2_chroma_h;
        for (int row = 0; row < rows; ++row) {
            const uint8_t* first = frame.data[plane] + row * frame.linesize[plane];
            hash = hashed({first, first + av_image_get_linesize(format, frame.width, plane)}, hash);
        }
    }
    return static_cast<uint32_t>(hash ^ hash >> 32);
}

std::vector<uint32_t> checksumsOf(const std::string& path) {
    test::VideoDemuxer demuxer(path);
    const AVCodecParameters& parameters = *demuxer.stream().codecpar;
    const test::CodecPointer codec(
        avcodec_alloc_context3(avcodec_find_decoder(parameters.codec_id)));
    test::check(avcodec_parameters_to_context(codec.get(), &parameters), "parameters");
    test::check(avcodec_open2(codec.get(), nullptr, nullptr), "decoder");
    const test::FramePointer frame(av_frame_alloc());
    std::vector<uint32_t> checksums;
    for (bool more = true; more;) {
        more = demuxer.readPacket();
        test::check(avcodec_send_packet(codec.get(), more ? &demuxer.packet() : nullptr), "packet");
        while (avcodec_receive_frame(codec.get(), frame.get()) >= 0)
            checksums.push_back(checksumOf(*frame));
    }
    return checksums;
}

/// The value of a polynomial, from the lowest power up.
uint64_t valueOf(const std::vector<uint32_t>& checksums, size_t first, size_t end) {
    constexpr uint64_t prime = 2305843009213693951; // 2^61 - 1
    uint64_t power = 1;
    uint64_t value = 0;
    for (size_t i = end; i-- > first;) {
        value = static_cast<uint64_t>((Wide{power} * (uint64_t{checksums[i]} + 1) + value) % prime);
        power = static_cast<uint64_t>(Wide{power} * 0x13C6EF372FE94F82 % prime);
    }
    return value;
}

// --- Digests ---

class FrameDigestTest : public testing::Test {
protected:
    void SetUp() override {
        test::ClipPlan plan;
        plan.frameCount = 60;
        test::makeClip(clip, plan);
    }

    [[nodiscard]] FrameReader open(bool checksums = false) const {
        FrameReaderOptions options;
        options.checksums = checksums;
        return FrameReader(Source(clip), options);
    }

    test::TemporaryFolder folder;
    test::LogCapture log;
    std::string clip = folder.file("clip.mp4");
};

TEST_F(FrameDigestTest, IsThatOfTheDecodedPictures) {
    const std::vector<uint32_t> checksums = checksumsOf(clip);
    ASSERT_EQ(checksums.size(), 60u);
    FrameReader plain = open();
    FrameReader proving = open(true);
    using Range = std::pair<int64_t, int64_t>;
    for (const auto& [first, end] : {Range(0, 60), Range(17, 18), Range(5, 41), Range(59, 60)}) {
        const uint64_t expected =
            valueOf(checksums, static_cast<size_t>(first), static_cast<size_t>(end));
        for (const FrameDigest& digest : {plain.digest(first, end), proving.digest(first, end),
                                          proving.index().digest(first, end)}) {
            EXPECT_EQ(digest.pictures, end - first);
            EXPECT_EQ(digest.value, expected) << first << " to " << end;
        }
    }
    EXPECT_FALSE(plain.index().hasChecksums());
}

TEST_F(FrameDigestTest, DoesNotDependOnWhatTheReaderGives) {
    FrameReaderOptions options;
    options.format = PictureFormat::Grey8;
    options.height = 10;
    options.width = 11;
    FrameReader small(Source(clip), options);
    EXPECT_EQ(small.digest(3, 30), open().digest(3, 30));
    EXPECT_EQ(small.counters().picturesConverted, 0);
}

TEST_F(FrameDigestTest, OfNeighboursGiveThatOfBothTogether) {
    FrameReader reader = open();
    const FrameDigest whole = reader.digest(0, 60);
    FrameDigest put;
    for (const auto& range : reader.partitions(4))
        put = put.followedBy(open().digest(range.first, range.stop));
    EXPECT_EQ(put, whole);
    const FrameDigest a = reader.digest(0, 7);
    const FrameDigest b = reader.digest(7, 8);
    const FrameDigest c = reader.digest(8, 60);
    EXPECT_EQ(a.followedBy(b).followedBy(c), whole);
    EXPECT_EQ(a.followedBy(b.followedBy(c)), whole);
    EXPECT_EQ(a.followedBy({}), a);
    EXPECT_EQ(FrameDigest().followedBy(a), a);
    EXPECT_NE(a.followedBy(c), whole);
    EXPECT_NE(b.followedBy(a).followedBy(c), whole);
    EXPECT_NE(a.followedBy(b).followedBy(b).followedBy(c), whole);
}

TEST_F(FrameDigestTest, OfAnotherClipIsAnother) {
    const FrameDigest before = open().digest(0, 60);
    test::ClipPlan plan;
    plan.frameCount = 60;
    plan.encoderOptions = {{"crf", "40"}};
    test::makeClip(clip, plan);
    EXPECT_NE(open().digest(0, 60), before);
}

TEST_F(FrameDigestTest, OfNoFramesIsThatOfNoPictures) {
    EXPECT_EQ(open().digest(60, 60), FrameDigest());
    EXPECT_EQ(open(true).index().digest(0, 0), FrameDigest());
}

TEST_F(FrameDigestTest, OfFramesThatThereAreNotIsRefused) {
    FrameReader reader = open();
    const FrameIndex index = open(true).index();
    using Range = std::pair<int64_t, int64_t>;
    for (const auto& [first, end] :
         {Range(-1, 3), Range(0, 61), Range(4, 3), Range(61, 61), Range(INT64_MIN, INT64_MAX)}) {
        EXPECT_THROW(static_cast<void>(reader.digest(first, end)), Exception) << first;
        EXPECT_THROW(static_cast<void>(index.digest(first, end)), Exception) << first;
    }
    EXPECT_THROW(static_cast<void>(reader.index().digest(0, 1)), Exception) << "no checksums";
    EXPECT_EQ(reader.counters().packetsDecoded, 0);
}

TEST_F(FrameDigestTest, TravelsAsBytes) {
    FrameDigest digest;
    digest.pictures = 0x0102;
    digest.value = 0x1807060504030201;
    const std::array<uint8_t, 16> bytes = {2, 1, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 0x18};
    EXPECT_EQ(digest.toBytes(), bytes);
    EXPECT_EQ(FrameDigest::fromBytes(bytes), digest);
    auto negative = bytes;
    negative[7] = 0x80;
    EXPECT_THROW(static_cast<void>(FrameDigest::fromBytes(negative)), Exception);
    auto many = bytes;
    std::fill_n(many.begin(), 7, uint8_t{0xFF});
    many[7] = 0x7F;
    FrameDigest most = FrameDigest::fromBytes(many); // which no clip has, and bytes can say
    EXPECT_EQ(most.followedBy(most).pictures, -2);
    most.add(0);
    EXPECT_EQ(most.pictures, INT64_MIN);
    auto large = bytes;
    large[15] = 0x20;
    EXPECT_THROW(static_cast<void>(FrameDigest::fromBytes(large)), Exception);
}

} // namespace
} // namespace tio::ffmpeg
