// Threads that use the library at the same time, each with objects of its own. Meant for the thread
// sanitizer above all. TARN_THREADS_SECONDS lets them go on for longer than the usual two seconds,
// and TARN_THREADS_PROCESSES begins more often than five times.

#include "Jobs.h"
#include "support/LogCapture.h"
#include "support/TemporaryFolder.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

namespace tio::test {
namespace {

constexpr int threadCount = 8;

int setting(const char* name, int usual) {
    const char* given = std::getenv(name);
    return given != nullptr ? std::atoi(given) : usual;
}

class ThreadsTest : public ::testing::Test {
protected:
    ThreadsTest() { files.make(); }

    const TemporaryFolder folder;
    const JobFiles files{folder.path().string()};
    const std::vector<Job> jobs = jobsOver(files);
    LogCapture log;
};

TEST_F(ThreadsTest, EightThreadsGetWhatOneGets) {
    std::vector<uint64_t> expected;
    for (const Job& job : jobs)
        expected.push_back(job.run(folder.file("alone")));

    const auto end =
        std::chrono::steady_clock::now() + std::chrono::seconds(setting("TARN_THREADS_SECONDS", 2));
    std::atomic<int64_t> done{0};
    std::vector<std::thread> threads;
    for (size_t thread = 0; thread < threadCount; ++thread)
        threads.emplace_back([&, thread] {
            const std::string scratch = folder.file("thread" + std::to_string(thread));
            // Each begins with another job; all are done at least once, however slow the machine.
            for (size_t n = thread;
                 n < thread + jobs.size() || std::chrono::steady_clock::now() < end; ++n) {
                const size_t job = n % jobs.size();
                EXPECT_EQ(jobs[job].run(scratch), expected[job]) << jobs[job].name;
                ++done;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    RecordProperty("jobs", std::to_string(done));
}

// The initialisation of the library can be raced only once in a process.
TEST_F(ThreadsTest, TheFirstUseMayBeThatOfManyThreadsAtOnce) {
    const std::string command = TARN_FIRST_USE " '" + folder.path().string() + "'";
    const int processes = setting("TARN_THREADS_PROCESSES", 5);
    for (int process = 0; process < processes; ++process)
        ASSERT_EQ(std::system(command.c_str()), 0) << "process " << process;
}

} // namespace
} // namespace tio::test
