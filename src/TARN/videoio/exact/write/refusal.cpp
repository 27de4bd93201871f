#include "exact/write/refusal.h"

#include "base/checks.h"

namespace tio::ffmpeg {

ClipRefusal::~ClipRefusal() = default;

TimeRefusal::TimeRefusal(const std::string& text, tio::Rational<1, int64_t> nearestPossible)
    : ClipRefusal(text), possible(nearestPossible) {}

TimeRefusal::~TimeRefusal() = default;

namespace detail {

void refuse(const std::string& name, const std::string& what) {
    const std::string text = "\"" + name + "\": " + what;
    logFailure(text);
    throw ClipRefusal(text);
}

} // namespace detail

} // namespace tio::ffmpeg
