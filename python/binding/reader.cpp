#include "binding.h"
#include "pixels.h"
#include "shared.h"

#include <TARN/videoio/FrameReader.h>

#include <cstddef>
#include <optional>
#include <vector>

namespace tio::python {

namespace {

using ffmpeg::FrameIndex;
using ffmpeg::FrameReader;
using Numbers = py::array_t<int64_t, py::array::c_style>;
using SharedFrames =
    SharedReader<FrameReader, ffmpeg::FrameReaderOptions, &FrameReader::frameCount>;

const char* nameOf(FrameReader::Reached reached) {
    using Reached = FrameReader::Reached;
    return wordOf(reached, {{Reached::Exact, "exact"},
                            {Reached::ExactAfterRetry, "retry"},
                            {Reached::Linear, "linear"},
                            {Reached::Proven, "proven"}});
}

std::vector<int64_t> listOf(const Numbers& numbers) {
    return {numbers.data(), numbers.data() + numbers.size()};
}

ffmpeg::FrameReaderOptions optionsOf(const py::dict& settings, std::optional<FrameIndex> index) {
    ffmpeg::FrameReaderOptions options;
    options.index = std::move(index);
    options.stream = settings["stream"].cast<std::optional<int>>();
    options.format = formatOf(settings["format"].cast<std::string>());
    take(settings, "colours", options.colours,
         {{ffmpeg::Colours::Tagged, "tagged"}, {ffmpeg::Colours::Bt601, "bt601"}});
    take(settings, "height", options.height);
    take(settings, "width", options.width);
    take(settings, "threads", options.threads);
    take(settings, "checksums", options.checksums);
    options.progress = progressOf(settings["progress"]);
    return options;
}

class Reader : public SharedFrames {
public:
    Reader(const ffmpeg::Source& source, const py::dict& settings, std::optional<FrameIndex> index)
        : SharedFrames(source, optionsOf(settings, std::move(index))),
          format(formatOf(settings["format"].cast<std::string>())),
          height(use([](FrameReader& open) { return open.height(); })),
          width(use([](FrameReader& open) { return open.width(); })) {}

    /// @returns the words for how the pictures were reached, in the order of `numbers`
    py::list readInto(const Numbers& numbers, const py::array& memory) {
        const std::vector<int64_t> list = listOf(numbers);
        const PictureArray<uint8_t> pictures(format, memory, height, width);
        if (pictures.count() != list.size())
            throw py::value_error("another number of pictures than of places");
        std::vector<const char*> words(list.size(), "");
        use([&](FrameReader& open) { readAll(open, list, pictures, words); });
        return py::cast(words);
    }

    /// A picture in whatever size it has: (array, how it was reached).
    py::tuple readOwnSize(int64_t number) {
        const FrameReader::Picture picture =
            use([&](FrameReader& open) { return open.readFrame(number); });
        const ffmpeg::ConstImageView from = picture.image.view();
        if (from.planes[1] != nullptr)
            throw py::value_error("the size of the pictures changes, which is not for this format");
        const py::dtype type(ffmpeg::bitDepth(from.format) > 8 ? "uint16" : "uint8");
        std::vector<py::ssize_t> shape{from.height, from.width};
        std::vector<py::ssize_t> strides{from.strides[0],
                                         type.itemsize() * ffmpeg::channelCount(from.format)};
        if (ffmpeg::channelCount(from.format) == 3) {
            shape.push_back(3);
            strides.push_back(type.itemsize());
        }
        return py::make_tuple(py::array(type, shape, strides, from.planes[0]),
                              nameOf(picture.reached));
    }

    [[nodiscard]] py::tuple size() const { return py::make_tuple(height, width); }

private:
    static void readAll(FrameReader& open, const std::vector<int64_t>& list,
                        const PictureArray<uint8_t>& pictures, std::vector<const char*>& words) {
        const auto written = [&](std::size_t place, const FrameReader::Picture& picture) {
            words[place] = nameOf(picture.reached);
            return !callShallEnd();
        };
        if (list.size() == 1)
            written(0, open.readFrameInto(list.front(), pictures.at(0)));
        else
            open.readFramesInto(
                list, [&](std::size_t place) { return pictures.at(place); }, written);
    }

    ffmpeg::PictureFormat format;
    int height;
    int width;
};

/// The answer of a method as an array.
template <typename Answer>
auto arrayOf(Answer method) {
    return [method](Reader& reader) {
        const std::vector<int64_t> values = asking<Reader>(method)(reader);
        return Numbers(static_cast<py::ssize_t>(values.size()), values.data());
    };
}

std::vector<std::pair<Seconds, Seconds>> timesOf(Reader& reader, const Numbers& numbers) {
    std::vector<std::pair<Seconds, Seconds>> told;
    reader.use([&, list = listOf(numbers)](FrameReader& open) {
        told.reserve(list.size());
        for (const int64_t number : list)
            told.emplace_back(open.frameTime(number), open.frameDuration(number));
    });
    return told;
}

std::vector<std::pair<int64_t, int64_t>> partitionsOf(Reader& reader, int64_t count) {
    std::vector<std::pair<int64_t, int64_t>> told;
    for (const FrameReader::Range& range : asking<Reader> (&FrameReader::partitions)(reader, count))
        told.emplace_back(range.first, range.stop);
    return told;
}

py::bytes digestOf(Reader& reader, int64_t first, int64_t stop) {
    return bytesOf(
        reader.use([&](FrameReader& open) { return open.digest(first, stop).toBytes(); }));
}

} // namespace

void bindReaders(py::module_& module) {
    py::class_<Reader> bound(module, "VideoReader", "Pictures by number.");
    bindShared(bound);
    bound.def(py::init<ffmpeg::Source, py::dict, std::optional<FrameIndex>>())
        .def("size", &Reader::size)
        .def("index", asking<Reader>(&FrameReader::index))
        .def("stream", asking<Reader>(&FrameReader::stream))
        .def("read_into", &Reader::readInto)
        .def("read_own_size", &Reader::readOwnSize)
        .def("times", &timesOf, "For each number ((time), (duration)), as fractions of seconds.")
        .def("number_at", asking<Reader>(&FrameReader::frameNumberAt))
        .def("time_base", asking<Reader>(&FrameReader::timeBase))
        .def("ticks", arrayOf(&FrameReader::ticks))
        .def("key_frames", arrayOf(&FrameReader::keyFrames))
        .def("is_key", asking<Reader>(&FrameReader::isKeyFrame))
        .def("partitions", &partitionsOf)
        .def("digest", &digestOf);
}

} // namespace tio::python
