#include "media/StoredPictures.h"

#include <map>
#include <string>

namespace tio::tool {

namespace {

using ffmpeg::ClipColours;
using ffmpeg::PictureFormat;

// What is not tagged is BT.601.
const std::map<std::string, ClipColours> matrices = {{"", ClipColours::Bt601},
                                                     {"smpte170m", ClipColours::Bt601},
                                                     {"bt470bg", ClipColours::Bt601},
                                                     {"bt709", ClipColours::Bt709},
                                                     {"bt2020nc", ClipColours::Bt2020}};

const std::map<std::string, PictureFormat> storedFormats = {
    {"yuv420p", PictureFormat::Yuv420},        {"yuv422p", PictureFormat::Yuv422},
    {"yuv444p", PictureFormat::Yuv444},        {"yuv420p10le", PictureFormat::Yuv420P10},
    {"yuv422p10le", PictureFormat::Yuv422P10}, {"yuv444p10le", PictureFormat::Yuv444P10}};

} // namespace

void chooseStoredPictures(const Clip& clip, PictureOptions& pictures,
                          ffmpeg::ClipWriterOptions& writing) {
    if (clip->hasVideoStream() == 0)
        return; // opening the pictures says so
    const int stream = pictures.stream.value_or(clip->findBestVideoStreamIndex());
    if (stream >= clip->getStreamCount())
        return;
    const ffmpeg::Metadata about = ffmpeg::metadataOf(*clip, stream);
    const auto format = storedFormats.find(about.pixelFormat);
    const auto matrix = matrices.find(about.colourSpace);
    const bool limited = about.colourRange.empty() || about.colourRange == "tv";
    if (format != storedFormats.end() && matrix != matrices.end() && limited &&
        pictures.colours == ffmpeg::Colours::Tagged) {
        pictures.format = format->second;
        writing.colours = matrix->second;
    } else if (about.bits.value_or(0) > 8) {
        pictures.format = PictureFormat::Rgb16;
    }
}

} // namespace tio::tool
