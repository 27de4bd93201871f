#pragma once

#include "support/ClipMaker.h"
#include "support/LogCapture.h"
#include "support/ReaderClips.h"
#include "support/ReaderPictures.h"
#include "support/TemporaryFolder.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace tio::test {

class FrameReaderTest : public testing::Test {
protected:
    ffmpeg::FrameReader& open(const ClipPlan& plan, ffmpeg::FrameReaderOptions options = {}) {
        makeClip(clip, plan);
        return openAgain(std::move(options));
    }

    ffmpeg::FrameReader& openAgain(ffmpeg::FrameReaderOptions options = {}) {
        reader = openReader(clip, std::move(options));
        return *reader;
    }

    /// Makes the clip of that name.
    void make(const std::string& name) {
        for (const auto& made : readerClips())
            if (made.name == name)
                made.make(clip);
    }

    /// The numbers drawn into the pictures that readFrames() hands over.
    std::vector<int> numbersOf(const std::vector<int64_t>& frames) {
        std::vector<int> numbers;
        reader->readFrames(frames, [&](const ffmpeg::FrameReader::Picture& picture) {
            numbers.push_back(numberIn(picture));
            return true;
        });
        return numbers;
    }

    static ClipPlan longGroups() {
        ClipPlan plan;
        plan.frameCount = 100;
        plan.gopSize = 50;
        return plan;
    }

    LogCapture log;
    TemporaryFolder folder;
    std::string clip = folder.file("clip");
    std::unique_ptr<ffmpeg::FrameReader> reader;
};

} // namespace tio::test
