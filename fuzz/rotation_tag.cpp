// How pictures are to be turned: any text as the "rotate" tag of a stream and as the orientation of
// a photo, any bytes as the display matrix of either. Pictures come out in one of the ways there
// are.

#include "picture/orientation.h"
#include "support/ClipMaker.h"
#include "support/Ffmpeg.h"
#include "support/Mp4Edits.h"
#include "support/TemporaryFolder.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

using namespace tio::ffmpeg;

constexpr int width = 32;
constexpr int height = 16;

void require(bool condition) {
    if (!condition)
        std::abort();
}

const std::string& clip() {
    static const tio::test::TemporaryFolder folder;
    static const std::string path = [] {
        tio::test::ClipPlan plan;
        plan.width = width;
        plan.height = height;
        plan.frameCount = 1;
        const std::string made = folder.file("clip.mp4");
        tio::test::makeClip(made, plan);
        return made;
    }();
    return path;
}

void parse(const std::string& text) {
    try {
        const int turns = detail::parseQuarterTurns(text);
        require(turns >= 0 && turns <= 3);
    } catch (const std::logic_error&) { // no number, or not of quarter turns
    }
}

/// Decodes the picture of a clip, turned as its stream says.
void decode(const std::shared_ptr<InputFormatContext>& input) {
    const int turns = getStreamRotation(input->getStream(0));
    VideoStreamDecoder decoder(input, PixelFormat::RGB);
    const auto size = decoder.getFrameSize();
    const bool onItsSide = turns % 2 != 0;
    require(size[0] == (onItsSide ? width : height) && size[1] == (onItsSide ? height : width));
    const auto picture =
        std::static_pointer_cast<tio::Frame<tio::PixelFormat::RGB>>(decoder.readNextFrame().frame);
    require(picture != nullptr && picture->size[0] == size[0] && picture->size[1] == size[1]);
}

void decodeTagged(const std::string& text) {
    const auto input = std::make_shared<InputFormatContext>(clip());
    av_dict_set(&input->getStream(0)->metadata, "rotate", text.c_str(), 0);
    int shownWidth = 0;
    int shownHeight = 0;
    require(input->getResolutionOfStream(0, shownWidth, shownHeight));
    decode(input);
}

void decodeWithMatrix(const uint8_t* bytes, size_t count) {
    std::array<int32_t, 9> matrix{};
    if (count > 0)
        std::memcpy(matrix.data(), bytes, std::min(count, sizeof matrix));
    tio::test::patchTkhdMatrix(clip(), matrix);
    decode(std::make_shared<InputFormatContext>(clip()));
}

void turnPhoto(const AVFrame& photo) {
    const int orientation = detail::orientationOf(photo);
    require(orientation >= 1 && orientation <= 8);
    tio::Mat<tio::Vec<uint8_t, 3>, 2, tio::MatOptions<1, 1>> stored(tio::Vec<int, 2>(3, 5));
    std::fill_n(stored.data(), stored.count, tio::Vec<uint8_t, 3>(1, 2, 3));
    const auto turned = detail::turnUpright(stored, orientation);
    require(turned.rows() == (orientation >= 5 ? 5 : 3) && turned.count == stored.count);
    for (int i = 0; i < turned.count; ++i)
        require(turned.data()[i][2] == 3);
}

void turnPhotos(const uint8_t* bytes, size_t count, const std::string& text) {
    const tio::test::FramePointer tagged(tio::test::checkFound(av_frame_alloc(), "frame"));
    av_dict_set(&tagged->metadata, "Orientation", text.c_str(), 0);
    turnPhoto(*tagged);
    const tio::test::FramePointer turned(tio::test::checkFound(av_frame_alloc(), "frame"));
    AVFrameSideData* data =
        av_frame_new_side_data(turned.get(), AV_FRAME_DATA_DISPLAYMATRIX,
                               static_cast<decltype(AVFrameSideData::size)>(count));
    require(data != nullptr);
    std::copy_n(bytes, count, data->data);
    turnPhoto(*turned);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
    const std::string text(reinterpret_cast<const char*>(bytes), count);
    parse(text);
    turnPhotos(bytes, count, text);
    decodeTagged(text);
    decodeWithMatrix(bytes, count);
    return 0;
}
