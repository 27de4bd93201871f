#include "bitstream/PacketInspector.h"

#include <algorithm>

namespace tio::ffmpeg::detail {

namespace {

// hvcC: from version 0 or 1 on, and 22 bytes before the arrays of parameter sets.
size_t hevcLengthSizeOf(const AVCodecParameters& parameters) {
    const uint8_t* data = parameters.extradata;
    const bool record =
        parameters.extradata_size > 22 && (data[0] != 0 || data[1] != 0 || data[2] > 1);
    return record ? size_t{data[21] & 3u} + 1 : 0;
}

bool isHiddenVp8(const AVPacket& packet) {
    return (packet.data[0] >> 4 & 1) == 0;
}

bool isHiddenVp9(const AVPacket& packet) {
    const unsigned last = packet.data[packet.size - 1];
    if ((last & 0xE0) == 0xC0) // several frames in one packet, of which one is shown
        return false;
    const unsigned first = packet.data[0];
    const unsigned profile = (first >> 5 & 1) | (first >> 4 & 1) << 1;
    const unsigned shift = profile == 3 ? 2 : 3; // of the flag that an old frame is shown again
    const bool showsOld = (first >> shift & 1) != 0;
    const bool shows = (first >> (shift - 2) & 1) != 0;
    return !showsOld && !shows;
}

} // namespace

PacketInspector::PacketInspector(const AVCodecParameters& parameters) : codec(parameters.codec_id) {
    if (codec == AV_CODEC_ID_H264 && parameters.extradata_size > 0)
        h264.readExtradata(parameters.extradata, static_cast<size_t>(parameters.extradata_size));
    if (codec == AV_CODEC_ID_HEVC)
        hevcLengthSize = hevcLengthSizeOf(parameters);
}

PacketFacts PacketInspector::inspect(const AVPacket& packet) {
    if (packet.size <= 0)
        return {};
    const size_t lengthSize = codec == AV_CODEC_ID_H264 ? h264.lengthSize() : hevcLengthSize;
    damaged = damaged || !lengthsFit(packet.data, static_cast<size_t>(packet.size), lengthSize);
    switch (codec) {
    case AV_CODEC_ID_H264:
        return inspectH264(packet);
    case AV_CODEC_ID_HEVC:
        return inspectHevc(packet);
    case AV_CODEC_ID_MPEG1VIDEO:
    case AV_CODEC_ID_MPEG2VIDEO:
        return inspectMpeg(packet);
    case AV_CODEC_ID_VP8:
        return {isHiddenVp8(packet), false, 0};
    case AV_CODEC_ID_VP9:
        return {isHiddenVp9(packet), false, 0};
    default:
        return {};
    }
}

// A picture with a reference slice is needed, so the rest of a large packet is not looked at; but
// where it has fields, both have to be found.
PacketFacts PacketInspector::inspectH264(const AVPacket& packet) {
    std::optional<H264Slice> first;
    bool reference = false;
    bool bothFields = false;
    forEachNalUnit(packet.data, static_cast<size_t>(packet.size), h264.lengthSize(),
                   [&](const NalUnit& unit) {
                       const auto slice = h264.read(unit);
                       if (!slice)
                           return true;
                       if (!first)
                           first = slice;
                       reference = reference || slice->reference;
                       bothFields = bothFields || slice->bottom != first->bottom;
                       return !reference || (first->field && !bothFields);
                   });
    if (!first)
        return {};
    noteFrameNumber(*first);
    fieldsApart = fieldsApart || (first->field && !bothFields);
    previous = first;
    previous->reference = reference;
    return {false, !reference, 0};
}

// A picture that nothing refers to does not advance the number: the next one has it as well.
void PacketInspector::noteFrameNumber(const H264Slice& first) {
    if (previous && !previous->reference && !first.instantaneous &&
        first.frameNumber != previous->frameNumber)
        countsDisposables = true;
}

PacketFacts PacketInspector::inspectHevc(const AVPacket& packet) {
    constexpr unsigned lastSubLayerType = 15; // even types up to here are not referred to
    constexpr unsigned firstOtherType = 32;   // parameter sets and messages begin here
    PacketFacts facts;
    forEachNalUnit(packet.data, static_cast<size_t>(packet.size), hevcLengthSize,
                   [&](const NalUnit& unit) {
                       const unsigned type = unit.data[0] >> 1 & 0x3F;
                       if (type >= firstOtherType || unit.size < 2)
                           return true;
                       const unsigned layer = std::max(unit.data[1] & 7u, 1u) - 1;
                       facts = {false, type < lastSubLayerType && type % 2 == 0, layer};
                       return false; // all slices of a picture have one type
                   });
    topLayer = std::max(topLayer, facts.layer);
    return facts;
}

// Two fields in one packet have a picture header each.
PacketFacts PacketInspector::inspectMpeg(const AVPacket& packet) {
    constexpr uint8_t pictureCode = 0x00;
    constexpr uint8_t extensionCode = 0xB5;
    constexpr unsigned bidirectional = 3;
    constexpr unsigned codingExtension = 8;
    constexpr unsigned wholeFrame = 3;
    unsigned pictures = 0;
    unsigned disposables = 0;
    bool field = false;
    forEachNalUnit(packet.data, static_cast<size_t>(packet.size), 0, [&](const NalUnit& unit) {
        if (unit.data[0] == pictureCode && unit.size > 2) {
            ++pictures;
            disposables += (unit.data[2] >> 3 & 7) == bidirectional ? 1 : 0;
        } else if (unit.data[0] == extensionCode && unit.size > 3 &&
                   unit.data[1] >> 4 == codingExtension) {
            field = (unit.data[3] & 3) != wholeFrame;
        }
        constexpr uint8_t firstSlice = 0x01;
        constexpr uint8_t lastSlice = 0xAF;
        const bool slice = unit.data[0] >= firstSlice && unit.data[0] <= lastSlice;
        return !slice || field; // what follows the slices of a whole frame is not of interest
    });
    fieldsApart = fieldsApart || (field && pictures == 1);
    return {false, pictures > 0 && pictures == disposables, 0};
}

} // namespace tio::ffmpeg::detail
