#include "binding.h"
#include "call.h"
#include "pixels.h"

#include <TARN/videoio/ClipCopier.h>
#include <TARN/videoio/ClipWriter.h>

#include <atomic>
#include <map>
#include <memory>
#include <optional>
#include <pybind11/stl.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace tio::python {

namespace {

using ffmpeg::ClipColours;
using ffmpeg::ClipWriter;
using ffmpeg::ClipWriterOptions;

/// Reads an option where Python gave one that is not None.
template <typename Value>
void take(const py::dict& options, const char* name, Value& into) {
    if (options.contains(name) && !options[name].is_none())
        into = options[name].cast<Value>();
}

void take(const py::dict& options, const char* name, std::optional<Seconds>& into) {
    std::optional<Pair> pair;
    take(options, name, pair);
    if (pair)
        into = Seconds(pair->first, pair->second);
}

ClipColours coloursOf(const std::string& word) {
    if (word == "bt601")
        return ClipColours::Bt601;
    if (word == "bt709")
        return ClipColours::Bt709;
    return word == "bt2020" ? ClipColours::Bt2020 : ClipColours::Automatic;
}

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
    std::string word;
    take(given, "colours", word);
    options.colours = coloursOf(word);
    word.clear();
    take(given, "origin", word);
    if (word == "first")
        options.origin = ffmpeg::ClipOrigin::First;
    return options;
}

/// A ClipWriter that threads take turns with.
class Writer {
public:
    Writer(const std::string& path, const py::dict& given) {
        const ClipWriterOptions options = optionsOf(given);
        clip = inLibrary([&] { return std::make_unique<ClipWriter>(path, options); });
    }

    ~Writer() {
        if (turns.noticeFork())
            static_cast<void>(clip.release()); // another thread of the parent was using it
        const py::gil_scoped_release free;
        clip.reset();
    }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    /// Pictures one after the other, each at its time, or 1 / rate after the one before.
    void writePictures(const std::string& format, const py::array& array, int height, int width,
                       const std::optional<std::vector<Pair>>& times,
                       const std::optional<Pair>& duration) {
        const PictureArray<const uint8_t> pictures(formatOf(format), array, height, width);
        if (times && times->size() != pictures.count())
            throw py::value_error("another number of times than of pictures");
        std::optional<Seconds> lasts;
        if (duration)
            lasts = Seconds(duration->first, duration->second);
        use([&](ClipWriter& open) {
            for (std::size_t place = 0; place < pictures.count(); ++place) {
                if (times)
                    open.writePicture(pictures.at(place),
                                      Seconds((*times)[place].first, (*times)[place].second),
                                      lasts);
                else
                    open.writePicture(pictures.at(place));
                if (callShallEnd())
                    return;
            }
        });
    }

    void writeSamples(const py::array_t<float, py::array::c_style>& samples,
                      const std::optional<Pair>& time) {
        if (samples.ndim() != 2)
            throw py::value_error("samples without channels");
        std::optional<Seconds> begins;
        if (time)
            begins = Seconds(time->first, time->second);
        const float* data = samples.data();
        const auto count = static_cast<std::size_t>(samples.shape(0));
        const auto channels = static_cast<int>(samples.shape(1));
        use([&](ClipWriter& open) { open.writeSamples(data, count, channels, begins); });
    }

    /// Whatever comes of it, there is nothing to be written to any more.
    void finish() {
        use([&](ClipWriter& open) {
            const Closing closing(*this);
            open.finish();
        });
    }

    /// Leaves nothing under the name.
    void abandon() {
        if (turns.noticeFork())
            static_cast<void>(clip.release());
        inLibrary([&] {
            const Turns::Turn turn(turns);
            closed.store(true);
            clip.reset();
        });
    }

    [[nodiscard]] bool isClosed() const noexcept { return closed.load(); }

private:
    class Closing {
    public:
        explicit Closing(Writer& all) : owner(all) {}
        ~Closing() {
            owner.closed.store(true);
            owner.clip.reset();
        }
        Closing(const Closing&) = delete;
        Closing& operator=(const Closing&) = delete;

    private:
        Writer& owner;
    };

    template <typename Function>
    void use(Function&& function) {
        if (isClosed())
            throw Closed("closed");
        if (process != ::getpid())
            throw tio::Exception("the clip is written by the process that this one was forked of");
        inLibrary([&] {
            const Turns::Turn turn(turns);
            if (isClosed())
                throw Closed("closed");
            function(*clip);
        });
    }

    Turns turns;
    pid_t process = ::getpid();
    std::unique_ptr<ClipWriter> clip;
    std::atomic<bool> closed{false};
};

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
        .def(py::init<std::string, py::dict>())
        .def("write_pictures", &Writer::writePictures)
        .def("write_samples", &Writer::writeSamples)
        .def("finish", &Writer::finish)
        .def("abandon", &Writer::abandon)
        .def("is_closed", &Writer::isClosed);
}

} // namespace tio::python
