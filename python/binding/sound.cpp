#include "binding.h"
#include "shared.h"

#include <TARN/videoio/SampleReader.h>

#include <cstdint>
#include <optional>
#include <pybind11/numpy.h>

namespace tio::python {

namespace {

using ffmpeg::SampleIndex;
using ffmpeg::SampleReader;
using Samples = py::array_t<float, py::array::c_style>;
using SharedSamples =
    SharedReader<SampleReader, ffmpeg::SampleReaderOptions, &SampleReader::sampleCount>;

ffmpeg::SampleReaderOptions optionsOf(const py::dict& settings,
                                      const std::optional<py::bytes>& index) {
    ffmpeg::SampleReaderOptions options;
    if (index)
        options.index =
            inLibrary([content = contentOf(*index)] { return SampleIndex::fromBytes(content); });
    take(settings, "stream", options.stream);
    take(settings, "checksums", options.checksums);
    options.progress = progressOf(settings["progress"]);
    return options;
}

class Sound : public SharedSamples {
public:
    Sound(const ffmpeg::Source& source, const py::dict& settings,
          const std::optional<py::bytes>& index)
        : SharedSamples(source, optionsOf(settings, index)),
          channels(use([](SampleReader& open) { return open.channelCount(); })) {}

    /// @param memory  (n, channels)
    void readInto(int64_t first, Samples& memory) {
        const int64_t number = memory.shape(0);
        float* const to = memory.mutable_data(); // throws when it is read-only
        if (memory.ndim() != 2 || memory.shape(1) != channels)
            throw py::value_error("another number of channels than the sound has");
        use([&](SampleReader& open) { open.readSamples(first, number, to); });
    }

    [[nodiscard]] py::bytes index() {
        return bytesOf(use([](SampleReader& open) { return open.index().toBytes(); }));
    }

    [[nodiscard]] py::str layout() {
        return textOf(use([](SampleReader& open) { return open.layout(); }));
    }

private:
    int channels;
};

} // namespace

void bindSound(py::module_& module) {
    py::class_<Sound> bound(module, "AudioReader", "Sound by number of sample.");
    bindShared(bound);
    bound.def(py::init<ffmpeg::Source, py::dict, std::optional<py::bytes>>())
        .def("stream", asking<Sound>(&SampleReader::streamIndex))
        .def("rate", asking<Sound>(&SampleReader::sampleRate))
        .def("channels", asking<Sound>(&SampleReader::channelCount))
        .def("layout", &Sound::layout)
        .def("index", &Sound::index)
        .def("read_into", &Sound::readInto, py::arg("first"), py::arg("memory").noconvert())
        .def("start_time", asking<Sound>(&SampleReader::startTime))
        .def("duration", asking<Sound>(&SampleReader::duration))
        .def("time", asking<Sound>(&SampleReader::timeOfSample))
        .def("number_at", asking<Sound>(&SampleReader::sampleAt));
}

} // namespace tio::python
