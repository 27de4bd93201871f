#include "picture/PictureConverter.h"

#include "base/checks.h"
#include "base/handles.h"
#include "picture/PlanePass.h"

#include <string>
#include <utility>
#include <vector>

namespace tio::ffmpeg::detail {

namespace {

constexpr Places at("PictureConverter");

constexpr ColourTags limited601{AVCOL_SPC_SMPTE170M, false};

AVPixelFormat formatOf(const AVFrame& picture) {
    return static_cast<AVPixelFormat>(picture.format);
}

/// The format that a picture has to be brought to first, because its components are not numbers
/// that stand for its colours; itself where they are.
AVPixelFormat readableFormat(AVPixelFormat format) {
    const uint64_t flags = av_pix_fmt_desc_get(format)->flags;
    const bool deep = av_pix_fmt_desc_get(format)->comp[0].depth > 8;
    switch (format) {
    case AV_PIX_FMT_MONOWHITE:
        return AV_PIX_FMT_GRAY8;
    case AV_PIX_FMT_XYZ12LE:
    case AV_PIX_FMT_XYZ12BE:
        return AV_PIX_FMT_RGB48;
    default:
        break;
    }
    if ((flags & AV_PIX_FMT_FLAG_PAL) != 0)
        return AV_PIX_FMT_RGB24;
    if ((flags & AV_PIX_FMT_FLAG_BAYER) != 0)
        return deep ? AV_PIX_FMT_RGB48 : AV_PIX_FMT_RGB24;
    if ((flags & AV_PIX_FMT_FLAG_FLOAT) != 0)
        return (flags & AV_PIX_FMT_FLAG_RGB) != 0 ? AV_PIX_FMT_GBRP16 : AV_PIX_FMT_GRAY16;
    return format;
}

void requireReadable(const AVFrame& picture) {
    const AVPixFmtDescriptor* format = av_pix_fmt_desc_get(formatOf(picture));
    if (format == nullptr || picture.width < 1 || picture.height < 1 || picture.data[0] == nullptr)
        failAssertion("There is no picture to convert", "picture.data[0]", at(1));
    if ((format->flags & AV_PIX_FMT_FLAG_HWACCEL) != 0)
        failAssertion(std::string("Pictures of the format \"") + format->name +
                          "\" lie outside of memory and cannot be converted",
                      "!hwaccel", at(2));
}

/// What the passes over one kind of picture are made from.
struct Source {
    const AVPixFmtDescriptor& format;
    ColourTags tags;
    int height;
    int width;
    int passHeight; ///< of the target before it is turned
    int passWidth;

    [[nodiscard]] bool isRgb() const { return (format.flags & AV_PIX_FMT_FLAG_RGB) != 0; }
    [[nodiscard]] bool isGrey() const { return !isRgb() && format.nb_components < 3; }
    [[nodiscard]] int depthOf(int component) const { return format.comp[component].depth; }
};

AxisFilter filterFor(int samples, int full, int target, int sourceShift, int targetShift) {
    const double step = static_cast<double>(full) / target;
    const double ownStep = step * (1 << targetShift) / (1 << sourceShift);
    return {samples, AV_CEIL_RSHIFT(target, targetShift), ownStep, step < 1};
}

PlanePass::Input inputFor(const Source& source, int component, int shiftX, int shiftY) {
    ComponentReader reader(source.format, component, source.width, source.height);
    const bool chroma = (component == 1 || component == 2) && source.format.nb_components > 2;
    AxisFilter across = filterFor(reader.columns(), source.width, source.passWidth,
                                  chroma ? source.format.log2_chroma_w : 0, shiftX);
    AxisFilter down = filterFor(reader.rows(), source.height, source.passHeight,
                                chroma ? source.format.log2_chroma_h : 0, shiftY);
    return {std::move(reader), std::move(across), std::move(down)};
}

Affine toRgb(const Source& source) {
    if (!source.isGrey())
        return samplesToRgb(source.tags, {source.depthOf(0), source.depthOf(1), source.depthOf(2)},
                            source.isRgb());
    const auto unit = lumaToUnit(source.tags.fullRange, source.depthOf(0));
    const std::array<double, 4> row = {unit[0], 0, 0, unit[1]};
    return {row, row, row};
}

Affine times(Affine weights, double factor) {
    for (auto& row : weights)
        for (double& weight : row)
            weight *= factor;
    return weights;
}

std::vector<PlanePass::Input> allInputs(const Source& source, int shiftX, int shiftY) {
    const int components = source.isGrey() ? 1 : 3;
    std::vector<PlanePass::Input> inputs;
    inputs.reserve(static_cast<std::size_t>(components));
    for (int component = 0; component < components; ++component)
        inputs.push_back(inputFor(source, component, shiftX, shiftY));
    return inputs;
}

double largestOf(int depth) {
    return (1 << depth) - 1;
}

PlanePass rgbPass(const Source& source, int depth) {
    return PlanePass({allInputs(source, 0, 0), times(toRgb(source), largestOf(depth)), 3, depth});
}

PlanePass greyPass(const Source& source, int depth) {
    if (source.isRgb() || source.tags.matrix == AVCOL_SPC_RGB)
        return PlanePass({allInputs(source, 0, 0),
                          chained(toRgb(source), rgbToSamples({AVCOL_SPC_SMPTE170M, true}, depth)),
                          1, depth});
    const auto unit = lumaToUnit(source.tags.fullRange, source.depthOf(0));
    Affine weights{};
    weights[0] = {unit[0] * largestOf(depth), 0, 0, unit[1] * largestOf(depth)};
    std::vector<PlanePass::Input> inputs;
    inputs.push_back(inputFor(source, 0, 0, 0));
    return PlanePass({std::move(inputs), weights, 1, depth});
}

/// Planes of Y, Cb and Cr.
struct YuvTarget {
    int depth;
    int shiftX; ///< how often the chroma's width is halved
    int shiftY;
    bool chromaTogether;
    bool fullRange; ///< where the source is neither grey nor RGB
};

/// The planes of components `first` to `last` out of RGB or grey.
PlanePass yuvPassOfRgb(const Source& source, const YuvTarget& target, int first, int last) {
    const Affine all = chained(toRgb(source), rgbToSamples(limited601, target.depth));
    Affine weights{};
    for (int i = first; i <= last; ++i)
        weights[static_cast<size_t>(i - first)] = all[static_cast<size_t>(i)];
    const bool chroma = first > 0;
    return PlanePass({allInputs(source, chroma ? target.shiftX : 0, chroma ? target.shiftY : 0),
                      weights, last - first + 1, target.depth});
}

PlanePass yuvPassOfYuv(const Source& source, const YuvTarget& target, int first, int last) {
    Affine weights{};
    std::vector<PlanePass::Input> inputs;
    for (int i = first; i <= last; ++i) {
        const auto unitOf = i == 0 ? lumaToUnit : chromaToUnit;
        const auto from = unitOf(source.tags.fullRange, source.depthOf(i));
        const auto to = unitOf(target.fullRange, target.depth);
        auto& row = weights[static_cast<size_t>(i - first)];
        row[static_cast<size_t>(i - first)] = from[0] / to[0];
        row[3] = (from[1] - to[1]) / to[0];
        inputs.push_back(inputFor(source, i, i > 0 ? target.shiftX : 0, i > 0 ? target.shiftY : 0));
    }
    return PlanePass({std::move(inputs), weights, last - first + 1, target.depth});
}

std::vector<PlanePass> yuvPasses(const Source& source, const YuvTarget& target) {
    const bool ofRgb = source.isRgb() || source.isGrey();
    const auto pass = [&](int first, int last) {
        return ofRgb ? yuvPassOfRgb(source, target, first, last)
                     : yuvPassOfYuv(source, target, first, last);
    };
    std::vector<PlanePass> passes;
    passes.push_back(pass(0, 0));
    if (target.chromaTogether) {
        passes.push_back(pass(1, 2));
    } else {
        passes.push_back(pass(1, 1));
        passes.push_back(pass(2, 2));
    }
    return passes;
}

std::vector<PlanePass> passesFor(const Source& source, PictureFormat format, bool fullRange,
                                 bool onItsSide) {
    const int depth = bitDepth(format);
    std::vector<PlanePass> passes;
    switch (format) {
    case PictureFormat::Rgb8:
    case PictureFormat::Rgb16:
        passes.push_back(rgbPass(source, depth));
        return passes;
    case PictureFormat::Grey8:
    case PictureFormat::Grey16:
        passes.push_back(greyPass(source, depth));
        return passes;
    case PictureFormat::Nv12:
        return yuvPasses(source, {depth, 1, 1, true, fullRange});
    case PictureFormat::Yuv420:
    case PictureFormat::Yuv420P10:
        return yuvPasses(source, {depth, 1, 1, false, fullRange});
    case PictureFormat::Yuv422:
    case PictureFormat::Yuv422P10:
        return yuvPasses(source, {depth, onItsSide ? 0 : 1, onItsSide ? 1 : 0, false, fullRange});
    case PictureFormat::Yuv444:
    case PictureFormat::Yuv444P10:
        return yuvPasses(source, {depth, 0, 0, false, fullRange});
    }
    failPlainly("There is no such picture format");
}

bool isOnItsSide(int way) {
    return way >= 5;
}

} // namespace

/// How pictures of one kind are converted.
struct PictureConverter::Plan {
    int format;
    int height;
    int width;
    ColourTags tags;
    int way;
    AVPixelFormat readable;
    FrameHandle readablePicture; // where the format is another
    SwsContextHandle toReadable;
    std::vector<PlanePass> passes;

    [[nodiscard]] bool serves(const AVFrame& picture, const ColourTags& itsTags, int itsWay) const {
        return format == picture.format && height == picture.height && width == picture.width &&
               tags == itsTags && way == itsWay;
    }

    void prepareReadable() {
        readablePicture.reset(av_frame_alloc());
        if (!readablePicture)
            throw std::bad_alloc();
        readablePicture->format = readable;
        readablePicture->height = height;
        readablePicture->width = width;
        checkResult(av_frame_get_buffer(readablePicture.get(), 0), at(3));
        toReadable.reset(sws_getContext(width, height, static_cast<AVPixelFormat>(format), width,
                                        height, readable, SWS_POINT | SWS_ACCURATE_RND, nullptr,
                                        nullptr, nullptr));
        if (!toReadable)
            failAssertion("Pictures of this format cannot be converted", "toReadable", at(4));
    }

    [[nodiscard]] const AVFrame& readableOf(const AVFrame& picture) {
        if (!readablePicture)
            return picture;
        sws_scale(toReadable.get(), picture.data, picture.linesize, 0, height,
                  readablePicture->data, readablePicture->linesize);
        return *readablePicture;
    }
};

PictureConverter::PictureConverter(const Target& wanted) : target(wanted) {
    static_cast<void>(planeCount(target.format)); // throws for one that does not exist
    const bool asItIs = target.height == 0 && target.width == 0;
    if (!asItIs && (target.height == 0 || target.width == 0))
        failPlainly("A size needs both a height and a width, or neither: it cannot be " +
                    std::to_string(target.width) + " x " + std::to_string(target.height));
    if (!asItIs && (target.height < 1 || target.width < 1))
        failPlainly("A picture cannot be " + std::to_string(target.width) + " x " +
                    std::to_string(target.height));
}

PictureConverter::~PictureConverter() = default;

int PictureConverter::heightFor(const AVFrame& picture, int way) const noexcept {
    if (target.height > 0)
        return target.height;
    return isOnItsSide(way) ? picture.width : picture.height;
}

int PictureConverter::widthFor(const AVFrame& picture, int way) const noexcept {
    if (target.width > 0)
        return target.width;
    return isOnItsSide(way) ? picture.height : picture.width;
}

void PictureConverter::planFor(const AVFrame& picture, int way) {
    const ColourTags tags = coloursOf(picture, target.colours);
    if (plan && plan->serves(picture, tags, way))
        return;
    auto made = std::make_unique<Plan>();
    made->format = picture.format;
    made->height = picture.height;
    made->width = picture.width;
    made->tags = tags;
    made->way = way;
    made->readable = readableFormat(formatOf(picture));
    if (made->readable != formatOf(picture))
        made->prepareReadable();
    const AVPixFmtDescriptor& format = *av_pix_fmt_desc_get(made->readable);
    const int height = heightFor(picture, way);
    const int width = widthFor(picture, way);
    const bool side = isOnItsSide(way);
    const Source source{
        format,
        made->readable == formatOf(picture) ? tags : untaggedColours(format, made->readable),
        picture.height,
        picture.width,
        side ? width : height,
        side ? height : width};
    const bool fullRange = target.colours == Colours::Tagged && source.tags.fullRange;
    made->passes = passesFor(source, target.format, fullRange, side);
    plan = std::move(made);
}

Image PictureConverter::convert(const AVFrame& picture, int way) {
    requireReadable(picture);
    Image image(target.format, heightFor(picture, way), widthFor(picture, way));
    convert(picture, way, image.view());
    return image;
}

void PictureConverter::convert(const AVFrame& picture, int way, const ImageView& image) {
    requireReadable(picture);
    requireFitting(image, heightFor(picture, way), widthFor(picture, way));
    planFor(picture, way);
    const AVFrame& readable = plan->readableOf(picture);
    for (size_t plane = 0; plane < plan->passes.size(); ++plane)
        plan->passes[plane].run(readable, {image.planes[plane], image.strides[plane], way});
}

void PictureConverter::requireFitting(const ImageView& image, int height, int width) const {
    if (image.format != target.format || image.height != height || image.width != width)
        failPlainly("The memory given is not for a picture of " + std::to_string(width) + " x " +
                    std::to_string(height) + " in the format asked for");
    for (int plane = 0; plane < planeCount(target.format); ++plane) {
        const auto number = static_cast<size_t>(plane);
        const PlaneSize size = planeSize(target.format, height, width, plane);
        const std::ptrdiff_t stride = image.strides[number];
        if (image.planes[number] == nullptr)
            failPlainly("The memory given has no plane " + std::to_string(plane));
        if (size.rows > 1 && (stride < 0 ? -stride : stride) < size.rowBytes)
            failPlainly("Rows of " + std::to_string(stride) + " bytes do not hold a picture of " +
                        std::to_string(width) + " pixels");
        const bool odd =
            (reinterpret_cast<uintptr_t>(image.planes[number]) | static_cast<uintptr_t>(stride)) %
                2 !=
            0;
        if (bitDepth(target.format) > 8 && odd)
            failPlainly("Samples of 16 bits cannot lie at an odd address");
    }
}

} // namespace tio::ffmpeg::detail
