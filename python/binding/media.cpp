#include "binding.h"

#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/Metadata.h>
#include <TARN/videoio/Versions.h>

#include <optional>
#include <string>
#include <vector>

namespace tio::python {

namespace {

using ffmpeg::Metadata;
using ffmpeg::StreamType;

const char* nameOf(StreamType type) {
    return wordOf(type, {{StreamType::Video, "video"},
                         {StreamType::Audio, "audio"},
                         {StreamType::Subtitle, "subtitle"},
                         {StreamType::Data, "data"},
                         {StreamType::Attachment, "attachment"},
                         {StreamType::Unknown, "unknown"}});
}

py::object told(const std::string& text) {
    if (text.empty())
        return py::none();
    return textOf(text, "replace");
}

py::object told(const std::optional<ffmpeg::Rational>& fraction) {
    if (!fraction || fraction->denominator == 0)
        return py::none();
    return py::cast(*fraction);
}

py::dict dictOf(const Metadata& metadata, std::size_t index) {
    py::dict tags;
    for (const auto& [key, value] : metadata.tags)
        tags[textOf(key, "replace")] = textOf(value, "replace");
    py::dict made;
    made["index"] = index;
    made["type"] = nameOf(metadata.type);
    made["container"] = told(metadata.container);
    made["codec"] = metadata.codec == "none" ? py::none() : told(metadata.codec);
    made["time_base"] = told(std::optional<ffmpeg::Rational>(metadata.timeBase));
    made["duration"] = told(metadata.duration);
    made["bit_rate"] = metadata.bitRate;
    made["frame_count"] = metadata.frameCount;
    made["tags"] = tags;
    made["width"] = metadata.width;
    made["height"] = metadata.height;
    made["coded_width"] = metadata.codedWidth;
    made["coded_height"] = metadata.codedHeight;
    made["pixel_format"] = told(metadata.pixelFormat);
    made["bits"] = metadata.bits;
    made["average_rate"] = told(metadata.averageRate);
    made["rotation"] = metadata.rotation;
    made["mirrored"] = metadata.mirrored;
    made["turn_is_exact"] = metadata.turnIsExact;
    made["colour_space"] = told(metadata.colourSpace);
    made["colour_range"] = told(metadata.colourRange);
    made["colour_primaries"] = told(metadata.colourPrimaries);
    made["colour_transfer"] = told(metadata.colourTransfer);
    made["sample_aspect_ratio"] = told(metadata.sampleAspectRatio);
    made["sample_format"] = told(metadata.sampleFormat);
    made["rate"] = metadata.rate;
    made["channels"] = metadata.channels;
    made["layout"] = told(metadata.layout);
    return made;
}

py::list describe(const ffmpeg::Source& source) {
    const std::vector<Metadata> streams = inLibrary([&] {
        const ffmpeg::InputFormatContext input(source);
        std::vector<Metadata> found;
        found.reserve(static_cast<std::size_t>(input.getStreamCount()));
        for (int stream = 0; stream < input.getStreamCount(); ++stream)
            found.push_back(metadataOf(input, stream));
        return found;
    });
    py::list made;
    for (std::size_t stream = 0; stream < streams.size(); ++stream)
        made.append(dictOf(streams[stream], stream));
    return made;
}

py::dict versions() {
    py::dict made;
    made["ffmpeg"] = ffmpeg::loadedRelease();
    for (const ffmpeg::LibraryVersion& library : ffmpeg::versions())
        made[py::str(library.name)] =
            py::make_tuple(library.compiled.toString(), library.loaded.toString());
    return made;
}

} // namespace

void bindMedia(py::module_& module) {
    module.def("describe", &describe, "Metadata of all streams, a dict for each.");
    module.def("versions", &versions);
    module.attr("version") = TARN_VERSION;
}

} // namespace tio::python
