#pragma once

#include "LibraryClock.h"

#include <TARN/core/Exception.h>

#include <exception>
#include <optional>
#include <string>
#include <vector>

/// @file
/// What the library makes of a file, entry point by entry point, beside what FFmpeg makes of it
/// when it is called directly. Both sides tell what they found as lines of text, so that one piece
/// compares whatever there is to compare.

namespace tio::survey {

/// What one side found: a line for each picture, packet, block of sound or property.
using Facts = std::vector<std::string>;

/// All that one side has to say of a file.
struct Account {
    Facts facts;
    std::optional<std::string> failure; ///< text of the exception that ended it
    bool foreign = false;               ///< the exception is none that the library promises
};

/// Lets a side tell its facts, and notes how that ended.
template <typename Teller>
Account accountOf(Teller&& tell) {
    Account account;
    try {
        tell(account.facts);
    } catch (const tio::Exception& failure) {
        account.failure = failure.what();
    } catch (const std::exception& failure) {
        account.failure = failure.what();
        account.foreign = true;
    }
    return account;
}

/// The same for FFmpeg's side, which takes none of the library's time.
template <typename Teller>
Account directAccountOf(Teller&& tell) {
    const LibraryClock::Rest rest;
    return accountOf(tell);
}

enum class Outcome {
    Equal,   ///< the library found what FFmpeg finds
    Refused, ///< the library threw, for what FFmpeg refuses too
    Differs, ///< all else: has to be explained, or mended
};

struct Verdict {
    Outcome outcome;
    std::string note; ///< how much was equal; what was refused; the first difference
};

[[nodiscard]] std::string nameOf(Outcome outcome);

/// Compares the library's account with FFmpeg's. That the library stops earlier than FFmpeg does is
/// a difference.
[[nodiscard]] Verdict judge(const Account& ours, const Account& direct);

/// The same for an account of decoding: a packet that the codec fails at stays in the library's
/// decoder, so an account that breaks off in the middle of FFmpeg's is a refusal.
[[nodiscard]] Verdict judgeDecoding(const Account& ours, const Account& direct);

/// One way into the library.
struct EntryPoint {
    std::string name;
    /// @param folder where files may be written
    Verdict (*examine)(const std::string& path, const std::string& folder);
};

[[nodiscard]] const std::vector<EntryPoint>& entryPoints();

/// The one of that name and folder.
[[nodiscard]] inline std::string fileIn(const std::string& folder, const std::string& name) {
    return folder + "/" + name;
}

} // namespace tio::survey
