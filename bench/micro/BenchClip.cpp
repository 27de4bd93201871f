#include "BenchClip.h"

#include "support/ClipMaker.h"
#include "support/TemporaryFolder.h"

#include <cstdlib>

namespace tio::bench {

namespace {

test::TemporaryFolder& folder() {
    static test::TemporaryFolder instance;
    return instance;
}

std::string make(const std::string& name, int rotation) {
    test::ClipPlan plan;
    plan.width = 1280;
    plan.height = 720;
    plan.frameCount = 250;
    plan.gopSize = 100;
    plan.rotation = rotation;
    const std::string path = folder().file(name);
    test::makeClip(path, plan);
    return path;
}

} // namespace

const std::string& clip() {
    const char* given = std::getenv("TARN_BENCH_CLIP");
    static const std::string path = given != nullptr ? given : make("clip.mp4", 0);
    return path;
}

const std::string& rotatedClip() {
    static const std::string path = make("rotated.mp4", 90);
    return path;
}

} // namespace tio::bench
