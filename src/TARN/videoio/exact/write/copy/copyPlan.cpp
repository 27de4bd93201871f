#include "exact/write/copy/copyPlan.h"

#include "exact/write/clipPlan.h"
#include "exact/write/refusal.h"
#include "picture/orientation.h"

#include <algorithm>
#include <array>
#include <limits>
#include <string_view>
#include <sys/stat.h>

namespace tio::ffmpeg::detail {

namespace {

constexpr int upright = 1;

bool isCover(const AVStream& stream) {
    return (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
}

bool isUsual(const AVStream& stream, const ClipContainer& container) {
    switch (stream.codecpar->codec_type) {
    case AVMEDIA_TYPE_VIDEO:
        return container.pictures && !isCover(stream);
    case AVMEDIA_TYPE_AUDIO:
        return true;
    case AVMEDIA_TYPE_SUBTITLE:
        return container.holds(stream.codecpar->codec_id);
    default:
        return false;
    }
}

std::vector<int> usualStreams(const AVFormatContext& input, const ClipContainer& container) {
    std::vector<int> numbers;
    for (unsigned i = 0; i < input.nb_streams; ++i) {
        if (isUsual(*input.streams[i], container))
            numbers.push_back(static_cast<int>(i));
    }
    return numbers;
}

void checkStream(const AVStream& stream, const ClipCopierOptions& options,
                 const ClipContainer& container, const std::string& path) {
    const std::string number = "stream " + std::to_string(stream.index);
    const AVMediaType type = stream.codecpar->codec_type;
    if ((type != AVMEDIA_TYPE_VIDEO && type != AVMEDIA_TYPE_AUDIO &&
         type != AVMEDIA_TYPE_SUBTITLE) ||
        isCover(stream))
        refuse(path, number + " has neither pictures that play, nor sound, nor subtitles");
    requireHolds(container, stream.codecpar->codec_id,
                 number + ", which is " + avcodec_get_name(stream.codecpar->codec_id), path);
    const bool turns = type == AVMEDIA_TYPE_VIDEO && options.keepTurn &&
                       compat::displayMatrix(stream) != nullptr && turningOf(stream).way != upright;
    if (turns && !container.mp4)
        refuse(path, std::string(container.extension) +
                         " cannot say that pictures are turned, as " + number +
                         " does; .mp4 and .mov can");
}

struct stat statusOf(std::string name) {
    constexpr std::string_view scheme = "file:";
    if (name.compare(0, scheme.size(), scheme) == 0)
        name.erase(0, scheme.size());
    struct stat status {};
    if (::stat(name.c_str(), &status) != 0)
        status = {};
    return status;
}

// What muxers write by themselves, or what is true of the source's file alone.
bool isOfTheSource(const std::string& key) {
    constexpr std::array<std::string_view, 4> keys = {"major_brand", "minor_version",
                                                      "compatible_brands", "encoder"};
    return std::find(keys.begin(), keys.end(), key) != keys.end();
}

std::optional<Fraction> chapterTime(int64_t ticks, AVRational base, const Fraction& origin) {
    const auto time = makeFraction(Wide{ticks} * base.num, base.den);
    return time ? difference(*time, origin) : std::nullopt;
}

void addChapters(const AVFormatContext& input, const ClipCopierOptions& options,
                 const Fraction& origin, ClipWriterOptions& description) {
    constexpr Wide nanoseconds = 1000000000;
    const Fraction begin = difference(options.from.value_or(origin), origin).value_or(Fraction(0));
    Fraction before = std::max(begin, Fraction(0));
    for (unsigned i = 0; i < input.nb_chapters; ++i) {
        const AVChapter& chapter = *input.chapters[i];
        auto from = chapterTime(chapter.start, chapter.time_base, origin);
        auto to = chapterTime(chapter.end, chapter.time_base, origin);
        if (!from || !to)
            continue;
        from = std::max(*from, before);
        if (options.to)
            to = std::min(*to, difference(*options.to, origin).value_or(*to));
        if (*to <= *from || roundedProduct(*to, nanoseconds) > std::numeric_limits<int64_t>::max())
            continue;
        const AVDictionaryEntry* title = av_dict_get(chapter.metadata, "title", nullptr, 0);
        description.chapters.push_back({*from, *to, title != nullptr ? title->value : ""});
        before = *from;
    }
}

} // namespace

void requireOtherFile(const Source& source, const std::string& path) {
    if (source.kind() != Source::Kind::Url)
        return;
    const struct stat from = statusOf(source.name());
    const struct stat to = statusOf(path);
    if (from.st_ino != 0 && from.st_ino == to.st_ino && from.st_dev == to.st_dev &&
        S_ISREG(from.st_mode))
        refuse(path, "is the source itself, \"" + source.name() + "\"");
}

void checkRange(const std::string& path, const ClipCopierOptions& options) {
    for (const auto& time : {options.from, options.to}) {
        if (time && time->denominator <= 0)
            refuse(path, "a time that is no fraction with a denominator above 0");
    }
    if (options.from && options.to && *options.to <= *options.from)
        refuse(path, "a range that ends at " + toText(*options.to) + " s, before it begins at " +
                         toText(*options.from) + " s");
    if (options.origin != ClipOrigin::AsGiven && options.origin != ClipOrigin::First)
        refuse(path, "there is no origin " + std::to_string(static_cast<int32_t>(options.origin)));
}

std::vector<int> chooseStreams(const AVFormatContext& input, const ClipCopierOptions& options,
                               const ClipContainer& container, const std::string& path) {
    std::vector<int> numbers = options.streams;
    if (numbers.empty())
        numbers = usualStreams(input, container);
    if (numbers.empty())
        refuse(path, std::string("the source has no streams that ") + container.extension +
                         " is made for");
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        if (numbers[i] < 0 || static_cast<unsigned>(numbers[i]) >= input.nb_streams)
            refuse(path, "the source has no stream " + std::to_string(numbers[i]));
        if (std::count(numbers.begin(), numbers.end(), numbers[i]) > 1)
            refuse(path, "stream " + std::to_string(numbers[i]) + " is asked for twice");
        checkStream(*input.streams[numbers[i]], options, container, path);
    }
    if (!container.pictures && !container.mp4 && !container.isMatroska() && numbers.size() > 1)
        refuse(path, std::string(container.extension) + " holds one stream, and the source has " +
                         std::to_string(numbers.size()) + " of sound");
    return numbers;
}

ClipWriterOptions describeCopy(const AVFormatContext& input, const ClipCopierOptions& options,
                               const ClipContainer& container, const Fraction& origin) {
    ClipWriterOptions description;
    description.faststart = options.faststart;
    const AVDictionaryEntry* tag = nullptr;
    while ((tag = av_dict_get(input.metadata, "", tag, AV_DICT_IGNORE_SUFFIX)) != nullptr) {
        if (!isOfTheSource(tag->key))
            description.metadata[tag->key] = tag->value;
    }
    if (container.mp4 || container.isMatroska())
        addChapters(input, options, origin, description);
    constexpr int64_t milliseconds = 1000;
    if (container.mp4 && finestWithChapters(description) < milliseconds)
        description.chapters.clear(); // longer than 24 days
    return description;
}

} // namespace tio::ffmpeg::detail
