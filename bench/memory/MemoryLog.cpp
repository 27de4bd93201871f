#include "MemoryLog.h"

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <malloc.h>
#include <utility>

namespace tio::bench {

namespace {

constexpr int64_t sampleCount = 200;

// The mean over a tenth of the samples: single ones depend on what the decoder's threads do just
// then.
template <typename Member>
double meanOfTenth(const std::vector<MemoryUse>& samples, size_t tenth, Member member) {
    const size_t first = samples.size() * tenth / 10;
    const size_t end = samples.size() * (tenth + 1) / 10;
    double sum = 0;
    for (size_t i = first; i < end; ++i)
        sum += static_cast<double>(samples[i].*member);
    return sum / static_cast<double>(std::max<size_t>(end - first, 1));
}

} // namespace

MemoryUse memoryUse() {
    std::ifstream status("/proc/self/status");
    MemoryUse use{0, 0};
    for (std::string word; status >> word;)
        if (word == "VmRSS:")
            status >> use.resident;
    const auto heap = ::mallinfo2();
    use.heap = static_cast<int64_t>((heap.uordblks + heap.hblkhd) / 1024);
    return use;
}

MemoryLog::MemoryLog(std::ostream& output, std::string taskName, int64_t stepCount)
    : csv(output), task(std::move(taskName)), steps(stepCount) {}

void MemoryLog::stepDone(int64_t done) {
    if (done * sampleCount / steps == (done - 1) * sampleCount / steps)
        return;
    samples.push_back(memoryUse());
    const MemoryUse& use = samples.back();
    csv << task << "," << done << "," << steps << "," << use.resident << "," << use.heap
        << std::endl; // at once, for whoever watches a long run
}

double MemoryLog::growth() const {
    return meanOfTenth(samples, 9, &MemoryUse::resident) -
           meanOfTenth(samples, 1, &MemoryUse::resident);
}

bool MemoryLog::report(double allowed) const {
    const double before = meanOfTenth(samples, 1, &MemoryUse::resident);
    const double heapBefore = meanOfTenth(samples, 1, &MemoryUse::heap);
    const double heapAfter = meanOfTenth(samples, 9, &MemoryUse::heap);
    const double percent = 100 * (growth() - allowed) / before;
    std::cerr << std::fixed << std::setprecision(1) << task << ": " << steps << " steps; resident "
              << before << " to " << before + growth() << " KiB, of which " << allowed
              << " are allowed, heap " << heapBefore << " to " << heapAfter << " KiB; grew by "
              << std::setprecision(3) << percent << " %\n";
    return percent < 1;
}

} // namespace tio::bench
