#include "binding.h"
#include "call.h"
#include "source.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/AtomicFile.h>
#include <TARN/videoio/FrameIndex.h>

#include <memory>
#include <optional>
#include <pybind11/stl.h>
#include <string>
#include <vector>

namespace tio::python {

namespace {

const char* nameOf(ffmpeg::IndexProgress::Step step) {
    using Step = ffmpeg::IndexProgress::Step;
    switch (step) {
    case Step::Packets:
        return "packets";
    case Step::Pictures:
        return "pictures";
    case Step::Samples:
        break;
    }
    return "samples";
}

const char* nameOf(ffmpeg::FrameIndex::Match match) {
    using Match = ffmpeg::FrameIndex::Match;
    switch (match) {
    case Match::Fresh:
        return "fresh";
    case Match::Stale:
        return "stale";
    case Match::Foreign:
    case Match::Corrupt:
        break;
    }
    return "foreign";
}

ffmpeg::FrameIndex build(const ffmpeg::Source& source, std::optional<int> stream, bool checksums,
                         int threads, const py::object& progress) {
    ffmpeg::FrameIndexOptions options;
    options.checksums = checksums;
    options.threads = threads;
    options.stream = stream;
    options.progress = progressOf(progress);
    return inLibrary([&] { return ffmpeg::FrameIndex::build(source, options); });
}

} // namespace

py::bytes bytesOf(const ffmpeg::FrameDigest& digest) {
    const auto bytes = digest.toBytes();
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()}; // NOLINT: as Python has it
}

namespace {

py::bytes toBytes(const ffmpeg::FrameIndex& index) {
    const std::vector<uint8_t> bytes = inLibrary([&] { return index.toBytes(); });
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()}; // NOLINT: as Python has it
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
    const std::string text = bytes;
    const std::vector<uint8_t> content(text.begin(), text.end());
    return inLibrary([&] { return ffmpeg::FrameIndex::fromBytes(content); });
}

} // namespace

ffmpeg::IndexProgressCallback progressOf(const py::object& function) {
    const auto shared = function.is_none() ? nullptr : shareObject(function);
    return [shared](const ffmpeg::IndexProgress& progress) {
        Call* call = Call::current();
        if (call != nullptr && !call->handleSignals())
            return false;
        if (!shared)
            return true;
        try {
            return inPython([&] {
                return (*shared)(nameOf(progress.step), progress.done, progress.total).cast<bool>();
            });
        } catch (const PythonRaised&) {
            return false;
        }
    };
}

void bindIndices(py::module_& module) {
    using Index = ffmpeg::FrameIndex;
    py::class_<Index>(module, "FrameIndex", "An index of frames.")
        .def_static("build", &build)
        .def_static("from_bytes", &fromBytes)
        .def("to_bytes", &toBytes)
        .def("save", &save)
        .def("match",
             [](const Index& index, const ffmpeg::Source& source) {
                 return nameOf(inLibrary([&] { return index.match(source); }));
             })
        .def("digest", [](const Index& index, int64_t first,
                          int64_t stop) { return bytesOf(index.digest(first, stop)); })
        .def_property_readonly("count", &Index::frameCount)
        .def_property_readonly("has_checksums", &Index::hasChecksums)
        .def_property_readonly("damaged", &Index::isDamaged);
}

} // namespace tio::python
