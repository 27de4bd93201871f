#include "support/MediaFolder.h"

#include "support/ByteEdits.h"
#include "support/TemporaryFolder.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>

namespace tio::test {
namespace {

/// Sets TARN_TEST_MEDIA for one test and restores it afterwards.
class MediaFolderTest : public testing::Test {
protected:
    void SetUp() override {
        if (const char* value = std::getenv("TARN_TEST_MEDIA"))
            before = value;
        setenv("TARN_TEST_MEDIA", folder.path().c_str(), 1);
    }
    void TearDown() override {
        if (before)
            setenv("TARN_TEST_MEDIA", before->c_str(), 1);
        else
            unsetenv("TARN_TEST_MEDIA");
    }

    void writeTable(const std::string& text) {
        writeBytes(folder.file("TRUTH.tsv"), {text.begin(), text.end()});
    }

    TemporaryFolder folder;
    std::optional<std::string> before;
};

TEST_F(MediaFolderTest, IsNotFoundWithoutItsTable) {
    EXPECT_FALSE(mediaFolder());
    EXPECT_NE(mediaMissingMessage().find(folder.path().string()), std::string::npos);
}

TEST_F(MediaFolderTest, HasNoDefault) {
    for (const bool empty : {false, true}) {
        empty ? setenv("TARN_TEST_MEDIA", "", 1) : unsetenv("TARN_TEST_MEDIA");
        EXPECT_FALSE(mediaFolder());
        EXPECT_FALSE(mediaFile("TRUTH.tsv"));
        EXPECT_TRUE(readTruth().empty());
        EXPECT_THAT(mediaMissingMessage(), testing::HasSubstr("set TARN_TEST_MEDIA"));
    }
}

TEST_F(MediaFolderTest, FindsFilesOfTheFolder) {
    writeTable("file\n");
    EXPECT_EQ(mediaFile("TRUTH.tsv"), folder.path() / "TRUTH.tsv");
    EXPECT_FALSE(mediaFile("video/none.mp4"));
}

TEST_F(MediaFolderTest, ReadsRowsByColumnName) {
    writeTable("file\tcodec\tframes\na.mp4\t\t12\nb.ts\th264\n");
    const std::vector<TruthRow> rows = readTruth();
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0].at("codec"), "");
    EXPECT_EQ(rows[0].at("frames"), "12");
    EXPECT_EQ(rows[1].at("codec"), "h264");
    EXPECT_EQ(rows[1].at("frames"), "");
}

} // namespace
} // namespace tio::test
