// Reads frames of clips in several orders through the library and compares each with a decoding
// from start to end by FFmpeg called directly:
//   tarn_exactness SECONDS CLIP...
// prints a line of comma-separated values for each clip, way of reading and order. No order takes
// longer than SECONDS; what was not asked for by then is left out. TARN_EXACTNESS_WAYS names the
// ways, with spaces between: reader, checksums and seek if it is not set. The others are memory and
// factory (where the bytes come from) and fork0, fork1, … (a reader with so many decoder threads
// that was used before fork(), read by the child).

#include "contenders.h"
#include "orders.h"
#include "support/Oracle.h"

#include <TARN/logging/log.h>
#include <TARN/videoio.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace tio::bench {
namespace {

using Clock = std::chrono::steady_clock;
/// Hashes of the pictures that are asked for; 0 for the others.
std::vector<uint64_t> truthOf(const std::string& path, const std::vector<Order>& orders,
                              bool oneThread) {
    std::set<int64_t> asked;
    for (const Order& order : orders)
        asked.insert(order.frames.begin(), order.frames.end());
    test::OracleOptions options;
    options.everyPicture = true;
    options.threads = oneThread ? 1 : 2;
    options.wanted = [&](size_t frame) { return asked.count(static_cast<int64_t>(frame)) != 0; };
    std::vector<uint64_t> hashes;
    for (const test::OracleFrame& frame : test::oracleFrames(path, options))
        hashes.push_back(frame.hash);
    return hashes;
}

struct Tally {
    int asked = 0;
    int wrong = 0;
    int failed = 0;
    int retried = 0;
    int linear = 0;
    int proven = 0;
    std::string firstWrong;
};

/// Compares what comes with what should.
class Judge {
public:
    explicit Judge(const std::vector<uint64_t>& hashes) : truth(hashes) {}

    void judge(int64_t frame, const Access& access) {
        ++tally.asked;
        tally.retried += access.reached == Reached::ExactAfterRetry ? 1 : 0;
        tally.linear += access.reached == Reached::Linear ? 1 : 0;
        tally.proven += access.reached == Reached::Proven ? 1 : 0;
        const auto at = static_cast<size_t>(frame);
        if (at < truth.size() && access.hash == truth[at])
            return;
        ++tally.wrong;
        if (tally.firstWrong.empty())
            tally.firstWrong = "frame " + std::to_string(frame);
    }

    void fail() {
        ++tally.asked;
        ++tally.failed;
    }

    [[nodiscard]] const Tally& result() const { return tally; }

private:
    const std::vector<uint64_t>& truth;
    Tally tally;
};

/// One by one for so many seconds, and the rest as a list by who can.
Tally askInOrder(Contender& contender, const Order& order, const std::vector<uint64_t>& truth,
                 double seconds) {
    Judge judge(truth);
    const auto end = Clock::now() + std::chrono::duration<double>(seconds);
    auto next = order.frames.begin();
    for (; next != order.frames.end() && Clock::now() < end; ++next) {
        try {
            judge.judge(*next, contender.read(*next));
        } catch (const std::exception&) {
            judge.fail();
        }
    }
    while (next != order.frames.end()) {
        const std::vector<int64_t> rest(next, order.frames.end());
        try {
            if (contender.readList(
                    rest, [&](const Access& access) { judge.judge(*next++, access); }) == 0)
                break;
        } catch (const std::exception&) {
            judge.fail();
            ++next;
        }
    }
    return judge.result();
}

/// The truth of one clip: with one thread, as a damaged one is read, or with two.
class Truth {
public:
    explicit Truth(std::string clip) : path(std::move(clip)) {}

    const std::vector<uint64_t>& of(const std::vector<Order>& orders, bool oneThread) {
        auto& hashes = oneThread ? single : usual;
        if (hashes.empty())
            hashes = truthOf(path, orders, oneThread);
        return hashes;
    }

private:
    std::string path;
    std::vector<uint64_t> usual;
    std::vector<uint64_t> single;
};

void print(const std::string& name, const std::string& kind, const std::string& order, size_t truth,
           int64_t count, const Tally& tally, bool damaged, double seconds) {
    std::cout << name << ',' << kind << ',' << order << ',' << truth << ',' << count << ','
              << tally.asked << ',' << tally.wrong << ',' << tally.failed << ',' << tally.retried
              << ',' << tally.linear << ',' << tally.proven << ','
              << (damaged ? "damaged" : "sound") << ',' << seconds << ',' << tally.firstWrong
              << std::endl;
}

void check(const std::string& kind, const std::string& path, double seconds, Truth& truth,
           std::vector<Order>& orders) {
    const std::string name = std::filesystem::path(path).filename();
    auto contender = contenderOf(kind, path);
    // Those that the reader, which is asked first, makes of its count: whatever the others count.
    if (orders.empty())
        orders = ordersFor(contender->frameCount());
    bool damaged = contender->isDamaged();
    for (const Order& order : orders) {
        const auto begin = Clock::now();
        Tally tally = askInOrder(*contender, order, truth.of(orders, damaged), seconds);
        if (!damaged && contender->isDamaged()) {
            // Found out while reading: what counts from here on is one thread's picture.
            damaged = true;
            tally = askInOrder(*contender, order, truth.of(orders, true), seconds);
        }
        const std::chrono::duration<double> took = Clock::now() - begin;
        print(name, kind, order.name, truth.of(orders, damaged).size(), contender->frameCount(),
              tally, damaged, took.count());
    }
}

void checkClip(const std::string& path, double seconds) {
    Truth truth(path);
    std::vector<Order> orders;
    const char* named = std::getenv("TARN_EXACTNESS_WAYS");
    std::istringstream ways(named != nullptr ? named : "reader checksums seek");
    for (std::string kind; ways >> kind;) {
        try {
            check(kind, path, seconds, truth, orders);
        } catch (const std::exception& error) {
            std::cout << std::filesystem::path(path).filename().string() << ',' << kind
                      << ",none,0,0,0,0,0,0,0,0,refused,0," << error.what() << std::endl;
        }
    }
}

} // namespace
} // namespace tio::bench

int main(int argc, char** argv) {
    if (argc < 3) {
        std::cerr << "usage: tarn_exactness SECONDS CLIP...\n";
        return 2;
    }
    tio::log::setSink([](const auto&, auto, const auto&) {});
    std::cerr.rdbuf(nullptr); // damaged packets are counted, not reported one by one
    for (int i = 2; i < argc; ++i)
        tio::bench::checkClip(argv[i], std::stod(argv[1]));
}
