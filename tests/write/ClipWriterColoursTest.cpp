#include "ClipWriterFixture.h"
#include "ReadBack.h"
#include "ffmpeg_compat.h"

#include <TARN/videoio/ClipWriter.h>

#include <algorithm>
#include <gtest/gtest.h>
#include <utility>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::ClipWriterTest;
using test::noisePicture;
using test::psnr;
using test::ReadBack;
using test::readPictures;
using test::rgbOf;
using test::rgbPicture;
using test::withCodec;

// Colours.

TEST_F(ClipWriterTest, FfvOneKeepsEveryByte) {
    for (const PictureFormat format :
         {PictureFormat::Rgb8, PictureFormat::Rgb16, PictureFormat::Grey8, PictureFormat::Grey16,
          PictureFormat::Yuv420, PictureFormat::Yuv422, PictureFormat::Yuv444,
          PictureFormat::Yuv420P10, PictureFormat::Yuv422P10, PictureFormat::Yuv444P10}) {
        ClipWriterOptions options = withCodec("ffv1");
        options.rate = 25;
        ClipWriter writer(file("clip.mkv"), options);
        for (int i = 0; i < 3; ++i)
            writer.writePicture(noisePicture(format, i, 37, 51));
        writer.finish();
        const auto pictures = readPictures(file("clip.mkv"));
        ASSERT_EQ(pictures.size(), 3U);
        for (int i = 0; i < 3; ++i) {
            const Image given = noisePicture(format, i, 37, 51);
            const AVFrame& frame = *pictures[static_cast<std::size_t>(i)].frame;
            const int samples = ffmpeg::channelCount(format);
            const bool wide = bitDepth(format) > 8;
            if (samples == 1) {
                for (int plane = 0; plane < planeCount(format); ++plane) {
                    const PlaneSize size = planeSize(format, 37, 51, plane);
                    for (int row = 0; row < size.rows; ++row)
                        ASSERT_EQ(std::memcmp(frame.data[plane] + row * frame.linesize[plane],
                                              given.data(plane) + row * given.stride(plane),
                                              static_cast<std::size_t>(size.rowBytes)),
                                  0)
                            << static_cast<int>(format) << " " << plane << " " << row;
                }
                continue;
            }
            ASSERT_EQ(frame.format, wide ? AV_PIX_FMT_GBRP16 : AV_PIX_FMT_0RGB32);
            for (int row = 0; row < 37; ++row) {
                for (int col = 0; col < 51; ++col) {
                    for (int channel = 0; channel < 3; ++channel) {
                        const uint8_t* bytes = given.data() + row * given.stride();
                        if (wide) {
                            const int plane = (channel + 2) % 3; // G, B, R
                            ASSERT_EQ(reinterpret_cast<const uint16_t*>(
                                          frame.data[plane] + row * frame.linesize[plane])[col],
                                      reinterpret_cast<const uint16_t*>(bytes)[3 * col + channel]);
                        } else { // B, G, R, nothing
                            ASSERT_EQ(
                                frame.data[0][row * frame.linesize[0] + 4 * col + 2 - channel],
                                bytes[3 * col + channel]);
                        }
                    }
                }
            }
        }
    }
}

TEST_F(ClipWriterTest, LossyColoursComeBackWithTheTagsThatTheyWereMadeWith) {
    struct Case {
        ClipColours asked;
        int height;
        AVColorSpace matrix;
    };
    for (const Case& one : {Case{ClipColours::Automatic, 64, AVCOL_SPC_SMPTE170M},
                            Case{ClipColours::Automatic, 720, AVCOL_SPC_BT709},
                            Case{ClipColours::Bt709, 64, AVCOL_SPC_BT709},
                            Case{ClipColours::Bt2020, 64, AVCOL_SPC_BT2020_NCL},
                            Case{ClipColours::Bt601, 720, AVCOL_SPC_SMPTE170M}}) {
        ClipWriterOptions options;
        options.rate = 25;
        options.crf = 12;
        options.colours = one.asked;
        ClipWriter writer(file("clip.mp4"), options);
        const Image given = rgbPicture(3, one.height, 96);
        writer.writePicture(given);
        writer.finish();
        const auto pictures = readPictures(file("clip.mp4"));
        ASSERT_EQ(pictures.size(), 1U);
        EXPECT_EQ(pictures[0].frame->colorspace, one.matrix);
        EXPECT_EQ(pictures[0].frame->color_range, AVCOL_RANGE_MPEG);
        EXPECT_GT(psnr(rgbOf(*pictures[0].frame), given.data()), 38);
        const ReadBack clip(file("clip.mp4"), AVMEDIA_TYPE_VIDEO);
        EXPECT_EQ(clip.stream().codecpar->color_space, one.matrix);
    }
}

TEST_F(ClipWriterTest, PlanesGoInAsTheyAre) {
    ClipWriterOptions options = withCodec("libx264");
    options.rate = 25;
    options.options["qp"] = "0"; // lossless
    for (const PictureFormat format : {PictureFormat::Nv12, PictureFormat::Yuv420,
                                       PictureFormat::Yuv422, PictureFormat::Yuv444}) {
        ClipWriter writer(file("clip.mp4"), options);
        const Image given = noisePicture(format, 1, 32, 48);
        writer.writePicture(given);
        writer.finish();
        const auto pictures = readPictures(file("clip.mp4"));
        ASSERT_EQ(pictures.size(), 1U);
        const AVFrame& frame = *pictures[0].frame;
        for (int row = 0; row < 32; ++row)
            EXPECT_EQ(std::memcmp(frame.data[0] + row * frame.linesize[0],
                                  given.data() + row * given.stride(), 48),
                      0);
        if (format == PictureFormat::Nv12) {
            for (int i = 0; i < 24; ++i) {
                EXPECT_EQ(frame.data[1][i], given.data(1)[2 * i]);
                EXPECT_EQ(frame.data[2][i], given.data(1)[2 * i + 1]);
            }
        }
    }
}

// Encoders are built with or without more than 8 bits.
bool canEncodeTenBits(const std::vector<const char*>& encoders) {
    for (const char* name : encoders) {
        const AVCodec* encoder = avcodec_find_encoder_by_name(name);
        if (encoder == nullptr)
            continue;
        const auto formats = ffmpeg::compat::pixelFormats(*encoder);
        return std::find(formats.begin(), formats.end(), AV_PIX_FMT_YUV420P10) != formats.end();
    }
    return false;
}

TEST_F(ClipWriterTest, TenBitsAreKeptWhereTheCodecHasThem) {
    const std::vector<std::pair<const char*, std::vector<const char*>>> codecs = {
        {"h264", {"libx264"}},
        {"hevc", {"libx265"}},
        {"vp9", {"libvpx-vp9"}},
        {"av1", {"libsvtav1", "libaom-av1"}}};
    for (const auto& [codec, encoders] : codecs) {
        ClipWriterOptions options = withCodec(codec);
        options.rate = 25;
        ClipWriter writer(file("clip.mp4"), options);
        Image grey(PictureFormat::Grey16, 64, 64);
        for (int i = 0; i < 64 * 64; ++i)
            reinterpret_cast<uint16_t*>(grey.data())[i] = static_cast<uint16_t>(16 * i);
        writer.writePicture(grey);
        writer.finish();
        EXPECT_EQ(readPictures(file("clip.mp4")).at(0).frame->format,
                  canEncodeTenBits(encoders) ? AV_PIX_FMT_YUV420P10 : AV_PIX_FMT_YUV420P)
            << codec;
    }
}

TEST_F(ClipWriterTest, RowsFromTheBottomUpAndWithGapsAreRead) {
    ClipWriterOptions options = withCodec("ffv1");
    options.rate = 25;
    const Image given = noisePicture(PictureFormat::Rgb8, 4, 30, 20);
    ConstImageView upward = given.view();
    upward.planes[0] += 29 * upward.strides[0];
    upward.strides[0] = -upward.strides[0];
    ClipWriter writer(file("clip.mkv"), options);
    writer.writePicture(upward);
    writer.finish();
    const auto pictures = readPictures(file("clip.mkv"));
    for (int row = 0; row < 30; ++row)
        EXPECT_EQ(pictures.at(0).frame->data[0][row * pictures[0].frame->linesize[0]],
                  given.data()[(29 - row) * given.stride() + 2]);
}

} // namespace
} // namespace tio::ffmpeg
