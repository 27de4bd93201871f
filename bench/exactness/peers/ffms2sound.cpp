// Ranges of sound through FFMS2, compared with what they should be:
//   ffms2sound NAME CLIP DECODED SECONDS
// DECODED is without ".f32" and ".ranges", as tarn_sound_exactness leaves them. No order takes
// longer than SECONDS.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ffms.h>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

namespace {

struct Range {
    int64_t first;
    int64_t count;
};

struct Truth {
    explicit Truth(const std::string& base) {
        std::ifstream ranges(base + ".ranges");
        ranges >> rate >> channels;
        std::string order;
        for (Range range{}; ranges >> order >> range.first >> range.count;)
            orders[order].push_back(range);
        std::ifstream file(base + ".f32", std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(file)), {});
        samples.resize(bytes.size() / sizeof(float));
        std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(float));
    }

    int rate = 0;
    int channels = 1;
    std::map<std::string, std::vector<Range>> orders;
    std::vector<float> samples;
};

template <typename T>
T numberAt(const uint8_t* bytes, size_t at) {
    T number;
    std::memcpy(&number, bytes + at * sizeof(T), sizeof(T));
    return number;
}

float valueAt(const uint8_t* bytes, size_t at, int format) {
    switch (format) {
    case FFMS_FMT_U8:
        return static_cast<float>(bytes[at] - 128) / 128;
    case FFMS_FMT_S16:
        return static_cast<float>(numberAt<int16_t>(bytes, at)) / 32768;
    case FFMS_FMT_S32:
        return static_cast<float>(numberAt<int32_t>(bytes, at)) / 2147483648.0F;
    case FFMS_FMT_FLT:
        return numberAt<float>(bytes, at);
    default:
        return static_cast<float>(numberAt<double>(bytes, at));
    }
}

struct Tally {
    int asked = 0;
    int wrong = 0;
    int failed = 0;
    long long samples = 0;
    double largest = 0;
};

void judge(const Truth& truth, const Range& range, const uint8_t* got, int format, Tally& tally) {
    const auto channels = static_cast<size_t>(truth.channels);
    long long differing = 0;
    for (size_t sample = 0; sample < static_cast<size_t>(range.count); ++sample) {
        bool same = true;
        for (size_t channel = 0; channel < channels; ++channel) {
            const float given = valueAt(got, sample * channels + channel, format);
            const float wanted =
                truth.samples[(static_cast<size_t>(range.first) + sample) * channels + channel];
            if (std::memcmp(&given, &wanted, sizeof given) == 0)
                continue;
            same = false;
            tally.largest = std::max(tally.largest, std::abs(double{given} - double{wanted}));
        }
        differing += same ? 0 : 1;
    }
    tally.samples += differing;
    tally.wrong += differing > 0 ? 1 : 0;
}

FFMS_AudioSource* open(const char* clip, FFMS_ErrorInfo& error) {
    FFMS_Indexer* indexer = FFMS_CreateIndexer(clip, &error);
    if (indexer == nullptr)
        return nullptr;
    FFMS_TrackTypeIndexSettings(indexer, FFMS_TYPE_AUDIO, 1, 0);
    FFMS_Index* index = FFMS_DoIndexing2(indexer, FFMS_IEH_IGNORE, &error);
    const int track =
        index != nullptr ? FFMS_GetFirstTrackOfType(index, FFMS_TYPE_AUDIO, &error) : -1;
    return track >= 0 ? FFMS_CreateAudioSource(clip, track, index, FFMS_DELAY_NO_SHIFT, &error)
                      : nullptr;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 5)
        return 2;
    const Truth truth(argv[3]);
    FFMS_Init(0, 0);
    FFMS_SetLogLevel(FFMS_LOG_QUIET);
    char text[1024] = {};
    FFMS_ErrorInfo error{};
    error.Buffer = text;
    error.BufferSize = sizeof text;
    FFMS_AudioSource* audio = open(argv[2], error);
    const size_t count = truth.samples.size() / static_cast<size_t>(truth.channels);
    const FFMS_AudioProperties* sound = audio != nullptr ? FFMS_GetAudioProperties(audio) : nullptr;
    if (sound == nullptr || sound->Channels != truth.channels) {
        std::printf("%s,ffms2,none,%zu,0,0,0,0,0,0,refused\n", argv[1], count);
        return 0;
    }
    std::vector<uint8_t> got;
    for (const auto& [order, ranges] : truth.orders) {
        Tally tally;
        const auto begin = std::chrono::steady_clock::now();
        const auto took = [&] {
            return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
        };
        for (const Range& range : ranges) {
            if (took() > std::atof(argv[4]))
                break;
            ++tally.asked;
            got.assign(static_cast<size_t>(range.count * truth.channels) * 8, 0);
            if (FFMS_GetAudio(audio, got.data(), range.first, range.count, &error) != 0)
                ++tally.failed;
            else
                judge(truth, range, got.data(), sound->SampleFormat, tally);
        }
        std::printf("%s,ffms2,%s,%zu,%d,%d,%d,%lld,%g,%g,\n", argv[1], order.c_str(), count,
                    tally.asked, tally.wrong, tally.failed, tally.samples, tally.largest, took());
    }
    FFMS_DestroyAudioSource(audio);
}
