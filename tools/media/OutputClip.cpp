#include "media/OutputClip.h"

#include "media/OutputFile.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <vector>

namespace tio::tool {

namespace fs = std::filesystem;

namespace {

using Endings = std::vector<std::string>;

const Endings clipEndings = {".mp4", ".m4v", ".mov", ".mkv", ".webm"};
const Endings soundEndings = {".wav", ".flac", ".m4a", ".mka"};

bool endsAs(const Endings& endings, const std::string& path) {
    const std::string ending = CLI::detail::to_lower(fs::path(path).extension().string());
    return std::find(endings.begin(), endings.end(), ending) != endings.end();
}

void requireName(const std::string& path, const std::string& what, const Endings& endings) {
    if (endsAs(endings, path))
        return;
    std::string list;
    for (const std::string& known : endings)
        list += (list.empty() ? "" : known == endings.back() ? " or " : ", ") + known;
    throw Failure(ExitCode::Usage, path, what + " is called " + list + " at the end");
}

} // namespace

bool isClipName(const std::string& path) {
    return endsAs(clipEndings, path);
}

void requireClipName(const std::string& path) {
    requireName(path, "a clip", clipEndings);
}

void requireSoundName(const std::string& path) {
    requireName(path, "sound alone", soundEndings);
}

OutputClip::OutputClip(const std::string& name, const ffmpeg::ClipWriterOptions& options)
    : path(name) {
    requireNotInput(path);
    const SignalsHeldBack heldBack;
    writing(path, [&] {
        try {
            writer.emplace(path, options);
        } catch (const ffmpeg::ClipRefusal& refusal) {
            throw Failure(ExitCode::Usage, path, reasonOf(refusal, path));
        }
    });
    if (const std::string hidden = hiddenFile(); !hidden.empty())
        cleanup.emplace(hidden);
}

void OutputClip::finish() {
    write([](ffmpeg::ClipWriter& clip) { clip.finish(); });
    cleanup.reset();
}

} // namespace tio::tool
