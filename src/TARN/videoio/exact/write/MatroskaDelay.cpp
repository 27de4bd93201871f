#include "exact/write/MatroskaDelay.h"

#include "base/fileHandle.h"
#include "base/handles.h"
#include "base/littleEndian.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

namespace tio::ffmpeg::detail {

namespace {

// As long as the element that takes its place: two bytes that tell what it is, one for the length,
// eight of value. No user's word.
const std::string placeHolder = "\x53\x6e\x88\x01run-in\x02";
const std::string codecDelay = "\x56\xaa";
constexpr size_t valueBytes = 8;
constexpr size_t headBytes = size_t{64} * 1024; // the tracks stand well before that

std::string bigEndian(int64_t value) {
    std::string bytes;
    for (size_t i = valueBytes; i-- > 0;)
        bytes.push_back(static_cast<char>(static_cast<uint64_t>(value) >> (8 * i)));
    return bytes;
}

/// Whether an element with the value stands anywhere, however many bytes it takes for it.
bool holdsDelay(const std::string& bytes, int64_t value) {
    for (size_t length = 1; length <= valueBytes; ++length) {
        const std::string element = codecDelay + static_cast<char>(0x80 | length) +
                                    bigEndian(value).substr(valueBytes - length);
        if (bytes.find(element) != std::string::npos)
            return true;
    }
    return false;
}

/// What the muxer makes of a stream with one packet at the time 0.
class Trial {
public:
    explicit Trial(const AVCodecParameters& parameters) : outcome(write(parameters)) { take(); }
    Trial(const Trial&) = delete;
    Trial& operator=(const Trial&) = delete;
    ~Trial() { avformat_free_context(context); }

    /// Negative where nothing can be told.
    [[nodiscard]] int result() const noexcept { return outcome; }

    [[nodiscard]] const std::string& bytes() const noexcept { return written; }

    /// Milliseconds at which the packet stands. A cluster begins with its time, a block with the
    /// number of its track, then its time after the cluster's in two bytes.
    [[nodiscard]] int blockTime() const {
        const size_t block = written.find(mark);
        if (block == std::string::npos)
            return 0;
        // The last one before the block: the table of contents names the element as well.
        const size_t cluster = written.rfind("\x1f\x43\xb6\x75", block);
        const size_t time =
            cluster == std::string::npos ? cluster : written.find('\xe7', cluster + 5);
        if (time >= block)
            return 0;
        const auto byte = [this](size_t at) { return static_cast<uint8_t>(written.at(at)); };
        const auto after = static_cast<int16_t>(byte(block - 3) << 8 | byte(block - 2));
        const size_t bytesOfTime = byte(time + 1) & 0x7FU;
        if (bytesOfTime > block - time - 2)
            return 0;
        int base = 0;
        for (size_t i = 0; i < bytesOfTime; ++i)
            base = base << 8 | byte(time + 2 + i);
        return base + after;
    }

private:
    int write(const AVCodecParameters& parameters) {
        const int made = avformat_alloc_output_context2(&context, nullptr, "matroska", nullptr);
        if (made < 0)
            return made;
        AVStream* stream = avformat_new_stream(context, nullptr);
        const int given = stream == nullptr
                              ? AVERROR(ENOMEM)
                              : avcodec_parameters_copy(stream->codecpar, &parameters);
        const int opened = given < 0 ? given : avio_open_dyn_buf(&context->pb);
        if (opened < 0)
            return opened;
        stream->time_base = {1, parameters.sample_rate};
        context->avoid_negative_ts = 0;
        context->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
        const int begun = avformat_write_header(context, nullptr);
        if (begun < 0)
            return begun;
        const int marked = writeMark();
        const int ended = av_write_trailer(context);
        return marked < 0 ? marked : ended;
    }

    int writeMark() {
        const PacketHandle packet(av_packet_alloc());
        const int made =
            packet ? av_new_packet(packet.get(), static_cast<int>(mark.size())) : AVERROR(ENOMEM);
        if (made < 0)
            return made;
        std::memcpy(packet->data, mark.data(), mark.size());
        packet->pts = packet->dts = 0;
        packet->flags = AV_PKT_FLAG_KEY;
        return av_write_frame(context, packet.get());
    }

    void take() {
        if (context == nullptr || context->pb == nullptr)
            return;
        uint8_t* data = nullptr;
        const int size = avio_close_dyn_buf(context->pb, &data);
        context->pb = nullptr;
        written.assign(reinterpret_cast<char*>(data), static_cast<size_t>(size));
        av_free(data);
    }

    const std::string mark = "one packet, for a try";
    AVFormatContext* context = nullptr;
    int outcome;
    std::string written;
};

} // namespace

int MatroskaDelay::prepare(AVStream& sound) {
    const AVCodecParameters& codec = *sound.codecpar;
    if (codec.initial_padding <= 0)
        return 0;
    constexpr AVRational nano = {1, 1000000000};
    const int64_t delay = av_rescale_q(codec.initial_padding, {1, codec.sample_rate}, nano);
    const Trial trial(codec);
    if (trial.result() < 0)
        return trial.result();
    if (trial.blockTime() == 0)
        missingShift = codec.initial_padding;
    if (holdsDelay(trial.bytes(), delay))
        return 0;
    nanoseconds = delay;
    return av_dict_set(&sound.metadata, "title", placeHolder.substr(3).c_str(), 0);
}

void MatroskaDelay::fillIn(uint8_t* bytes, size_t count) const {
    if (nanoseconds == 0)
        return;
    const std::string head(reinterpret_cast<const char*>(bytes), std::min(count, headBytes));
    const size_t place = head.find(placeHolder);
    if (place == std::string::npos)
        return;
    const std::string element = codecDelay + '\x88' + bigEndian(nanoseconds);
    std::copy(element.begin(), element.end(), bytes + place);
}

int MatroskaDelay::fill(const std::string& path) const {
    if (nanoseconds == 0)
        return 0;
    const FileHandle file(std::fopen(path.c_str(), "r+be"));
    if (!file)
        return AVERROR(errno);
    std::string head(headBytes, '\0');
    head.resize(std::fread(head.data(), 1, head.size(), file.get()));
    const size_t place = head.find(placeHolder);
    if (place == std::string::npos)
        return AVERROR_BUG;
    const std::string element = codecDelay + '\x88' + bigEndian(nanoseconds);
    if (std::fseek(file.get(), static_cast<long>(place), SEEK_SET) != 0 ||
        std::fwrite(element.data(), 1, element.size(), file.get()) != element.size() ||
        std::fflush(file.get()) != 0)
        return AVERROR(errno);
    return 0;
}

void cutOffEnd(AVPacket& packet, int64_t samples) {
    uint8_t* bytes = av_packet_new_side_data(&packet, AV_PKT_DATA_SKIP_SAMPLES, skipBytes);
    if (bytes == nullptr)
        throw std::bad_alloc();
    std::fill_n(bytes, skipBytes, uint8_t{0});
    toLittleEndian(static_cast<uint32_t>(samples), bytes + 4);
}

} // namespace tio::ffmpeg::detail
