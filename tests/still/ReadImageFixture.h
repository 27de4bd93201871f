#pragma once

#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/LogCapture.h"
#include "support/StillImages.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <string>

namespace tio::test {

/// A motion JPEG clip, whose pictures decode without what a container says about them.
inline ClipPlan motionJpeg() {
    ClipPlan plan;
    plan.format = "mov";
    plan.encoder = "mjpeg";
    plan.pixelFormat = "yuvj420p";
    plan.maxBFrames = 0;
    plan.frameCount = 1;
    return plan;
}

class ReadImageTest : public ::testing::Test {
protected:
    std::string make(const std::string& name, const ImagePlan& plan) {
        makeImage(folder.file(name), plan);
        return folder.file(name);
    }

    std::string write(const std::string& name, const std::string& bytes) {
        writeBytes(folder.file(name), {bytes.begin(), bytes.end()});
        return folder.file(name);
    }

    /// A clip under the name of an image, to be turned clockwise by so many degrees.
    std::string makeTurned(int rotation) {
        ClipPlan plan = motionJpeg();
        plan.rotation = rotation;
        makeClip(folder.file("turned.jpg"), plan);
        return folder.file("turned.jpg");
    }

    TemporaryFolder folder;
    LogCapture log;
};

inline ImagePlan planOf(const char* encoder, const char* pixelFormat, int width = 33,
                        int height = 21) {
    ImagePlan plan;
    plan.encoder = encoder;
    plan.pixelFormat = pixelFormat;
    plan.width = width;
    plan.height = height;
    return plan;
}

} // namespace tio::test
