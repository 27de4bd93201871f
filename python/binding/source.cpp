#include "source.h"

#include "binding.h"
#include "call.h"

#include <chrono>
#include <cstring>
#include <map>
#include <pybind11/stl.h>

namespace tio::python {

namespace {

/// Bytes of a file object of Python's, each stream with a position of its own.
class PythonStream : public ffmpeg::ByteStream {
public:
    explicit PythonStream(std::shared_ptr<py::object> bytes) : file(std::move(bytes)) {}

    int64_t read(uint8_t* to, int64_t count) override {
        const int64_t came = inPython([&] {
            const py::bytes block = file->attr("read_at")(position, count);
            char* data = nullptr;
            Py_ssize_t size = 0;
            if (PyBytes_AsStringAndSize(block.ptr(), &data, &size) != 0)
                throw py::error_already_set();
            if (size > count)
                throw std::length_error("more bytes than were asked for");
            std::memcpy(to, data, static_cast<std::size_t>(size));
            return static_cast<int64_t>(size);
        });
        position += came;
        return came;
    }

    void seek(int64_t to) override { position = to; }

    int64_t size() override {
        return inPython([&] { return file->attr("size")().cast<int64_t>(); });
    }

private:
    std::shared_ptr<py::object> file;
    int64_t position = 0;
};

ffmpeg::OpenOptions optionsOf(int64_t openTimeout, int64_t readTimeout, std::string demuxer,
                              std::map<std::string, std::string> options) {
    ffmpeg::OpenOptions made;
    made.openTimeout = std::chrono::milliseconds(openTimeout);
    made.readTimeout = std::chrono::milliseconds(readTimeout);
    made.formatName = std::move(demuxer);
    made.demuxerOptions = std::move(options);
    listenToSignals(made);
    return made;
}

ffmpeg::Source makeSource(const std::string& kind, const py::object& content, std::string name,
                          const py::tuple& settings) {
    ffmpeg::OpenOptions options = optionsOf(
        settings[0].cast<int64_t>(), settings[1].cast<int64_t>(), settings[2].cast<std::string>(),
        settings[3].cast<std::map<std::string, std::string>>());
    if (kind == "path")
        return {content.cast<std::string>(), std::move(options)};
    auto shared = shareObject(content);
    if (kind == "file") {
        return ffmpeg::Source::streams([shared] { return std::make_unique<PythonStream>(shared); },
                                       std::move(name), std::move(options));
    }
    char* data = nullptr;
    Py_ssize_t size = 0;
    if (PyBytes_AsStringAndSize(content.ptr(), &data, &size) != 0)
        throw py::error_already_set();
    const auto* bytes = reinterpret_cast<const uint8_t*>(data); // NOLINT: chars are what it gives
    return ffmpeg::Source::memory(std::shared_ptr<const uint8_t>(shared, bytes),
                                  static_cast<std::size_t>(size), std::move(name),
                                  std::move(options));
}

} // namespace

void bindSources(py::module_& module) {
    py::class_<ffmpeg::Source>(module, "Source", "Where bytes come from.")
        .def(py::init(&makeSource), py::arg("kind"), py::arg("content"), py::arg("name"),
             py::arg("settings"))
        .def_property_readonly("name",
                               [](const ffmpeg::Source& source) { return textOf(source.name()); });
}

} // namespace tio::python
