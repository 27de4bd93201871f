#include "commands/Commands.h"
#include "media/FrameSource.h"
#include "terminal/Progress.h"

#include <algorithm>
#include <iostream>
#include <memory>
#include <random>
#include <utility>
#include <vector>

namespace tio::tool {

namespace {

constexpr uint64_t shuffleSeed = 20240613;
constexpr size_t shownDisagreements = 5;

// Reading on after a failure skips what failed. A stream in which this many reads fail in a row is
// taken to have nothing more to give.
constexpr int toleratedFailures = 100;

struct VerifyOptions {
    std::optional<int64_t> samples; // frames per order; all without it
    bool reader = false;            // check FrameReader instead of seeking
    bool sound = false;             // check SampleReader
    bool checksums = false;         // with proof
};

struct Disagreement {
    int64_t number;
    Reading got;
};

/// The two readings of a clip that are compared.
struct Sources {
    std::unique_ptr<FrameSource> forward;
    std::unique_ptr<FrameSource> byNumber;
};

Sources openSoundSources(const std::string& url, bool checksums) {
    ffmpeg::SampleReaderOptions reading;
    reading.checksums = checksums;
    auto byNumber = std::make_unique<SoundBlockSource>(url, reading);
    reading.index = byNumber->index();
    return {std::make_unique<SoundBlockSource>(url, reading), std::move(byNumber)};
}

Sources openSources(const InputOptions& input, const VerifyOptions& options) {
    requireReadAgain(input.url);
    if (options.sound)
        return openSoundSources(input.url, options.checksums);
    if (!options.reader)
        return {std::make_unique<DecoderSource>(InputOptions{input.url, {}}),
                std::make_unique<DecoderSource>(input)};
    ffmpeg::FrameReaderOptions reading;
    reading.index = storedFrameIndex(input, openInput(input.url));
    reading.checksums = options.checksums;
    auto byNumber = std::make_unique<ReaderSource>(input.url, reading);
    reading.index = byNumber->index();
    return {std::make_unique<ReaderSource>(input.url, reading), std::move(byNumber)};
}

/// Reads a clip forward, then frame by frame in other orders, and compares.
class Verification {
public:
    Verification(const Program& ofProgram, const VerifyOptions& options)
        : program(ofProgram), sources(openSources(program.input, options)) {}

    void readForward();
    void compareCount();
    void reportRemark() const;
    void compareOrder(const std::string& name, const std::vector<int64_t>& numbers,
                      const std::string& remark);

    [[nodiscard]] int64_t frameCount() const { return static_cast<int64_t>(forward.size()); }
    [[nodiscard]] bool allAgree() const { return agree; }

private:
    [[nodiscard]] Reading readBySeek(int64_t number);
    void reportDisagreement(const Disagreement& disagreement) const;
    void report(const std::string& line) const;

    const Program& program;
    Sources sources;
    std::vector<Reading> forward; // by frame number
    bool agree = true;
};

void Verification::report(const std::string& line) const {
    if (!program.quiet)
        std::cout << oneLine(line) << std::endl;
}

void Verification::readForward() {
    std::string failure;
    int64_t failures = 0;
    {
        Progress progress("forward", "frames", std::nullopt, program.quiet);
        for (int inARow = 0; inARow < toleratedFailures;) {
            try {
                Reading frame = sources.forward->readNext();
                if (!frame.failure.empty())
                    break;
                forward.push_back(std::move(frame));
                progress.advance();
                inARow = 0;
            } catch (const std::exception& error) {
                ++inARow;
                ++failures;
                failure = reasonOf(error, program.input.url);
            }
        }
    }
    if (forward.empty())
        throw Failure(ExitCode::Input, program.input.url,
                      failures > 0
                          ? failure
                          : "reading gives no picture that has a time, and seeking goes by "
                            "times; verify --reader checks such a clip");
    report("forward:  " + std::to_string(forward.size()) + ' ' + sources.forward->unit() + " read");
    if (failures > 0) {
        agree = false;
        report("  " + std::to_string(failures) + " reads failed, the last one with: " + failure);
    }
}

void Verification::compareCount() {
    try {
        const int64_t count = sources.byNumber->frameCount();
        const bool same = count == frameCount();
        report("count:    the index has " + std::to_string(count) + ' ' + sources.byNumber->unit() +
               (same ? "" : ", but reading gave " + std::to_string(frameCount())));
        agree = agree && same;
    } catch (const std::exception& error) {
        agree = false;
        report("count:    " + (isRefusedSeek(error)
                                   ? "no seeking: this container cannot be rewound; see --reader"
                                   : "no index: " + reasonOf(error, program.input.url)));
    }
}

Reading Verification::readBySeek(int64_t number) {
    try {
        return sources.byNumber->readAt(number);
    } catch (const std::exception& error) {
        return {0, {}, reasonOf(error, program.input.url)};
    }
}

void Verification::reportRemark() const {
    if (const std::string remark = sources.byNumber->remark(); !remark.empty())
        report(remark);
}

void Verification::compareOrder(const std::string& name, const std::vector<int64_t>& numbers,
                                const std::string& remark) {
    std::vector<Disagreement> shown;
    size_t disagreements = 0;
    {
        Progress progress(name, "frames", static_cast<int64_t>(numbers.size()), program.quiet);
        for (const int64_t number : numbers) {
            Reading got = readBySeek(number);
            progress.advance();
            if (got.agreesWith(forward[static_cast<size_t>(number)]))
                continue;
            if (++disagreements <= shownDisagreements)
                shown.push_back({number, std::move(got)});
        }
    }
    agree = agree && disagreements == 0;
    report(name + ':' + std::string(9 - name.size(), ' ') +
           std::to_string(numbers.size() - disagreements) + " of " +
           std::to_string(numbers.size()) + ' ' + sources.byNumber->unit() + " agree" + remark);
    for (const Disagreement& disagreement : shown)
        reportDisagreement(disagreement);
    if (disagreements > shown.size())
        report("  and " + std::to_string(disagreements - shown.size()) + " more");
}

void Verification::reportDisagreement(const Disagreement& disagreement) const {
    const Reading& expected = forward[static_cast<size_t>(disagreement.number)];
    const Reading& got = disagreement.got;
    std::string line = "  frame " + std::to_string(disagreement.number) + ": expected time " +
                       text(expected.time) + " s, got ";
    if (!got.failure.empty())
        line += "no picture: " + got.failure;
    else
        line += text(got.time) + " s, " +
                (got.digest == expected.digest ? "the same picture" : "another picture");
    report(line);
}

/// Frame numbers in descending order: all of them, or `samples` of them spread evenly.
std::vector<int64_t> descendingNumbers(int64_t count, std::optional<int64_t> samples) {
    const int64_t wanted = std::min(count, samples.value_or(count));
    std::vector<int64_t> numbers;
    for (int64_t step = wanted - 1; step >= 0; --step)
        numbers.push_back(wanted == 1 ? 0 : step * (count - 1) / (wanted - 1));
    return numbers;
}

// Written out, because the order that std::shuffle gives differs between standard libraries.
void shuffle(std::vector<int64_t>& numbers) {
    std::mt19937_64 random(shuffleSeed);
    for (size_t left = numbers.size(); left > 1; --left)
        std::swap(numbers[left - 1], numbers[random() % left]);
}

ExitCode runVerify(const Program& program, const VerifyOptions& options) {
    if (options.checksums && !options.reader && !options.sound)
        throw Failure(ExitCode::Usage, "--checksum", "this needs --reader or --sound");
    Verification verification(program, options);
    verification.readForward();
    verification.compareCount();
    auto numbers = descendingNumbers(verification.frameCount(), options.samples);
    verification.compareOrder("reverse", numbers, "");
    shuffle(numbers);
    verification.compareOrder("shuffled", numbers, " (seed " + std::to_string(shuffleSeed) + ")");
    verification.reportRemark();
    return verification.allAgree() ? ExitCode::Success : ExitCode::Differences;
}

constexpr const char* footer =
    R"(Every frame is read forward; then each is sought and read once more, in reverse
and in a shuffled order, and has to have the same picture and the same time.
The exit code is 0 when all agree, and 1 when one does not, when one access
fails, or when the index counts other than reading does.)";

} // namespace

void addVerifyCommand(CLI::App& app, Program& program) {
    auto options = std::make_shared<VerifyOptions>();
    CLI::App& command =
        addCommand(app, program, "verify", "Check that every frame can be sought exactly",
                   [&program, options] { return runVerify(program, *options); });
    command
        .add_option("--samples", options->samples,
                    "Seek this many frames per order, spread evenly [all]")
        ->check(atLeast(1))
        ->type_name("N");
    auto* reader =
        command.add_flag("--reader", options->reader, "Check the frame reader instead of seeking");
    auto* sound = command
                      .add_flag("--sound", options->sound,
                                "Check the sound instead, in blocks, as SampleReader gives it")
                      ->excludes(reader);
    command.add_flag("--checksum", options->checksums,
                     "With --reader or --sound: have everything proven by checksums, for which the "
                     "stream is decoded once more");
    sound->excludes(addIndexOption(command, program, "Seek with a stored index"));
    command.footer(footer);
}

} // namespace tio::tool
