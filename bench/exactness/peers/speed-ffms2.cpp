// The walks of speed.h through FFMS2, with RGB pictures: speed-ffms2 CLIP

#include "../speed.h"

#include <ffms.h>

extern "C" {
#include <libavutil/pixfmt.h>
}

int main(int argc, char** argv) {
    FFMS_Init(0, 0);
    char text[1024] = {};
    FFMS_ErrorInfo error{};
    error.Buffer = text;
    error.BufferSize = sizeof text;
    FFMS_Indexer* indexer = argc == 2 ? FFMS_CreateIndexer(argv[1], &error) : nullptr;
    if (indexer == nullptr)
        return 1;
    FFMS_Index* index = nullptr;
    tio::bench::measure("ffms2", "index",
                        [&] { index = FFMS_DoIndexing2(indexer, FFMS_IEH_IGNORE, &error); });
    const int track = FFMS_GetFirstTrackOfType(index, FFMS_TYPE_VIDEO, &error);
    const auto open = [&] {
        FFMS_VideoSource* video =
            FFMS_CreateVideoSource(argv[1], track, index, 0, FFMS_SEEK_NORMAL, &error);
        const FFMS_Frame* first = FFMS_GetFrame(video, 0, &error);
        const int formats[] = {AV_PIX_FMT_RGB24, -1};
        FFMS_SetOutputFormatV2(video, formats, first->EncodedWidth, first->EncodedHeight,
                               FFMS_RESIZER_BICUBIC, &error);
        return video;
    };
    FFMS_VideoSource* video = open();
    const int64_t count = FFMS_GetVideoProperties(video)->NumFrames;
    tio::bench::measure("ffms2", "random", [&] {
        for (const int64_t frame : tio::bench::randomFrames(count))
            FFMS_GetFrame(video, static_cast<int>(frame), &error);
    });
    FFMS_DestroyVideoSource(video);
    video = open();
    tio::bench::measure("ffms2", "every10", [&] {
        for (const int64_t frame : tio::bench::everyTenth(count))
            FFMS_GetFrame(video, static_cast<int>(frame), &error);
    });
    FFMS_DestroyVideoSource(video);
}
