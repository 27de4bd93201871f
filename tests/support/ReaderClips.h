#pragma once

#include "support/ClipTable.h"

#include <vector>

namespace tio::test {

/// Clips that only a reader that trusts no time finds its way in, on top of madeClips().
[[nodiscard]] const std::vector<MadeClip>& readerClips();

/// Real ones, by their names in the media folder.
[[nodiscard]] const std::vector<std::string>& readerRealClips();

} // namespace tio::test
