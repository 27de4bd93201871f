#include "Bt601.h"

#include "splitRgb.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <libyuv.h>

namespace tio::PixelFormat::bt601 {

namespace {

// Red and blue differ from luma by 1.402 Cr and 1.772 Cb; green makes up for both, so that luma
// stays what it is.
constexpr double redOfCr = 1.402;
constexpr double blueOfCb = 1.772;
constexpr double greenOfCr = 0.299 * redOfCr / 0.587;
constexpr double greenOfCb = 0.114 * blueOfCb / 0.587;

// From the steps of limited range to those of full range.
constexpr double lumaGain = 255.0 / 219.0;
constexpr double chromaGain = 255.0 / 224.0;

// All sums of 8-bit colours run in 16 bits with this many fractional bits: as many as the largest
// sum, below 2 * 277, leaves free. Sixteen bits are twice the pixels per register of 32.
constexpr int fractionBits = 5;

// Inputs are shifted to the upper end of 16 bits, as far as their range allows, before the product
// is cut to its upper half.
constexpr int lumaShift = 7;   // -16 to 239
constexpr int chromaShift = 8; // -128 to 127

constexpr int16_t factor(double gain, int inputShift) {
    const double twice = gain * (2 << (16 + fractionBits - inputShift));
    return static_cast<int16_t>((static_cast<int>(twice) + 1) / 2); // rounded to nearest
}

// Written this way the compilers see the instruction that multiplies sixteen-bit numbers and keeps
// the upper halves.
int16_t product(int16_t a, int16_t b) {
    return static_cast<int16_t>((a * b) >> 16);
}

// Each product is cut, not rounded, and so lies half a step low on average. The surplus in `half`
// makes up for two of them, those of red and of blue; green subtracts two of its three.
constexpr int16_t half = (1 << (fractionBits - 1)) + 1;
constexpr int16_t greenSurplus = 2;

struct Terms {
    int16_t red;
    int16_t green;
    int16_t blue;
};

Terms termsOf(uint8_t cb8, uint8_t cr8) {
    const auto cb = static_cast<int16_t>((cb8 - 128) * (1 << chromaShift));
    const auto cr = static_cast<int16_t>((cr8 - 128) * (1 << chromaShift));
    const int green = -product(cb, factor(greenOfCb * chromaGain, chromaShift)) -
                      product(cr, factor(greenOfCr * chromaGain, chromaShift)) - greenSurplus;
    return {product(cr, factor(redOfCr * chromaGain, chromaShift)), static_cast<int16_t>(green),
            product(cb, factor(blueOfCb * chromaGain, chromaShift))};
}

uint8_t toColour(int16_t sum) {
    const auto whole = static_cast<int16_t>(sum >> fractionBits);
    return static_cast<uint8_t>(std::min<int16_t>(std::max<int16_t>(whole, 0), 255));
}

/// Colours or components of a span, each in a row of its own.
template <typename T>
struct SpanPlanes {
    alignas(64) T first[spanPixels];
    alignas(64) T second[spanPixels];
    alignas(64) T third[spanPixels];
};

// The arrays of a span never overlap with each other or with pictures; `restrict` tells the
// vectoriser, which would otherwise check for it on every call.
void addChroma(const uint8_t* __restrict luma, const ChromaTerms& chroma, int pixels,
               SpanPlanes<uint8_t>& colours) {
    const int16_t* __restrict redTerm = chroma.red;
    const int16_t* __restrict greenTerm = chroma.green;
    const int16_t* __restrict blueTerm = chroma.blue;
    uint8_t* __restrict red = colours.first;
    uint8_t* __restrict green = colours.second;
    uint8_t* __restrict blue = colours.third;
    for (int i = 0; i < pixels; ++i) {
        const auto shifted = static_cast<int16_t>((luma[i] - 16) * (1 << lumaShift));
        const int base = product(shifted, factor(lumaGain, lumaShift)) + half;
        red[i] = toColour(static_cast<int16_t>(base + redTerm[i]));
        green[i] = toColour(static_cast<int16_t>(base + greenTerm[i]));
        blue[i] = toColour(static_cast<int16_t>(base + blueTerm[i]));
    }
}

// Weights in thousandths, so that the sums of 8-bit colours are whole numbers, which `float` holds
// exactly. The largest sums are 1000 * 255 for Y, (1000 - 114) * 255 for Cb, (1000 - 299) * 255 for
// Cr; one division at the end brings them to 1 and 0.5.
constexpr float yStep = 1.0F / 255000.0F;
constexpr float cbStep = 0.5F / 225930.0F;
constexpr float crStep = 0.5F / 178755.0F;
static_assert(255000.0F * yStep <= 1.0F && 225930.0F * cbStep <= 0.5F && 178755.0F * crStep <= 0.5F,
              "results stay in range without clamping");

void toComponents(const SpanPlanes<uint8_t>& colours, int pixels, SpanPlanes<float>& components) {
    float* __restrict y = components.first;
    float* __restrict cb = components.second;
    float* __restrict cr = components.third;
    for (int i = 0; i < pixels; ++i) {
        const auto red = static_cast<float>(colours.first[i]);
        const auto green = static_cast<float>(colours.second[i]);
        const auto blue = static_cast<float>(colours.third[i]);
        const float luma = 299.0F * red + 587.0F * green + 114.0F * blue;
        y[i] = luma * yStep;
        cb[i] = (1000.0F * blue - luma) * cbStep;
        cr[i] = (1000.0F * red - luma) * crStep;
    }
}

/// The float of every 8-bit value: (value - zero) / steps, clamped.
constexpr std::array<float, 256> floatTable(int zero, int steps, float least, float most) {
    std::array<float, 256> table{};
    for (int value = 0; value < 256; ++value) {
        const float exact = static_cast<float>(value - zero) / static_cast<float>(steps);
        table[static_cast<std::size_t>(value)] = std::min(std::max(exact, least), most);
    }
    return table;
}

constexpr std::array<float, 256> lumaFloats = floatTable(16, 219, 0.0F, 1.0F);
constexpr std::array<float, 256> chromaFloats = floatTable(128, 224, -0.5F, 0.5F);

} // namespace

void ChromaTerms::fromPairs(const uint8_t* __restrict pairs, int pixels) noexcept {
    const std::ptrdiff_t pairCount = pixels / 2 + pixels % 2;
    for (std::ptrdiff_t i = 0; i < pairCount; ++i) {
        const Terms terms = termsOf(pairs[2 * i], pairs[2 * i + 1]);
        red[2 * i] = red[2 * i + 1] = terms.red;
        green[2 * i] = green[2 * i + 1] = terms.green;
        blue[2 * i] = blue[2 * i + 1] = terms.blue;
    }
}

void ChromaTerms::fromPlanes(const uint8_t* __restrict cb, const uint8_t* __restrict cr,
                             int pixels) noexcept {
    for (int i = 0; i < pixels; ++i) {
        const Terms terms = termsOf(cb[i], cr[i]);
        red[i] = terms.red;
        green[i] = terms.green;
        blue[i] = terms.blue;
    }
}

void writeRgb(const uint8_t* luma, const ChromaTerms& chroma, int pixels,
              Vec<uint8_t, 3>* rgb) noexcept {
    SpanPlanes<uint8_t> colours;
    addChroma(luma, chroma, pixels, colours);
    libyuv::MergeRGBPlane(colours.first, 0, colours.second, 0, colours.third, 0, rgb->begin(), 0,
                          pixels, 1);
}

void writeYCbCrOfPairs(const uint8_t* luma, const uint8_t* pairs, int pixels,
                       Vec<float, 3>* yCbCr) noexcept {
    for (std::ptrdiff_t i = 0; i < pixels; ++i) {
        const uint8_t* const pair = pairs + i / 2 * 2;
        yCbCr[i] = {lumaFloats[luma[i]], chromaFloats[pair[0]], chromaFloats[pair[1]]};
    }
}

void writeYCbCrOfPlanes(const uint8_t* luma, const uint8_t* cb, const uint8_t* cr, int pixels,
                        Vec<float, 3>* yCbCr) noexcept {
    for (int i = 0; i < pixels; ++i)
        yCbCr[i] = {lumaFloats[luma[i]], chromaFloats[cb[i]], chromaFloats[cr[i]]};
}

void writeYCbCrOfRgb(const Vec<uint8_t, 3>* rgb, int pixels, Vec<float, 3>* yCbCr) noexcept {
    SpanPlanes<uint8_t> colours;
    SpanPlanes<float> components;
    for (int done = 0; done < pixels; done += spanPixels) {
        const int count = std::min(spanPixels, pixels - done);
        splitRgb(rgb[done].begin(), colours.first, colours.second, colours.third, count);
        toComponents(colours, count, components);
        for (int i = 0; i < count; ++i)
            yCbCr[done + i] = {components.first[i], components.second[i], components.third[i]};
    }
}

} // namespace tio::PixelFormat::bt601
