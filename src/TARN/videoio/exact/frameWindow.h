#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tio::ffmpeg::detail {

/// Wanted frames are decoded window by window: those of a window in rising order, so that each
/// group of pictures is decoded once, while pictures that come before their turn wait.
///
/// The end of the longest window of `frames` from position `begin` on in which at most `capacity`
/// pictures have to wait. In a rising list none has to; any other is cut where a group of pictures
/// ends, if that leaves the window half as long or more.
/// @param groupOf  a number that is the same for frames that are decoded together
[[nodiscard]] size_t endOfWindow(const std::vector<int64_t>& frames, size_t begin, size_t capacity,
                                 const std::function<uint32_t(int64_t frame)>& groupOf);

/// @throws tio::Exception unless frames `first` to `end` - 1 are among `count`
void requireFrames(int64_t first, int64_t end, int64_t count, const std::string& of);

/// The different frames of a window, rising.
[[nodiscard]] std::vector<int64_t> decodingOrder(const std::vector<int64_t>& frames, size_t begin,
                                                 size_t end);

} // namespace tio::ffmpeg::detail
