#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// @file
/// Everything that the library does, in pieces whose outcome is a number. Any of them may run
/// beside any other, for each makes its own objects.

namespace tio::test {

/// The files that the jobs read.
struct JobFiles {
    std::string clip;   ///< video and sound in MP4, turned by a quarter
    std::string stream; ///< the same in MPEG-TS, upright
    std::string image;  ///< a JPEG photo
    std::string broken; ///< FFmpeg says why it does not open it

    /// Where they are in a folder.
    explicit JobFiles(const std::string& folder);

    /// Makes them there, without the library under test.
    void make() const;
};

struct Job {
    std::string name;

    /// Does it; what it writes goes to paths that begin with `scratch`.
    /// @returns a hash of all that came out
    std::function<uint64_t(const std::string& scratch)> run;
};

/// The jobs over these files, which have to outlive them.
[[nodiscard]] std::vector<Job> jobsOver(const JobFiles& files);

/// Short ones: the ways in which a program can begin to use the library, "fail to open" the last.
[[nodiscard]] std::vector<Job> beginningsOver(const JobFiles& files);

} // namespace tio::test
