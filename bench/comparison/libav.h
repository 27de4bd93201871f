#pragma once

#include "support/Ffmpeg.h"
#include "work.h"

#include <string>

namespace tio::bench {

[[nodiscard]] test::InputPointer openInput(const std::string& path);

void addReading(Tasks& tasks);
void addWriting(Tasks& tasks);

} // namespace tio::bench
