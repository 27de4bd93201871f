#include "support/Oracle.h"

#include "support/Demuxing.h"
#include "support/OraclePicture.h"

extern "C" {
#include <libavutil/mem.h>
#include <libavutil/murmur3.h>
}

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <numeric>
#include <optional>
#include <thread>

namespace tio::test {

namespace {

CodecPointer openDecoder(const AVStream& stream, int threads) {
    const AVCodec* codec =
        checkFound(avcodec_find_decoder(stream.codecpar->codec_id), "decoder for the stream");
    CodecPointer decoder(checkFound(avcodec_alloc_context3(codec), "decoder"));
    check(avcodec_parameters_to_context(decoder.get(), stream.codecpar), "decoder parameters");
    decoder->time_base = stream.time_base;
    decoder->pkt_timebase = stream.time_base;
    decoder->thread_count =
        threads > 0 ? threads : static_cast<int>(std::thread::hardware_concurrency());
    check(avcodec_open2(decoder.get(), codec, nullptr), "opening the decoder");
    return decoder;
}

/// Decodes one file from its start to its end and collects the pictures.
class LinearDecoder {
public:
    LinearDecoder(const std::string& path, const OracleOptions& chosen)
        : demuxer(path),
          options(chosen),
          decoder(openDecoder(demuxer.stream(), chosen.threads)),
          converter(chosen.format),
          nv12Converter(OracleFormat::Nv12),
          frame(checkFound(av_frame_alloc(), "frame")) {
        const int turns = oracleQuarterTurns(&demuxer.stream());
        if (chosen.rotate && turns != 0)
            rotator.emplace(demuxer.stream(), turns);
    }

    std::vector<OracleFrame> decodeAll() {
        while (demuxer.readPacket()) {
            if (demuxer.packet().size == 0)
                continue; // to a decoder it would mean the end
            send(&demuxer.packet());
            receiveAll();
        }
        send(nullptr);
        receiveAll();
        return std::move(frames);
    }

private:
    void send(const AVPacket* packet) {
        const int result = avcodec_send_packet(decoder.get(), packet);
        if (!passesOver(result))
            check(result, "decoding a packet");
    }

    [[nodiscard]] bool passesOver(int result) const {
        return result < 0 && (options.skipDamaged || options.everyPicture);
    }

    void receiveAll() {
        constexpr int mostFailures = 64; // in a row: more than a decoder holds
        for (int failures = 0; failures < mostFailures;) {
            const int result = avcodec_receive_frame(decoder.get(), frame.get());
            if (result == AVERROR(EAGAIN) || result == AVERROR_EOF)
                return;
            if (passesOver(result)) {
                ++failures;
                continue;
            }
            check(result, "decoding a frame");
            const bool rises = frame->pts > lastPts;
            if (rises || options.everyPicture)
                keepFrame(rises);
            lastPts = std::max(lastPts, frame->pts);
        }
    }

    void keepFrame(bool rises) {
        if (options.freshBuffers)
            kept.emplace_back(checkFound(av_frame_clone(frame.get()), "reference"));
        const AVRational timeBase = demuxer.stream().time_base;
        OracleFrame picture{
            frame->pts, timeBase.num, timeBase.den, frame->width, frame->height, 0, rises, 0, {}};
        if (!options.wanted || options.wanted(frames.size()))
            convert(picture);
        frames.push_back(std::move(picture));
    }

    void convert(OracleFrame& picture) {
        if (rotator)
            rotator->turn(*frame);
        picture.width = frame->width;
        picture.height = frame->height;
        converter.convert(*frame);
        picture.hash = converter.hash();
        if (options.keepPixels)
            picture.pixels = converter.pixels();
        if (options.nv12Too) {
            nv12Converter.convert(*frame);
            picture.nv12Hash = nv12Converter.hash();
        }
    }

    VideoDemuxer demuxer;
    OracleOptions options;
    CodecPointer decoder;
    OracleConverter converter;
    OracleConverter nv12Converter;
    FramePointer frame;
    std::optional<OracleRotator> rotator;
    int64_t lastPts = AV_NOPTS_VALUE; // the smallest of all values
    std::vector<OracleFrame> frames;
    std::vector<FramePointer> kept;
};

/// The size is an int up to FFmpeg 4.3.
template <typename Size>
void update(void (*add)(AVMurMur3*, const uint8_t*, Size), AVMurMur3& state, const uint8_t* bytes,
            std::size_t count) {
    add(&state, bytes, static_cast<Size>(count));
}

} // namespace

OracleTime OracleFrame::time() const {
    const int64_t numerator = pts * timeBaseNum;
    const int64_t divisor = std::gcd(numerator, static_cast<int64_t>(timeBaseDen));
    return {numerator / divisor, timeBaseDen / divisor};
}

uint64_t hashOf(const uint8_t* bytes, std::size_t count, uint64_t seed) {
    struct Free {
        void operator()(AVMurMur3* state) const noexcept { av_free(state); }
    };
    thread_local const std::unique_ptr<AVMurMur3, Free> state(
        checkFound(av_murmur3_alloc(), "state of a hash"));
    std::array<uint8_t, 16> digest{};
    av_murmur3_init_seeded(state.get(), seed);
    update(av_murmur3_update, *state, bytes, count);
    av_murmur3_final(state.get(), digest.data());
    uint64_t hash = 0;
    std::memcpy(&hash, digest.data(), sizeof hash);
    return hash;
}

uint64_t hashRows(const uint8_t* first, std::ptrdiff_t stride, int rows, int rowBytes,
                  uint64_t seed) {
    for (int row = 0; row < rows; ++row)
        seed = hashOf(first + row * stride, static_cast<std::size_t>(rowBytes), seed);
    return seed;
}

std::vector<OraclePacket> oraclePackets(const std::string& path) {
    std::vector<OraclePacket> packets;
    VideoDemuxer demuxer(path);
    while (demuxer.readPacket()) {
        const AVPacket& packet = demuxer.packet();
        packets.push_back({packet.pts, packet.dts, packet.flags, packet.size});
    }
    return packets;
}

std::vector<OracleFrame> oracleFrames(const std::string& path, const OracleOptions& options) {
    return LinearDecoder(path, options).decodeAll();
}

} // namespace tio::test
