#include "binding.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/AtomicFile.h>
#include <TARN/videoio/FrameIndex.h>

#include <optional>
#include <string>
#include <vector>

namespace tio::python {

namespace {

ffmpeg::FrameIndex build(const ffmpeg::Source& source, std::optional<int> stream, bool checksums,
                         int threads, const py::object& progress) {
    ffmpeg::FrameIndexOptions options;
    options.checksums = checksums;
    options.threads = threads;
    options.stream = stream;
    options.progress = progressOf(progress);
    return inLibrary([&] { return ffmpeg::FrameIndex::build(source, options); });
}

py::bytes toBytes(const ffmpeg::FrameIndex& index) {
    return bytesOf(inLibrary([&] { return index.toBytes(); }));
}

const char* match(const ffmpeg::FrameIndex& index, const ffmpeg::Source& source) {
    using Match = ffmpeg::FrameIndex::Match;
    return wordOf(inLibrary([&] { return index.match(source); }),
                  {{Match::Fresh, "fresh"}, {Match::Stale, "stale"}, {Match::Foreign, "foreign"}});
}

py::bytes digest(const ffmpeg::FrameIndex& index, int64_t first, int64_t stop) {
    return bytesOf(index.digest(first, stop).toBytes());
}

// The library says that it could not be written, and the system why.
void save(const ffmpeg::FrameIndex& index, const std::string& path) {
    inLibrary([&] {
        try {
            index.save(path);
        } catch (const tio::Exception&) {
            const std::vector<uint8_t> bytes = index.toBytes();
            ffmpeg::AtomicFile attempt(path); // never published
            attempt.write(bytes.data(), bytes.size());
            throw;
        }
    });
}

ffmpeg::FrameIndex fromBytes(const py::bytes& bytes) {
    return inLibrary(
        [content = contentOf(bytes)] { return ffmpeg::FrameIndex::fromBytes(content); });
}

} // namespace

void bindIndices(py::module_& module) {
    using Index = ffmpeg::FrameIndex;
    py::class_<Index>(module, "FrameIndex", "An index of frames.")
        .def_static("build", &build)
        .def_static("from_bytes", &fromBytes)
        .def("to_bytes", &toBytes)
        .def("save", &save)
        .def("match", &match)
        .def("digest", &digest)
        .def_property_readonly("count", &Index::frameCount)
        .def_property_readonly("has_checksums", &Index::hasChecksums)
        .def_property_readonly("damaged", &Index::isDamaged);
}

} // namespace tio::python
