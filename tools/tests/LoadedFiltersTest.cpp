#include "ProgramRun.h"
#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/TemporaryFolder.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace tio::test;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

/// Runs the program where the loader finds a file under each name that libavfilter may have, but no
/// library in it.
class WithoutFilters : public testing::Test {
protected:
    WithoutFilters() {
        for (int major = 1; major < 40; ++major)
            writeBytes(folder.file("libavfilter.so." + std::to_string(major)), {});
        ::setenv("LD_LIBRARY_PATH", folder.path().c_str(), 1);
    }
    ~WithoutFilters() override { ::unsetenv("LD_LIBRARY_PATH"); }

    std::string clip(int rotation) {
        ClipPlan plan;
        plan.rotation = rotation;
        makeClip(folder.file("clip.mp4"), plan);
        return folder.file("clip.mp4");
    }

    TemporaryFolder folder;
};

TEST_F(WithoutFilters, AClipThatNeedsNoTurningIsRead) {
    const ProgramResult result = runProgram({"verify", clip(0)});
    EXPECT_EQ(result.exitCode, 0) << result.err;
}

TEST_F(WithoutFilters, AClipThatHasToBeTurnedIsRefusedWithTheReason) {
    const std::string turned = clip(90);
    const ProgramResult result = runProgram({"verify", turned});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_THAT(result.err,
                StartsWith("tarn-videoio: " + turned + ": Could not load libavfilter: "));
    EXPECT_THAT(result.err, HasSubstr("libavfilter.so."));
}

} // namespace
