// Any bytes as an H.264 stream: its start codes and units, put together, are the stream again.

#include <TARN/videoio/H264Helpers.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
    std::vector<uint8_t> rebuilt;
    int calls = 0;
    const int units = tio::videolib::helper::extract_all_nals(
        bytes, count, [&](size_t codeLength, std::vector<unsigned char>& unit) {
            rebuilt.insert(rebuilt.end(), codeLength - 1, 0);
            rebuilt.push_back(1);
            rebuilt.insert(rebuilt.end(), unit.begin(), unit.end());
            ++calls;
        });
    const bool same =
        units == calls && rebuilt.size() <= count &&
        std::equal(rebuilt.rbegin(), rebuilt.rend(), std::make_reverse_iterator(bytes + count));
    if (!same)
        std::abort();
    return 0;
}
