// The work of work.h by FFMS2.

#include "work.h"

#include <algorithm>
#include <ffms.h>

extern "C" {
#include <libavutil/pixfmt.h>
}

namespace tio::bench {
namespace {

/// FFMS2's account of the last failure.
class Failure {
public:
    Failure() {
        info.Buffer = text;
        info.BufferSize = sizeof text;
    }
    FFMS_ErrorInfo* get() { return &info; }

    template <typename T>
    T* found(T* pointer) {
        if (pointer == nullptr)
            throw std::runtime_error(text);
        return pointer;
    }

private:
    char text[1024] = {};
    FFMS_ErrorInfo info{};
};

FFMS_Index* makeIndex(const Job& job, FFMS_TrackType type) {
    Failure failure;
    FFMS_Indexer* indexer = failure.found(FFMS_CreateIndexer(job.source.c_str(), failure.get()));
    FFMS_TrackTypeIndexSettings(indexer, type, 1, 0);
    return failure.found(FFMS_DoIndexing2(indexer, FFMS_IEH_ABORT, failure.get()));
}

/// The clip's pictures, converted.
class Pictures {
public:
    Pictures(const Job& job, FFMS_Index* index, int format, int width = 0, int height = 0) {
        const int track = FFMS_GetFirstTrackOfType(index, FFMS_TYPE_VIDEO, failure.get());
        video = failure.found(FFMS_CreateVideoSource(job.source.c_str(), track, index, 0,
                                                     FFMS_SEEK_NORMAL, failure.get()));
        const FFMS_Frame* first = failure.found(FFMS_GetFrame(video, 0, failure.get()));
        const int formats[] = {format, -1};
        FFMS_SetOutputFormatV2(video, formats, width == 0 ? first->EncodedWidth : width,
                               height == 0 ? first->EncodedHeight : height,
                               width == 0 ? FFMS_RESIZER_BICUBIC : FFMS_RESIZER_AREA,
                               failure.get());
    }
    ~Pictures() { FFMS_DestroyVideoSource(video); }
    Pictures(const Pictures&) = delete;
    Pictures& operator=(const Pictures&) = delete;

    [[nodiscard]] int64_t count() const { return FFMS_GetVideoProperties(video)->NumFrames; }
    const FFMS_Frame* read(int64_t frame) {
        return failure.found(FFMS_GetFrame(video, static_cast<int>(frame), failure.get()));
    }

private:
    Failure failure;
    FFMS_VideoSource* video = nullptr;
};

int64_t decode(const Job& job, int format, int64_t most) {
    Pictures pictures(job, makeIndex(job, FFMS_TYPE_VIDEO), format);
    int64_t frame = 0;
    for (; frame < most && frame < pictures.count(); ++frame)
        pictures.read(frame);
    return frame;
}

int64_t countFrames(FFMS_Index* index) {
    Failure failure;
    const int track = FFMS_GetFirstTrackOfType(index, FFMS_TYPE_VIDEO, failure.get());
    return FFMS_GetNumFrames(FFMS_GetTrackFromIndex(index, track));
}

FFMS_Index* readIndex(const Job& job) {
    Failure failure;
    return failure.found(FFMS_ReadIndex(job.target.c_str(), failure.get()));
}

int64_t storeIndex(const Job& job) {
    Failure failure;
    FFMS_WriteIndex(job.target.c_str(), makeIndex(job, FFMS_TYPE_VIDEO), failure.get());
    return 0;
}

int64_t seek(const Job& job) {
    Pictures pictures(job, readIndex(job), AV_PIX_FMT_RGB24);
    int64_t count = 0;
    for (const int64_t frame : framesToSeek(pictures.count())) {
        pictures.read(frame);
        ++count;
    }
    return count;
}

int64_t readAll(const Job& job, int format, int width, int height) {
    Pictures pictures(job, readIndex(job), format, width, height);
    int64_t frame = 0;
    for (; frame < pictures.count(); ++frame)
        pictures.read(frame);
    return frame;
}

int64_t batch(const Job& job) {
    Pictures pictures(job, readIndex(job), AV_PIX_FMT_RGB24);
    std::vector<uint8_t> memory;
    int64_t count = 0;
    for (const int64_t frame : framesOfBatch(pictures.count())) {
        const FFMS_Frame* picture = pictures.read(frame);
        const auto row = static_cast<size_t>(3 * picture->ScaledWidth);
        const auto bytes = row * static_cast<size_t>(picture->ScaledHeight);
        memory.resize(batchSize * bytes);
        uint8_t* to = memory.data() + static_cast<size_t>(count++) * bytes;
        for (int y = 0; y < picture->ScaledHeight; ++y, to += row)
            std::copy_n(picture->Data[0] + std::ptrdiff_t{y} * picture->Linesize[0], row, to);
    }
    return count;
}

int64_t decodeSound(const Job& job) {
    Failure failure;
    FFMS_Index* index = makeIndex(job, FFMS_TYPE_AUDIO);
    const int track = FFMS_GetFirstTrackOfType(index, FFMS_TYPE_AUDIO, failure.get());
    FFMS_AudioSource* sound = failure.found(FFMS_CreateAudioSource(
        job.source.c_str(), track, index, FFMS_DELAY_FIRST_VIDEO_TRACK, failure.get()));
    FFMS_ResampleOptions* options = FFMS_CreateResampleOptions(sound);
    options->SampleFormat = FFMS_FMT_FLT;
    FFMS_SetOutputFormatA(sound, options, failure.get());
    const int64_t samples = FFMS_GetAudioProperties(sound)->NumSamples;
    constexpr int64_t block = 4096;
    std::vector<float> part(static_cast<size_t>(block * soundChannels));
    for (int64_t at = 0; at < samples; at += block)
        FFMS_GetAudio(sound, part.data(), at, std::min(block, samples - at), failure.get());
    FFMS_DestroyResampleOptions(options);
    FFMS_DestroyAudioSource(sound);
    return samples;
}

} // namespace
} // namespace tio::bench

int main(int argc, char** argv) {
    using namespace tio::bench;
    FFMS_Init(0, 0);
    const auto decoding = [](int format, int64_t most) {
        return [=](const Job& job) { return decode(job, format, most); };
    };
    return runTask(
        argc, argv,
        {{"first-frame", decoding(AV_PIX_FMT_RGB24, 1)},
         {"decode-rgb", decoding(AV_PIX_FMT_RGB24, INT64_MAX)},
         {"decode-nv12", decoding(AV_PIX_FMT_NV12, INT64_MAX)},
         {"index", [](const Job& job) { return countFrames(makeIndex(job, FFMS_TYPE_VIDEO)); }},
         {"store-index", storeIndex},
         {"load-index", [](const Job& job) { return countFrames(readIndex(job)); }},
         {"tagged-rgb", [](const Job& job) { return readAll(job, AV_PIX_FMT_RGB24, 0, 0); }},
         {"small-rgb",
          [](const Job& job) { return readAll(job, AV_PIX_FMT_RGB24, smallWidth, smallHeight); }},
         {"deep-rgb", [](const Job& job) { return readAll(job, AV_PIX_FMT_RGB48, 0, 0); }},
         {"batch", batch},
         {"seek", seek},
         {"decode-sound", decodeSound}});
}
