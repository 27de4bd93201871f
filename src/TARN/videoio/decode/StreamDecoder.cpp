#include "base/checks.h"
#include "ffmpeg_compat.h"
#include "input/InputAccess.h"

#include <TARN/videoio/StreamDecoder.h>

#include <limits>
#include <utility>

namespace tio::ffmpeg {

namespace {

constexpr detail::Places at("StreamDecoder");

// Before every real timestamp, and far enough from the edge that demuxers can rescale it.
constexpr int64_t beforeAllTime = std::numeric_limits<int64_t>::min() / 1000000;

} // namespace

InputFormatContext& StreamDecoder::required(const std::shared_ptr<InputFormatContext>& context) {
    if (context == nullptr)
        detail::failAssertion("A stream decoder needs an input", "context != nullptr", at(10));
    return *context;
}

StreamDecoder::StreamDecoder(std::shared_ptr<InputFormatContext> context, int streamIndex)
    : input((static_cast<void>(required(context)), std::move(context))),
      inputStream(input, streamIndex) {}

StreamDecoder::~StreamDecoder() = default;

int64_t StreamDecoder::getFrameCount() const {
    makeIndex();
    return inputStream.getFrameCount();
}

// Reading goes on where it stood, so that there is nothing to go to once it has begun.
void StreamDecoder::loadSeekingIndex(std::string path) {
    inputStream.readIndexFile(path);
    if (started)
        makeIndex(); // of a file without times
    else
        orBackToPlace([&] { inputStream.seekToFrame(0); });
}

void StreamDecoder::storeSeekingIndex(std::string path) const {
    makeIndex();
    inputStream.storeSeekingIndex(std::move(path));
}

void StreamDecoder::makeIndex() const {
    if (inputStream.hasIndex())
        return;
    orBackToPlace([&] { (void)inputStream.getFrameCount(); });
    if (started)
        returnToPlace();
}

/// Does what moves the input. Demuxers may have read on, or dropped what they had read ahead, when
/// they refuse a seek, so a failure leads back as well.
template <typename Action>
void StreamDecoder::orBackToPlace(Action action) const {
    try {
        action();
    } catch (...) {
        try {
            rewind();
            returnToPlace();
        } catch (...) { // the first failure is what counts
        }
        throw;
    }
}

/// From frame 0, most often. The packets that the decoder holds stay in it, so the one after the
/// last one read has to follow.
void StreamDecoder::returnToPlace() const {
    if (!lastRead) {
        if (soughtFrame)
            (void)inputStream.seekToOrBefore(*soughtFrame);
        return;
    }
    if (readPastPlace())
        return;
    rewind();
    if (!readPastPlace())
        detail::failAssertion("The place where reading stood was not found again in \"" +
                                  input->getUrl() + "\"",
                              "readPastPlace()", at(20));
}

// Demuxers that refuse a place before all time, such as those of AVI and FLV, know the start.
void StreamDecoder::rewind() const {
    const AVStream& stream = *inputStream.getStream();
    const auto seekTo = [&](int64_t time) {
        return detail::InputAccess::seek(*input, stream.index, time, AVSEEK_FLAG_BACKWARD);
    };
    if (seekTo(beforeAllTime) < 0)
        detail::checkResult(seekTo(stream.start_time == AV_NOPTS_VALUE ? 0 : stream.start_time),
                            at(21), "Seeking");
}

bool StreamDecoder::readPastPlace() const {
    while (const auto packet = inputStream.getNextPacket())
        if (markOf(*packet) == lastRead)
            return true;
    return false;
}

StreamDecoder::Mark StreamDecoder::markOf(const InputPacket& packet) {
    const AVPacket& data = packet.getPacket();
    return {data.pts, data.dts, data.pos, data.size};
}

std::shared_ptr<InputPacket> StreamDecoder::readPacket() const {
    auto packet = inputStream.getNextPacket();
    if (packet)
        lastRead = markOf(*packet);
    return packet;
}

void StreamDecoder::primeOnce() const {
    if (started)
        return;
    started = true;
    // A fresh decoder takes the packet; a stream without any packet has none to give.
    const_cast<StreamDecoder*>(this)->packetDecoder().offerPacket(readPacket());
}

// A packet that the decoder refused before a seek is offered first after it, so that none is lost.
// The pump of this class leaves none.
// The decoder is emptied last: where the seek is refused, it goes on.
int64_t StreamDecoder::seekToOrBefore(int64_t frame) {
    makeIndex();
    primeOnce();
    inputStream.checkFrameNumber(frame);
    int64_t landed = 0;
    orBackToPlace([&] { landed = inputStream.seekToOrBefore(frame); });
    packetDecoder().flush();
    lastRead.reset();
    soughtFrame = frame;
    return landed;
}

// Frames are counted, not matched by their times. Those on the way are neither turned nor
// converted, because nobody sees them; this is what makes a seek fast.
void StreamDecoder::seek(int64_t frame) {
    for (int64_t landed = seekToOrBefore(frame); landed < frame; ++landed)
        pumpFrame(FrameUse::Skip);
}

// A packet that fails throws once. FFmpeg would fail at it again, and nothing after it would come
// out. What was thrown when the first packet was offered is not thrown again.
bool StreamDecoder::takeFrame(FrameUse use) {
    try {
        return use == FrameUse::Keep ? frameReady() : packetDecoder().receiveFrame();
    } catch (...) {
        if (packetDecoder().isHopeless())
            return false;
        packetDecoder().skipFailedPacket();
        throw;
    }
}

// Gives the decoder the stream's next packet, or again the one that it refused last time.
// Returns whether a frame may still come without an end of input.
bool StreamDecoder::feedDecoder() {
    if (!pendingPacket)
        pendingPacket = readPacket();
    if (!pendingPacket)
        return !packetDecoder().offerWouldBeAccepted();
    if (packetDecoder().offerWouldBeAccepted()) // and kept there also when its codec fails to open
        packetDecoder().offerPacket(std::exchange(pendingPacket, nullptr));
    return true;
}

bool StreamDecoder::pumpFrame(FrameUse use) {
    primeOnce();
    bool more = true;
    do {
        if (packetDecoder().isHopeless())
            return false;
        more = feedDecoder();
        if (takeFrame(use))
            return true;
        // A codec that has put out a frame to be dropped may not have looked at the last packet
        // yet, and FFmpeg drops such a packet when the end is announced.
        more = more || packetDecoder().hasDroppedFrame();
        // A live source may go on after its end; a drained codec takes nothing, so do not wait.
    } while (more && !packetDecoder().isDrained());
    if (packetDecoder().isHopeless())
        return false;
    packetDecoder().end();
    return takeFrame(use);
}

} // namespace tio::ffmpeg
