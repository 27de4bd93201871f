#include "base/checks.h"
#include "base/handles.h"
#include "base/initialise.h"
#include "ffmpeg_compat.h"
#include "picture/swscale.h"

#include <TARN/videoio/AtomicFile.h>
#include <TARN/videoio/WriteImage.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <new>
#include <optional>
#include <stdexcept>

namespace tio::ffmpeg {

namespace {

constexpr detail::Places at("WriteImage");

const std::map<ImageFileType, AVCodecID> codecTable = {
    {ImageFileType::Jpeg, AV_CODEC_ID_MJPEG},
    {ImageFileType::Png, AV_CODEC_ID_PNG},
    {ImageFileType::Ppm, AV_CODEC_ID_PPM},
};

const std::map<ImageFileType, AVPixelFormat> pixelFormatTable = {
    {ImageFileType::Jpeg, AV_PIX_FMT_YUVJ420P},
    {ImageFileType::Png, AV_PIX_FMT_RGB24},
    {ImageFileType::Ppm, AV_PIX_FMT_RGB24},
};

template <typename Value>
Value lookUp(const std::map<ImageFileType, Value>& table, ImageFileType type) {
    const auto row = table.find(type);
    if (row == table.end())
        throw std::out_of_range("invalid map<K, T> key");
    return row->second;
}

// Tables K.1 and K.2 of ITU-T T.81, row by row.
constexpr std::array<uint8_t, 64> lumaSteps = {
    16, 11, 10, 16, 24,  40,  51,  61,  12, 12, 14, 19, 26,  58,  60,  55, //
    14, 13, 16, 24, 40,  57,  69,  56,  14, 17, 22, 29, 51,  87,  80,  62, //
    18, 22, 37, 56, 68,  109, 103, 77,  24, 35, 55, 64, 81,  104, 113, 92, //
    49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98, 112, 100, 103, 99};
constexpr std::array<uint8_t, 64> chromaSteps = {
    17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99, //
    24, 26, 56, 99, 99, 99, 99, 99, 47, 66, 99, 99, 99, 99, 99, 99, //
    99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, //
    99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99};

/// The table that goes with a quality, in memory for FFmpeg to free.
uint16_t* scaledSteps(const std::array<uint8_t, 64>& steps, int quality) {
    const int percent = quality < 50 ? 5000 / quality : 200 - 2 * quality;
    auto* const table = static_cast<uint16_t*>(av_malloc(steps.size() * sizeof(uint16_t)));
    if (table == nullptr)
        throw std::bad_alloc();
    for (size_t i = 0; i < steps.size(); ++i)
        table[i] = static_cast<uint16_t>(std::clamp((steps[i] * percent + 50) / 100, 1, 255));
    return table;
}

// The encoder takes its tables times an eighth of the scale.
void setQuality(AVCodecContext& codecContext, int quality) {
    constexpr int scaleOfOne = 8;
    codecContext.intra_matrix = scaledSteps(lumaSteps, quality);
    codecContext.chroma_intra_matrix = scaledSteps(chromaSteps, quality);
    codecContext.flags |= AV_CODEC_FLAG_QSCALE;
    codecContext.global_quality = scaleOfOne * FF_QP2LAMBDA;
}

/// What a file holds.
struct Stored {
    AVCodecID codec;
    AVPixelFormat pixels;
};

Stored storedAs(ImageFileType type) {
    return {lookUp(codecTable, type), lookUp(pixelFormatTable, type)};
}

detail::CodecContextHandle openEncoder(Stored stored, Vec<int, 2> size, int compressionLevel,
                                       std::optional<int> quality) {
    const AVCodec* codec = avcodec_find_encoder(stored.codec);
    if (codec == nullptr)
        detail::failAssertion("Could not find ffmpeg's encoder codec", "codec", at(41));
    detail::CodecContextHandle codecContext(avcodec_alloc_context3(codec));
    if (!codecContext)
        detail::failAssertion("Could not open codec for image writing", "codecContext", at(45));
    codecContext->width = size[1];
    codecContext->height = size[0];
    codecContext->pix_fmt = stored.pixels;
    codecContext->compression_level = compressionLevel;
    codecContext->time_base = {1, 1};
    if (quality && stored.codec == AV_CODEC_ID_MJPEG)
        setQuality(*codecContext, *quality);
    detail::checkResult(avcodec_open2(codecContext.get(), codecContext->codec, nullptr), at(54));
    return codecContext;
}

detail::FrameHandle makeFrame(const AVCodecContext& codecContext) {
    detail::FrameHandle frame(av_frame_alloc());
    if (!frame)
        detail::failAssertion("Could not allocate frame for image writing", "frame", at(59));
    frame->format = codecContext.pix_fmt;
    frame->width = codecContext.width;
    frame->height = codecContext.height;
    frame->quality = codecContext.global_quality;
    detail::checkResult(av_frame_get_buffer(frame.get(), 1), at(65));
    return frame;
}

detail::PacketHandle encode(const AVFrame& frame, AVCodecContext& codecContext) {
    detail::checkResult(avcodec_send_frame(&codecContext, &frame), at(74));
    detail::PacketHandle packet(av_packet_alloc());
    if (!packet)
        throw std::bad_alloc();
    // These encoders give their one packet at once.
    detail::checkResult(avcodec_receive_packet(&codecContext, packet.get()), at(82));
    return packet;
}

detail::PacketHandle encode(const RgbImage& image, AVCodecContext& codecContext) {
    const detail::FrameHandle frame = makeFrame(codecContext);
    SWScaleEncoder converter(image.size, &codecContext);
    converter.convertFrame(image, frame.get(), &codecContext);
    return encode(*frame, codecContext);
}

// After a failed write the file stays open, and what was written stays. The header says so.
void writeFile(const std::string& path, const uint8_t* data, size_t size) {
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (f == nullptr)
        detail::failAssertion("Could not open " + path, "f", at(87));
    // What is small is written when the file is closed, so that the close may be what fails.
    const bool written = std::fwrite(data, 1, size, f) == size && std::fclose(f) == 0;
    if (!written)
        detail::failAssertion("Could not write to " + path, "fwrite(data, 1, size, f) == size",
                              at(90));
}

void requireRange(const char* option, std::optional<int> value, int least, int most) {
    if (value && (*value < least || *value > most))
        detail::failPlainly(std::string("The ") + option + " of an image is " +
                            std::to_string(least) + " to " + std::to_string(most) + ", not " +
                            std::to_string(*value));
}

ImageFileType typeOf(const std::string& path, ImageFileType wanted) {
    if (wanted != ImageFileType::Auto) {
        if (codecTable.count(wanted) == 0)
            detail::failPlainly("There is no such type of image files: \"" + path + "\"");
        return wanted;
    }
    try {
        return getImageFileType(path);
    } catch (const std::exception&) {
        detail::failPlainly("\"" + path + "\" does not end in .png, .jpg, .jpeg or .ppm");
    }
}

constexpr int encodersChoice = -1;

ImageFileType checkedType(const std::string& path, const WriteImageOptions& options) {
    requireRange("quality", options.quality, 1, 100);
    requireRange("compression", options.compression, 0, 9);
    return typeOf(path, options.type);
}

void requirePixels(const ConstImageView& picture) {
    const auto formats = {PictureFormat::Rgb8, PictureFormat::Rgb16, PictureFormat::Grey8,
                          PictureFormat::Grey16};
    if (std::find(formats.begin(), formats.end(), picture.format) == formats.end())
        detail::failPlainly("Only pictures of RGB and grey are written as images");
    const PlaneSize size = planeSize(picture.format, picture.height, picture.width, 0);
    if (picture.planes[0] == nullptr ||
        (size.rows > 1 && std::abs(picture.strides[0]) < size.rowBytes))
        detail::failPlainly("The memory given holds no picture of " +
                            std::to_string(picture.width) + " x " + std::to_string(picture.height));
}

/// The pixels of 8 bits as RGB without gaps, row after row.
RgbImage packed(const ConstImageView& picture) {
    if (bitDepth(picture.format) > 8)
        detail::failPlainly("A JPEG file holds samples of 8 bits");
    RgbImage image(Vec<int, 2>(picture.height, picture.width));
    const int channels = channelCount(picture.format);
    for (int row = 0; row < picture.height; ++row) {
        const uint8_t* from = picture.planes[0] + row * picture.strides[0];
        for (int col = 0; col < picture.width; ++col, from += channels)
            image(row, col) = {from[0], from[channels == 3 ? 1 : 0], from[channels == 3 ? 2 : 0]};
    }
    return image;
}

/// How a PNG or PPM file keeps the samples of a picture as they are.
Stored storedAsIs(ImageFileType type, PictureFormat format) {
    const bool grey = channelCount(format) == 1;
    const bool deep = bitDepth(format) > 8;
    const AVPixelFormat greyPixels = deep ? AV_PIX_FMT_GRAY16BE : AV_PIX_FMT_GRAY8;
    const AVPixelFormat rgbPixels = deep ? AV_PIX_FMT_RGB48BE : AV_PIX_FMT_RGB24;
    const bool pgm = grey && type == ImageFileType::Ppm;
    return {pgm ? AV_CODEC_ID_PGM : lookUp(codecTable, type), grey ? greyPixels : rgbPixels};
}

/// Copies rows into the frame of a file that has the upper byte of a sample first.
void copyRows(const ConstImageView& picture, AVFrame& frame) {
    const PlaneSize size = planeSize(picture.format, picture.height, picture.width, 0);
    const bool swapped = bitDepth(picture.format) > 8 && AV_HAVE_BIGENDIAN == 0;
    for (int row = 0; row < size.rows; ++row) {
        const uint8_t* const from = picture.planes[0] + row * picture.strides[0];
        uint8_t* const to = frame.data[0] + std::ptrdiff_t{row} * frame.linesize[0];
        for (int64_t i = 0; i < size.rowBytes; ++i)
            to[i] = from[swapped ? i ^ 1 : i];
    }
}

void publish(const AVPacket& packet, const std::string& path) {
    AtomicFile file(path);
    file.write(packet.data, static_cast<size_t>(packet.size));
    file.publish(AtomicFile::Flush::BySystem);
}

} // namespace

// A matrix shares its pixels, so that the copy costs nothing.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
void writeImage(std::string path, RgbImage image, int compressionLevel, ImageFileType type) {
    detail::initialiseOnce();
    if (type == ImageFileType::Auto)
        type = getImageFileType(path);
    const auto codecContext =
        openEncoder(storedAs(type), image.size, compressionLevel, std::nullopt);
    const auto packet = encode(image, *codecContext);
    writeFile(path, packet->data, static_cast<size_t>(packet->size));
}

void writeImage(const std::string& path, const RgbImage& image, const WriteImageOptions& options) {
    const ImageFileType type = checkedType(path, options);
    detail::initialiseOnce();
    const auto codecContext = openEncoder(
        storedAs(type), image.size, options.compression.value_or(encodersChoice), options.quality);
    publish(*encode(image, *codecContext), path);
}

void writeImage(const std::string& path, const ConstImageView& picture,
                const WriteImageOptions& options) {
    const ImageFileType type = checkedType(path, options);
    requirePixels(picture);
    if (type == ImageFileType::Jpeg) {
        writeImage(path, packed(picture), options);
        return;
    }
    detail::initialiseOnce();
    const auto codecContext =
        openEncoder(storedAsIs(type, picture.format), {picture.height, picture.width},
                    options.compression.value_or(encodersChoice), std::nullopt);
    const auto frame = makeFrame(*codecContext);
    copyRows(picture, *frame);
    publish(*encode(*frame, *codecContext), path);
}

} // namespace tio::ffmpeg
