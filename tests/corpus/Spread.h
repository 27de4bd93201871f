#pragma once

#include <cstdint>
#include <vector>

namespace tio::survey {

/// Some two dozen numbers of frames, the first and the last among them, from the last to the first.
[[nodiscard]] std::vector<int64_t> spreadNumbers(int64_t count);

} // namespace tio::survey
