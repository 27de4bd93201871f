#include "start.h"

#include <TARN/logging/log.h>

#include <iostream>
#include <string>
#include <sys/sysinfo.h>

// Asked by std::thread::hardware_concurrency(), and so by the library when it opens a decoder or an
// encoder. On one thread an input does the same each time, and much sooner.
int get_nprocs() noexcept {
    return 1;
}

namespace tio::fuzz {

void start() {
    log::setSink([](const std::string&, log::Level, const std::string&) {});
    std::cerr.rdbuf(nullptr);
}

} // namespace tio::fuzz
