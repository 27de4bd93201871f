#pragma once

/// @file
/// Every FFmpeg header that the library needs, and everything in which the releases from 4.3 to 9.0
/// differ. No other file asks for a version.

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/display.h>
#include <libavutil/frame.h>
#include <libavutil/imgutils.h>
#include <libavutil/log.h>
#include <libavutil/mathematics.h>
#include <libavutil/mem.h>
#include <libavutil/opt.h>
#include <libavutil/parseutils.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

// FFmpeg 5.1 brought AVChannelLayout; 7.0 removed the separate count and mask.
#define TARN_FFMPEG_HAS_CHANNEL_LAYOUT (LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(57, 28, 100))

// FFmpeg 7.1 brought a call for what a codec can take; 9.0 removed the lists in AVCodec.
#define TARN_FFMPEG_HAS_CODEC_CONFIG (LIBAVCODEC_VERSION_INT >= AV_VERSION_INT(61, 13, 100))

// FFmpeg 6.1 moved a stream's side data into its codec parameters and deprecated the old place.
#define TARN_FFMPEG_HAS_CODED_SIDE_DATA (LIBAVFORMAT_VERSION_INT >= AV_VERSION_INT(60, 15, 100))

namespace tio::ffmpeg::compat {

/// One of FFmpeg's libraries; versions are packed as by AV_VERSION_INT.
struct Library {
    const char* name;
    unsigned compiled;    ///< version of its headers
    unsigned (*loaded)(); ///< asks the library itself
};

/// Those that are linked.
inline constexpr std::array<Library, 4> libraries = {{
    {"libavformat", LIBAVFORMAT_VERSION_INT, avformat_version},
    {"libavcodec", LIBAVCODEC_VERSION_INT, avcodec_version},
    {"libavutil", LIBAVUTIL_VERSION_INT, avutil_version},
    {"libswscale", LIBSWSCALE_VERSION_INT, swscale_version},
}};

/// The one that may be loaded later.
inline constexpr unsigned filterLibraryVersion = LIBAVFILTER_VERSION_INT;
inline constexpr const char* filterLibraryFile =
    "libavfilter.so." AV_STRINGIFY(LIBAVFILTER_VERSION_MAJOR);

// The one place where calls that some release calls deprecated are made.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

/// @name Channels of a codec context, codec parameters or a frame
/// @{

/// Number of channels.
template <typename Owner>
int channelCount(const Owner& owner) {
#if TARN_FFMPEG_HAS_CHANNEL_LAYOUT
    return owner.ch_layout.nb_channels;
#else
    return owner.channels;
#endif
}

/// FFmpeg's 64-bit mask of speakers; 0 when the order of the channels is not a mask.
template <typename Owner>
uint64_t channelMask(const Owner& owner) {
#if TARN_FFMPEG_HAS_CHANNEL_LAYOUT
    return owner.ch_layout.order == AV_CHANNEL_ORDER_NATIVE ? owner.ch_layout.u.mask : 0;
#else
    return owner.channel_layout;
#endif
}

/// Sets the channels from a mask of speakers. A mask that names none leaves the owner without a
/// layout; opening a codec then fails as it does on releases that know masks alone.
template <typename Owner>
void setChannelMask(Owner& owner, uint64_t mask) {
#if TARN_FFMPEG_HAS_CHANNEL_LAYOUT
    av_channel_layout_uninit(&owner.ch_layout);
    av_channel_layout_from_mask(&owner.ch_layout, mask);
#else
    owner.channel_layout = mask;
    owner.channels = av_get_channel_layout_nb_channels(mask);
#endif
}

/// Gives a frame the channels of a codec context.
inline void copyChannels(AVFrame& frame, const AVCodecContext& context) {
#if TARN_FFMPEG_HAS_CHANNEL_LAYOUT
    av_channel_layout_copy(&frame.ch_layout, &context.ch_layout);
#else
    frame.channel_layout = context.channel_layout;
    frame.channels = context.channels;
#endif
}

/// FFmpeg's words for the order of the channels, such as "stereo" or "5.1(side)". Where nothing but
/// their number is known, that of the usual order, as the ffmpeg program takes it.
template <typename Owner>
std::string channelLayoutText(const Owner& owner) {
    std::array<char, 128> text{};
#if TARN_FFMPEG_HAS_CHANNEL_LAYOUT
    AVChannelLayout usual{};
    const AVChannelLayout* layout = &owner.ch_layout;
    if (layout->order == AV_CHANNEL_ORDER_UNSPEC) {
        av_channel_layout_default(&usual, layout->nb_channels);
        layout = &usual;
    }
    av_channel_layout_describe(layout, text.data(), text.size());
    av_channel_layout_uninit(&usual);
#else
    const uint64_t mask =
        owner.channel_layout != 0
            ? owner.channel_layout
            : static_cast<uint64_t>(av_get_default_channel_layout(owner.channels));
    av_get_channel_layout_string(text.data(), static_cast<int>(text.size()), owner.channels, mask);
#endif
    return text.data();
}

/// Sets the channels to what is usual for a number of them; 0 channels if nothing is.
inline void setDefaultChannels(AVCodecContext& context, int count) {
#if TARN_FFMPEG_HAS_CHANNEL_LAYOUT
    av_channel_layout_uninit(&context.ch_layout);
    av_channel_layout_default(&context.ch_layout, count);
#else
    context.channel_layout = static_cast<uint64_t>(av_get_default_channel_layout(count));
    context.channels = count;
#endif
}

/// @}

/// @name What a codec can take; empty where it does not say
/// @{

#if TARN_FFMPEG_HAS_CODEC_CONFIG
template <typename Value>
std::vector<Value> codecConfig(const AVCodec& codec, AVCodecConfig config) {
    const void* values = nullptr;
    int count = 0;
    if (avcodec_get_supported_config(nullptr, &codec, config, 0, &values, &count) < 0 ||
        values == nullptr)
        return {};
    const auto* first = static_cast<const Value*>(values);
    return {first, first + count};
}
#else
template <typename Value>
std::vector<Value> listUpTo(const Value* values, Value end) {
    std::vector<Value> list;
    while (values != nullptr && *values != end)
        list.push_back(*values++);
    return list;
}
#endif

inline std::vector<AVPixelFormat> pixelFormats(const AVCodec& codec) {
#if TARN_FFMPEG_HAS_CODEC_CONFIG
    return codecConfig<AVPixelFormat>(codec, AV_CODEC_CONFIG_PIX_FORMAT);
#else
    return listUpTo(codec.pix_fmts, AV_PIX_FMT_NONE);
#endif
}

inline std::vector<AVSampleFormat> sampleFormats(const AVCodec& codec) {
#if TARN_FFMPEG_HAS_CODEC_CONFIG
    return codecConfig<AVSampleFormat>(codec, AV_CODEC_CONFIG_SAMPLE_FORMAT);
#else
    return listUpTo(codec.sample_fmts, AV_SAMPLE_FMT_NONE);
#endif
}

inline std::vector<int> sampleRates(const AVCodec& codec) {
#if TARN_FFMPEG_HAS_CODEC_CONFIG
    return codecConfig<int>(codec, AV_CODEC_CONFIG_SAMPLE_RATE);
#else
    return listUpTo(codec.supported_samplerates, 0);
#endif
}

/// @}

/// @name Fields of a frame
/// @{

// FFmpeg 6.1 made flags of two numbers, which FFmpeg 8 removed.
#define TARN_FFMPEG_HAS_FIELD_FLAGS (LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(58, 7, 100))

inline bool isInterlaced(const AVFrame& frame) {
#if TARN_FFMPEG_HAS_FIELD_FLAGS
    return (frame.flags & AV_FRAME_FLAG_INTERLACED) != 0;
#else
    return frame.interlaced_frame != 0;
#endif
}

inline bool isTopFieldFirst(const AVFrame& frame) {
#if TARN_FFMPEG_HAS_FIELD_FLAGS
    return (frame.flags & AV_FRAME_FLAG_TOP_FIELD_FIRST) != 0;
#else
    return frame.top_field_first != 0;
#endif
}

/// @}

/// Makes a packet that is not on FFmpeg's own heap blank, as av_packet_alloc() does.
inline void makeBlank(AVPacket& packet) {
    std::memset(&packet, 0, sizeof packet);
    av_packet_unref(&packet);
}

/// Frees a codec context, with the one table that FFmpeg 5.1 leaves behind.
inline void freeCodecContext(AVCodecContext* context) {
    if (context != nullptr)
        av_freep(&context->chroma_intra_matrix);
    avcodec_free_context(&context);
}

/// Closes an encoder. Up to FFmpeg 7 the context's own block stays allocated: kept, see
/// PacketEncoder. FFmpeg 8 removed the call, so that the context goes as a whole there.
inline void closeEncoder(AVCodecContext* context) {
#if LIBAVCODEC_VERSION_MAJOR < 62
    avcodec_close(context);
#else
    avcodec_free_context(&context);
#endif
}

/// Whether a decoder is of no use after a flush. The libdav1d that goes with FFmpeg 4.3 in Debian
/// 11 gives errors from then on, and with several threads may wait for ever.
inline bool breaksWhenFlushed([[maybe_unused]] const AVCodec& decoder) {
#if LIBAVCODEC_VERSION_MAJOR < 59
    return std::strcmp(decoder.name, "libdav1d") == 0;
#else
    return false;
#endif
}

/// The display matrix that the container gives a stream; null when it gives none.
inline const int32_t* displayMatrix(const AVStream& stream) {
    constexpr size_t matrixBytes = 9 * sizeof(int32_t);
#if TARN_FFMPEG_HAS_CODED_SIDE_DATA
    const AVPacketSideData* data =
        av_packet_side_data_get(stream.codecpar->coded_side_data,
                                stream.codecpar->nb_coded_side_data, AV_PKT_DATA_DISPLAYMATRIX);
    if (data == nullptr || data->size < matrixBytes)
        return nullptr;
    return reinterpret_cast<const int32_t*>(data->data);
#else
    for (int i = 0; i < stream.nb_side_data; ++i) {
        const AVPacketSideData& data = stream.side_data[i];
        if (data.type == AV_PKT_DATA_DISPLAYMATRIX && static_cast<size_t>(data.size) >= matrixBytes)
            return reinterpret_cast<const int32_t*>(data.data);
    }
    return nullptr;
#endif
}

/// Takes the display matrix out of parameters copied from an input, so that a copied stream is not
/// turned: up to FFmpeg 6.0 the copy never carried it.
inline void dropDisplayMatrix([[maybe_unused]] AVCodecParameters& parameters) {
#if TARN_FFMPEG_HAS_CODED_SIDE_DATA
    av_packet_side_data_remove(parameters.coded_side_data, &parameters.nb_coded_side_data,
                               AV_PKT_DATA_DISPLAYMATRIX);
#endif
}

/// Gives a stream what its original's container tells of it beyond its parameters, which are copied
/// already: how pictures are turned, how bright they were mastered, and the like.
/// @returns a negative number when memory runs out
inline int copySideData(AVStream& copy, [[maybe_unused]] const AVStream& original, bool withTurn) {
#if TARN_FFMPEG_HAS_CODED_SIDE_DATA
    if (!withTurn)
        dropDisplayMatrix(*copy.codecpar);
#else
    for (int i = 0; i < original.nb_side_data; ++i) {
        const AVPacketSideData& data = original.side_data[i];
        if (data.type == AV_PKT_DATA_DISPLAYMATRIX && !withTurn)
            continue;
        uint8_t* bytes = av_stream_new_side_data(&copy, data.type, data.size);
        if (bytes == nullptr)
            return AVERROR(ENOMEM);
        std::memcpy(bytes, data.data, static_cast<size_t>(data.size));
    }
#endif
    return 0;
}

/// Has the muxer tell players to turn a stream's pictures clockwise by 0 to 3 quarter turns, and to
/// mirror them left to right after that.
inline int setRotation(AVStream& stream, int quarterTurns, bool mirrored = false) {
    constexpr int32_t one = 1 << 16; // 16.16 fixed point, as MP4 stores it
    constexpr int32_t w = 1 << 30;   // 2.30
    constexpr std::array<std::array<int32_t, 9>, 4> matrices = {{
        {one, 0, 0, 0, one, 0, 0, 0, w},
        {0, one, 0, -one, 0, 0, 0, 0, w},
        {-one, 0, 0, 0, -one, 0, 0, 0, w},
        {0, -one, 0, one, 0, 0, 0, 0, w},
    }};
    auto matrix = matrices[static_cast<size_t>(quarterTurns & 3)];
    if (mirrored) {
        matrix[0] = -matrix[0];
        matrix[3] = -matrix[3];
    }
#if TARN_FFMPEG_HAS_CODED_SIDE_DATA
    AVPacketSideData* data = av_packet_side_data_new(&stream.codecpar->coded_side_data,
                                                     &stream.codecpar->nb_coded_side_data,
                                                     AV_PKT_DATA_DISPLAYMATRIX, sizeof matrix, 0);
    uint8_t* bytes = data != nullptr ? data->data : nullptr;
#else
    uint8_t* bytes = av_stream_new_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, sizeof matrix);
#endif
    if (bytes == nullptr)
        return AVERROR(ENOMEM);
    std::memcpy(bytes, matrix.data(), sizeof matrix);
    return 0;
}

#pragma GCC diagnostic pop

/// Whether the MP4 demuxer reads this input, the only one that ever made "rotate" tags.
inline bool isMp4Family(const AVFormatContext& context) {
    return std::strncmp(context.iformat->name, "mov,", 4) == 0;
}

/// Gives every stream of a just opened input the "rotate" tag that the MP4 demuxer set up to
/// FFmpeg 4.4, so that rotation is read in one way on every release: the angle by which a picture
/// is turned clockwise, from 0 up to 360, printed with %g.
/// @returns a negative number when memory runs out: pictures would not be turned then
[[nodiscard]] inline int restoreRotateTags(AVFormatContext& context) {
    if (!isMp4Family(context))
        return 0;
    for (unsigned i = 0; i < context.nb_streams; ++i) {
        AVStream& stream = *context.streams[i];
        const int32_t* matrix = displayMatrix(stream);
        if (matrix == nullptr || av_dict_get(stream.metadata, "rotate", nullptr, 0) != nullptr)
            continue;
        double clockwise = -av_display_rotation_get(matrix);
        if (std::isnan(clockwise))
            continue;
        if (clockwise < 0)
            clockwise += 360;
        std::array<char, 64> text{};
        std::snprintf(text.data(), text.size(), "%g", clockwise);
        const int set = av_dict_set(&stream.metadata, "rotate", text.data(), 0);
        if (set < 0)
            return set;
    }
    return 0;
}

/// Whether it is known what the stream carries. Releases before 5.0 had a private field for it,
/// which later ones hide.
inline bool hasBeenProbed(const AVStream& stream) {
    return stream.codecpar != nullptr && stream.codecpar->codec_id != AV_CODEC_ID_NONE;
}

} // namespace tio::ffmpeg::compat
