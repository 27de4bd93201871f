#pragma once

#include "support/Expectations.h"
#include "support/Interception.h"
#include "support/LogCapture.h"
#include "support/Muxing.h"
#include "support/TemporaryFolder.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/OutputFormatContext.h>

#include <cstdint>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace tio::test {

class OutputFormatContextTest : public ::testing::Test {
protected:
    void open(int expectedStreams) {
        context = std::make_shared<ffmpeg::OutputFormatContext>(path);
        for (int i = 0; i < expectedStreams; ++i)
            context->addExpectedStream();
    }

    // Opens the file with these streams. The muxer counts video in 1/90000 s and audio in one over
    // its sample rate, unless a stream has a time base.
    void openWith(const std::vector<Parameters>& streams) {
        open(static_cast<int>(streams.size()));
        for (const auto& parameters : streams)
            context->addStream(parameters.get());
    }

    // Writes a packet whose payload is its mark.
    void write(int stream, uint8_t mark, int64_t pts, int64_t dts) const {
        const auto packet = makePacket({mark}, pts, dts);
        packet->stream_index = stream;
        context->writePacket(*packet);
    }
    void write(int stream, uint8_t mark, int64_t pts) const { write(stream, mark, pts, pts); }

    // Runs `action`, which must throw FFmpeg's text for `code` with the place `number`.
    template <typename Action>
    void expectFailure(int code, int number, Action action) const {
        const std::string expected = ffmpegText(code) + placeText("OutputFormatContext", number);
        EXPECT_EQ(thrownText<ffmpeg::Exception>(action), expected);
        EXPECT_THAT(ownLines(log), ::testing::ElementsAre(IsLogLine("root", 5, expected)));
    }

    [[nodiscard]] bool fileExists() const { return std::filesystem::exists(path); }

    TemporaryFolder folder;
    std::string path = folder.file("out.mp4");
    Interception intercepted;
    LogCapture log;
    std::shared_ptr<ffmpeg::OutputFormatContext> context;
};

} // namespace tio::test
