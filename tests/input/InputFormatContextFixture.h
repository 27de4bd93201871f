#pragma once

#include "support/ClipMaker.h"
#include "support/Encoding.h"
#include "support/Interception.h"
#include "support/LogCapture.h"
#include "support/TemporaryFolder.h"

#include <TARN/videoio/Exception.h>
#include <TARN/videoio/InputFormatContext.h>

#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <system_error>

namespace tio::test {

inline std::string placeOf(int number) {
    return R"( @ ..\src\TARN\videoio\InputFormatContext:)" + std::to_string(number);
}

class InputFormatContextTest : public ::testing::Test {
protected:
    std::string clip(const std::string& name, ClipPlan plan = {}) {
        const std::string path = folder.file(name);
        plan.frameCount = 3;
        makeClip(path, plan);
        return path;
    }

    std::string clipIn(const std::string& format) {
        ClipPlan plan;
        plan.format = format;
        return clip("clip." + format, plan);
    }

    std::string clipWithSound() {
        ClipPlan plan;
        plan.audio = true;
        return clip("sound.mp4", plan);
    }

    std::string soundAlone() {
        const std::string path = folder.file("tone.mp4");
        writePackets(path, "mp4", {encodeTone(0.1, true)});
        return path;
    }

    // Answers what avformat_open_input was asked for, without opening anything.
    std::map<std::string, std::string> optionsFor(const std::string& url) {
        std::map<std::string, std::string> options;
        intercepted->avformat_open_input.instead = [&](AVFormatContext**, const char*,
                                                       AVDictionary** given) {
            const AVDictionaryEntry* entry = nullptr;
            while ((entry = av_dict_get(*given, "", entry, AV_DICT_IGNORE_SUFFIX)) != nullptr)
                options.emplace(entry->key, entry->value);
            return AVERROR_EOF;
        };
        EXPECT_THROW(ffmpeg::InputFormatContext{url}, tio::ffmpeg::Exception);
        intercepted->avformat_open_input.instead = nullptr;
        return options;
    }

    TemporaryFolder folder;
    Interception intercepted;
    LogCapture log;
};

inline int openDescriptorsOf(const std::string& path) {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error; // the descriptor of this very listing
        if (std::filesystem::read_symlink(entry, error) == path)
            ++count;
    }
    return count;
}

} // namespace tio::test
