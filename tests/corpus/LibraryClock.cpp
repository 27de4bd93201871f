#include "LibraryClock.h"

namespace tio::survey {

LibraryClock& LibraryClock::instance() {
    static LibraryClock clock;
    return clock;
}

void LibraryClock::restart() {
    begin = Clock::now();
    before = {};
}

LibraryClock::Duration LibraryClock::elapsed() const {
    return rests > 0 ? before : before + (Clock::now() - begin);
}

LibraryClock::Rest::Rest() {
    LibraryClock& clock = instance();
    if (clock.rests++ == 0)
        clock.before += Clock::now() - clock.begin;
}

LibraryClock::Rest::~Rest() {
    LibraryClock& clock = instance();
    if (--clock.rests == 0)
        clock.begin = Clock::now();
}

} // namespace tio::survey
