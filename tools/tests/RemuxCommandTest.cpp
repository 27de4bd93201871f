#include "ProgramRun.h"
#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/Demuxing.h"
#include "support/Encoding.h"
#include "support/Ffmpeg.h"
#include "support/LoopbackServer.h"
#include "support/Mp4Edits.h"
#include "support/Oracle.h"
#include "support/TemporaryFolder.h"
#include "support/Track.h"

#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <sys/stat.h>
#include <vector>

using namespace tio::test;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

struct Copied {
    std::vector<uint8_t> payload;
    int64_t pts; // both in ticks of 1/90000 seconds
    int64_t dts;
    int flags;
};

std::vector<Copied> packetsOf(const std::string& path) {
    constexpr AVRational common = {1, 90000};
    VideoDemuxer demuxer(path);
    std::vector<Copied> packets;
    while (demuxer.readPacket()) {
        const AVPacket& packet = demuxer.packet();
        const AVRational timeBase = demuxer.stream().time_base;
        packets.push_back({{packet.data, packet.data + packet.size},
                           av_rescale_q(packet.pts, timeBase, common),
                           av_rescale_q(packet.dts, timeBase, common),
                           packet.flags & AV_PKT_FLAG_KEY});
    }
    return packets;
}

void expectSamePictures(const std::string& clip, const std::string& copy,
                        const OracleOptions& options = {}) {
    const auto original = oracleFrames(clip, options);
    const auto copied = oracleFrames(copy);
    ASSERT_EQ(copied.size(), original.size());
    for (size_t i = 0; i < original.size(); ++i)
        EXPECT_EQ(copied[i].hash, original[i].hash) << i;
}

class RemuxCommandTest : public testing::Test {
protected:
    void make(const ClipPlan& plan, const std::string& name = "clip.mp4") {
        clip = folder.file(name);
        makeClip(clip, plan);
    }

    void makeTransportStream() {
        ClipPlan plan;
        plan.format = "mpegts";
        plan.audio = true;
        make(plan, "clip.ts");
    }

    ProgramResult remux(std::vector<std::string> more = {}) {
        std::vector<std::string> arguments = {"remux", clip, copy};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return runProgram(arguments);
    }

    TemporaryFolder folder;
    std::string clip;
    std::string copy = folder.file("copy.mp4");
};

TEST_F(RemuxCommandTest, PassesPacketsWithBFramesOnAsTheyAreAndInTheirOrder) {
    make({});
    ASSERT_EQ(remux().exitCode, 0);
    const auto original = packetsOf(clip);
    const auto copied = packetsOf(copy);
    ASSERT_EQ(copied.size(), original.size());
    for (size_t i = 0; i < original.size(); ++i) {
        EXPECT_EQ(copied[i].payload, original[i].payload) << i;
        EXPECT_EQ(copied[i].flags, original[i].flags) << i;
        EXPECT_EQ(copied[i].pts - copied[0].pts, original[i].pts - original[0].pts) << i;
        EXPECT_EQ(copied[i].dts - copied[0].dts, original[i].dts - original[0].dts) << i;
    }
}

TEST_F(RemuxCommandTest, KeepsEveryPictureAndItsTime) {
    make({});
    ASSERT_EQ(remux().exitCode, 0);
    expectSamePictures(clip, copy);
    EXPECT_EQ(runProgram({"verify", copy}).exitCode, 0);
}

TEST_F(RemuxCommandTest, CopiesThePacketsOfPictureAndSound) {
    ClipPlan plan;
    plan.audio = true;
    make(plan);
    const ProgramResult result = remux();
    EXPECT_EQ(result.exitCode, 0);
    const std::string info = runProgram({"info", copy}).out;
    EXPECT_THAT(info, HasSubstr("video, h264"));
    EXPECT_THAT(info, HasSubstr("audio, aac"));
    EXPECT_THAT(result.out, HasSubstr("of 2 streams"));
}

TEST_F(RemuxCommandTest, TurnsATransportStreamIntoMp4) {
    makeTransportStream();
    ASSERT_EQ(remux().exitCode, 0);
    EXPECT_EQ(oracleFrames(copy).size(), 25u);
}

// What comes through a pipe, or from a camera, can be opened only once.
TEST_F(RemuxCommandTest, CopiesSeveralStreamsOutOfAPipe) {
    makeTransportStream();
    ASSERT_EQ(remux().exitCode, 0);
    const std::string pipe = folder.file("pipe.ts");
    const std::string copyOfPipe = folder.file("copy of pipe.mp4");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    RunningProgram program({"remux", pipe, copyOfPipe});
    writeBytes(pipe, readBytes(clip));
    const ProgramResult result = program.result();
    EXPECT_EQ(result.exitCode, 0) << result.err;
    const auto expected = packetsOf(copy);
    const auto copied = packetsOf(copyOfPipe);
    ASSERT_EQ(copied.size(), expected.size());
    for (size_t i = 0; i < copied.size(); ++i)
        EXPECT_EQ(copied[i].payload, expected[i].payload) << i;
    EXPECT_THAT(runProgram({"info", copyOfPipe}).out, HasSubstr("audio, aac"));
}

TEST_F(RemuxCommandTest, LeavesOutAStreamWithoutAPacket) {
    Track picture = encodeVideo({});
    Track sound = encodeTone(1, true);
    ASSERT_FALSE(sound.packets.empty());
    sound.packets.clear();
    clip = folder.file("silent.mkv");
    writePackets(clip, "matroska", {picture, sound});
    ASSERT_THAT(runProgram({"info", clip}).out, HasSubstr("audio, aac"));
    const ProgramResult result = remux();
    EXPECT_EQ(result.exitCode, 0) << result.err;
    const std::string info = runProgram({"info", copy}).out;
    EXPECT_THAT(info, HasSubstr("video, h264"));
    EXPECT_THAT(info, Not(HasSubstr("audio")));
    EXPECT_EQ(oracleFrames(copy).size(), oracleFrames(clip).size());
}

TEST_F(RemuxCommandTest, GivesMatroskasFirstPacketsTheDecodingTimesThatItDoesNotStore) {
    ClipPlan plan;
    plan.format = "matroska";
    plan.maxBFrames = 3;
    plan.audio = true;
    make(plan, "clip.mkv");
    ASSERT_EQ(remux().exitCode, 0);
    expectSamePictures(clip, copy);
    EXPECT_EQ(runProgram({"verify", copy}).exitCode, 0);
}

TEST_F(RemuxCommandTest, KeepsTheRotationUnlessAskedToDropIt) {
    for (const int rotation : {90, 180, 270}) {
        ClipPlan plan;
        plan.rotation = rotation;
        make(plan);
        ASSERT_EQ(remux().exitCode, 0);
        EXPECT_THAT(runProgram({"info", copy}).out,
                    HasSubstr("rotation      " + std::to_string(rotation) + " degrees"));
        EXPECT_EQ(oracleFrames(copy).at(7).hash, oracleFrames(clip).at(7).hash);
        ASSERT_EQ(remux({"--drop-rotation"}).exitCode, 0);
        EXPECT_THAT(runProgram({"info", copy}).out, HasSubstr("rotation      0 degrees"));
    }
}

TEST_F(RemuxCommandTest, KeepsMirroring) {
    constexpr int32_t one = 1 << 16;
    constexpr int32_t w = 1 << 30;
    const std::array<std::pair<std::array<int32_t, 9>, const char*>, 4> ways = {{
        {{-one, 0, 0, 0, one, 0, 0, 0, w}, "rotation      0 degrees clockwise, then mirrored"},
        {{one, 0, 0, 0, -one, 0, 0, 0, w}, "rotation      180 degrees clockwise, then mirrored"},
        {{0, one, 0, one, 0, 0, 0, 0, w}, "rotation      90 degrees clockwise, then mirrored"},
        {{0, -one, 0, -one, 0, 0, 0, 0, w}, "rotation      270 degrees clockwise, then mirrored"},
    }};
    for (const auto& [matrix, text] : ways) {
        make({});
        patchTkhdMatrix(clip, matrix);
        EXPECT_THAT(runProgram({"info", clip}).out, HasSubstr(text));
        ASSERT_EQ(remux().exitCode, 0);
        EXPECT_THAT(runProgram({"info", copy}).out, HasSubstr(text));
    }
}

/// A server that announces twice as much as it sends.
std::unique_ptr<LoopbackServer> serveHalf(const std::vector<uint8_t>& bytes) {
    return std::make_unique<LoopbackServer>([bytes](const Connection& connection) {
        connection.readRequest();
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(2 * bytes.size()) +
                        "\r\n\r\n" + std::string(bytes.begin(), bytes.end()));
    });
}

/// Whether libavformat tells that a source broke off.
bool breakIsTold(const std::string& url) {
    AVFormatContext* opened = nullptr;
    check(avformat_open_input(&opened, url.c_str(), nullptr, nullptr), "opening");
    const InputPointer input(opened);
    const PacketPointer packet(checkFound(av_packet_alloc(), "packet"));
    int result = 0;
    while ((result = av_read_frame(opened, packet.get())) >= 0)
        av_packet_unref(packet.get());
    return result != AVERROR_EOF || opened->pb->error < 0;
}

TEST_F(RemuxCommandTest, KeepsWhatComesBeforeAFailureToReadAndTellsOfIt) {
    makeTransportStream();
    const std::vector<uint8_t> bytes = readBytes(clip);
    if (!breakIsTold(serveHalf(bytes)->url("http")))
        GTEST_SKIP() << "this FFmpeg takes a source that breaks off for one at its end";
    const auto server = serveHalf(bytes);
    const std::string url = server->url("http");
    const ProgramResult result = runProgram({"remux", url, copy});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.err, "tarn-videoio: " + url +
                              ": reading ended early: Input/output error; the packets before are "
                              "in " +
                              copy + "\n");
    EXPECT_EQ(oracleFrames(copy).size(), oracleFrames(clip).size());
}

TEST_F(RemuxCommandTest, CopiesEveryCodecIntoTheContainerOfTheName) {
    for (const char* encoder : {"libx264", "mpeg4"}) {
        ClipPlan plan;
        plan.format = "matroska";
        plan.encoder = encoder;
        make(plan, "clip.mkv");
        for (const char* name : {"copy.mkv", "copy.mov", "copy.mp4"}) {
            copy = folder.file(name);
            const ProgramResult result = remux();
            ASSERT_EQ(result.exitCode, 0) << encoder << " " << name << result.err;
            expectSamePictures(clip, copy);
        }
        copy = folder.file("copy.webm");
        const ProgramResult result = remux();
        EXPECT_EQ(result.exitCode, 2) << encoder;
        EXPECT_THAT(result.err, HasSubstr(".webm cannot hold stream 0, which is "));
        EXPECT_FALSE(std::filesystem::exists(copy));
    }
}

TEST_F(RemuxCommandTest, CopiesSoundThatBeginsBeforeThePictures) {
    makeTransportStream();
    for (const char* name : {"copy.mp4", "copy.mkv"}) {
        copy = folder.file(name);
        const ProgramResult result = remux();
        EXPECT_EQ(result.exitCode, 0) << result.err;
        EXPECT_THAT(result.out, HasSubstr("of 2 streams"));
    }
}

TEST_F(RemuxCommandTest, CopiesAPartThatBeginsAtAKeyPicture) {
    ClipPlan plan; // key pictures 0, 12 and 24, 25 pictures a second
    plan.maxBFrames = 0;
    make(plan);
    const auto original = oracleFrames(clip);
    ASSERT_EQ(remux({"--from", "0.48", "--to", "0.8"}).exitCode, 0);
    const auto copied = oracleFrames(copy);
    ASSERT_EQ(copied.size(), 8U);
    for (size_t i = 0; i < copied.size(); ++i)
        EXPECT_EQ(copied[i].hash, original[12 + i].hash) << i;
    EXPECT_EQ(packetsOf(copy).front().pts, 0);
}

TEST_F(RemuxCommandTest, SaysWhereAPartMayBegin) {
    make({});
    const ProgramResult result = remux({"--from", "1/2"});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.err, "tarn-videoio: " + clip +
                              ": has no key picture at 1/2 s, where the copy has to begin; those "
                              "around it are at 12/25 s and 24/25 s\n");
    EXPECT_FALSE(std::filesystem::exists(copy));
    EXPECT_EQ(remux({"--from", "soon"}).exitCode, 2);
    EXPECT_EQ(remux({"--from", "0.48", "--to", "0.2"}).exitCode, 2);
}

TEST_F(RemuxCommandTest, CopiesTheStreamsThatAreAskedFor) {
    ClipPlan plan;
    plan.audio = true;
    make(plan);
    copy = folder.file("copy.m4a");
    const ProgramResult result = remux({"--stream", "1"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("of 1 stream\n"));
    EXPECT_THAT(runProgram({"info", copy}).out, Not(HasSubstr("video, h264")));
    EXPECT_EQ(remux({"--stream", "7"}).exitCode, 2);
}

TEST_F(RemuxCommandTest, GivesRawPicturesTheTimesOfTheirRate) {
    ClipPlan plan;
    plan.format = "h264";
    make(plan, "clip.h264");
    ASSERT_EQ(remux().exitCode, 0);
    OracleOptions options;
    options.everyPicture = true; // FFmpeg gives the pictures no times
    expectSamePictures(clip, copy, options);
    EXPECT_THAT(runProgram({"info", copy}).out, HasSubstr("frame rate    25/1 "));
}

TEST_F(RemuxCommandTest, JoinedClipsFollowEachOther) {
    makeTransportStream();
    std::vector<uint8_t> bytes = readBytes(clip);
    const std::vector<uint8_t> once = bytes;
    bytes.insert(bytes.end(), once.begin(), once.end());
    writeBytes(clip, bytes);
    const ProgramResult result = remux();
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(oracleFrames(copy).size(), 50U);
}

TEST_F(RemuxCommandTest, WritesIntoAPipe) {
    make({});
    const ProgramResult result = runProgram({"remux", clip, "/dev/stdout", "--quiet"});
    EXPECT_EQ(result.exitCode, 2); // the name says no container
    const std::string pipe = folder.file("pipe.mp4");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    RunningProgram program({"remux", clip, pipe});
    writeBytes(copy, readBytes(pipe));
    EXPECT_EQ(program.result().exitCode, 0);
    expectSamePictures(clip, copy);
}

TEST_F(RemuxCommandTest, NamesAnOutputThatCannotBeWritten) {
    make({});
    copy = folder.file("no such folder/copy.mp4");
    const ProgramResult result = remux();
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_EQ(result.err, "tarn-videoio: " + copy + ": No such file or directory\n");
}

TEST_F(RemuxCommandTest, LeavesNothingBehindOnAFullDisk) {
    make({});
    const size_t before =
        static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder.path()), {}));
    ProgramSetup setup;
    setup.fileSizeLimit = 1024;
    const ProgramResult result = runProgram({"remux", clip, copy}, setup);
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_THAT(result.err, StartsWith("tarn-videoio: " + copy + ": "));
    EXPECT_EQ(
        static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder.path()), {})),
        before);
}

} // namespace
