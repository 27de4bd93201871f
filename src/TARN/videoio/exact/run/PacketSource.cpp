#include "exact/run/PacketSource.h"

#include "base/checks.h"
#include "exact/index/SourceBytes.h"
#include "exact/run/readingFailure.h"
#include "input/InputAccess.h"

#include <algorithm>
#include <new>
#include <string>
#include <utility>

namespace tio::ffmpeg::detail {

namespace {

CodecParametersHandle copyOf(const AVCodecParameters& parameters) {
    CodecParametersHandle copy(avcodec_parameters_alloc());
    if (!copy)
        throw std::bad_alloc();
    checkResult(avcodec_parameters_copy(copy.get(), &parameters), {"PacketSource", 2});
    return copy;
}

/// Whether a decoder that is opened with one begins as with the other.
bool areAlike(const AVCodecParameters& a, const AVCodecParameters& b) {
    const bool same = a.codec_id == b.codec_id && a.codec_tag == b.codec_tag &&
                      a.format == b.format && a.width == b.width && a.height == b.height &&
                      a.profile == b.profile && a.field_order == b.field_order &&
                      a.bits_per_coded_sample == b.bits_per_coded_sample;
    return same && a.extradata_size == b.extradata_size &&
           std::equal(a.extradata, a.extradata + a.extradata_size, b.extradata);
}

/// What a demuxer gives with the first packet that it is for, and not again after a seek.
bool bringsWhatComesOnce(const AVPacket& packet) {
    return std::any_of(packet.side_data, packet.side_data + packet.side_data_elems,
                       [](const AVPacketSideData& data) {
                           return data.type == AV_PKT_DATA_PALETTE ||
                                  data.type == AV_PKT_DATA_NEW_EXTRADATA ||
                                  data.type == AV_PKT_DATA_PARAM_CHANGE;
                       });
}

} // namespace

PacketSource::PacketSource(const Source& origin, int streamIndex)
    : source(origin), current(av_packet_alloc()), index(streamIndex) {
    if (!current)
        throw std::bad_alloc();
    reopen();
}

PacketSource::PacketSource(const std::shared_ptr<InputFormatContext>& origin, int streamIndex)
    : PacketSource(InputAccess::sourceOf(*origin), streamIndex) {}

void PacketSource::reopen() {
    av_packet_unref(current.get());
    if (source.kind() == Source::Kind::Url && isPipe(source.name()))
        failPlainly("\"" + source.name() + "\" is a pipe, which cannot be opened once more");
    auto next = std::make_unique<InputFormatContext>(source);
    ++openings;
    if (index >= next->getStreamCount())
        failPlainly("\"" + source.name() + "\" has lost its stream " + std::to_string(index));
    opened = copyOf(*next->getStream(index)->codecpar);
    input = std::move(next);
    gaveOnce = false;
    stepsAtOpening = ++steps;
    for (int other = 0; other < input->getStreamCount(); ++other)
        if (other != index)
            input->getStream(other)->discard = AVDISCARD_ALL;
}

bool PacketSource::read() {
    av_packet_unref(current.get());
    ++steps;
    if (input->getNextPacketForStream(current.get(), index)) {
        gaveOnce = gaveOnce || bringsWhatComesOnce(*current);
        return true;
    }
    requireEnd(*input, source);
    return false;
}

const AVFormatContext& PacketSource::format() const {
    return InputAccess::contextOf(*input);
}

bool PacketSource::seek(int64_t target, int flags) {
    av_packet_unref(current.get());
    ++seeks;
    ++steps;
    return seekOrStop(*input, source, index, target, flags);
}

bool PacketSource::comesBackAsOpened() const {
    return !gaveOnce && areAlike(*stream().codecpar, *opened);
}

bool PacketSource::seekToTime(int64_t ticks) {
    return seek(ticks, AVSEEK_FLAG_BACKWARD);
}

bool PacketSource::seekToByte(int64_t position) {
    return seek(position, AVSEEK_FLAG_BYTE);
}

} // namespace tio::ffmpeg::detail
