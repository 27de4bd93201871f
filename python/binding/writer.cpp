#include "binding.h"
#include "pixels.h"
#include "shared.h"

#include <TARN/videoio/ClipCopier.h>
#include <TARN/videoio/ClipWriter.h>

#include <memory>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

namespace tio::python {

namespace {

using ffmpeg::ClipColours;
using ffmpeg::ClipWriter;
using ffmpeg::ClipWriterOptions;

ClipWriterOptions optionsOf(const py::dict& given) {
    ClipWriterOptions options;
    take(given, "rate", options.rate);
    take(given, "time_base", options.timeBase);
    take(given, "codec", options.codec);
    take(given, "crf", options.crf);
    take(given, "preset", options.preset);
    take(given, "bit_rate", options.bitRate);
    take(given, "options", options.options);
    take(given, "threads", options.threads);
    take(given, "rotation", options.rotation);
    take(given, "metadata", options.metadata);
    take(given, "audio_rate", options.audioRate);
    take(given, "audio_channels", options.audioChannels);
    take(given, "audio_codec", options.audioCodec);
    take(given, "audio_bit_rate", options.audioBitRate);
    take(given, "overwrite", options.overwrite);
    take(given, "faststart", options.faststart);
    take(given, "fragmented", options.fragmented);
    take(given, "colours", options.colours,
         {{ClipColours::Bt601, "bt601"},
          {ClipColours::Bt709, "bt709"},
          {ClipColours::Bt2020, "bt2020"}});
    take(given, "origin", options.origin,
         {{ffmpeg::ClipOrigin::AsGiven, "given"}, {ffmpeg::ClipOrigin::First, "first"}});
    return options;
}

using Writer = Shared<ClipWriter>;

std::unique_ptr<Writer> makeWriter(const std::string& path, const py::dict& given) {
    return std::make_unique<Writer>([path, options = optionsOf(given), process = ::getpid()] {
        if (process != ::getpid())
            throw tio::Exception("the clip is written by the process that this one was forked of");
        return std::make_unique<ClipWriter>(path, options);
    });
}

/// Pictures one after the other, each at its time, or 1 / rate after the one before.
void writePictures(Writer& writer, const std::string& format, const py::array& array, int height,
                   int width, const std::optional<std::vector<Seconds>>& times,
                   const std::optional<Seconds>& duration) {
    const PictureArray<const uint8_t> pictures(formatOf(format), array, height, width);
    if (times && times->size() != pictures.count())
        throw py::value_error("another number of times than of pictures");
    writer.use([&](ClipWriter& open) {
        for (std::size_t place = 0; place < pictures.count() && !callShallEnd(); ++place) {
            if (times)
                open.writePicture(pictures.at(place), (*times)[place], duration);
            else
                open.writePicture(pictures.at(place));
        }
    });
}

void writeSamples(Writer& writer, const py::array_t<float, py::array::c_style>& samples,
                  const std::optional<Seconds>& time) {
    if (samples.ndim() != 2)
        throw py::value_error("samples without channels");
    const float* data = samples.data();
    const auto count = static_cast<std::size_t>(samples.shape(0));
    const auto channels = static_cast<int>(samples.shape(1));
    writer.use([&](ClipWriter& open) { open.writeSamples(data, count, channels, time); });
}

void remux(const ffmpeg::Source& source, const std::string& path, bool overwrite) {
    ffmpeg::ClipCopierOptions options;
    options.overwrite = overwrite;
    inLibrary([&] {
        ffmpeg::ClipCopier(source, path, options).run([](const ffmpeg::CopyProgress&) {
            return !callShallEnd();
        });
    });
}

} // namespace

void bindWriters(py::module_& module) {
    module.def("remux", &remux);
    py::class_<Writer>(module, "ClipWriter", "Writes a clip.")
        .def(py::init(&makeWriter))
        .def("write_pictures", &writePictures)
        .def("write_samples", &writeSamples)
        .def("finish",
             [](Writer& writer) { writer.closeAfter([](ClipWriter& open) { open.finish(); }); })
        .def("abandon", &Writer::close, "Leaves nothing under the name.")
        .def("is_closed", &Writer::isClosed);
}

} // namespace tio::python
