#include "base/vocabulary.h"
#include "support/ClipMaker.h"
#include "support/Expectations.h"
#include "support/LogCapture.h"
#include "support/TemporaryFolder.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/Types.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::IsLogLine;
using test::thrownText;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

template <typename Enumeration>
constexpr bool isPassedAs32Bits = std::is_same_v<std::underlying_type_t<Enumeration>, int32_t> &&
                                  !std::is_convertible_v<Enumeration, int>;

static_assert(isPassedAs32Bits<Codec> && isPassedAs32Bits<Container> &&
              isPassedAs32Bits<PixelFormat> && isPassedAs32Bits<ImageFileType> &&
              isPassedAs32Bits<StreamType>);

template <typename Enumeration>
int value(Enumeration enumerator) {
    return static_cast<int>(enumerator);
}

TEST(TypesTest, CodecsKeepTheirNumbers) {
    EXPECT_EQ(value(Codec::Unknown), 0);
    EXPECT_EQ(value(Codec::H264), 1);
    EXPECT_EQ(value(Codec::Aac), 2);
}

TEST(TypesTest, ContainersKeepTheirNumbers) {
    EXPECT_EQ(value(Container::Unknown), 0);
    EXPECT_EQ(value(Container::Mp4), 1);
    EXPECT_EQ(value(Container::MpegTs), 2);
}

TEST(TypesTest, PixelFormatsKeepTheirNumbers) {
    EXPECT_EQ(value(PixelFormat::Default), 0);
    EXPECT_EQ(value(PixelFormat::RGB), 1);
    EXPECT_EQ(value(PixelFormat::NV12), 2);
}

TEST(TypesTest, ImageFileTypesKeepTheirNumbers) {
    EXPECT_EQ(value(ImageFileType::Auto), 0);
    EXPECT_EQ(value(ImageFileType::Jpeg), 1);
    EXPECT_EQ(value(ImageFileType::Png), 2);
    EXPECT_EQ(value(ImageFileType::Ppm), 3);
}

TEST(TypesTest, StreamTypesKeepTheirNumbers) {
    EXPECT_EQ(value(StreamType::Unknown), 0);
    EXPECT_EQ(value(StreamType::Video), 1);
    EXPECT_EQ(value(StreamType::Audio), 2);
    EXPECT_EQ(value(StreamType::Subtitle), 3);
    EXPECT_EQ(value(StreamType::Data), 4);
    EXPECT_EQ(value(StreamType::Attachment), 5);
}

TEST(TypesTest, FourExtensionsAreKnown) {
    EXPECT_THAT(typeExtensionMap,
                ElementsAre(Pair(".jpeg", ImageFileType::Jpeg), Pair(".jpg", ImageFileType::Jpeg),
                            Pair(".png", ImageFileType::Png), Pair(".ppm", ImageFileType::Ppm)));
}

TEST(TypesTest, TakesTheTypeOfAnImageFromItsExtensionInAnyCase) {
    const std::vector<std::pair<std::string, ImageFileType>> table = {
        {"photo.JPEG", ImageFileType::Jpeg},    {"photo.jpg", ImageFileType::Jpeg},
        {"photo.Png", ImageFileType::Png},      {"/a/b.c/photo.pPM", ImageFileType::Ppm},
        {"photo.png.jpg", ImageFileType::Jpeg}, {".png", ImageFileType::Png}};
    const test::LogCapture log;
    for (const auto& [path, type] : table)
        EXPECT_EQ(getImageFileType(path), type) << path;
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(TypesTest, NamesTheExtensionThatItDoesNotKnow) {
    const std::vector<std::pair<std::string, std::string>> table = {
        {"photo.jpe", ".jpe"},           // nearly one
        {"photo.JPE", ".jpe"},           // told in lower case
        {"archive.d/photo", ".d/photo"}, // the last dot of the whole path
        {"photo.", "."},
        {"photo.jpg ", ".jpg "},
        {"photo.\xC4\xFF", ".\xC4\xFF"}}; // bytes beyond ASCII
    const test::LogCapture log;           // off the screen
    for (const auto& [path, extension] : table)
        EXPECT_EQ(thrownText<tio::Exception>([path = path] { (void)getImageFileType(path); }),
                  "Unknown image file type extension: " + extension);
}

TEST(TypesTest, LogsAnUnknownExtensionWithItsPlaceAndTheCheck) {
    const test::LogCapture log;
    EXPECT_THROW((void)getImageFileType("photo.JPE"), tio::Exception);
    EXPECT_THAT(
        log.lines(),
        ElementsAre(
            IsLogLine("root", 4,
                      R"(Unknown image file type extension: .jpe @ ..\src\TARN\videoio\Types:34)"),
            IsLogLine("root", 4,
                      "Assertion failed: tio::ffmpeg::typeExtensionMap.count(extension)")));
}

TEST(TypesTest, APathWithoutADotIsOutOfRangeAndNotLogged) {
    const test::LogCapture log;
    for (const char* path : {"", "photo", "folder/photo"})
        EXPECT_EQ(thrownText<std::out_of_range>([path] { (void)getImageFileType(path); }),
                  "invalid string position")
            << path;
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(VocabularyTest, TellsH264AndAacFromAllOtherCodecs) {
    EXPECT_EQ(detail::codecFromId(AV_CODEC_ID_H264), Codec::H264);
    EXPECT_EQ(detail::codecFromId(AV_CODEC_ID_AAC), Codec::Aac);
    for (const AVCodecID id :
         {AV_CODEC_ID_NONE, AV_CODEC_ID_HEVC, AV_CODEC_ID_AAC_LATM, AV_CODEC_ID_MP3})
        EXPECT_EQ(detail::codecFromId(id), Codec::Unknown) << avcodec_get_name(id);
}

TEST(VocabularyTest, LooksForWholeNamesInADemuxersList) {
    EXPECT_EQ(detail::containerFromName("mov,mp4,m4a,3gp,3g2,mj2"), Container::Mp4);
    EXPECT_EQ(detail::containerFromName("mp4"), Container::Mp4);
    EXPECT_EQ(detail::containerFromName("mov,mp4"), Container::Mp4);
    EXPECT_EQ(detail::containerFromName("mpegts"), Container::MpegTs);
    EXPECT_EQ(detail::containerFromName("mpegts,mp4"), Container::Mp4) << "mp4 goes first";
    for (const char* names : {"", ",", "mpegtsraw", "mp4a,xmp4", "matroska,webm", "MP4", "mp4 "})
        EXPECT_EQ(detail::containerFromName(names), Container::Unknown) << names;
}

TEST(VocabularyTest, NamesEveryKindOfStream) {
    EXPECT_EQ(detail::streamTypeFrom(AVMEDIA_TYPE_VIDEO), StreamType::Video);
    EXPECT_EQ(detail::streamTypeFrom(AVMEDIA_TYPE_AUDIO), StreamType::Audio);
    EXPECT_EQ(detail::streamTypeFrom(AVMEDIA_TYPE_SUBTITLE), StreamType::Subtitle);
    EXPECT_EQ(detail::streamTypeFrom(AVMEDIA_TYPE_DATA), StreamType::Data);
    EXPECT_EQ(detail::streamTypeFrom(AVMEDIA_TYPE_ATTACHMENT), StreamType::Attachment);
    EXPECT_EQ(detail::streamTypeFrom(AVMEDIA_TYPE_UNKNOWN), StreamType::Unknown);
}

TEST(VocabularyTest, AQuickTimeFileCountsAsMp4) {
    const test::TemporaryFolder folder;
    const std::string path = folder.file("clip.mov");
    test::ClipPlan plan;
    plan.format = "mov";
    plan.frameCount = 2;
    test::makeClip(path, plan);
    EXPECT_EQ(InputFormatContext(path).getContainerFormat(), Container::Mp4);
}

} // namespace
} // namespace tio::ffmpeg
