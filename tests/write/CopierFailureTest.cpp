#include "ClipCopierFixture.h"
#include "support/ByteEdits.h"
#include "support/ScriptedStream.h"

#include <TARN/videoio/ClipCopier.h>

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>

namespace tio::ffmpeg {
namespace {

using test::ClipCopierTest;
using test::ClipPlan;
using test::Seen;
using test::seenIn;
using ::testing::HasSubstr;

TEST_F(ClipCopierTest, ASourceThatBreaksOffLeavesItsBeginningIfAsked) {
    ClipPlan plan;
    plan.format = "mpegts";
    plan.frameCount = 500; // FFmpeg looks at five seconds before it gives packets
    make("source.ts", plan);
    test::ScriptedStream::Script script;
    script.bytes = test::readBytes(file("source.ts"));
    const auto half = static_cast<int64_t>(script.bytes.size() / 2);
    script.size = [](int64_t /*honest*/) { return ByteStream::unknownSize; };
    script.read = [half](int64_t position, int64_t /*count*/, int64_t honest) {
        if (position >= half)
            throw std::runtime_error("the line is dead");
        return std::min(honest, half - position);
    };
    EXPECT_THROW(ClipCopier(test::scriptedSource(script), file("copy.mp4")).run(), tio::Exception);
    EXPECT_EQ(filesLeft(), 1);
    ClipCopierOptions options;
    options.keepBeginning = true;
    const CopiedClip copied =
        ClipCopier(test::scriptedSource(script), file("copy.mp4"), options).run();
    EXPECT_THAT(copied.failure, HasSubstr("the line is dead"));
    const Seen all = seenIn(file("source.ts"));
    const Seen part = seenIn(file("copy.mp4"));
    ASSERT_GT(part.hashes.size(), 5U);
    ASSERT_LT(part.hashes.size(), all.hashes.size());
    for (std::size_t i = 0; i + 3 < part.hashes.size(); ++i) // the last packet is cut
        EXPECT_EQ(part.hashes[i], all.hashes[i]) << i;

    script.read = [](int64_t position, int64_t /*count*/, int64_t honest) -> int64_t {
        if (position > 0 && honest > 0)
            throw std::runtime_error("the line is dead");
        return std::min<int64_t>(honest, 1);
    };
    EXPECT_THROW(ClipCopier(test::scriptedSource(script), file("nothing.mp4"), options).run(),
                 tio::Exception);
    EXPECT_EQ(filesLeft(), 2);
}

} // namespace
} // namespace tio::ffmpeg
