#include "support/StillImages.h"

#include "support/ByteEdits.h"
#include "support/Encoding.h"
#include "support/OraclePicture.h"
#include "support/Picture.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace tio::test {

namespace {

InputPointer openFirstStream(const std::string& path) {
    AVFormatContext* opened = nullptr;
    check(avformat_open_input(&opened, path.c_str(), nullptr, nullptr), "opening " + path);
    InputPointer input(opened);
    check(avformat_find_stream_info(input.get(), nullptr), "stream info of " + path);
    if (input->nb_streams == 0)
        throw std::runtime_error("test media: no stream in " + path);
    return input;
}

CodecPointer openBareDecoder(const AVStream& stream) {
    const AVCodec* codec = checkFound(avcodec_find_decoder(stream.codecpar->codec_id), "decoder");
    CodecPointer decoder(checkFound(avcodec_alloc_context3(codec), "decoder"));
    check(avcodec_open2(decoder.get(), codec, nullptr), "opening the decoder");
    return decoder;
}

} // namespace

OracleImage oracleImage(const std::string& path) {
    const InputPointer input = openFirstStream(path);
    const CodecPointer decoder = openBareDecoder(*input->streams[0]);
    const PacketPointer packet(checkFound(av_packet_alloc(), "packet"));
    const FramePointer frame(checkFound(av_frame_alloc(), "frame"));
    int received = AVERROR(EAGAIN);
    while (received == AVERROR(EAGAIN)) {
        av_packet_unref(packet.get());
        check(av_read_frame(input.get(), packet.get()), "reading " + path);
        if (packet->stream_index != 0 || packet->size == 0)
            continue;
        check(avcodec_send_packet(decoder.get(), packet.get()), "decoding " + path);
        received = avcodec_receive_frame(decoder.get(), frame.get());
    }
    check(received, "decoding " + path);
    OracleConverter converter(OracleFormat::Rgb);
    converter.convert(*frame);
    return {frame->width, frame->height, converter.pixels()};
}

void makeImage(const std::string& path, const ImagePlan& plan) {
    const AVCodec* codec =
        checkFound(avcodec_find_encoder_by_name(plan.encoder.c_str()), "encoder");
    const CodecPointer encoder(checkFound(avcodec_alloc_context3(codec), "encoder"));
    encoder->width = plan.width;
    encoder->height = plan.height;
    encoder->pix_fmt = av_get_pix_fmt(plan.pixelFormat.c_str());
    encoder->time_base = {1, 1};
    openEncoder(*encoder, plan.options);
    const FramePointer frame(checkFound(av_frame_alloc(), "frame"));
    frame->format = encoder->pix_fmt;
    frame->width = plan.width;
    frame->height = plan.height;
    check(av_frame_get_buffer(frame.get(), 0), "frame");
    drawPicture(*frame, plan.number);
    std::vector<RawPacket> packets;
    encodeFrame(*encoder, frame.get(), packets);
    encodeFrame(*encoder, nullptr, packets);
    writeBytes(path, packets.at(0).data);
}

void addExifOrientation(const std::string& path, int orientation) {
    const auto value = static_cast<uint8_t>(orientation);
    const std::vector<uint8_t> block = {
        0xFF, 0xE1, 0,    34,                   // APP1 of 34 bytes
        'E',  'x',  'i',  'f',  0, 0,           //
        'M',  'M',  0,    42,   0, 0,     0, 8, // TIFF, higher bytes first; the directory is at 8
        0,    1,    0x01, 0x12, 0, 3,           // one entry: orientation, a 16-bit number
        0,    0,    0,    1,    0, value, 0, 0, // of one value
        0,    0,    0,    0};                   // no further directory
    std::vector<uint8_t> bytes = readBytes(path);
    bytes.insert(bytes.begin() + 2, block.begin(), block.end()); // after the start of the image
    writeBytes(path, bytes);
}

} // namespace tio::test
