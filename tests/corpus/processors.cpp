#include <cstdlib>
#include <thread>

// What a decoder makes of damage depends on its threads, and with several differs from run to run.
// The library and the oracle ask here how many there are, so that both take the same number, one
// unless the surroundings say otherwise.
unsigned std::thread::hardware_concurrency() noexcept {
    const char* wanted = std::getenv("TARN_SURVEY_THREADS");
    return wanted != nullptr ? static_cast<unsigned>(std::atoi(wanted)) : 1;
}
