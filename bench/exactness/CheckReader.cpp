// Reads frames of clips in several orders through the library and compares each with a decoding
// from start to end by FFmpeg called directly:
//   tarn_exactness SECONDS CLIP...
// prints a line of comma-separated values for each clip, way of reading (reader, checksums, seek)
// and order. No order takes longer than SECONDS; what was not asked for by then is left out.

#include "orders.h"
#include "support/HashedPicture.h"
#include "support/Oracle.h"

#include <TARN/logging/log.h>
#include <TARN/videoio.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace tio::bench {
namespace {

using Clock = std::chrono::steady_clock;
using Reached = ffmpeg::FrameReader::Reached;

struct Access {
    uint64_t hash = 0;
    Reached reached = Reached::Exact;
};

/// Something that gives pictures by number.
class Contender {
public:
    Contender() = default;
    Contender(const Contender&) = delete;
    Contender& operator=(const Contender&) = delete;
    virtual ~Contender() = default;
    virtual int64_t frameCount() = 0;
    virtual Access read(int64_t frame) = 0;

    /// Reads many at once, where that takes less time, and says how many of them.
    virtual size_t readList(const std::vector<int64_t>& /*frames*/,
                            const std::function<void(const Access&)>& /*receive*/) {
        return 0;
    }
    [[nodiscard]] virtual bool isDamaged() const { return false; }
};

class ByReader : public Contender {
public:
    ByReader(const std::string& path, bool checksums)
        : reader(std::make_shared<ffmpeg::InputFormatContext>(path), ffmpeg::PixelFormat::RGB,
                 optionsFor(checksums)) {}

    int64_t frameCount() override { return reader.frameCount(); }
    Access read(int64_t frame) override { return accessOf(reader.readFrame(frame)); }
    size_t readList(const std::vector<int64_t>& frames,
                    const std::function<void(const Access&)>& receive) override {
        reader.readFrames(frames, [&](const auto& picture) {
            receive(accessOf(picture));
            return true;
        });
        return frames.size();
    }
    [[nodiscard]] bool isDamaged() const override { return reader.index().isDamaged(); }

private:
    static Access accessOf(const ffmpeg::FrameReader::Picture& picture) {
        return {test::hashedPicture(*picture.frame).hash, picture.reached};
    }

    static ffmpeg::FrameReaderOptions optionsFor(bool checksums) {
        ffmpeg::FrameReaderOptions options;
        options.colours = ffmpeg::Colours::Bt601; // as the truth takes them
        options.checksums = checksums;
        return options;
    }

    ffmpeg::FrameReader reader;
};

class BySeek : public Contender {
public:
    explicit BySeek(const std::string& path)
        : decoder(std::make_shared<ffmpeg::InputFormatContext>(path), ffmpeg::PixelFormat::RGB) {}

    int64_t frameCount() override { return decoder.getFrameCount(); }
    Access read(int64_t frame) override {
        decoder.seek(frame);
        const auto picture = decoder.readNextFrame();
        if (!picture.frame)
            throw Exception("no picture");
        return {test::hashedPicture(*picture.frame).hash, Reached::Exact};
    }

private:
    ffmpeg::VideoStreamDecoder decoder;
};

std::unique_ptr<Contender> open(const std::string& kind, const std::string& path) {
    if (kind == "seek")
        return std::make_unique<BySeek>(path);
    return std::make_unique<ByReader>(path, kind == "checksums");
}

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
    auto contender = open(kind, path);
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
    for (const std::string kind : {"reader", "checksums", "seek"}) {
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
