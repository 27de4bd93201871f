#pragma once

namespace tio::fuzz {

/// To be called once before the first input, by whatever runs a target. Silences the log and the
/// error stream, whose lines would only slow it down.
void start();

} // namespace tio::fuzz
