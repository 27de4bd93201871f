#include "support/Track.h"

#include "support/Dictionary.h"
#include "support/Ffmpeg.h"

#include <cstddef>
#include <cstring>

namespace tio::test {

namespace {

OutputPointer openOutput(const std::string& path, const std::string& format) {
    AVFormatContext* opened = nullptr;
    check(avformat_alloc_output_context2(&opened, nullptr, format.c_str(), path.c_str()),
          "output format " + format);
    OutputPointer output(opened);
    check(avio_open(&output->pb, path.c_str(), AVIO_FLAG_WRITE), "creating " + path);
    return output;
}

void addStream(AVFormatContext& output, const Track& track) {
    AVStream* stream = checkFound(avformat_new_stream(&output, nullptr), "stream");
    check(avcodec_parameters_copy(stream->codecpar, track.parameters.get()), "parameters");
    stream->time_base = track.timeBase;
    stream->metadata = Dictionary(track.metadata).release();
}

PacketPointer toPacket(const RawPacket& raw) {
    PacketPointer packet(checkFound(av_packet_alloc(), "packet"));
    check(av_new_packet(packet.get(), static_cast<int>(raw.data.size())), "packet data");
    if (!raw.data.empty())
        std::memcpy(packet->data, raw.data.data(), raw.data.size());
    packet->pts = raw.pts;
    packet->dts = raw.dts;
    packet->duration = raw.duration;
    packet->flags = raw.key ? AV_PKT_FLAG_KEY : 0;
    return packet;
}

/// Index of the track whose next packet is decoded first, or the number of tracks at the end.
std::size_t earliestTrack(const std::vector<Track>& tracks, const std::vector<std::size_t>& next) {
    std::size_t best = tracks.size();
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        if (next[i] == tracks[i].packets.size())
            continue;
        if (best == tracks.size() ||
            av_compare_ts(tracks[i].packets[next[i]].dts, tracks[i].timeBase,
                          tracks[best].packets[next[best]].dts, tracks[best].timeBase) < 0)
            best = i;
    }
    return best;
}

} // namespace

Track bareVideoTrack(AVCodecID codec, int width, int height, AVRational timeBase) {
    Track track;
    track.parameters.reset(checkFound(avcodec_parameters_alloc(), "parameters"), Close{});
    track.parameters->codec_type = AVMEDIA_TYPE_VIDEO;
    track.parameters->codec_id = codec;
    track.parameters->width = width;
    track.parameters->height = height;
    track.parameters->format = AV_PIX_FMT_YUV420P;
    track.timeBase = timeBase;
    return track;
}

void writePackets(const std::string& path, const std::string& format,
                  const std::vector<Track>& tracks, const Options& muxerOptions) {
    OutputPointer output = openOutput(path, format);
    for (const Track& track : tracks)
        addStream(*output, track);
    Dictionary options(muxerOptions);
    check(avformat_write_header(output.get(), options.get()), "header of " + path);
    options.checkAllTaken(format);

    std::vector<std::size_t> next(tracks.size(), 0);
    for (std::size_t i = earliestTrack(tracks, next); i < tracks.size();
         i = earliestTrack(tracks, next)) {
        PacketPointer packet = toPacket(tracks[i].packets[next[i]++]);
        packet->stream_index = static_cast<int>(i);
        av_packet_rescale_ts(packet.get(), tracks[i].timeBase, output->streams[i]->time_base);
        check(av_write_frame(output.get(), packet.get()), "packet of " + path);
    }
    check(av_write_trailer(output.get()), "trailer of " + path);
}

} // namespace tio::test
