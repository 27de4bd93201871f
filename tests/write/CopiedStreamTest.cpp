#include "exact/write/copy/CopiedStream.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tio::ffmpeg::detail {
namespace {

struct FreeContext {
    void operator()(AVFormatContext* context) const { avformat_free_context(context); }
};

/// A source with one stream, in milliseconds.
class OneStream {
public:
    explicit OneStream(AVMediaType type) : context(avformat_alloc_context()) {
        AVStream* const made = avformat_new_stream(context.get(), nullptr);
        made->time_base = {1, 1000};
        made->codecpar->codec_type = type;
        made->codecpar->sample_rate = 48000;
    }

    [[nodiscard]] const AVStream& stream() const { return *context->streams[0]; }

private:
    std::unique_ptr<AVFormatContext, FreeContext> context;
};

PacketHandle packetAt(int64_t pts, int64_t dts) {
    PacketHandle packet(av_packet_alloc());
    packet->pts = pts;
    packet->dts = dts;
    packet->duration = 20;
    packet->flags = AV_PKT_FLAG_KEY;
    return packet;
}

CopySetting settingFrom(std::optional<Fraction> from) {
    return {"source.mkv", containerOf("copy.mkv"), from, std::nullopt, false, {}, false};
}

TEST(CopiedStream, RefusesTimesThatNoSumCanHold) {
    constexpr int64_t most = std::numeric_limits<int64_t>::max();
    for (const AVMediaType type : {AVMEDIA_TYPE_VIDEO, AVMEDIA_TYPE_AUDIO}) {
        const OneStream source(type);
        for (const bool joins : {false, true}) {
            for (const int64_t time : {most, most - 1000, -most, most / 2}) {
                CopySetting setting = settingFrom(std::nullopt);
                setting.joins = joins;
                CopiedStream copied(source.stream(), setting, true);
                copied.start();
                copied.add(packetAt(0, 0));
                EXPECT_THROW(copied.add(packetAt(time, time)), tio::Exception) << time;
                EXPECT_THROW(copied.add(packetAt(time, 40)), tio::Exception) << time;
            }
        }
    }
}

TEST(CopiedStream, HoldsTimesThatCountFrom1970) {
    constexpr int64_t milliseconds = 1800000000000;
    const OneStream source(AVMEDIA_TYPE_AUDIO);
    CopySetting setting = settingFrom(std::nullopt);
    CopiedStream copied(source.stream(), setting, false);
    copied.start();
    copied.add(packetAt(milliseconds, milliseconds));
    copied.close();
    const PacketHandle packet = copied.next();
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->pts, milliseconds * 48);
}

// A container may land too late when it is sought in, and once more further back then.
TEST(CopiedStream, WhatCameBeforeASeekIsNotThereTwice) {
    const OneStream source(AVMEDIA_TYPE_AUDIO);
    CopySetting setting = settingFrom(Fraction(1));
    CopiedStream copied(source.stream(), setting, false);
    copied.forget();
    copied.start();
    for (const int64_t time : {2000, 2020, 2040})
        copied.add(packetAt(time, time));
    copied.forget();
    for (int64_t time = 960; time <= 2040; time += 20)
        copied.add(packetAt(time, time));
    copied.close();
    std::vector<int64_t> times;
    while (const PacketHandle packet = copied.next())
        times.push_back(packet->pts / 48);
    std::vector<int64_t> expected;
    for (int64_t time = 1000; time <= 2040; time += 20)
        expected.push_back(time);
    EXPECT_EQ(times, expected);
}

// MP4 takes every picture for a key picture then, and a demuxer ends the track at the second one
// that seems to last to its end.
TEST(CopiedStream, PicturesWithoutAnyKeyAreAllDecodedAsKeys) {
    const OneStream source(AVMEDIA_TYPE_VIDEO);
    CopySetting setting{"source.avi", containerOf("copy.mp4"), {}, {}, false, {}, false};
    CopiedStream copied(source.stream(), setting, true);
    copied.start();
    constexpr int64_t end = 4920;
    const std::vector<int64_t> shown = {0, 2400, 1200, 4800, 3600, 4880, 4840};
    const std::vector<int64_t> decoded = {-40, 0, 1200, 2400, 3600, 4800, 4840};
    for (size_t i = 0; i < shown.size(); ++i) {
        PacketHandle packet = packetAt(shown[i], decoded[i]);
        packet->flags = 0;
        packet->duration = 40;
        copied.add(std::move(packet));
    }
    copied.close();
    std::vector<PacketHandle> packets;
    while (PacketHandle packet = copied.next())
        packets.push_back(std::move(packet));
    ASSERT_EQ(packets.size(), shown.size());
    int lasting = 0;
    for (size_t i = 0; i + 1 < packets.size(); ++i) {
        EXPECT_LT(packets[i]->dts, packets[i + 1]->dts) << i;
        EXPECT_LE(packets[i]->dts, packets[i]->pts) << i;
        EXPECT_EQ(packets[i]->pts, shown[i]) << i;
        lasting += packets[i]->pts + packets[i + 1]->dts - packets[i]->dts >= end ? 1 : 0;
    }
    EXPECT_LT(lasting, 2);
}

TEST(CopiedStream, RefusesPicturesThatAreDecodedLongerBeforeThanMp4CanSay) {
    const OneStream source(AVMEDIA_TYPE_VIDEO);
    CopySetting setting{"source.avi", containerOf("copy.mp4"), {}, {}, false, {}, false};
    constexpr int64_t most = (1 << 28) - 1;
    for (const int64_t ahead : {most, most + 1}) {
        CopiedStream copied(source.stream(), setting, true);
        copied.start();
        copied.add(packetAt(ahead, 0));
        copied.add(packetAt(ahead + 20, 20));
        copied.close();
        if (ahead == most)
            EXPECT_NE(copied.next(), nullptr);
        else
            EXPECT_THROW((void)copied.next(), tio::Exception);
    }
}

TEST(CopiedStream, RefusesAPauseThatMp4CannotSay) {
    constexpr int64_t most = 2147483646;
    for (const AVMediaType type : {AVMEDIA_TYPE_VIDEO, AVMEDIA_TYPE_AUDIO}) {
        const OneStream source(type);
        const int64_t ticks = type == AVMEDIA_TYPE_AUDIO ? 48 : 1; // a millisecond
        for (const char* name : {"copy.mp4", "copy.mkv"}) {
            for (const int64_t pause : {most / ticks, most / ticks + 1}) {
                CopySetting setting{"source.avi", containerOf(name), {}, {}, false, {}, false};
                CopiedStream copied(source.stream(), setting, true);
                copied.start();
                copied.add(packetAt(0, 0));
                copied.add(packetAt(pause, pause));
                copied.close();
                EXPECT_NE(copied.next(), nullptr);
                if (pause == most / ticks || std::string(name) == "copy.mkv")
                    EXPECT_NE(copied.next(), nullptr) << name;
                else
                    EXPECT_THROW((void)copied.next(), tio::Exception) << name;
            }
        }
    }
}

} // namespace
} // namespace tio::ffmpeg::detail
