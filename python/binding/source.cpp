#include "binding.h"

#include <TARN/videoio/Source.h>

#include <chrono>
#include <cstring>
#include <map>

namespace tio::python {

namespace {

/// Where bytes of Python's lie, and how many there are.
std::pair<const uint8_t*, int64_t> viewOf(const py::object& bytes) {
    char* data = nullptr;
    Py_ssize_t size = 0;
    if (PyBytes_AsStringAndSize(bytes.ptr(), &data, &size) != 0)
        throw py::error_already_set();
    return {reinterpret_cast<const uint8_t*>(data), size}; // NOLINT: chars are what it gives
}

/// Bytes of a file object of Python's, each stream with a position of its own.
class PythonStream : public ffmpeg::ByteStream {
public:
    explicit PythonStream(std::shared_ptr<py::object> bytes) : file(std::move(bytes)) {}

    int64_t read(uint8_t* to, int64_t count) override {
        const int64_t came = inPython([&] {
            const py::bytes block = file->attr("read_at")(position, count);
            const auto [data, size] = viewOf(block);
            if (size > count)
                throw std::length_error("more bytes than were asked for");
            std::memcpy(to, data, static_cast<std::size_t>(size));
            return size;
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

/// @param settings  milliseconds to open and to read, the demuxer, FFmpeg's options
ffmpeg::OpenOptions optionsOf(const py::tuple& settings) {
    ffmpeg::OpenOptions made;
    made.openTimeout = std::chrono::milliseconds(settings[0].cast<int64_t>());
    made.readTimeout = std::chrono::milliseconds(settings[1].cast<int64_t>());
    made.formatName = settings[2].cast<std::string>();
    made.demuxerOptions = settings[3].cast<std::map<std::string, std::string>>();
    made.cancelToken = ffmpeg::CancelToken(&callShallEnd);
    return made;
}

ffmpeg::Source makeSource(const std::string& kind, const py::object& content, std::string name,
                          const py::tuple& settings) {
    ffmpeg::OpenOptions options = optionsOf(settings);
    if (kind == "path")
        return {content.cast<std::string>(), std::move(options)};
    auto shared = shareObject(content);
    if (kind == "file") {
        return ffmpeg::Source::streams([shared] { return std::make_unique<PythonStream>(shared); },
                                       std::move(name), std::move(options));
    }
    const auto [data, size] = viewOf(content);
    return ffmpeg::Source::memory(std::shared_ptr<const uint8_t>(shared, data),
                                  static_cast<std::size_t>(size), std::move(name),
                                  std::move(options));
}

} // namespace

void bindSources(py::module_& module) {
    py::class_<ffmpeg::Source>(module, "Source", "Where bytes come from.")
        .def(py::init(&makeSource), py::arg("kind"), py::arg("content"), py::arg("name"),
             py::arg("settings"));
}

} // namespace tio::python
