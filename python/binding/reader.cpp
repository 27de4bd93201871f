#include "binding.h"
#include "call.h"
#include "pixels.h"
#include "shared.h"
#include "source.h"

#include <TARN/videoio/FrameReader.h>

#include <atomic>
#include <cstddef>
#include <cstring>
#include <memory>
#include <optional>
#include <pybind11/stl.h>
#include <string>
#include <vector>

namespace tio::python {

namespace {

using ffmpeg::FrameIndex;
using ffmpeg::FrameReader;
using Numbers = py::array_t<int64_t, py::array::c_style>;

const char* nameOf(FrameReader::Reached reached) {
    using Reached = FrameReader::Reached;
    switch (reached) {
    case Reached::Exact:
        return "exact";
    case Reached::ExactAfterRetry:
        return "retry";
    case Reached::Linear:
        return "linear";
    case Reached::Proven:
        break;
    }
    return "proven";
}

std::vector<int64_t> listOf(const Numbers& numbers) {
    return {numbers.data(), numbers.data() + numbers.size()};
}

Numbers arrayOf(const std::vector<int64_t>& values) {
    return Numbers(static_cast<py::ssize_t>(values.size()), values.data());
}

ffmpeg::FrameReaderOptions optionsOf(const py::dict& settings, std::optional<FrameIndex> index) {
    ffmpeg::FrameReaderOptions options;
    options.index = std::move(index);
    options.stream = settings["stream"].cast<std::optional<int>>();
    options.format = formatOf(settings["format"].cast<std::string>());
    options.colours = settings["colours"].cast<std::string>() == "bt601" ? ffmpeg::Colours::Bt601
                                                                         : ffmpeg::Colours::Tagged;
    options.height = settings["height"].cast<int>();
    options.width = settings["width"].cast<int>();
    options.threads = settings["threads"].cast<int>();
    options.checksums = settings["checksums"].cast<bool>();
    options.progress = progressOf(settings["progress"]);
    return options;
}

class Reader {
public:
    Reader(const ffmpeg::Source& origin, const py::dict& settings, std::optional<FrameIndex> given)
        : source(origin),
          options(optionsOf(settings, std::move(given))),
          reader([this] { return open(); },
                 [this](const FrameReader& used) { frames.store(used.frameCount()); }) {}

    void close() { reader.close(); }
    [[nodiscard]] bool isClosed() const noexcept { return reader.isClosed(); }

    // Waits for nobody: it is asked all the time.
    [[nodiscard]] int64_t count() const {
        reader.requireOpen();
        return frames.load();
    }

    /// Runs a function of the reader without the GIL.
    template <typename Function>
    auto use(Function&& function) {
        return reader.use(std::forward<Function>(function));
    }

    /// @returns the words for how the pictures were reached, in the order of `numbers`
    py::list readInto(const Numbers& numbers, const py::array& memory) {
        const std::vector<int64_t> list = listOf(numbers);
        const PictureArray<uint8_t> pictures(options.format, memory, height, width);
        if (pictures.count() != list.size())
            throw py::value_error("another number of pictures than of places");
        std::vector<const char*> words(list.size(), "");
        use([&](FrameReader& open) { readAll(open, list, pictures, words); });
        py::list told;
        for (const char* word : words)
            told.append(word);
        return told;
    }

    /// A picture in whatever size it has: (array, how it was reached).
    py::tuple readOwnSize(int64_t number) {
        const FrameReader::Picture picture =
            use([&](FrameReader& open) { return open.readFrame(number); });
        const ffmpeg::ConstImageView from = picture.image.view();
        const bool wide = ffmpeg::bitDepth(from.format) > 8;
        std::vector<py::ssize_t> shape{from.height, from.width};
        if (ffmpeg::channelCount(from.format) == 3)
            shape.push_back(3);
        py::array made(wide ? py::dtype("uint16") : py::dtype("uint8"), shape);
        if (made.nbytes() != picture.image.byteCount() || from.planes[1] != nullptr)
            throw py::value_error("the size of the pictures changes, which is not for this format");
        std::memcpy(made.mutable_data(), from.planes[0], static_cast<std::size_t>(made.nbytes()));
        return py::make_tuple(made, nameOf(picture.reached));
    }

    [[nodiscard]] py::tuple size() const { return py::make_tuple(height, width); }

    [[nodiscard]] FrameIndex index() {
        return use([](FrameReader& open) { return open.index(); });
    }

private:
    static void readAll(FrameReader& open, const std::vector<int64_t>& list,
                        const PictureArray<uint8_t>& pictures, std::vector<const char*>& words) {
        const auto written = [&](std::size_t place, const FrameReader::Picture& picture) {
            pictures.fillMargin(place);
            words[place] = nameOf(picture.reached);
            return !callShallEnd();
        };
        if (list.size() == 1)
            written(0, open.readFrameInto(list.front(), pictures.at(0)));
        else
            open.readFramesInto(
                list, [&](std::size_t place) { return pictures.at(place); }, written);
    }

    // Keeps the index, so that it is there when the reader has to be made again.
    std::unique_ptr<FrameReader> open() {
        auto made = std::make_unique<FrameReader>(source, options);
        options.index = made->index();
        height = made->height();
        width = made->width();
        return made;
    }

    ffmpeg::Source source;
    ffmpeg::FrameReaderOptions options;
    std::atomic<int64_t> frames{0};
    int height = 0;
    int width = 0;
    Shared<FrameReader> reader; // is made of the rest
};

py::list timesOf(Reader& reader, const Numbers& numbers) {
    const std::vector<int64_t> list = listOf(numbers);
    std::vector<std::pair<Pair, Pair>> told;
    reader.use([&](FrameReader& open) {
        told.reserve(list.size());
        for (const int64_t number : list)
            told.emplace_back(pairOf(open.frameTime(number)), pairOf(open.frameDuration(number)));
    });
    return py::cast(told);
}

void bindTimes(py::class_<Reader>& bound) {
    bound.def("times", &timesOf, "For each number ((time), (duration)), as fractions of seconds.")
        .def("number_at",
             [](Reader& reader, int64_t numerator, int64_t denominator) {
                 const Seconds time(numerator, denominator);
                 return reader.use([&](FrameReader& open) { return open.frameNumberAt(time); });
             })
        .def("time_base",
             [](Reader& reader) {
                 return pairOf(reader.use([](FrameReader& open) { return open.timeBase(); }));
             })
        .def("ticks",
             [](Reader& reader) {
                 return arrayOf(reader.use([](FrameReader& open) { return open.ticks(); }));
             })
        .def("key_frames",
             [](Reader& reader) {
                 return arrayOf(reader.use([](FrameReader& open) { return open.keyFrames(); }));
             })
        .def("is_key", [](Reader& reader, int64_t number) {
            return reader.use([&](FrameReader& open) { return open.isKeyFrame(number); });
        });
}

void bindParts(py::class_<Reader>& bound) {
    bound
        .def("partitions",
             [](Reader& reader, int64_t count) {
                 std::vector<std::pair<int64_t, int64_t>> told;
                 for (const FrameReader::Range& range :
                      reader.use([&](FrameReader& open) { return open.partitions(count); }))
                     told.emplace_back(range.first, range.stop);
                 return told;
             })
        .def("digest", [](Reader& reader, int64_t first, int64_t stop) {
            return bytesOf(reader.use([&](FrameReader& open) { return open.digest(first, stop); }));
        });
}

} // namespace

void bindReaders(py::module_& module) {
    py::class_<Reader> bound(module, "VideoReader", "Pictures by number.");
    bound.def(py::init<ffmpeg::Source, py::dict, std::optional<FrameIndex>>())
        .def("close", &Reader::close)
        .def("is_closed", &Reader::isClosed)
        .def("count", &Reader::count)
        .def("size", &Reader::size)
        .def("index", &Reader::index)
        .def("read_into", &Reader::readInto)
        .def("read_own_size", &Reader::readOwnSize)
        .def("stream", [](Reader& reader) {
            return reader.use([](FrameReader& open) { return open.stream(); });
        });
    bindTimes(bound);
    bindParts(bound);
}

} // namespace tio::python
