// Gives every file of the folders named to a fuzz target, without a fuzzer.
//   tarn_fuzz_replay TARGET FOLDER...
// A folder that does not exist is passed over: not every target has had findings.

#include "fuzz/start.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

// TARN_TARGETS is TARN_TARGET(name) for each of them.
extern "C" {
#define TARN_TARGET(name) int replay_##name(const uint8_t* bytes, size_t count);
TARN_TARGETS
#undef TARN_TARGET
}

namespace {

namespace fs = std::filesystem;
using Run = int (*)(const uint8_t*, size_t);

const std::map<std::string, Run> targets = {
#define TARN_TARGET(name) {#name, replay_##name},
    TARN_TARGETS
#undef TARN_TARGET
};

std::vector<fs::path> filesIn(const fs::path& folder) {
    std::vector<fs::path> files;
    if (fs::is_directory(folder))
        for (const auto& entry : fs::directory_iterator(folder))
            files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<uint8_t> contentOf(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

} // namespace

int main(int count, char** arguments) {
    const std::string name = count > 1 ? arguments[1] : "";
    const auto target = targets.find(name);
    if (target == targets.end()) {
        std::cerr << "there is no target \"" << name << "\"\n";
        return EXIT_FAILURE;
    }
    tio::fuzz::start();
    int replayed = 0;
    for (int i = 2; i < count; ++i) {
        for (const fs::path& path : filesIn(arguments[i])) {
            std::cout << path.string() << std::endl; // so that the last line names what crashes
            const std::vector<uint8_t> bytes = contentOf(path);
            target->second(bytes.data(), bytes.size());
            ++replayed;
        }
    }
    std::cout << replayed << " inputs\n";
    return replayed > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
