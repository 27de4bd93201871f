#include "base/checks.h"
#include "base/initialise.h"
#include "exact/write/ClipAssembly.h"
#include "exact/write/ClipTarget.h"
#include "exact/write/encode/requireView.h"
#include "exact/write/fragment/FragmentWriter.h"
#include "exact/write/refusal.h"

#include <TARN/videoio/ClipWriter.h>

#include <cmath>
#include <cstddef>
#include <exception>
#include <unistd.h>
#include <utility>

namespace tio::ffmpeg {

using detail::EncodedPictures;
using detail::EncodedSound;
using detail::Fraction;
using detail::refuse;

class ClipWriter::Core {
public:
    /// @param sink  null where `path` names a file
    Core(const std::string& path, const std::shared_ptr<ByteSink>& sink,
         const ClipWriterOptions& clipOptions)
        : name(path),
          options(detail::withUsualSigns(clipOptions)),
          plan(detail::planClip(path, options)),
          target(sink ? detail::ClipTarget(sink, path)
                      : detail::ClipTarget(path, clipOptions.overwrite)),
          times(plan.times),
          process(::getpid()) {
        if (options.fragmented)
            fragments = std::make_unique<detail::FragmentWriter>(
                plan, options, times, target.openSink(), [this] { target.show(); }, name);
    }

    ~Core();
    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;

    void writePicture(const ConstImageView& picture, std::optional<Time> time,
                      std::optional<Time> duration);
    void writeSamples(const float* samples, std::size_t count, int channels,
                      std::optional<Time> time);
    void finish();

private:
    void requireOpen() const;
    [[nodiscard]] bool keepsOrder(const detail::ClipTimes::Candidate& first) const;
    void openPictures(const ConstImageView& picture, const detail::ClipTimes::Candidate& first);
    void submit(const ConstImageView& picture, const detail::ClipTimes::Candidate& candidate);
    void requireSamples(const float* samples, std::size_t count, int channels) const;
    [[nodiscard]] Fraction soundBeginAt(Time time) const;
    void requireBeginnings(const Fraction& pictures, const Fraction& sound,
                           bool pictureIsNew) const;
    void assemble();
    void takePicture(AVPacket& packet);
    void takeSound(AVPacket& packet);
    void openSound(int channels, const Fraction& begin);
    [[nodiscard]] Fraction soundEndWith(std::size_t count) const;

    /// After a failure within, nothing can be written any more: what is lost cannot be made up for.
    template <typename Work>
    void orBreak(const Work& work) {
        failure = std::make_exception_ptr(ClipRefusal("\"" + name + "\" is being written"));
        try {
            work();
            failure = nullptr;
        } catch (...) {
            failure = std::current_exception();
            throw;
        }
    }

    std::string name;
    ClipWriterOptions options;
    detail::ClipPlan plan;
    detail::ClipTarget target;
    detail::ClipTimes times;
    detail::PacketOrder order;
    std::unique_ptr<detail::PictureEncoder> pictures;
    std::unique_ptr<detail::PacketSpool> pictureSpool;
    std::unique_ptr<detail::SoundEncoder> sound;
    std::unique_ptr<detail::PacketSpool> soundSpool;
    std::unique_ptr<detail::FragmentWriter> fragments; ///< instead of the spools
    Fraction soundBegin{0};
    std::exception_ptr failure;
    pid_t process;
    bool finished = false;
};

// The threads of an encoder are not in a forked process: it can neither be used there nor ended.
ClipWriter::Core::~Core() {
    if (process == ::getpid())
        return;
    static_cast<void>(pictures.release());
    static_cast<void>(sound.release());
    static_cast<void>(fragments.release());
}

void ClipWriter::Core::requireOpen() const {
    if (process != ::getpid())
        refuse(name, "the clip belongs to another process, which this one was forked from");
    if (finished)
        refuse(name, "the clip is finished");
    if (failure)
        std::rethrow_exception(failure);
}

/// Whether times are so fine that pictures have to be decoded in the order in which they are shown.
bool ClipWriter::Core::keepsOrder(const detail::ClipTimes::Candidate& first) const {
    const int64_t fine = std::max(first.scale, plan.times.preferredScale);
    return plan.times.reorders && fine > detail::finestReordered(plan.times.reach);
}

void ClipWriter::Core::openPictures(const ConstImageView& picture,
                                    const detail::ClipTimes::Candidate& first) {
    std::optional<Fraction> duration;
    if (first.endIsGiven)
        duration = detail::difference(first.end, first.time);
    auto encoder = std::make_unique<detail::PictureEncoder>(*plan.codec, options, picture, duration,
                                                            keepsOrder(first), name);
    if (fragments)
        fragments->openPictures(&encoder->codec());
    else
        pictureSpool = std::make_unique<detail::PacketSpool>(target.folder(), name);
    pictures = std::move(encoder);
}

/// Gives the encoder a picture whose time is checked. Where this throws, nothing has changed.
void ClipWriter::Core::submit(const ConstImageView& picture,
                              const detail::ClipTimes::Candidate& candidate) {
    const bool first = times.count() == 0;
    const bool key =
        candidate.afterPause || (fragments && !first && fragments->wantsKey(candidate.time));
    times.makeRoom();
    try {
        if (first)
            openPictures(picture, candidate);
        pictures->requireSize(picture);
        pictures->submit(picture, candidate.time, key);
    } catch (...) {
        if (first) { // the next one decides
            if (fragments)
                fragments->openPictures(nullptr);
            pictures.reset();
            pictureSpool.reset();
        }
        throw;
    }
    if (first && pictures->codec().max_b_frames == 0 &&
        (keepsOrder(candidate) || !plan.times.startsAfresh))
        times.keepOrder();
    times.accept(candidate);
    if (fragments)
        fragments->note(candidate.time, key || first, candidate.afterPause);
}

void ClipWriter::Core::takePicture(AVPacket& packet) {
    if (fragments) {
        fragments->addPicture(packet);
        return;
    }
    order.add(packet.pts, (packet.flags & AV_PKT_FLAG_KEY) != 0);
    pictureSpool->append(packet);
}

void ClipWriter::Core::takeSound(AVPacket& packet) {
    if (fragments)
        fragments->addSound(packet);
    else
        soundSpool->append(packet);
}

void ClipWriter::Core::requireBeginnings(const Fraction& picture, const Fraction& samples,
                                         bool pictureIsNew) const {
    const int64_t finest = detail::finestWithChapters(options);
    if (!plan.container->mp4 || detail::movieScale(*plan.container, picture, samples, 1, finest))
        return;
    const Fraction refused = pictureIsNew ? picture : samples;
    const Fraction nearest(static_cast<int64_t>(detail::roundedProduct(refused, 1000)), 1000);
    const std::string text = "\"" + name + "\": no tick holds the beginnings of pictures and " +
                             "sound and the chapters together; the nearest possible is " +
                             detail::toText(nearest) + " s";
    detail::logFailure(text);
    throw TimeRefusal(text, nearest);
}

void ClipWriter::Core::writePicture(const ConstImageView& picture, std::optional<Time> time,
                                    std::optional<Time> duration) {
    requireOpen();
    if (plan.codec == nullptr)
        refuse(name, std::string(plan.container->extension) + " is for sound alone");
    detail::requireView(picture, name);
    const bool follows = times.count() == 0 ? duration.has_value() : times.lastHasDuration();
    if (!time && !options.rate && !follows)
        refuse(name, "a picture without a time needs a rate, or a duration of the one before");
    const auto candidate = times.check(time.value_or(times.next()), duration, name);
    if (times.count() == 0)
        requireBeginnings(candidate.time, soundBegin, true);
    if (fragments)
        fragments->requirePicturesMayWait(candidate.time);
    submit(picture, candidate);
    orBreak([&] {
        if (candidate.afterPause)
            order.expectStart(static_cast<int64_t>(times.count()) - 1);
        pictures->drain([this](AVPacket& packet) { takePicture(packet); });
    });
}

void ClipWriter::Core::requireSamples(const float* samples, std::size_t count, int channels) const {
    if (plan.audioCodec == nullptr)
        refuse(name, "no rate of samples was given, so there is no sound");
    const int expected = sound ? sound->channels() : options.audioChannels;
    if (channels < 1 || (expected > 0 && channels != expected))
        refuse(name, "a block of " + std::to_string(channels) + " channels" +
                         (expected > 0 ? " in sound of " + std::to_string(expected) : ""));
    if (samples == nullptr && count > 0)
        refuse(name, "a block of sound without samples");
    const std::size_t values = count * static_cast<std::size_t>(channels);
    for (std::size_t i = 0; i < values; ++i) {
        if (!std::isfinite(samples[i]))
            refuse(name,
                   "a sample that is no finite number, at " + std::to_string(i) + " of its block");
    }
}

Fraction ClipWriter::Core::soundBeginAt(Time time) const {
    if (sound)
        refuse(name, "the first block of sound alone has a time");
    if (!times.zero())
        refuse(name, "times count from the first picture, which has to come before such sound");
    const Fraction begin = times.fromZero(time, name);
    const int rate = options.audioRate;
    const detail::Wide nearest = std::max<detail::Wide>(detail::roundedProduct(begin, rate), 0);
    constexpr int64_t most = std::numeric_limits<int64_t>::max() / 4;
    const Fraction possible(static_cast<int64_t>(std::min<detail::Wide>(nearest, most)), rate);
    const bool rounds = plan.container->fixedScale() != 0 && begin >= 0;
    if (nearest <= most && (possible == begin || rounds))
        return possible;
    const Fraction told = detail::sum(possible, *times.zero()).value_or(possible);
    const std::string text = "\"" + name + "\": sound cannot begin at " + detail::toText(time) +
                             " s, which is no whole number of samples from the beginning; the " +
                             "nearest possible is " + detail::toText(told) + " s";
    detail::logFailure(text);
    throw TimeRefusal(text, told);
}

void ClipWriter::Core::writeSamples(const float* samples, std::size_t count, int channels,
                                    std::optional<Time> time) {
    requireOpen();
    requireSamples(samples, count, channels);
    const Fraction begin = time ? soundBeginAt(*time) : soundBegin;
    if (time && times.count() > 0)
        requireBeginnings(times.first(), begin, false);
    if (count == 0)
        return;
    if (fragments)
        fragments->requireSoundMayWait(soundEndWith(count));
    if (!sound)
        openSound(channels, begin);
    orBreak(
        [&] { sound->encode(samples, count, [this](AVPacket& packet) { takeSound(packet); }); });
}

/// Seconds that sound lasts with so many samples more.
Fraction ClipWriter::Core::soundEndWith(std::size_t count) const {
    const int64_t before = sound ? sound->samplesTaken() : 0;
    return Fraction(before + static_cast<int64_t>(count), options.audioRate);
}

void ClipWriter::Core::openSound(int channels, const Fraction& begin) {
    auto encoder =
        std::make_unique<detail::SoundEncoder>(*plan.audioCodec, options, channels, name);
    if (fragments)
        fragments->openSound(encoder->codec(), begin);
    else
        soundSpool = std::make_unique<detail::PacketSpool>(target.folder(), name);
    sound = std::move(encoder);
    soundBegin = begin;
}

void ClipWriter::Core::finish() {
    if (finished)
        return;
    requireOpen();
    if (times.count() == 0 && !sound)
        refuse(name, "neither a picture nor sound was written");
    orBreak([this] {
        if (times.count() > 0)
            pictures->flush([this](AVPacket& packet) { takePicture(packet); });
        if (sound)
            sound->flush([this](AVPacket& packet) { takeSound(packet); });
        const int64_t given = fragments ? fragments->pictureCount() : order.count;
        if (given != static_cast<int64_t>(times.count()))
            detail::failAssertion("\"" + name + "\": of " + std::to_string(times.count()) +
                                      " pictures the encoder gave " + std::to_string(given),
                                  "false", {"ClipWriter", 10});
        if (fragments) {
            fragments->finish();
            target.close();
            return;
        }
        assemble();
        target.complete();
    });
    finished = true;
}

void ClipWriter::Core::assemble() {
    std::optional<EncodedPictures> shown;
    std::optional<EncodedSound> heard;
    if (times.count() > 0)
        shown.emplace(EncodedPictures{pictures->codec(), *pictureSpool, times, order});
    if (sound)
        heard.emplace(EncodedSound{sound->codec(), *soundSpool, soundBegin});
    detail::assembleClip(target.pathToWrite(), name, *plan.container, options,
                         shown ? &*shown : nullptr, heard ? &*heard : nullptr);
}

ClipWriter::ClipWriter(const std::string& path, const ClipWriterOptions& options) {
    detail::initialiseOnce();
    core = std::make_unique<Core>(path, nullptr, options);
}

ClipWriter::ClipWriter(std::shared_ptr<ByteSink> sink, const std::string& name,
                       const ClipWriterOptions& options) {
    detail::initialiseOnce();
    if (sink == nullptr)
        refuse(name, "there is no sink");
    core = std::make_unique<Core>(name, sink, options);
}

ClipWriter::~ClipWriter() = default;
ClipWriter::ClipWriter(ClipWriter&& other) noexcept = default;
ClipWriter& ClipWriter::operator=(ClipWriter&& other) noexcept = default;

void ClipWriter::writePicture(const ConstImageView& picture, Time time,
                              std::optional<Time> duration) {
    core->writePicture(picture, time, duration);
}

void ClipWriter::writePicture(const Image& picture, Time time, std::optional<Time> duration) {
    core->writePicture(picture.view(), time, duration);
}

void ClipWriter::writePicture(const ConstImageView& picture) {
    core->writePicture(picture, std::nullopt, std::nullopt);
}

void ClipWriter::writePicture(const Image& picture) {
    core->writePicture(picture.view(), std::nullopt, std::nullopt);
}

void ClipWriter::writePicture(const ConstImageView& picture, std::nullopt_t, Time duration) {
    core->writePicture(picture, std::nullopt, duration);
}

void ClipWriter::writePicture(const Image& picture, std::nullopt_t, Time duration) {
    core->writePicture(picture.view(), std::nullopt, duration);
}

void ClipWriter::writeSamples(const float* samples, std::size_t count, int channels,
                              std::optional<Time> time) {
    core->writeSamples(samples, count, channels, time);
}

void ClipWriter::writeSamples(const Mat<float, 2>& samples, std::optional<Time> time) {
    core->writeSamples(samples.data(), static_cast<std::size_t>(samples.rows()), samples.cols(),
                       time);
}

void ClipWriter::finish() {
    core->finish();
}

} // namespace tio::ffmpeg
