#pragma once

#include <string>

namespace tio::tool {

/// From now on Ctrl-C, and the signals that ask the program to end in other ways, first remove the
/// file that is being written. The program then ends by that very signal, so that a shell script
/// around it stops too.
///
/// This happens in the signal handler and not between two frames: opening a network stream or
/// reading the packets of a long file can keep one call of the library busy for minutes.
void endCleanlyOnSignals();

/// While it lives, an interruption removes the file of that path. At most one at a time.
class RemovedOnInterruption {
public:
    explicit RemovedOnInterruption(const std::string& path) noexcept;
    ~RemovedOnInterruption();
    RemovedOnInterruption(const RemovedOnInterruption&) = delete;
    RemovedOnInterruption& operator=(const RemovedOnInterruption&) = delete;
};

/// While it lives, an interruption waits, whichever thread it comes to: for a file that is there
/// but not yet known to be removed. At most one at a time.
class SignalsHeldBack {
public:
    SignalsHeldBack() noexcept;
    ~SignalsHeldBack();
    SignalsHeldBack(const SignalsHeldBack&) = delete;
    SignalsHeldBack& operator=(const SignalsHeldBack&) = delete;
};

/// Whether a line of progress stands on the terminal that an interruption has to end.
void noteOpenLine(bool open) noexcept;

} // namespace tio::tool
