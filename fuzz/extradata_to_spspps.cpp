// Any bytes as a codec's extradata: what comes out is a copy of its own that starts with a start
// code and a unit of the right type.

#include <TARN/videoio/H264Helpers.h>

#include <cstdint>
#include <cstdlib>

namespace {

void check(const unsigned char* set, size_t size, int type) {
    if (set == nullptr)
        return;
    const size_t code = size > 3 && set[2] == 1 ? 3 : 4;
    if (size <= code || set[code - 1] != 1 || (set[code] & 0x1F) != type)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
    unsigned char* sps = nullptr;
    unsigned char* pps = nullptr;
    size_t spsSize = 0;
    size_t ppsSize = 0;
    const uint8_t none = 0; // the first byte is looked at even of nothing
    const int result = tio::videolib::extradata_to_spspps(
        count == 0 ? &none : bytes, static_cast<int>(count), &sps, &spsSize, &pps, &ppsSize);
    check(sps, spsSize, 7);
    check(pps, ppsSize, 8);
    if (result != 0 && (sps != nullptr || pps != nullptr))
        std::abort();
    std::free(sps);
    std::free(pps);
    return 0;
}
