#pragma once

#include <TARN/videoio/H264Helpers.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <utility>
#include <vector>

namespace tio::test {

/// A unit of a stream, or the stream, in bytes.
using Unit = std::vector<unsigned char>;

/// The units of a stream, each with the length of its start code.
inline std::vector<std::pair<size_t, Unit>> unitsOf(const Unit& stream) {
    std::vector<std::pair<size_t, Unit>> units;
    const int count = videolib::helper::extract_all_nals(
        stream.data(), stream.size(),
        [&](size_t codeLength, Unit& unit) { units.emplace_back(codeLength, unit); });
    EXPECT_EQ(count, static_cast<int>(units.size()));
    return units;
}

/// What extradata_to_spspps answers.
struct Sets {
    int result;
    Unit sps;
    Unit pps;
};

/// The sets of some extradata, which lie in a block of exactly their size so that a sanitizer sees
/// a read beyond it. The first byte is looked at in any case.
inline Sets setsOf(const Unit& extradata) {
    const auto exact = std::make_unique<unsigned char[]>(std::max(extradata.size(), size_t{1}));
    std::copy(extradata.begin(), extradata.end(), exact.get());
    unsigned char untouched = 0;
    unsigned char* sps = &untouched;
    unsigned char* pps = &untouched;
    size_t spsSize = 0;
    size_t ppsSize = 0;
    const int result = videolib::extradata_to_spspps(
        exact.get(), static_cast<int>(extradata.size()), &sps, &spsSize, &pps, &ppsSize);
    Sets sets{result, {sps, sps + spsSize}, {pps, pps + ppsSize}};
    EXPECT_TRUE(result == 0 || (sps == nullptr && pps == nullptr));
    EXPECT_NE(sps, &untouched);
    EXPECT_NE(pps, &untouched);
    std::free(sps);
    std::free(pps);
    return sets;
}

} // namespace tio::test
