#include "media/Oracle.h"

#include "media/Demuxing.h"
#include "media/OraclePicture.h"

#include <algorithm>
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
            if (frame->pts > lastPts || options.everyPicture) {
                lastPts = frame->pts;
                keepFrame();
            }
        }
    }

    void keepFrame() {
        const int64_t pts = frame->pts;
        if (options.freshBuffers)
            kept.emplace_back(checkFound(av_frame_clone(frame.get()), "reference"));
        const AVRational timeBase = demuxer.stream().time_base;
        if (options.wanted && !options.wanted(frames.size())) {
            frames.push_back({pts, timeBase.num, timeBase.den, frame->width, frame->height, 0, {}});
            return;
        }
        if (rotator)
            rotator->turn(*frame);
        std::vector<uint8_t> pixels = converter.pixelsOf(*frame);
        frames.push_back({pts,
                          timeBase.num,
                          timeBase.den,
                          frame->width,
                          frame->height,
                          hashOf(pixels.data(), pixels.size()),
                          {}});
        if (options.keepPixels)
            frames.back().pixels = std::move(pixels);
    }

    VideoDemuxer demuxer;
    OracleOptions options;
    CodecPointer decoder;
    OracleConverter converter;
    FramePointer frame;
    std::optional<OracleRotator> rotator;
    int64_t lastPts = AV_NOPTS_VALUE; // the smallest of all values
    std::vector<OracleFrame> frames;
    std::vector<FramePointer> kept;
};

} // namespace

OracleTime OracleFrame::time() const {
    const int64_t numerator = pts * timeBaseNum;
    const int64_t divisor = std::gcd(numerator, static_cast<int64_t>(timeBaseDen));
    return {numerator / divisor, timeBaseDen / divisor};
}

uint64_t hashOf(const uint8_t* bytes, std::size_t count, uint64_t seed) {
    uint64_t hash = seed;
    for (std::size_t i = 0; i < count; ++i)
        hash = (hash ^ bytes[i]) * 1099511628211u;
    return hash;
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
