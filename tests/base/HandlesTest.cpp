#include "base/handles.h"

#include "support/BareObjects.h"

#include <gtest/gtest.h>
#include <type_traits>

namespace tio::ffmpeg::detail {
namespace {

// A handle costs as much as a plain pointer and never throws when it lets go.
template <typename Handle>
constexpr bool isPlainOwner = sizeof(Handle) == sizeof(void*) &&
                              !std::is_copy_constructible_v<Handle> &&
                              std::is_nothrow_invocable_v<const Release&, typename Handle::pointer>;

static_assert(isPlainOwner<CodecContextHandle> && isPlainOwner<CodecParametersHandle> &&
              isPlainOwner<FilterGraphHandle> && isPlainOwner<FilterInOutHandle> &&
              isPlainOwner<InputContextHandle> && isPlainOwner<FrameHandle> &&
              isPlainOwner<PacketHandle> && isPlainOwner<SwsContextHandle>);

// What a handle owned is gone when the test holds the last reference to a part of it.
class HandlesTest : public ::testing::Test {
protected:
    test::Counted part;
};

TEST_F(HandlesTest, ReleasesAPacketWithItsData) {
    PacketHandle packet(av_packet_alloc());
    packet->buf = part.share();
    EXPECT_EQ(part.holders(), 2);
    packet.reset();
    EXPECT_EQ(part.holders(), 1);
}

TEST_F(HandlesTest, ReleasesAFrameWithItsPicture) {
    FrameHandle frame(av_frame_alloc());
    frame->buf[0] = part.share();
    EXPECT_EQ(part.holders(), 2);
    frame.reset();
    EXPECT_EQ(part.holders(), 1);
}

TEST_F(HandlesTest, ReleasesACodecContextWithWhatItRefersTo) {
    CodecContextHandle codec(avcodec_alloc_context3(nullptr));
    codec->hw_device_ctx = part.share();
    EXPECT_EQ(part.holders(), 2);
    codec.reset();
    EXPECT_EQ(part.holders(), 1);
}

TEST_F(HandlesTest, ReleasesAFilterGraphWithItsFilters) {
    FilterGraphHandle graph(avfilter_graph_alloc());
    AVFilterContext* filter =
        avfilter_graph_alloc_filter(graph.get(), avfilter_get_by_name("null"), "name");
    ASSERT_NE(filter, nullptr);
    filter->hw_device_ctx = part.share();
    EXPECT_EQ(part.holders(), 2);
    graph.reset();
    EXPECT_EQ(part.holders(), 1);
}

// FFmpeg shows nothing of the two below from outside: the leak checker of the sanitizer build does.
TEST_F(HandlesTest, ReleasesAListOfFilterEndsToItsLastMember) {
    FilterInOutHandle list(avfilter_inout_alloc());
    ASSERT_NE(list, nullptr);
    list->name = av_strdup("in");
    list->next = avfilter_inout_alloc();
    ASSERT_NE(list->next, nullptr);
    list->next->name = av_strdup("out");
}

TEST_F(HandlesTest, ReleasesAScaler) {
    const SwsContextHandle scaler(sws_getContext(16, 16, AV_PIX_FMT_YUV420P, 16, 16,
                                                 AV_PIX_FMT_RGB24, SWS_BICUBIC, nullptr, nullptr,
                                                 nullptr));
    EXPECT_NE(scaler, nullptr);
}

TEST_F(HandlesTest, ReleasingNothingDoesNothing) {
    const Release release;
    EXPECT_NO_FATAL_FAILURE(release(static_cast<AVCodecContext*>(nullptr)));
    EXPECT_NO_FATAL_FAILURE(release(static_cast<AVFilterGraph*>(nullptr)));
    EXPECT_NO_FATAL_FAILURE(release(static_cast<AVFilterInOut*>(nullptr)));
    EXPECT_NO_FATAL_FAILURE(release(static_cast<AVFrame*>(nullptr)));
    EXPECT_NO_FATAL_FAILURE(release(static_cast<AVPacket*>(nullptr)));
    EXPECT_NO_FATAL_FAILURE(release(static_cast<SwsContext*>(nullptr)));
}

} // namespace
} // namespace tio::ffmpeg::detail
