#pragma once

#include "ffmpeg_compat.h"

#include <new>

namespace tio::ffmpeg::detail {

/// Owns an options dictionary of FFmpeg, which changes its address with every change.
class Options {
public:
    explicit Options(AVDictionary* taken = nullptr) : dictionary(taken) {}
    Options(const Options&) = delete;
    Options& operator=(const Options&) = delete;
    ~Options() { av_dict_free(&dictionary); }

    void set(const char* key, const char* value) {
        if (av_dict_set(&dictionary, key, value, 0) < 0)
            throw std::bad_alloc();
    }

    [[nodiscard]] const AVDictionaryEntry* find(const char* key) const {
        return av_dict_get(dictionary, key, nullptr, 0);
    }

    /// For calls that take entries out.
    [[nodiscard]] AVDictionary** address() { return &dictionary; }

    /// For calls that take the dictionary over.
    [[nodiscard]] AVDictionary* release() {
        AVDictionary* released = dictionary;
        dictionary = nullptr;
        return released;
    }

private:
    AVDictionary* dictionary;
};

} // namespace tio::ffmpeg::detail
