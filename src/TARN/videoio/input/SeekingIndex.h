#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace tio::ffmpeg::detail {

/// The times by which frames are numbered, and how far before one to seek to reach it. In
/// a file: the distance, then the times, as 64-bit integers in the machine's own order.
class SeekingIndex {
public:
    /// What a packet has to do with it.
    struct Entry {
        int64_t pts;
        int64_t dts;
        bool discarded;
    };

    /// Whether a failed call leaves its file open, as InputStream does, or closes it.
    enum class AfterFailure { LeaveOpen, Close };

    /// A reading of packets begins.
    void begin();

    /// Takes the time of a packet, but not of one that is to be discarded or repeats the time of
    /// the one before. Where the demuxer seeks by pts, the distance is not needed.
    void record(const Entry& entry, bool seeksByPts);

    void sort();

    /// Each step has a message and a place of its own, in a fixed order.
    /// @throws tio::Exception naming the path and the step; what was written stays
    void store(const std::string& path, AfterFailure afterFailure) const;

    /// @throws tio::Exception naming the path and the step; what was read up to then stays in place
    void load(const std::string& path, AfterFailure afterFailure);

    std::vector<int64_t> times; ///< in ticks of the stream; rising once sorted
    int64_t maxPtsDtsDifference = 0;

private:
    int64_t lastPts = INT64_MIN; // as unknown times are
};

} // namespace tio::ffmpeg::detail
