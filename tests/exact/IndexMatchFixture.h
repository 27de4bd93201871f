#pragma once

#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/LogCapture.h"
#include "support/ScriptedStream.h"
#include "support/TemporaryFolder.h"

#include <TARN/videoio/FrameIndex.h>
#include <TARN/videoio/FrameReader.h>

#include <cstddef>
#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace tio::test {

/// A clip, and what it takes to give it from elsewhere.
class IndexMatchTest : public ::testing::Test {
protected:
    void SetUp() override { makeClip(clip, {}); }

    ffmpeg::FrameIndex build() { return ffmpeg::FrameIndex::build(ffmpeg::Source(clip)); }

    /// Makes it longer by a box that players skip, filled with bytes that seem random.
    void enlargeTo(size_t size) {
        std::vector<uint8_t> bytes = readBytes(clip);
        const size_t box = size - bytes.size();
        for (const int shift : {24, 16, 8, 0})
            bytes.push_back(static_cast<uint8_t>(box >> shift));
        for (const char letter : {'f', 'r', 'e', 'e'})
            bytes.push_back(static_cast<uint8_t>(letter));
        for (uint32_t state = 1; bytes.size() < size; state = state * 1664525 + 1013904223)
            bytes.push_back(static_cast<uint8_t>(state >> 24));
        writeBytes(clip, bytes);
    }

    /// A source of streams that do not know their size.
    static ffmpeg::Source unsized(const std::vector<uint8_t>& bytes) {
        ScriptedStream::Script script;
        script.bytes = bytes;
        script.size = [](int64_t) { return ffmpeg::ByteStream::unknownSize; };
        return scriptedSource(script);
    }

    static ffmpeg::Source streamed(const std::vector<uint8_t>& bytes) {
        ScriptedStream::Script script;
        script.bytes = bytes;
        return scriptedSource(script);
    }

    ffmpeg::FrameReader open(const ffmpeg::Source& source, const ffmpeg::FrameIndex& index) {
        ffmpeg::FrameReaderOptions options;
        options.index = index;
        return ffmpeg::FrameReader(source, options);
    }

    LogCapture log;
    TemporaryFolder folder;
    std::string clip = folder.file("clip.mp4");
};

} // namespace tio::test
