#include "media/Waveform.h"

#include "media/Lettering.h"
#include "terminal/Clock.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace tio::tool {

namespace {

using Picture = tio::PixelFormat::RgbImage;
using Range = Peaks::Range;

// At least twice as many as a picture is wide at the most, also after they were halved.
constexpr size_t mostPieces = size_t{1} << 16;

const Colour background(24, 24, 24);
const Colour rule(80, 80, 80);
const Colour wave(96, 176, 240);
const Colour ink(200, 200, 200);

Range united(Range a, Range b) {
    return {std::min(a.low, b.low), std::max(a.high, b.high)};
}

void drawColumn(Picture& picture, int col, int top, int bottom, Colour colour) {
    for (int row = std::max(top, 0); row <= std::min(bottom, picture.rows() - 1); ++row)
        picture(row, col) = colour;
}

/// A strip of the picture that shows one channel.
struct Lane {
    int top;
    int height;

    // 1 at the upper edge, -1 at the lower one.
    [[nodiscard]] int rowOf(float value) const {
        const float share = (1 - std::clamp(value, -1.0F, 1.0F)) / 2;
        return top + static_cast<int>(std::lround(share * static_cast<float>(height - 1)));
    }
};

void drawLane(Picture& picture, const Peaks& peaks, int channel, Lane lane) {
    const int middle = lane.rowOf(0);
    for (int col = 0; col < picture.cols(); ++col) {
        picture(middle, col) = rule;
        const Range range = peaks.range(channel, col, picture.cols());
        drawColumn(picture, col, lane.rowOf(range.high), lane.rowOf(range.low), wave);
    }
}

// Seconds between the marks of the axis, so that their texts do not touch.
double markDistance(double secondsPerPixel) {
    constexpr double pixels = 96;
    constexpr std::array<double, 19> usual = {0.001, 0.002, 0.005, 0.01, 0.02, 0.05, 0.1,
                                              0.2,   0.5,   1,     2,    5,    10,   30,
                                              60,    120,   300,   600,  1800};
    constexpr double hour = 3600;
    const double least = pixels * secondsPerPixel;
    const auto* const found = std::lower_bound(usual.begin(), usual.end(), least);
    return found != usual.end() ? *found : std::ceil(least / hour) * hour;
}

void drawAxis(Picture& picture, int top, double seconds) {
    constexpr int markHeight = 4;
    const Lettering lettering(picture.rows() - top - markHeight);
    const double distance = markDistance(seconds / picture.cols());
    const auto precision = distance < 1 ? ClockPrecision::Milliseconds : ClockPrecision::Seconds;
    for (int mark = 0; mark * distance < seconds; ++mark) {
        const double time = mark * distance;
        const auto col = static_cast<int>(time / seconds * picture.cols());
        if (col >= picture.cols())
            return;
        drawColumn(picture, col, top, top + markHeight, ink);
        lettering.write(picture, top + markHeight, col + 2, clockText(time, precision), ink);
    }
}

} // namespace

void Peaks::add(const ffmpeg::SampleReader::Samples& block) {
    if (pieces.empty())
        pieces.resize(static_cast<size_t>(block.cols()));
    for (int row = 0; row < block.rows(); ++row)
        addSample(block, row);
}

void Peaks::addSample(const ffmpeg::SampleReader::Samples& block, int row) {
    const bool fresh = samples % pieceLength == 0;
    for (int channel = 0; channel < channels(); ++channel) {
        float value = block(row, channel);
        if (!std::isfinite(value))
            value = 0;
        auto& ranges = pieces[static_cast<size_t>(channel)];
        if (fresh)
            ranges.push_back({value, value});
        else
            ranges.back() = united(ranges.back(), {value, value});
    }
    ++samples;
    if (samples % pieceLength == 0 && pieces.front().size() == mostPieces)
        halve();
}

void Peaks::halve() {
    for (auto& ranges : pieces) {
        for (size_t i = 0; i < ranges.size() / 2; ++i)
            ranges[i] = united(ranges[2 * i], ranges[2 * i + 1]);
        ranges.resize(ranges.size() / 2);
    }
    pieceLength *= 2;
}

double Peaks::seconds() const {
    return sampleRate > 0 ? static_cast<double>(samples) / sampleRate : 0;
}

Range Peaks::range(int channel, int part, int parts) const {
    const auto& ranges = pieces[static_cast<size_t>(channel)];
    const auto place = [&](int64_t edge) {
        return static_cast<size_t>(edge * samples / parts / pieceLength);
    };
    const size_t first = std::min(place(part), ranges.size() - 1);
    const size_t end = std::clamp(place(int64_t{part} + 1), first + 1, ranges.size());
    Range range = ranges[first];
    for (size_t i = first + 1; i < end; ++i)
        range = united(range, ranges[i]);
    return range;
}

Picture drawWaveform(const Peaks& peaks, int height, int width) {
    constexpr int axisHeight = 20;
    Picture picture(tio::Vec<int, 2>(height, width));
    std::fill_n(picture.data(), picture.count, background);
    const int laneHeight = std::max(1, (height - axisHeight) / peaks.channels());
    for (int channel = 0; channel < peaks.channels(); ++channel) {
        const Lane lane{channel * laneHeight, laneHeight};
        if (lane.top + lane.height <= height)
            drawLane(picture, peaks, channel, lane);
    }
    drawAxis(picture, height - axisHeight, peaks.seconds());
    return picture;
}

} // namespace tio::tool
