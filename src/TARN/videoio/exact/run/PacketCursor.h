#pragma once

#include "exact/index/IndexData.h"
#include "exact/run/PacketSource.h"

#include <cstdint>
#include <vector>

namespace tio::ffmpeg::detail {

/// A place among the packets of a stream, by their numbers in its index.
///
/// Where a seek leads is not believed but looked up: the packet found there is known by its
/// content, and so is every one that follows. No container's word is taken for a place or a time.
class PacketCursor {
public:
    enum class Step {
        Packet, ///< source().packet() is the next one
        End,    ///< there was none left
        Lost,   ///< another packet than the index has came
    };

    /// On a source that stands anywhere. Both must outlive the cursor. Where others have moved the
    /// source in between, the cursor finds its way back.
    PacketCursor(PacketSource& source, const IndexData& index);

    /// Goes to before packet `number`: by a seek where one leads there, else by reading on from the
    /// start.
    /// @returns false when the source is not as it was when the index was made
    [[nodiscard]] bool goTo(uint32_t number);

    /// Goes to before packet 0, to packets as a newly opened source gives them: in an opened one
    /// where it comes back as it was.
    void rewind();

    /// Goes to before packet 0 in a newly opened source.
    void startOver();

    [[nodiscard]] Step advance();

    /// Number of the packet that advance() goes to next.
    [[nodiscard]] uint32_t nextNumber() const noexcept { return next; }

private:
    enum class Way { Pts, Dts, Byte, ByteBefore };
    struct Method {
        Way way;
        int failures = 0;
    };

    static std::vector<Method> methodsFor(const AVInputFormat& format);
    [[nodiscard]] bool isPlaced() const noexcept;
    void place(bool known) noexcept;
    [[nodiscard]] bool seekTo(uint32_t number);
    [[nodiscard]] bool seekBackToStart();
    [[nodiscard]] bool seekBy(Way way, uint32_t number);
    [[nodiscard]] bool landsBefore(uint32_t number);
    [[nodiscard]] bool readUpTo(uint32_t number);
    [[nodiscard]] int64_t locate(uint32_t near) const;
    [[nodiscard]] int64_t byteBefore(uint32_t number) const;

    PacketSource& packets;
    const IndexData& index;
    std::vector<Method> methods; // the one that failed least goes first
    uint32_t next = 0;
    bool pending = false; // the source stands on packet `next` already
    bool placed = false;  // the source is where `next` says, unless it was moved since
    int64_t stepsWhenPlaced = 0;
};

} // namespace tio::ffmpeg::detail
