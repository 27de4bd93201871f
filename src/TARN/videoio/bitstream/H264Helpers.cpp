#include "bitstream/nalUnits.h"

#include <TARN/videoio/H264Helpers.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <new>

namespace tio::videolib {

namespace {

constexpr int slice = 1;
constexpr int keySlice = 5;
constexpr int sequenceParameterSet = 7;
constexpr int pictureParameterSet = 8;

struct Bytes {
    const unsigned char* data;
    size_t size;
};

struct StartCode {
    size_t position;
    size_t length; // 3 or 4; 0 when there is none

    [[nodiscard]] size_t end() const { return position + length; }
};

/// The first start code from `position` on that has a byte after it; at the end of the bytes when
/// there is none.
StartCode nextStartCode(Bytes bytes, size_t position) {
    const unsigned char* const from = bytes.data + position;
    const unsigned char* const end = bytes.data + bytes.size;
    const unsigned char* const code = ffmpeg::detail::findStartCode(from, end);
    if (end - code < 4)
        return {bytes.size, 0};
    const auto place = static_cast<size_t>(code - bytes.data);
    const bool longer = code > from && code[-1] == 0;
    return longer ? StartCode{place - 1, 4} : StartCode{place, 3};
}

int typeOfUnit(Bytes bytes, StartCode code) {
    constexpr int typeBits = 0x1F;
    return bytes.data[code.end()] & typeBits;
}

using Allocated = std::unique_ptr<unsigned char, decltype(&std::free)>;

/// A parameter set that was looked for.
struct Found {
    Allocated unit{nullptr, std::free}; // null when there is none
    size_t size = 0;
};

/// The first unit of a type, with its start code, unless a slice comes before it.
/// @throws std::bad_alloc
Found findParameterSet(Bytes bytes, int type) {
    StartCode code = nextStartCode(bytes, 0);
    while (code.length != 0 && typeOfUnit(bytes, code) != type) {
        const int other = typeOfUnit(bytes, code);
        if (other == slice || other == keySlice)
            return {};
        code = nextStartCode(bytes, code.end());
    }
    if (code.length == 0)
        return {};
    Found found;
    found.size = nextStartCode(bytes, code.end()).position - code.position;
    found.unit.reset(static_cast<unsigned char*>(std::malloc(found.size)));
    if (!found.unit)
        throw std::bad_alloc();
    std::copy_n(bytes.data + code.position, found.size, found.unit.get());
    return found;
}

/// The first SPS and the first PPS of a decoder configuration record as an Annex-B stream; empty
/// when they exceed the record. How many there are of each is not looked at.
std::vector<unsigned char> annexBOfRecord(Bytes record) {
    constexpr size_t spsLengthAt = 6;
    constexpr size_t smallest = 11;
    constexpr std::array<unsigned char, 4> startCode = {0, 0, 0, 1};
    const auto length = [&](size_t at) {
        return size_t{record.data[at]} << 8 | size_t{record.data[at + 1]};
    };
    if (record.size < smallest)
        return {};
    const size_t spsLength = length(spsLengthAt);
    if (spsLength + smallest > record.size)
        return {};
    const unsigned char* sps = record.data + spsLengthAt + 2;
    const size_t ppsLengthAt = spsLengthAt + 2 + spsLength + 1; // after the number of PPS
    const size_t ppsLength = length(ppsLengthAt);
    if (spsLength + smallest + ppsLength > record.size)
        return {};
    const unsigned char* pps = record.data + ppsLengthAt + 2;
    std::vector<unsigned char> stream(startCode.begin(), startCode.end());
    stream.insert(stream.end(), sps, sps + spsLength);
    stream.insert(stream.end(), startCode.begin(), startCode.end());
    stream.insert(stream.end(), pps, pps + ppsLength);
    return stream;
}

} // namespace

int extradata_to_spspps(const unsigned char* extradata, int size, unsigned char** sps,
                        size_t* spsSize, unsigned char** pps, size_t* ppsSize) noexcept try {
    *pps = nullptr;
    *sps = nullptr;
    if (extradata == nullptr)
        return 0;
    Bytes bytes{extradata, static_cast<size_t>(std::max(size, 0))};
    std::vector<unsigned char> converted;
    if (extradata[0] == 1) {
        converted = annexBOfRecord(bytes);
        if (converted.empty())
            return -1;
        bytes = {converted.data(), converted.size()};
    }
    Found picture = findParameterSet(bytes, pictureParameterSet);
    Found sequence = findParameterSet(bytes, sequenceParameterSet);
    if (picture.unit)
        *ppsSize = picture.size;
    if (sequence.unit)
        *spsSize = sequence.size;
    *pps = picture.unit.release();
    *sps = sequence.unit.release();
    return 0;
} catch (const std::bad_alloc&) {
    return -1;
}

int helper::extract_all_nals(const unsigned char* data, size_t size,
                             std::function<void(size_t, std::vector<unsigned char>&)> callback) {
    const Bytes bytes{data, size};
    int count = 0;
    for (StartCode code = nextStartCode(bytes, 0); code.length != 0; ++count) {
        const StartCode next = nextStartCode(bytes, code.end());
        std::vector<unsigned char> unit(data + code.end(), data + next.position);
        callback(code.length, unit);
        code = next;
    }
    callback = nullptr; // what it holds is let go before the caller goes on
    return count;
}

} // namespace tio::videolib
