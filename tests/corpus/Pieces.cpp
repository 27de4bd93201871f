#include "Direct.h"
#include "Entries.h"
#include "support/ByteEdits.h"
#include "support/Oracle.h"
#include "support/StillImages.h"

#include <TARN/videoio/H264Helpers.h>
#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/ReadImage.h>
#include <TARN/videoio/WriteImage.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>

namespace tio::survey {

namespace {

using Image = Mat<Vec<uint8_t, 3>, 2, MatOptions<1, 1>>;

std::string imageText(int width, int height, const uint8_t* pixels) {
    const auto count = std::size_t{3} * static_cast<std::size_t>(width * height);
    return std::to_string(width) + "x" + std::to_string(height) + ", pixels " +
           std::to_string(test::hashOf(pixels, count));
}

std::string imageText(const Image& image) {
    return imageText(image.cols(), image.rows(), reinterpret_cast<const uint8_t*>(image.data()));
}

std::string imageText(const test::OracleImage& image) {
    return imageText(image.width, image.height, image.pixels.data());
}

// ---- H.264 ------------------------------------------------------------------------------------

struct Free {
    void operator()(unsigned char* bytes) const noexcept { std::free(bytes); }
};
using Bytes = std::unique_ptr<unsigned char, Free>;

std::string bytesText(const uint8_t* bytes, std::size_t count) {
    return std::to_string(count) + " bytes " + std::to_string(test::hashOf(bytes, count));
}

void tellParameterSets(const std::vector<unsigned char>& extradata, Facts& facts) {
    unsigned char* sps = nullptr;
    unsigned char* pps = nullptr;
    std::size_t spsSize = 0;
    std::size_t ppsSize = 0;
    const int result = videolib::extradata_to_spspps(
        extradata.data(), static_cast<int>(extradata.size()), &sps, &spsSize, &pps, &ppsSize);
    const Bytes first(sps);
    const Bytes second(pps);
    facts.push_back("result " + std::to_string(result));
    facts.push_back(sps != nullptr ? bytesText(sps, spsSize) : "no SPS");
    facts.push_back(pps != nullptr ? bytesText(pps, ppsSize) : "no PPS");
}

/// The set that a unit length of two bytes at `*at` announces, as an Annex-B unit.
std::string setText(const std::vector<unsigned char>& record, std::size_t& at) {
    if (at + 2 > record.size())
        throw std::out_of_range("the record ends before a length");
    const std::size_t size = std::size_t{record[at]} * 256 + record[at + 1];
    at += 2;
    if (at + size > record.size())
        throw std::out_of_range("a set is longer than the record");
    std::vector<uint8_t> unit = {0, 0, 0, 1};
    unit.insert(unit.end(), record.begin() + static_cast<std::ptrdiff_t>(at),
                record.begin() + static_cast<std::ptrdiff_t>(at + size));
    at += size;
    return bytesText(unit.data(), unit.size());
}

/// The same by ISO/IEC 14496-15: five bytes, the number of SPS in the low bits of the sixth.
void tellRecord(const std::vector<unsigned char>& record, Facts& facts) {
    std::size_t at = 6;
    Facts found = {"result 0", "no SPS", "no PPS"};
    if ((record.at(5) & 31) != 0)
        found[1] = setText(record, at);
    for (int i = 1; i < (record.at(5) & 31); ++i)
        setText(record, at);
    if (record.at(at++) != 0)
        found[2] = setText(record, at);
    facts.insert(facts.end(), found.begin(), found.end());
}

/// Where a start code begins that has a byte after it.
std::vector<std::size_t> startCodes(const std::vector<uint8_t>& bytes) {
    std::vector<std::size_t> places;
    for (std::size_t i = 0; i + 3 < bytes.size(); ++i) {
        if (bytes[i] == 0 && bytes[i + 1] == 0 && bytes[i + 2] == 1)
            places.push_back(i);
    }
    return places;
}

void tellUnits(const std::vector<uint8_t>& bytes, Facts& facts) {
    int told = 0;
    const int count = videolib::helper::extract_all_nals(
        bytes.data(), bytes.size(),
        [&](std::size_t, const std::vector<unsigned char>&) { ++told; });
    facts.push_back(std::to_string(count) + " units");
    facts.push_back(std::to_string(told) + " told");
}

/// The decoder configuration record of a file's H.264 stream; empty where there is none.
std::vector<unsigned char> recordOf(const std::string& path) {
    try {
        ffmpeg::InputFormatContext input(path);
        const int video = input.findBestVideoStreamIndex();
        auto extradata = input.getExtradataOfStream(video);
        const bool record = input.getCodecOfStream(video) == ffmpeg::Codec::H264 &&
                            !extradata.empty() && extradata[0] == 1;
        return record ? extradata : std::vector<unsigned char>();
    } catch (const tio::Exception&) { // which other entry points tell
        return {};
    }
}

std::vector<uint8_t> beginOf(const std::string& path) {
    constexpr std::size_t most = 1 << 20;
    std::vector<uint8_t> bytes = test::readBytes(path);
    bytes.resize(std::min(bytes.size(), most));
    return bytes;
}

} // namespace

// Under a name that says image, since FFmpeg goes by what is inside.
Verdict stillImage(const std::string& path, const std::string& folder) {
    const std::string link = fileIn(folder, "still.png");
    std::filesystem::remove(link);
    std::filesystem::create_symlink(std::filesystem::absolute(path), link);
    return judge(accountOf([&](Facts& facts) {
                     const Image image = readImage(link);
                     facts.push_back(imageText(image));
                     const Image upright = readImageUpright(link);
                     facts.push_back("upright " + std::to_string(upright.rows() * upright.cols()));
                     const std::string copy = fileIn(folder, "copy.png");
                     ffmpeg::writeImage(copy, image);
                     facts.push_back(imageText(test::oracleImage(copy)));
                 }),
                 directAccountOf([&](Facts& facts) {
                     const test::OracleImage image = test::oracleImage(link);
                     facts.push_back(imageText(image));
                     facts.push_back("upright " + std::to_string(image.width * image.height));
                     facts.push_back(imageText(image));
                 }));
}

Verdict h264Helpers(const std::string& path, const std::string&) {
    const std::vector<uint8_t> bytes = beginOf(path);
    const std::vector<unsigned char> record = recordOf(path);
    Facts unchecked;
    tellParameterSets(bytes, unchecked); // bytes of any kind at all: they have to do no harm
    return judge(accountOf([&](Facts& facts) {
                     tellUnits(bytes, facts);
                     if (!record.empty())
                         tellParameterSets(record, facts);
                 }),
                 directAccountOf([&](Facts& facts) {
                     const std::string count = std::to_string(startCodes(bytes).size());
                     facts.push_back(count + " units");
                     facts.push_back(count + " told");
                     if (!record.empty())
                         tellRecord(record, facts);
                 }));
}

} // namespace tio::survey
