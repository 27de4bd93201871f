#include "ProgramRun.h"
#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

using namespace tio::test;
using testing::HasSubstr;

namespace {

/// A row of the table.
struct Row {
    size_t offset = 0;
    size_t code = 0;
    int type = 0;
    std::string name;
    size_t size = 0;
};

std::vector<Row> rowsOf(const std::string& table) {
    std::istringstream lines(table);
    std::string line;
    std::getline(lines, line);
    EXPECT_THAT(line, testing::MatchesRegex(" *offset +code +type +bytes"));
    std::vector<Row> rows;
    while (std::getline(lines, line)) {
        Row row;
        std::istringstream words(line);
        words >> row.offset >> row.code >> row.type;
        std::string word;
        while (words >> word && !std::isdigit(static_cast<unsigned char>(word.front())))
            row.name += (row.name.empty() ? "" : " ") + word;
        row.size = std::stoul(word);
        rows.push_back(row);
    }
    return rows;
}

class NalsCommandTest : public testing::Test {
protected:
    std::vector<Row> list(const std::string& file) {
        const ProgramResult result = runProgram({"nals", file});
        EXPECT_EQ(result.exitCode, 0) << result.err;
        return rowsOf(result.out);
    }

    std::string make(const std::string& name, const std::string& format) {
        ClipPlan plan;
        plan.format = format;
        plan.frameCount = 6;
        makeClip(folder.file(name), plan);
        return folder.file(name);
    }

    TemporaryFolder folder;
};

TEST_F(NalsCommandTest, RowsOfARawStreamCoverItsBytes) {
    const std::string file = make("clip.h264", "h264");
    const std::vector<uint8_t> bytes = readBytes(file);
    size_t end = 0;
    for (const Row& row : list(file)) {
        ASSERT_EQ(row.offset, end);
        ASSERT_EQ(bytes.at(row.offset + row.code - 1), 1) << "the end of a start code";
        ASSERT_EQ(bytes.at(row.offset + row.code) & 0x1F, row.type);
        end = row.offset + row.code + row.size;
    }
    EXPECT_EQ(end, bytes.size());
}

TEST_F(NalsCommandTest, NamesTheTypes) {
    const std::vector<Row> rows = list(make("clip.h264", "h264"));
    const auto has = [&](int type, const std::string& name) {
        return std::any_of(rows.begin(), rows.end(),
                           [&](const Row& row) { return row.type == type && row.name == name; });
    };
    EXPECT_TRUE(has(7, "sequence parameter set"));
    EXPECT_TRUE(has(8, "picture parameter set"));
    EXPECT_TRUE(has(5, "slice of an IDR picture"));
    EXPECT_TRUE(has(1, "slice"));
}

TEST_F(NalsCommandTest, ListsTheParameterSetsOfAClip) {
    for (const char* format : {"mp4", "matroska", "mpegts"}) {
        const std::vector<Row> rows = list(make("clip", format));
        ASSERT_EQ(rows.size(), 2u) << format;
        EXPECT_EQ(rows[0].type, 7);
        EXPECT_EQ(rows[1].type, 8);
        EXPECT_EQ(rows[1].offset, rows[0].code + rows[0].size);
    }
}

TEST_F(NalsCommandTest, TellsThatAClipIsNotH264) {
    ClipPlan plan;
    plan.format = "avi";
    plan.encoder = "mpeg4";
    makeClip(folder.file("clip.avi"), plan);
    const ProgramResult result = runProgram({"nals", folder.file("clip.avi")});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_THAT(result.err, HasSubstr("clip.avi: the video is not H.264"));
}

} // namespace
