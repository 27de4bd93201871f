#include "binding.h"
#include "shared.h"
#include "source.h"

#include <TARN/videoio/SampleReader.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <pybind11/numpy.h>
#include <pybind11/stl.h>
#include <string>
#include <utility>
#include <vector>

namespace tio::python {

namespace {

using ffmpeg::SampleIndex;
using ffmpeg::SampleReader;
using Samples = py::array_t<float, py::array::c_style>;

std::optional<SampleIndex> indexOf(const std::optional<py::bytes>& bytes) {
    if (!bytes)
        return std::nullopt;
    const std::string text = *bytes;
    const std::vector<uint8_t> content(text.begin(), text.end());
    return inLibrary([&] { return SampleIndex::fromBytes(content); });
}

ffmpeg::SampleReaderOptions optionsOf(const py::dict& settings, std::optional<SampleIndex> index) {
    ffmpeg::SampleReaderOptions options;
    options.index = std::move(index);
    options.stream = settings["stream"].cast<std::optional<int>>().value_or(options.stream);
    options.checksums = settings["checksums"].cast<bool>();
    options.progress = progressOf(settings["progress"]);
    return options;
}

class Sound {
public:
    Sound(const ffmpeg::Source& origin, const py::dict& settings,
          const std::optional<py::bytes>& index)
        : source(origin),
          options(optionsOf(settings, indexOf(index))),
          reader([this] { return open(); },
                 [this](const SampleReader& used) { samples.store(used.sampleCount()); }) {}

    void close() { reader.close(); }
    [[nodiscard]] bool isClosed() const noexcept { return reader.isClosed(); }

    // Waits for nobody: it is asked all the time.
    [[nodiscard]] int64_t count() const {
        reader.requireOpen();
        return samples.load();
    }

    /// Runs a function of the reader without the GIL.
    template <typename Function>
    auto use(Function&& function) {
        return reader.use(std::forward<Function>(function));
    }

    /// @param memory  (n, channels)
    void readInto(int64_t first, Samples& memory) {
        const int64_t number = memory.shape(0);
        float* const to = memory.mutable_data(); // throws when it is read-only
        if (memory.ndim() != 2 || memory.shape(1) != channels)
            throw py::value_error("another number of channels than the sound has");
        use([&](SampleReader& open) { open.readSamples(first, number, to); });
    }

    /// (stream, samples a second, channels, layout)
    [[nodiscard]] py::tuple facts() const {
        return py::make_tuple(stream, rate, channels, textOf(layout));
    }

    [[nodiscard]] py::bytes index() {
        const std::vector<uint8_t> bytes =
            use([](SampleReader& open) { return open.index().toBytes(); });
        return {reinterpret_cast<const char*>(bytes.data()),
                bytes.size()}; // NOLINT: as Python has it
    }

private:
    // Keeps the index, so that it is there when the reader has to be made again.
    std::unique_ptr<SampleReader> open() {
        auto made = std::make_unique<SampleReader>(source, options);
        options.index = made->index();
        stream = made->streamIndex();
        rate = made->sampleRate();
        channels = made->channelCount();
        layout = made->layout();
        return made;
    }

    ffmpeg::Source source;
    ffmpeg::SampleReaderOptions options;
    std::atomic<int64_t> samples{0};
    int stream = -1;
    int rate = 0;
    int channels = 0;
    std::string layout;
    Shared<SampleReader> reader; // is made of the rest
};

} // namespace

void bindSound(py::module_& module) {
    py::class_<Sound>(module, "AudioReader", "Sound by number of sample.")
        .def(py::init<ffmpeg::Source, py::dict, std::optional<py::bytes>>())
        .def("close", &Sound::close)
        .def("is_closed", &Sound::isClosed)
        .def("count", &Sound::count)
        .def("facts", &Sound::facts)
        .def("index", &Sound::index)
        .def("read_into", &Sound::readInto, py::arg("first"), py::arg("memory").noconvert())
        .def("start_time",
             [](Sound& sound) {
                 return pairOf(sound.use([](SampleReader& open) { return open.startTime(); }));
             })
        .def("duration",
             [](Sound& sound) {
                 return pairOf(sound.use([](SampleReader& open) { return open.duration(); }));
             })
        .def("time",
             [](Sound& sound, int64_t number) {
                 return pairOf(
                     sound.use([&](SampleReader& open) { return open.timeOfSample(number); }));
             })
        .def("number_at", [](Sound& sound, int64_t numerator, int64_t denominator) {
            const Seconds time(numerator, denominator);
            return sound.use([&](SampleReader& open) { return open.sampleAt(time); });
        });
}

} // namespace tio::python
