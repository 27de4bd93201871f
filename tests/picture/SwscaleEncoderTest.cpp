#include "SwscalePictures.h"
#include "picture/swscale.h"
#include "support/ReferenceConversion.h"
#include "support/SourceFrames.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace tio {
namespace {

using test::bytesOf;
using test::convert;
using test::FramePointer;
using test::makeNoise;
using test::rgbOf;
using test::Target;

using RgbImage = Mat<Vec<uint8_t, 3>, 2, MatOptions<1, 1>>;

class SWScaleEncoderTest : public ::testing::TestWithParam<const char*> {
protected:
    SWScaleEncoderTest() : codec(avcodec_alloc_context3(nullptr)) {
        codec->pix_fmt = av_get_pix_fmt(GetParam());
    }

    FramePointer encode(const RgbImage& image) {
        codec->width = image.cols();
        codec->height = image.rows();
        FramePointer frame = test::makeFrame(codec->pix_fmt, codec->width, codec->height);
        SWScaleEncoder encoder(image.size, codec.get());
        encoder.convertFrame(image, frame.get(), codec.get());
        return frame;
    }

    test::CodecPointer codec;
};

RgbImage noiseImage(int height, int width) {
    RgbImage image(Vec<int, 2>(height, width));
    const FramePointer noise = makeNoise(AV_PIX_FMT_GRAY8, 3 * width, height);
    const std::vector<uint8_t> bytes = test::pixelsOf(*noise);
    std::memcpy(image.data(), bytes.data(), bytes.size());
    return image;
}

/// The image as swscale alone converts it. It reads the pixel after the last one of an odd row too,
/// so the last one is repeated there.
std::vector<uint8_t> pixelsBySwscale(const RgbImage& image, AVPixelFormat format) {
    const auto* begin = reinterpret_cast<const uint8_t*>(image.data());
    std::vector<uint8_t> bytes(begin, begin + 3 * image.count);
    for (int i = 0; i < 64; ++i)
        bytes.push_back(bytes[bytes.size() - 3]);
    const FramePointer frame = test::makeFrame(format, image.cols(), image.rows());
    const auto scaler = test::makeScaler(image.cols(), image.rows(), AV_PIX_FMT_RGB24, format);
    const uint8_t* const rows[4] = {bytes.data()};
    const int strides[4] = {3 * image.cols()};
    sws_scale(scaler.get(), rows, strides, 0, image.rows(), frame->data, frame->linesize);
    return test::pixelsOf(*frame);
}

/// Memory that ends where the process may not read any further.
class LastPage {
public:
    explicit LastPage(size_t used)
        : page(static_cast<size_t>(::sysconf(_SC_PAGESIZE))),
          length((used + page - 1) / page * page),
          begin(static_cast<char*>(::mmap(nullptr, length + page, PROT_READ | PROT_WRITE,
                                          MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))),
          first(begin + length - used) {
        ::mprotect(begin + length, page, PROT_NONE);
    }
    ~LastPage() { ::munmap(begin, length + page); }
    LastPage(const LastPage&) = delete;
    LastPage& operator=(const LastPage&) = delete;

    [[nodiscard]] char* data() const noexcept { return first; }

private:
    size_t page;
    size_t length;
    char* begin;
    char* first;
};

TEST_P(SWScaleEncoderTest, WritesWhatSwscaleMakesOfTheImage) {
    for (int height = 1; height <= 20; ++height) {
        for (int width = 1; width <= 40; ++width) {
            const RgbImage image = noiseImage(height, width);
            ASSERT_EQ(test::pixelsOf(*encode(image)), pixelsBySwscale(image, codec->pix_fmt))
                << width << " x " << height;
        }
    }
}

TEST_P(SWScaleEncoderTest, WritesWhatSwscaleMakesOfALargeImage) {
    for (const auto& [height, width] : {std::pair(64, 1280), {65, 854}, {33, 1919}, {2, 3840}}) {
        const RgbImage image = noiseImage(height, width);
        ASSERT_EQ(test::pixelsOf(*encode(image)), pixelsBySwscale(image, codec->pix_fmt))
            << width << " x " << height;
    }
}

TEST_P(SWScaleEncoderTest, ReadsNothingBehindTheImage) {
    for (const int height : {1, 2, 3, 17, 32}) {
        for (const int width : {1, 2, 3, 5, 6, 7, 8, 15, 16, 17, 22, 31, 32, 64, 128, 1280}) {
            const RgbImage noise = noiseImage(height, width);
            const size_t bytes = size_t{3} * static_cast<size_t>(noise.count);
            const LastPage memory(bytes);
            std::memcpy(memory.data(), noise.data(), bytes);
            const RgbImage image(noise.size, std::shared_ptr<char>(memory.data(), [](char*) {}));
            ASSERT_EQ(test::pixelsOf(*encode(image)), pixelsBySwscale(noise, codec->pix_fmt))
                << width << " x " << height;
        }
    }
}

TEST_P(SWScaleEncoderTest, WhatIsConvertedBackLooksTheSame) {
    RgbImage image(Vec<int, 2>(36, 54));
    std::fill_n(image.data(), image.count, Vec<uint8_t, 3>(200, 120, 40));
    const auto back = convert(*encode(image), Target::RGB);
    const std::vector<uint8_t> pixels = bytesOf(rgbOf(back).plane);
    for (std::size_t i = 0; i < pixels.size(); i += 3) {
        ASSERT_NEAR(pixels[i], 200, 3) << "byte " << i;
        ASSERT_NEAR(pixels[i + 1], 120, 3) << "byte " << i;
        ASSERT_NEAR(pixels[i + 2], 40, 3) << "byte " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, SWScaleEncoderTest,
                         ::testing::Values("yuv420p", "yuvj420p", "yuv444p", "nv12", "rgb24"));

} // namespace
} // namespace tio
