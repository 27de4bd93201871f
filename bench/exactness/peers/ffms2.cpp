// Frames by number through FFMS2:
//   ffms2 NAME CLIP TRUTH SECONDS

#include "compare.h"
#include "picture/planes.h"

#include <ffms.h>
#include <stdexcept>

int main(int argc, char** argv) {
    if (argc != 5)
        return 2;
    FFMS_Init(0, 0);
    FFMS_SetLogLevel(FFMS_LOG_QUIET);
    char text[1024] = {};
    FFMS_ErrorInfo error{};
    error.Buffer = text;
    error.BufferSize = sizeof text;
    FFMS_VideoSource* video = nullptr;
    if (FFMS_Indexer* indexer = FFMS_CreateIndexer(argv[2], &error)) {
        FFMS_Index* index = FFMS_DoIndexing2(indexer, FFMS_IEH_IGNORE, &error);
        const int track =
            index != nullptr ? FFMS_GetFirstTrackOfType(index, FFMS_TYPE_VIDEO, &error) : -1;
        if (track >= 0)
            video = FFMS_CreateVideoSource(argv[2], track, index, 0, FFMS_SEEK_NORMAL, &error);
    }
    if (video == nullptr) {
        std::printf("%s,ffms2,none,0,0,0,0,0,0,0,0,refused,0,\n", argv[1]);
        return 0;
    }
    const int count = FFMS_GetVideoProperties(video)->NumFrames;
    tio::bench::comparePeer(
        argv[1], "ffms2", count, tio::bench::readTruth(argv[3]), std::atof(argv[4]),
        [&](int64_t number) {
            const FFMS_Frame* frame = FFMS_GetFrame(video, static_cast<int>(number), &error);
            if (frame == nullptr)
                throw std::runtime_error(text);
            return crcOfPlanes(frame->Data, frame->Linesize,
                               static_cast<AVPixelFormat>(frame->EncodedPixelFormat),
                               frame->EncodedWidth, frame->EncodedHeight);
        });
    FFMS_DestroyVideoSource(video);
}
