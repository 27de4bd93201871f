#include "exact/write/ClipMuxer.h"

#include "base/Options.h"
#include "base/checks.h"

#include <utility>

namespace tio::ffmpeg::detail {

namespace {

constexpr Places at("ClipMuxer");

constexpr int nanoseconds = 1000000000;
constexpr int quarterTurn = 90; // degrees

// Whether a tag describes the file that a stream came from, and is none of the stream's own.
bool isOfTheFile(const std::string& key) {
    for (const char* head : {"_STATISTICS", "BPS", "NUMBER_OF_", "DURATION"}) {
        if (key.rfind(head, 0) == 0)
            return true;
    }
    return key == "rotate"; // the matrix is copied
}

// The original's where the container knows it for this codec.
unsigned tagFor(const AVOutputFormat& muxer, const AVCodecParameters& codec, bool mp4) {
    if (muxer.codec_tag == nullptr ||
        av_codec_get_id(muxer.codec_tag, codec.codec_tag) == codec.codec_id)
        return codec.codec_tag;
    const bool headersApart = codec.extradata_size > 0 && codec.extradata[0] == 1;
    if (mp4 && codec.codec_id == AV_CODEC_ID_HEVC && headersApart)
        return MKTAG('h', 'v', 'c', '1'); // Apple's players know no other
    return 0;
}

} // namespace

ClipMuxer::ClipMuxer(const ClipContainer& container, std::string clip)
    : kind(container), name(std::move(clip)) {
    require(avformat_alloc_output_context2(&context, nullptr, container.muxer, nullptr), 10);
    context->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL; // Opus and FLAC in older releases
}

ClipMuxer::~ClipMuxer() {
    if (channel == nullptr)
        avio_closep(&context->pb);
    avformat_free_context(context);
}

void ClipMuxer::require(int result, int place) const {
    if (result < 0 && channel != nullptr)
        channel->rethrowFailure();
    checkResult(result, at(place), name);
}

// What a muxer writes goes through a buffer, and an error of the disk may show at a later call.
void ClipMuxer::requireDisk(int place) const {
    require(context->pb != nullptr ? context->pb->error : 0, place);
}

AVStream& ClipMuxer::addStream(AVRational timeBase) {
    AVStream* stream = avformat_new_stream(context, nullptr);
    if (stream == nullptr)
        throwFfmpegFailure(AVERROR(ENOMEM), at(20), &name);
    stream->time_base = timeBase;
    tracks.push_back({timeBase, {}});
    return *stream;
}

AVStream& ClipMuxer::addStream(const AVCodecContext& encoder, AVRational timeBase) {
    AVStream& stream = addStream(timeBase);
    require(avcodec_parameters_from_context(stream.codecpar, &encoder), 21);
    stream.codecpar->codec_tag = 0; // the muxer knows its own
    return stream;
}

int ClipMuxer::addPictures(const AVCodecContext& encoder, const ClipWriterOptions& options,
                           int64_t ticks) {
    AVStream& stream = addStream(encoder, {1, static_cast<int>(ticks)});
    stream.sample_aspect_ratio = encoder.sample_aspect_ratio;
    if (options.rate)
        stream.avg_frame_rate = encoder.framerate;
    if (kind.mp4 && encoder.codec_id == AV_CODEC_ID_HEVC)
        stream.codecpar->codec_tag = MKTAG('h', 'v', 'c', '1'); // Apple's players know no other
    if (options.rotation != 0 || options.mirrored)
        require(compat::setRotation(stream, options.rotation / quarterTurn, options.mirrored), 30);
    return stream.index;
}

int ClipMuxer::addSound(const AVCodecContext& encoder, const ClipWriterOptions& options) {
    AVStream& stream = addStream(encoder, {1, encoder.sample_rate});
    if (!options.language.empty())
        require(av_dict_set(&stream.metadata, "language", options.language.c_str(), 0), 40);
    if (kind.isMatroska())
        require(tracks.back().delay.prepare(stream), 41);
    return stream.index;
}

int ClipMuxer::addCopy(const AVStream& original, AVRational ticks, int runIn, bool keepTurn) {
    AVStream& stream = addStream(ticks);
    AVCodecParameters& codec = *stream.codecpar;
    require(avcodec_parameters_copy(&codec, original.codecpar), 45);
    codec.codec_tag = tagFor(*context->oformat, codec, kind.mp4);
    require(compat::copySideData(stream, original, keepTurn), 46);
    const AVDictionaryEntry* tag = nullptr;
    while ((tag = av_dict_get(original.metadata, "", tag, AV_DICT_IGNORE_SUFFIX)) != nullptr) {
        if (!isOfTheFile(tag->key))
            require(av_dict_set(&stream.metadata, tag->key, tag->value, 0), 47);
    }
    stream.disposition = original.disposition;
    if (original.sample_aspect_ratio.num > 0) // the container counts, as it does for players
        codec.sample_aspect_ratio = original.sample_aspect_ratio;
    stream.sample_aspect_ratio = codec.sample_aspect_ratio;
    stream.avg_frame_rate = original.avg_frame_rate;
    stream.r_frame_rate = original.r_frame_rate;
    if (codec.codec_type == AVMEDIA_TYPE_AUDIO)
        codec.initial_padding = runIn;
    if (kind.isMatroska() && codec.codec_type == AVMEDIA_TYPE_AUDIO)
        require(tracks.back().delay.prepare(stream), 48);
    return stream.index;
}

// MP4's muxer knows one scale for all tracks of pictures.
int64_t ClipMuxer::scaleOfPictures() const {
    int64_t scale = 0;
    for (unsigned i = 0; i < context->nb_streams; ++i) {
        const AVStream& stream = *context->streams[i];
        if (stream.codecpar->codec_type != AVMEDIA_TYPE_VIDEO)
            continue;
        const int64_t own = stream.time_base.den;
        scale = scale == 0 ? own : commonMultiple(scale, own, INT32_MAX).value_or(scale);
    }
    return scale;
}

void ClipMuxer::describe(const ClipWriterOptions& options) {
    for (const auto& [key, value] : options.metadata)
        require(av_dict_set(&context->metadata, key.c_str(), value.c_str(), 0), 50);
    addChapters(options);
}

// Chapters belong to the context once they are in its list; FFmpeg has no call that adds one.
void ClipMuxer::addChapters(const ClipWriterOptions& options) {
    for (const ClipChapter& chapter : options.chapters) {
        auto* made = static_cast<AVChapter*>(av_mallocz(sizeof(AVChapter)));
        if (made == nullptr)
            throwFfmpegFailure(AVERROR(ENOMEM), at(60), &name);
        made->id = static_cast<int>(context->nb_chapters) + 1;
        made->time_base = {1, nanoseconds};
        made->start = static_cast<int64_t>(roundedProduct(chapter.begin, nanoseconds));
        made->end = static_cast<int64_t>(roundedProduct(chapter.end, nanoseconds));
        auto count = static_cast<int>(context->nb_chapters);
        const int added = av_dynarray_add_nofree(&context->chapters, &count, made);
        if (added < 0)
            av_free(made);
        require(added, 61);
        context->nb_chapters = static_cast<unsigned>(count);
        require(av_dict_set(&made->metadata, "title", chapter.title.c_str(), 0), 62);
    }
}

void ClipMuxer::begin(const std::string& path, const ClipWriterOptions& options,
                      int64_t movieScale) {
    file = path;
    const std::string url = "file:" + path; // whatever colons the name has
    require(avio_open(&context->pb, url.c_str(), AVIO_FLAG_WRITE), 70);
    av_free(context->url); // the second pass of faststart reads what the first has written
    context->url = av_strdup(url.c_str());
    require(context->url != nullptr ? 0 : AVERROR(ENOMEM), 71);
    writeHeader(options, movieScale);
}

void ClipMuxer::begin(SinkChannel& sink, const ClipWriterOptions& options, int64_t movieScale) {
    channel = &sink;
    context->pb = sink.io();
    context->flags |= AVFMT_FLAG_CUSTOM_IO;
    for (const Track& track : tracks)
        sink.fillFirst(track.delay);
    writeHeader(options, movieScale);
}

void ClipMuxer::writeHeader(const ClipWriterOptions& options, int64_t movieScale) {
    describe(options);
    Options muxing;
    if (kind.mp4) {
        muxing.set("movie_timescale", std::to_string(movieScale).c_str());
        if (const int64_t scale = scaleOfPictures(); scale != 0)
            muxing.set("video_track_timescale", std::to_string(scale).c_str());
        // The head of a file in fragments waits for the first one, which says when tracks begin.
        muxing.set("movflags", channel != nullptr
                                   ? "+write_colr+frag_custom+delay_moov+default_base_moof"
                               : options.faststart ? "+write_colr+faststart"
                                                   : "+write_colr");
    }
    if (kind.isMatroska()) {
        context->avoid_negative_ts = 0; // the run-in would move the pictures as well
        muxing.set("write_crc32", "0"); // the run-in of sound is written into what is summed up
    }
    require(avformat_write_header(context, muxing.address()), 72);
    avio_flush(context->pb);
    requireDisk(73);
}

void ClipMuxer::write(AVPacket& packet, int stream) {
    const auto& [given, delay] = tracks[static_cast<size_t>(stream)];
    packet.pts += delay.shift();
    packet.dts += delay.shift();
    av_packet_rescale_ts(&packet, given, context->streams[stream]->time_base);
    packet.stream_index = stream;
    if (channel != nullptr)
        require(av_write_frame(context, &packet), 82);
    else
        require(av_interleaved_write_frame(context, &packet), 80);
    requireDisk(81);
}

void ClipMuxer::endFragment() {
    require(av_write_frame(context, nullptr), 85);
    if (kind.mp4 && !std::exchange(headIsOut, true)) // the first time, it was the head alone
        require(av_write_frame(context, nullptr), 87);
    avio_flush(context->pb);
    requireDisk(86);
}

void ClipMuxer::end() {
    require(av_write_trailer(context), 90);
    if (channel != nullptr)
        avio_flush(context->pb);
    requireDisk(91);
    if (channel != nullptr)
        return;
    require(avio_closep(&context->pb), 92);
    for (const Track& track : tracks)
        require(track.delay.fill(file), 93);
}

} // namespace tio::ffmpeg::detail
