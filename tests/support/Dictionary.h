#pragma once

#include "support/Track.h"

extern "C" {
#include <libavutil/dict.h>
}

#include <stdexcept>
#include <string>

namespace tio::test {

/// An FFmpeg dictionary made of options. FFmpeg takes out what it knows; `checkAllTaken` then
/// turns a misspelt option into an error instead of a clip that is not what the test asked for.
class Dictionary {
public:
    explicit Dictionary(const Options& options) {
        for (const auto& [name, value] : options)
            av_dict_set(&entries, name.c_str(), value.c_str(), 0);
    }
    ~Dictionary() { av_dict_free(&entries); }
    Dictionary(const Dictionary&) = delete;
    Dictionary& operator=(const Dictionary&) = delete;

    [[nodiscard]] AVDictionary** get() noexcept { return &entries; }

    void checkAllTaken(const std::string& by) const {
        if (const auto* left = av_dict_get(entries, "", nullptr, AV_DICT_IGNORE_SUFFIX))
            throw std::runtime_error("test media: " + by + " knows no option " + left->key);
    }

    /// Gives the entries away, as a stream's metadata for example.
    [[nodiscard]] AVDictionary* release() noexcept {
        AVDictionary* given = entries;
        entries = nullptr;
        return given;
    }

private:
    AVDictionary* entries = nullptr;
};

} // namespace tio::test
