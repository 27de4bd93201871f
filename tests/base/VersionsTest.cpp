#include "support/Ffmpeg.h"

#include <TARN/videoio/Versions.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace tio::ffmpeg {
namespace {

using ::testing::ElementsAre;

// An FFmpeg of another major number would read our structures with other offsets.
TEST(VersionsTest, TheLoadedLibrariesHaveTheMajorNumbersCompiledAgainst) {
    for (const LibraryVersion& library : versions())
        EXPECT_EQ(library.loaded.major, library.compiled.major) << library.name;
}

TEST(VersionsTest, EveryLibraryThatIsLinkedIsNamed) {
    std::vector<std::string> names;
    for (const LibraryVersion& library : versions())
        names.push_back(library.name);
    EXPECT_THAT(names,
                ElementsAre("libavformat", "libavcodec", "libavutil", "libswscale", "libavfilter"));
}

TEST(VersionsTest, TheLoadedVersionsAreWhatTheLibrariesSay) {
    std::vector<unsigned> loaded;
    for (const LibraryVersion& library : versions()) {
        const VersionNumber& number = library.loaded;
        loaded.push_back(
            static_cast<unsigned>(number.major << 16 | number.minor << 8 | number.micro));
    }
    EXPECT_THAT(loaded, ElementsAre(avformat_version(), avcodec_version(), avutil_version(),
                                    swscale_version(), avfilter_version()));
}

TEST(VersionsTest, TheCompiledVersionsAreThoseOfTheHeaders) {
    std::vector<std::string> compiled;
    for (const LibraryVersion& library : versions())
        compiled.push_back(library.compiled.toString());
    const auto number = [](const std::string& ident) {
        return ident.substr(ident.find_first_of("0123456789")); // as in "Lavf59.27.100"
    };
    EXPECT_THAT(compiled, ElementsAre(number(LIBAVFORMAT_IDENT), number(LIBAVCODEC_IDENT),
                                      number(LIBAVUTIL_IDENT), number(LIBSWSCALE_IDENT),
                                      number(LIBAVFILTER_IDENT)));
}

TEST(VersionsTest, TheReleaseIsTheOneThatTheLibrariesName) {
    EXPECT_EQ(loadedRelease(), av_version_info());
    EXPECT_NE(loadedRelease(), "");
}

} // namespace
} // namespace tio::ffmpeg
