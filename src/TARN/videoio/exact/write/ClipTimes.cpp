#include "exact/write/ClipTimes.h"

#include "base/checks.h"

#include <algorithm>
#include <limits>

namespace tio::ffmpeg::detail {

namespace {

[[noreturn]] void refuseNumber(const std::string& name, const Fraction& given,
                               const std::string& why) {
    const std::string text = "\"" + name + "\": the time " + std::to_string(given.numerator) + "/" +
                             std::to_string(given.denominator) + " " + why;
    logFailure(text);
    throw TimeRefusal(text, Fraction(0));
}

constexpr int64_t mostTicks = std::numeric_limits<int64_t>::max() / 4; // room for sums

// Players have had trouble with coarser ticks, so FFmpeg doubles them as well.
constexpr int64_t usualScale = 10000;

Fraction atTick(Wide tick, int64_t scale) {
    return makeFraction(tick, scale).value_or(Fraction(std::numeric_limits<int64_t>::max()));
}

} // namespace

void ClipTimes::refuse(const std::string& name, const Fraction& time, const std::string& why,
                       const Fraction& nearest) const {
    const auto asGiven = [&](const Fraction& value) {
        return sum(value, origin.value_or(Fraction(0))).value_or(value);
    };
    const std::string text = "\"" + name + "\" cannot hold the time " + toText(asGiven(time)) +
                             " s: " + why + "; the nearest possible is " +
                             toText(asGiven(nearest)) + " s";
    logFailure(text);
    throw TimeRefusal(text, asGiven(nearest));
}

ClipTimes::ClipTimes(TimeRules timeRules) : rules(timeRules) {
    if (rules.origin == ClipOrigin::AsGiven)
        origin = Fraction(0);
    if (rules.exactScale != 0)
        coarsest = rules.exactScale;
}

Fraction ClipTimes::fromZero(const Fraction& given, const std::string& name) const {
    const auto time = withPositiveDenominator(given);
    if (!time)
        refuseNumber(name, given,
                     given.denominator == 0 ? "has no value" : "does not fit into 64 bits");
    const auto distance = difference(*time, origin.value_or(*time));
    if (!distance || distance->numerator == std::numeric_limits<int64_t>::min())
        refuseNumber(name, given, "is too far from 0");
    return *distance;
}

void ClipTimes::requireGrid(const Fraction& time, const std::string& name) const {
    if (!rules.grid)
        return;
    const Fraction& grid = *rules.grid;
    // time / grid, in full: both have 64 bits.
    const Wide steps = Wide{time.numerator} * grid.denominator;
    const Wide whole = Wide{time.denominator} * grid.numerator;
    Wide step = steps / whole;
    const Wide rest = steps - step * whole;
    if (rest == 0)
        return;
    const Wide off = rest < 0 ? -rest : rest;
    if (off >= whole - off)
        step += rest < 0 ? -1 : 1;
    const Fraction nearest = makeFraction(step * grid.numerator, grid.denominator).value_or(time);
    refuse(name, time, "it is no multiple of " + toText(grid) + " s", nearest);
}

void ClipTimes::requireRise(const Fraction& time, const std::string& name) const {
    const int64_t scale = rules.fixedScale != 0 ? rules.fixedScale : coarsest;
    if (times.empty()) {
        if (time < 0)
            refuse(name, time, "a clip begins at 0", Fraction(0));
        return;
    }
    const Fraction step = rules.grid.value_or(Fraction(1, scale));
    const Fraction next = sum(times.back(), step).value_or(times.back());
    if (time <= times.back())
        refuse(name, time, "the picture before stands at or after it", next);
    if (rules.fixedScale != 0 && roundedProduct(time, scale) <= roundedProduct(times.back(), scale))
        refuse(name, time,
               "it falls on the same 1/" + std::to_string(scale) + " s as the picture before",
               atTick(roundedProduct(times.back(), scale) + 1, scale));
}

void ClipTimes::requireRange(const Fraction& time, const std::string& name) const {
    const int64_t scale = rules.fixedScale != 0 ? rules.fixedScale : coarsest;
    if (roundedProduct(time, scale) > mostTicks)
        refuse(name, time, "it is too late", atTick(mostTicks, scale));
}

/// The longest times that the candidate makes, as far as they take part in the choice of a tick.
void ClipTimes::measure(Candidate& candidate, const std::string& name) const {
    candidate.longestGap = longestGap;
    candidate.longestSpan = longestSpan;
    const auto since = [&](const Fraction& from) {
        return difference(candidate.end, from).value_or(Fraction(0));
    };
    const Fraction before = times.empty() ? candidate.time : times.back();
    candidate.afterPause =
        !times.empty() && difference(candidate.time, before).value_or(before) > longPause;
    if (rules.reorders)
        measureSpan(candidate, name);
    if (roundedProduct(since(before), coarsest) > mostBetween)
        refuse(name, candidate.time,
               "no track holds so long a pause in the tick that its times need",
               latestAt(roundedProduct(before, coarsest) + mostBetween));
    candidate.longestGap = std::max(longestGap, since(before));
}

/// The latest time on the grid that is not later.
Fraction ClipTimes::latestAt(Wide tick) const {
    const Fraction time = atTick(tick, coarsest);
    if (!rules.grid)
        return time;
    const Wide steps = Wide{time.numerator} * rules.grid->denominator /
                       (Wide{time.denominator} * rules.grid->numerator);
    return makeFraction(steps * rules.grid->numerator, rules.grid->denominator).value_or(time);
}

/// The longest time between the decoding and the showing of a picture.
void ClipTimes::measureSpan(Candidate& candidate, const std::string& name) const {
    const bool afresh = candidate.afterPause && rules.startsAfresh;
    const std::size_t before = rules.startsAfresh ? sincePause : times.size();
    const std::size_t reach = afresh ? 0 : std::min(before, rules.reach);
    if (reach == 0)
        return;
    const Fraction from = times[times.size() - reach];
    const Fraction span = difference(candidate.time, from).value_or(Fraction(0));
    if (roundedProduct(span, coarsest) > mostShownAhead)
        refuse(name, candidate.time,
               "the encoder exchanges pictures, and no track holds them so far apart in the tick "
               "that its times need",
               latestAt(roundedProduct(from, coarsest) + mostShownAhead));
    candidate.longestSpan = std::max(longestSpan, span);
}

/// The finest scale at which both still fit.
int64_t ClipTimes::limitFor(const Fraction& gap, const Fraction& span) const {
    const auto limit = [](const Fraction& length, int64_t most) {
        if (length <= 0)
            return finestScale;
        return static_cast<int64_t>(
            std::min<Wide>(finestScale, Wide{most} * length.denominator / length.numerator));
    };
    const int64_t byGap = limit(gap, mostBetween);
    return rules.reorders ? std::min(byGap, limit(span, mostShownAhead)) : byGap;
}

int64_t ClipTimes::finerScale(int64_t coarse, const Fraction& time, int64_t limit,
                              const std::string& name) const {
    if (const auto common = commonMultiple(coarse, time.denominator, limit))
        return *common;
    const auto scaled = makeFraction(Wide{time.numerator} * coarse, time.denominator);
    const Fraction nearest =
        scaled ? nearestFraction(*scaled, limit / coarse) : Fraction(time.toInteger());
    Fraction possible = makeFraction(nearest.numerator, Wide{nearest.denominator} * coarse)
                            .value_or(Fraction(time.toInteger()));
    if (!times.empty() && possible <= times.back()) // it would be the picture before
        possible = sum(times.back(), Fraction(1, limit / coarse * coarse)).value_or(possible);
    refuse(name, time, "no tick that a track can have holds it together with the times before",
           possible);
}

ClipTimes::Candidate ClipTimes::check(Fraction given, std::optional<Fraction> duration,
                                      const std::string& name) const {
    Candidate found;
    found.time = fromZero(given, name);
    found.zero = origin.value_or(*withPositiveDenominator(given));
    requireGrid(found.time, name);
    requireRise(found.time, name);
    requireRange(found.time, name);
    found.end = found.time;
    if (duration) {
        const auto length = withPositiveDenominator(*duration);
        const auto end = length && *length > 0 ? sum(found.time, *length) : std::nullopt;
        if (!end) {
            const std::string text =
                "\"" + name + "\": a picture cannot last " + toText(*duration) + " s";
            logFailure(text);
            throw ClipRefusal(text);
        }
        requireGrid(*end, name);
        requireRange(*end, name);
        found.end = *end;
        found.endIsGiven = true;
    }
    found.scale = coarsest;
    if (rules.fixedScale != 0)
        return found;
    measure(found, name);
    const int64_t limit = limitFor(found.longestGap, found.longestSpan);
    found.scale = finerScale(coarsest, found.time, std::max(limit, coarsest), name);
    if (found.endIsGiven)
        found.scale = finerScale(found.scale, found.end, std::max(limit, found.scale), name);
    if (roundedProduct(found.end, found.scale) > mostTicks)
        refuse(name, found.time, "it is too late", atTick(mostTicks, found.scale));
    return found;
}

void ClipTimes::makeRoom() {
    if (times.size() == times.capacity())
        times.reserve(2 * times.size() + 64);
}

void ClipTimes::accept(const Candidate& candidate) noexcept {
    origin = candidate.zero;
    times.push_back(candidate.time);
    lastEnd = candidate.end;
    lastEndIsGiven = candidate.endIsGiven;
    coarsest = candidate.scale;
    longestGap = candidate.longestGap;
    longestSpan = candidate.longestSpan;
    sincePause = candidate.afterPause ? 1 : sincePause + 1;
}

Fraction ClipTimes::next() const {
    if (times.empty())
        return 0;
    const Fraction step = rules.step.value_or(Fraction(0));
    const Fraction zero = origin.value_or(Fraction(0));
    const Fraction end = lastEndIsGiven ? lastEnd : sum(times.back(), step).value_or(times.back());
    return sum(end, zero).value_or(times.back());
}

int64_t ClipTimes::scale() const {
    if (rules.fixedScale != 0)
        return rules.fixedScale;
    if (rules.exactScale != 0)
        return rules.exactScale;
    const Fraction last = end();
    const int64_t limit = limitFor(longestGap, longestSpan);
    const auto holds = [&](int64_t candidate) {
        return candidate <= limit && candidate % coarsest == 0 &&
               roundedProduct(last, candidate) <= mostTicks;
    };
    if (rules.preferredScale > 1 && holds(rules.preferredScale))
        return rules.preferredScale;
    const auto withEnd = commonMultiple(coarsest, last.denominator, finestScale);
    int64_t scale = withEnd && holds(*withEnd) ? *withEnd : coarsest;
    while (scale < usualScale && holds(2 * scale))
        scale *= 2;
    return scale;
}

Fraction ClipTimes::end() const {
    if (lastEndIsGiven)
        return lastEnd;
    Fraction length = rules.step.value_or(usualDuration);
    if (times.size() > 1)
        length = difference(times.back(), times[times.size() - 2]).value_or(length);
    return sum(times.back(), length).value_or(times.back());
}

int64_t ClipTimes::ticks(std::size_t number, int64_t scale) const {
    const auto toTicks = [&](const Fraction& time) {
        return static_cast<int64_t>(roundedProduct(time, scale));
    };
    if (number < times.size())
        return toTicks(times[number]);
    return std::max(toTicks(end()), toTicks(times.back()) + 1);
}

} // namespace tio::ffmpeg::detail
