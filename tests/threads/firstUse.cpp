// Uses the library for the first time on 32 threads at once, in all the ways in which a program can
// begin, and compares what they get with what one thread gets afterwards:
//   tarn_first_use FOLDER
// FOLDER holds the files of the jobs, made by whoever calls.

#include "Jobs.h"
#include "support/LogCapture.h"

#include <atomic>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr size_t threadCount = 32;

} // namespace

int main(int argc, char** argv) try {
    if (argc != 2)
        return 2;
    const std::string folder = argv[1];
    const tio::test::JobFiles files(folder);
    const std::vector<tio::test::Job> jobs = tio::test::beginningsOver(files);
    const tio::test::LogCapture log;

    std::vector<uint64_t> got(threadCount);
    std::atomic<size_t> waiting{threadCount};
    std::vector<std::thread> threads;
    for (size_t n = 0; n < threadCount; ++n)
        threads.emplace_back([&, n] {
            --waiting;
            while (waiting > 0)
                std::this_thread::yield();
            got[n] = jobs[n % jobs.size()].run(folder + "/first" + std::to_string(n));
        });
    for (std::thread& thread : threads)
        thread.join();

    // FFmpeg's own words about the broken file, one for each thread that tried to open it.
    const size_t heard = log.count("moov atom not found");
    bool right = heard == threadCount / jobs.size();
    for (size_t job = 0; job < jobs.size(); ++job) {
        const uint64_t alone = jobs[job].run(folder + "/alone");
        for (size_t n = job; n < threadCount; n += jobs.size())
            right &= got[n] == alone;
    }
    if (!right)
        std::cerr << "threads got other results than one thread, or " << heard << " log lines\n";
    return right ? 0 : 1;
} catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
}
