#pragma once

#include "support/Interception.h"
#include "support/LogCapture.h"
#include "support/TemporaryFolder.h"

#include <TARN/videoio/OutputFormatContext.h>

#include <gtest/gtest.h>
#include <memory>
#include <string>

/// @file
/// The base of fixtures that write one file through streams.

namespace tio::test {

class WritingTest : public ::testing::Test {
protected:
    WritingTest() { ::testing::GTEST_FLAG(death_test_style) = "threadsafe"; }

    void open() { context = std::make_shared<ffmpeg::OutputFormatContext>(path); }

    /// What is logged when a file goes without these packets.
    [[nodiscard]] std::string lossOf(int count) const {
        return std::to_string(count) + " packets could not be written to \"" + path + "\"";
    }

    TemporaryFolder folder;
    std::string path = folder.file("out.mp4");
    std::string badPath = folder.file("no such folder/out.mp4");
    Interception intercepted;
    LogCapture log;
    std::shared_ptr<ffmpeg::OutputFormatContext> context;
};

} // namespace tio::test
