#include "picture/PlanePass.h"

#include "picture/pixelLoops.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

namespace tio::ffmpeg::detail {

namespace {

// Rows that are turned together, so that what is written lies together, too.
constexpr int stripRows = 16;

// So much a weight may be in whole numbers of 16 bits, for three of them and an addend. Those of
// all matrices are below.
constexpr double mostSmall = 2.2;

constexpr double oneSmall = 8192; // what stands for a weight of 1, see SmallWeights

bool isOne(const std::array<double, 4>& weights) {
    return std::abs(weights[0] - 1) < 1e-9 && std::abs(weights[3]) < 1e-9;
}

/// Where the pixels of a stored plane lie in the upright one.
struct Walk {
    std::ptrdiff_t first;
    std::ptrdiff_t alongRow; // to the next pixel of a stored row
    std::ptrdiff_t toNextRow;
};

Walk walkFor(const PlaneTarget& target, int rows, int columns, int pixelBytes) {
    const std::ptrdiff_t pixel = pixelBytes;
    const std::ptrdiff_t line = target.stride;
    const std::ptrdiff_t lastRow = rows - 1;
    const std::ptrdiff_t lastColumn = columns - 1;
    switch (target.way) {
    case 2:
        return {lastColumn * pixel, -pixel, line};
    case 3:
        return {lastColumn * pixel + lastRow * line, -pixel, -line};
    case 4:
        return {lastRow * line, pixel, -line};
    case 5:
        return {0, line, pixel};
    case 6:
        return {lastRow * pixel, line, -pixel};
    case 7:
        return {lastRow * pixel + lastColumn * line, -line, -pixel};
    case 8:
        return {lastColumn * line, -line, pixel};
    default:
        return {0, pixel, line};
    }
}

/// Columns outside, so that pixels of several rows that are neighbours when turned are written
/// together.
template <size_t PixelBytes>
void scatter(const uint8_t* strip, int count, int columns, uint8_t* first, const Walk& walk) {
    const auto rowBytes = static_cast<std::ptrdiff_t>(PixelBytes) * columns;
    for (int column = 0; column < columns; ++column) {
        const uint8_t* in = strip + column * std::ptrdiff_t{PixelBytes};
        uint8_t* out = first + column * walk.alongRow;
        for (int row = 0; row < count; ++row, in += rowBytes, out += walk.toNextRow)
            std::memcpy(out, in, PixelBytes);
    }
}

} // namespace

PlanePass::PlanePass(Recipe recipe)
    : inputs(std::move(recipe.inputs)),
      weights(recipe.weights),
      channels(recipe.channels),
      depth(recipe.depth),
      copying(copiesBytes()),
      small(allowsSmall()) {
    working.resize(inputs.size());
    const auto width = static_cast<size_t>(columns());
    for (size_t i = 0; i < inputs.size(); ++i) {
        working[i].down.resize(static_cast<size_t>(inputs[i].reader.columns()));
        working[i].across.resize(width);
    }
    for (auto& row : levels)
        row.resize(width);
    for (auto& row : smallLevels)
        row.resize(width);
    strip.resize(width * static_cast<size_t>(pixelBytes()) * stripRows);
    const auto whole = [](double value) { return static_cast<int16_t>(std::lround(value)); };
    for (size_t channel = 0; small && channel < 3; ++channel) {
        const auto& row = weights[channel];
        const double addend = row[3] + 128 * (row[1] + row[2]);
        smallWeights[channel] = {whole(row[0] * oneSmall), whole(row[1] * oneSmall),
                                 whole(row[2] * oneSmall), whole(addend * 32)};
    }
}

bool PlanePass::copiesBytes() const {
    const Input& input = inputs.front();
    return inputs.size() == 1 && channels == 1 && depth == 8 && input.reader.hasPlainBytes() &&
           input.across.isSame() && input.down.picks() && isOne(weights[0]);
}

bool PlanePass::allowsSmall() const {
    const auto isPlain = [](const Input& input) {
        return input.reader.hasPlainBytes() && input.down.picks();
    };
    const auto fits = [](const std::array<double, 4>& row) {
        const double most = std::max({std::abs(row[0]), std::abs(row[1]), std::abs(row[2])});
        return most < mostSmall && std::abs(row[3] + 128 * (row[1] + row[2])) < 300;
    };
    if (depth != 8 || channels != 3 || inputs.size() != 3 || !inputs[0].across.isSame())
        return false;
    const AxisFilter& second = inputs[1].across;
    const AxisFilter& third = inputs[2].across;
    return ((second.isSame() && third.isSame()) || (second.doubles() && third.doubles())) &&
           std::all_of(inputs.begin(), inputs.end(), isPlain) &&
           std::all_of(weights.begin(), weights.end(), fits);
}

void PlanePass::run(const AVFrame& picture, const PlaneTarget& target) {
    for (Working& row : working)
        row.held = -1;
    const auto make = [&](int row, uint8_t* out) {
        if (copying)
            std::memcpy(out, inputs[0].reader.bytes(picture, inputs[0].down.pick(row)),
                        static_cast<size_t>(columns()));
        else if (small)
            makeSmallRow(picture, row, out);
        else
            makeRow(picture, row, out);
    };
    const Walk walk = walkFor(target, rows(), columns(), pixelBytes());
    if (walk.alongRow == pixelBytes() && target.way < 5) {
        for (int row = 0; row < rows(); ++row)
            make(row, target.data + walk.first + row * walk.toNextRow);
        return;
    }
    const std::ptrdiff_t rowBytes = std::ptrdiff_t{columns()} * pixelBytes();
    for (int first = 0; first < rows(); first += stripRows) {
        const int count = std::min(stripRows, rows() - first);
        for (int row = 0; row < count; ++row)
            make(first + row, strip.data() + row * rowBytes);
        placeStrip(first, count, target);
    }
}

void PlanePass::placeStrip(int firstRow, int count, const PlaneTarget& target) const {
    const Walk walk = walkFor(target, rows(), columns(), pixelBytes());
    uint8_t* const first = target.data + walk.first + firstRow * walk.toNextRow;
    switch (pixelBytes()) {
    case 1:
        return scatter<1>(strip.data(), count, columns(), first, walk);
    case 2:
        return scatter<2>(strip.data(), count, columns(), first, walk);
    case 3:
        return scatter<3>(strip.data(), count, columns(), first, walk);
    default:
        return scatter<6>(strip.data(), count, columns(), first, walk);
    }
}

void PlanePass::makeSmallRow(const AVFrame& picture, int row, uint8_t* out) const {
    std::array<const uint8_t*, 3> in{};
    for (size_t i = 0; i < 3; ++i)
        in[i] = inputs[i].reader.bytes(picture, inputs[i].down.pick(row));
    makeSmallRgb(in[0], in[1], in[2], inputs[1].across.doubles(), smallWeights, out, columns());
}

/// Brings one component's part of a row to the plane's width.
void PlanePass::fetch(const AVFrame& picture, size_t number, int row) {
    Input& input = inputs[number];
    Working& work = working[number];
    const AxisFilter::Taps taps = input.down.taps(row);
    if (taps.count == 1 && taps.first == work.held)
        return;
    work.held = taps.count == 1 ? taps.first : -1;
    float* const target = input.across.isSame() ? work.across.data() : work.down.data();
    if (taps.count == 1)
        input.reader.read(picture, taps.first, target);
    else
        for (int i = 0; i < taps.count; ++i)
            input.reader.add(picture, taps.first + i, taps.weights[i], i == 0, target);
    if (input.across.isSame())
        return;
    if (input.across.doubles())
        repeatTwice(work.down.data(), work.across.data(), columns());
    else
        filterAcross(input.across, work.down.data(), work.across.data());
}

void PlanePass::filterAcross(const AxisFilter& filter, const float* in, float* out) const {
    for (int column = 0; column < filter.size(); ++column) {
        const AxisFilter::Taps taps = filter.taps(column);
        float sum = 0;
        for (int i = 0; i < taps.count; ++i)
            sum += taps.weights[i] * in[taps.first + i];
        out[column] = sum;
    }
}

void PlanePass::makeRow(const AVFrame& picture, int row, uint8_t* out) {
    for (size_t i = 0; i < inputs.size(); ++i)
        fetch(picture, i, row);
    const int32_t largest = (int32_t{1} << depth) - 1;
    const bool alone = channels == 1 && depth > 8;
    for (int channel = 0; channel < channels; ++channel) {
        const auto at = static_cast<size_t>(channel);
        const auto part = [&](size_t i) { return static_cast<float>(weights[at][i]); };
        uint16_t* const to = alone ? reinterpret_cast<uint16_t*>(out) : levels[at].data();
        if (inputs.size() == 3)
            combine(working[0].across.data(), working[1].across.data(), working[2].across.data(),
                    {part(0), part(1), part(2), part(3)}, largest, to, columns());
        else {
            const size_t own = inputs.size() == 1 ? 0 : at;
            combine(working[own].across.data(), part(own), part(3), largest, to, columns());
        }
        if (depth == 8)
            narrow(to, channels == 1 ? out : smallLevels[at].data(), columns());
    }
    if (depth == 8 && channels == 2)
        interleave(smallLevels[0].data(), smallLevels[1].data(), out, columns());
    else if (depth == 8 && channels == 3)
        interleave(smallLevels[0].data(), smallLevels[1].data(), smallLevels[2].data(), out,
                   columns());
    else if (channels == 3)
        interleave(levels[0].data(), levels[1].data(), levels[2].data(),
                   reinterpret_cast<uint16_t*>(out), columns());
}

} // namespace tio::ffmpeg::detail
