// What is done to each picture: turning NV12 into RGB, beside libswscale, and getting the memory.

#include "support/Ffmpeg.h"

#include <TARN/core/MatAlloc.h>
#include <TARN/imgproc/PixelFormat.h>

#include <algorithm>
#include <array>
#include <benchmark/benchmark.h>
#include <cstddef>
#include <cstdint>
#include <random>

namespace tio::bench {
namespace {

constexpr int width = 1920;
constexpr int height = 1080;

using Plane = PixelFormat::Plane;

Plane noise(int rows) {
    Plane plane(Vec<int, 2>(rows, width));
    std::minstd_rand random(1);
    std::generate_n(plane.data(), plane.count, [&] { return static_cast<uint8_t>(random() >> 8); });
    return plane;
}

void nv12ToRgb(benchmark::State& state) {
    const Vec<Plane, 2> planes(noise(height), noise(height / 2));
    const Rational<1, int> whole(1, 1);
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize(
            PixelFormat::NV12::Rgb(planes, whole, Resize::Algorithm::Bicubic).data());
}

// libswscale has no special way from NV12 to packed RGB; it goes through its scaler.
void nv12ToRgbBySwscale(benchmark::State& state) {
    const Plane luma = noise(height);
    const Plane chroma = noise(height / 2);
    const test::ScalerPointer scaler(sws_getContext(width, height, AV_PIX_FMT_NV12, width, height,
                                                    AV_PIX_FMT_RGB24, SWS_BICUBIC, nullptr, nullptr,
                                                    nullptr));
    const std::array<const uint8_t*, 4> from = {luma.data(), chroma.data()};
    const std::array<int, 4> fromStrides = {width, width};
    const auto block = MatAlloc::getGlobalMatAlloc()->getBytes(size_t{3} * width * height);
    const std::array<uint8_t*, 4> to = {reinterpret_cast<uint8_t*>(block.get())};
    const std::array<int, 4> toStrides = {3 * width};
    for ([[maybe_unused]] auto _ : state)
        sws_scale(scaler.get(), from.data(), fromStrides.data(), 0, height, to.data(),
                  toStrides.data());
}

void allocatePicture(benchmark::State& state) {
    const auto allocator = MatAlloc::getGlobalMatAlloc();
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize(allocator->getBytes(static_cast<size_t>(state.range(0))));
}

BENCHMARK(nv12ToRgb)->Unit(benchmark::kMicrosecond);
BENCHMARK(nv12ToRgbBySwscale)->Unit(benchmark::kMicrosecond);
BENCHMARK(allocatePicture)->Arg(1000)->Arg(3 * width * height)->Arg(3 * 3840 * 2160);

} // namespace
} // namespace tio::bench
