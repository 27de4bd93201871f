// A file of FrameIndex that was tampered with: it is loaded, and a FrameReader reads by what is in
// it. An index whose hash does not fit is refused at once, so most inputs change numbers in a true
// index, which is then written with the right hash.
//   byte 0  0: the rest is the file as it is; otherwise the rest consists of
//   edits   one byte for the column, two for the row, eight for the new value

#include "InputBytes.h"
#include "MemoryFile.h"
#include "exact/index/IndexFile.h"
#include "support/ClipMaker.h"
#include "support/TemporaryFolder.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace tio::ffmpeg;
using detail::IndexData;
using tio::fuzz::InputBytes;

/// A clip, its true index, and a file for others.
struct Clip {
    Clip() : path(folder.file("clip.mp4")), file(folder.file("clip.index")) {
        tio::test::ClipPlan plan;
        plan.width = 32;
        plan.height = 32;
        tio::test::makeClip(path, plan);
        FrameIndex::build(std::make_shared<InputFormatContext>(path)).save(file);
        index = *detail::readIndexFile(file).index;
    }

    tio::test::TemporaryFolder folder;
    std::string path;
    std::string file;
    IndexData index;
};

Clip& clip() {
    static Clip made;
    return made;
}

template <typename T>
void editColumn(std::vector<T>& column, size_t row, int64_t value) {
    if (!column.empty())
        column[row % column.size()] = static_cast<T>(value);
}

template <typename T>
void resizeColumn(std::vector<T>& column, size_t rows) {
    column.resize(rows % 1024);
}

void resizePackets(IndexData& index, size_t rows) {
    resizeColumn(index.pts, rows);
    resizeColumn(index.positions, rows);
    resizeColumn(index.hashes, rows);
    resizeColumn(index.flags, rows);
}

void resizeKeys(IndexData& index, size_t rows) {
    resizeColumn(index.keys, rows);
    resizeColumn(index.keyDts, rows);
}

using Edit = std::function<void(IndexData&, size_t row, int64_t value)>;

const std::vector<Edit> edits = {
    [](IndexData& index, size_t row, int64_t value) { editColumn(index.pts, row, value); },
    [](IndexData& index, size_t row, int64_t value) { editColumn(index.positions, row, value); },
    [](IndexData& index, size_t row, int64_t value) { editColumn(index.hashes, row, value); },
    [](IndexData& index, size_t row, int64_t value) { editColumn(index.flags, row, value); },
    [](IndexData& index, size_t row, int64_t value) { editColumn(index.keys, row, value); },
    [](IndexData& index, size_t row, int64_t value) { editColumn(index.keyDts, row, value); },
    [](IndexData& index, size_t row, int64_t value) { editColumn(index.packets, row, value); },
    [](IndexData& index, size_t row, int64_t value) { editColumn(index.ownTimes, row, value); },
    [](IndexData& index, size_t row, int64_t value) { editColumn(index.checksums, row, value); },
    [](IndexData& index, size_t row, int64_t value) {
        index.notes.cleanFrom[static_cast<uint32_t>(row)] = static_cast<uint32_t>(value);
    },
    [](IndexData& index, size_t row, int64_t) { resizePackets(index, row); },
    [](IndexData& index, size_t row, int64_t) { resizeKeys(index, row); },
    [](IndexData& index, size_t row, int64_t) { resizeColumn(index.packets, row); },
    [](IndexData& index, size_t row, int64_t) { resizeColumn(index.ownTimes, row); },
    [](IndexData& index, size_t row, int64_t) { resizeColumn(index.checksums, row); },
    [](IndexData& index, size_t, int64_t value) { index.frameTicks = value; },
    [](IndexData& index, size_t, int64_t value) { index.lastTicks = value; },
    [](IndexData& index, size_t, int64_t value) { index.maxPtsDtsDifference = value; },
    [](IndexData& index, size_t, int64_t value) {
        index.singleThread = (value & 1) != 0;
        index.decoded = (value & 2) != 0;
        index.notes.mayLeaveOut = (value & 4) != 0;
    },
};

std::string editedFile(InputBytes& input) {
    IndexData index = clip().index;
    while (!input.atEnd()) {
        const Edit& edit = edits[input.byte() % edits.size()];
        const auto row = input.number<uint16_t>();
        edit(index, row, input.number<int64_t>());
    }
    detail::writeIndexFile(clip().file, index);
    return clip().file;
}

template <typename Action>
void attempt(const Action& action) {
    try {
        action();
    } catch (const tio::Exception&) { // what a file that lies should give
    }
}

void readBy(const FrameIndex& index, const std::shared_ptr<InputFormatContext>& input) {
    FrameReaderOptions options;
    options.index = index;
    options.threads = 1;
    FrameReader reader(input, PixelFormat::NV12, options);
    const int64_t last = reader.frameCount() - 1;
    for (const int64_t frame : {last, int64_t{0}, last / 2})
        attempt([&] { (void)reader.readFrame(frame); });
    attempt([&] { (void)reader.frameDuration(last); });
    attempt([&] { (void)reader.readFrameAt({1, 2}); });
    attempt([&] { reader.readFrames({last, 3, 1, 2}, [](const auto&) { return true; }); });
    attempt([&] { reader.index().exportSeekingIndex("/dev/null"); });
}

void loadAndRead(const std::string& path) {
    attempt([&] {
        const auto input = std::make_shared<InputFormatContext>(clip().path);
        const FrameIndex::Loaded loaded = FrameIndex::load(path, input);
        if (loaded.index)
            readBy(*loaded.index, input);
    });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
    InputBytes input(bytes, count);
    if (input.byte() != 0) {
        loadAndRead(editedFile(input));
    } else if (count > 1) {
        const tio::fuzz::MemoryFile file(bytes + 1, count - 1);
        loadAndRead(file.path());
    }
    return 0;
}
