#pragma once

#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/LogCapture.h"
#include "support/TemporaryFolder.h"

#include <TARN/videoio/Exception.h>
#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/InputStream.h>
#include <TARN/videoio/Source.h>

#include <cstdint>
#include <exception>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace tio::test {

using Bytes = std::vector<uint8_t>;

/// What an exception of the library says, and what it holds.
struct Failure {
    std::string text;
    int code = 0;
    std::string nested;
};

template <typename Call>
Failure failureOf(Call&& call) {
    try {
        call();
    } catch (const ffmpeg::Exception& failure) {
        Failure told{failure.what(), failure.code(), {}};
        try {
            std::rethrow_if_nested(failure);
        } catch (const std::exception& nested) {
            told.nested = nested.what();
        } catch (...) {
            told.nested = "something else";
        }
        return told;
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
}

class SourceTest : public ::testing::Test {
protected:
    /// A clip that is far longer than what is read of it when it is opened, also under `path`.
    Bytes clip(const std::string& format = "mpegts") {
        static std::map<std::string, Bytes> made;
        path = folder.file("clip." + format);
        if (made.count(format) == 0)
            made[format] = makeClip(format);
        writeBytes(path, made[format]);
        return made[format];
    }

    [[nodiscard]] Bytes makeClip(const std::string& format) const {
        ClipPlan plan;
        plan.format = format;
        plan.frameCount = 100;
        plan.width = 384;
        plan.height = 256;
        plan.encoderOptions = {{"qp", "1"}};
        test::makeClip(path, plan);
        Bytes bytes = readBytes(path);
        EXPECT_GT(bytes.size(), 100000u) << "or FFmpeg has all of it from the start";
        return bytes;
    }

    ffmpeg::OpenOptions littleProbing() {
        ffmpeg::OpenOptions options;
        options.probeSize = 5000;
        return options;
    }

    /// The payloads of the first stream up to its end.
    static std::vector<Bytes> packetsOf(const ffmpeg::Source& source) {
        ffmpeg::InputStream stream(std::make_shared<ffmpeg::InputFormatContext>(source), 0);
        std::vector<Bytes> packets;
        while (const auto packet = stream.getNextPacket()) {
            int size = 0;
            const unsigned char* data = packet->getData(size);
            packets.emplace_back(data, data + size);
        }
        return packets;
    }

    /// Opens a source and reads it to its end.
    static void readAll(const ffmpeg::Source& source) { packetsOf(source); }

    TemporaryFolder folder;
    LogCapture log;
    std::string path;
};

} // namespace tio::test
