#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

struct AVStream;

/// @file
/// What a file really holds, found by calling libavformat, libavcodec, libavfilter and libswscale
/// directly, without any code of the library under test. Tests compare the library with this.

namespace tio::test {

/// A packet of the best video stream; the times are ticks of the stream's time base.
struct OraclePacket {
    int64_t pts;
    int64_t dts;
    int flags; ///< AV_PKT_FLAG_…
    int size;
};

/// A time in seconds as a reduced fraction.
struct OracleTime {
    int64_t numerator;
    int64_t denominator;
};

/// A decoded picture, upright and converted.
struct OracleFrame {
    int64_t pts; ///< in ticks of timeBaseNum / timeBaseDen seconds
    int timeBaseNum;
    int timeBaseDen;
    int width; ///< in pixels, after rotation
    int height;
    uint64_t hash; ///< of the pixels, by hashRows
    bool rises;    ///< its pts is greater than all before

    uint64_t nv12Hash = 0; ///< only if the options ask for it

    /// Empty unless the options keep them. RGB: rows of 3 × width bytes. NV12: the luma rows of
    /// width bytes, then ⌈height / 2⌉ chroma rows of as many bytes as width rounded up to even.
    std::vector<uint8_t> pixels;

    [[nodiscard]] OracleTime time() const;
};

enum class OracleFormat { Rgb, Nv12 };

struct OracleOptions {
    OracleFormat format = OracleFormat::Rgb;
    int threads = 0;          ///< of the decoder; 0: as many as the machine has
    bool keepPixels = false;  ///< otherwise only the hash of each picture is kept
    bool rotate = true;       ///< turn pictures upright
    bool skipDamaged = false; ///< go on after whatever the decoder fails at
    bool nv12Too = false;     ///< hash each picture as NV12 as well

    /// Leave nothing out: neither pictures without a time, nor those whose time does not rise, nor
    /// those after a failure.
    bool everyPicture = false;

    /// Keep the memory of every picture to the end, so that none is used for another. What a
    /// decoder leaves unwritten in a damaged picture is what the memory held before.
    bool freshBuffers = false;

    /// Numbers of the pictures to convert and hash; all when empty. Others have the hash 0.
    std::function<bool(std::size_t)> wanted;
};

/// Seed of a hash that follows no other.
constexpr uint64_t emptyHash = 0;

/// The first 64 bits of libavutil's MurmurHash3: a picture's hash must take less time than the
/// picture. The same bytes in other pieces, each from the hash before, have another hash.
[[nodiscard]] uint64_t hashOf(const uint8_t* bytes, std::size_t count, uint64_t seed = emptyHash);

/// The hash of a picture's plane: row by row, each from the hash before, without what lies between
/// the rows. Of a picture with several planes, each from the hash of the plane before.
[[nodiscard]] uint64_t hashRows(const uint8_t* first, std::ptrdiff_t stride, int rows, int rowBytes,
                                uint64_t seed = emptyHash);

/// All packets of the best video stream in the order of the file, also empty ones.
/// @throws std::runtime_error when the file cannot be opened or has no video
[[nodiscard]] std::vector<OraclePacket> oraclePackets(const std::string& path);

/// All pictures of the best video stream. Unless the options say otherwise, a picture is left out
/// when its pts is not greater than that of the picture before, or when it has none.
/// @throws std::runtime_error also when decoding fails
[[nodiscard]] std::vector<OracleFrame> oracleFrames(const std::string& path,
                                                    const OracleOptions& options = {});

/// Clockwise quarter turns that make the stream's pictures upright, from its "rotate" tag or
/// display matrix; 0 for anything that is not a quarter turn.
[[nodiscard]] int oracleQuarterTurns(const AVStream* stream);

} // namespace tio::test
