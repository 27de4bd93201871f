#pragma once

#include <TARN/videoio/Export.h>

#include <cstddef>
#include <functional>
#include <vector>

/// @file
/// Two helpers for H.264 streams in memory. They call no codec and keep no state.
/// Thread rule: every thread may call them.
///
/// A NAL unit is the piece that such a stream is made of; the low five bits of its first byte are
/// its type: 7 a sequence parameter set (SPS), 8 a picture parameter set (PPS), 1 and 5 slices of
/// pictures. In an Annex-B stream each unit follows a start code, 00 00 01 or 00 00 00 01. A start
/// code needs at least one byte after it; without one it belongs to the unit before.

namespace tio::videolib {

/// Takes the first SPS and the first PPS out of a codec's extradata, in either of its layouts:
/// Annex-B, or the decoder configuration record of MP4 files ("avcC"), whose first byte is 1. Of a
/// record the first set of each kind is looked at; in Annex-B data, what precedes the first slice.
///
/// @param extradata  `size` bytes, which are not changed; null, or at least one byte whatever the
///                   size says, since the first one decides the layout
/// @param sps, pps   receive copies that begin with a start code, of `*spsSize` and `*ppsSize`
///                   bytes, allocated with `malloc`; the caller releases them with `free`. Null for
///                   a set that was not found; the size is left as it was then.
/// @returns 0, also when a set was not found, which the pointers say; -1, with both pointers null,
///          when the lengths in a record do not fit its size or memory ran out
TARN_VIDEOIO_API int extradata_to_spspps(const unsigned char* extradata, int size,
                                         unsigned char** sps, size_t* spsSize, unsigned char** pps,
                                         size_t* ppsSize) noexcept;

namespace helper {

/// Splits an Annex-B stream into its NAL units. Bytes before the first start code are ignored;
/// start codes that follow each other directly have empty units between them. Less than 2 GiB.
///
/// @param callback  is called once for each unit in order, with the length of the start code that
///                  precedes it, 3 or 4, and the bytes of the unit after it, which live until it
///                  returns. What it throws ends the splitting. It is released before this
///                  function returns.
/// @returns the number of units
/// @throws std::bad_function_call at the first unit when there is no callback
TARN_VIDEOIO_API int
extract_all_nals(const unsigned char* data, size_t size,
                 std::function<void(size_t, std::vector<unsigned char>&)> callback);

} // namespace helper

} // namespace tio::videolib
