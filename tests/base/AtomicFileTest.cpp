#include "support/ByteEdits.h"
#include "support/ChildProcess.h"
#include "support/Expectations.h"
#include "support/TemporaryFolder.h"

#include <TARN/videoio/AtomicFile.h>
#include <TARN/videoio/Exception.h>

#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;

namespace tio::ffmpeg {
namespace {

class AtomicFileTest : public testing::Test {
protected:
    static void write(AtomicFile& file, const std::string& text) {
        file.write(text.data(), text.size());
    }

    static void writeWhole(const std::string& path, const std::string& text) {
        AtomicFile file(path);
        write(file, text);
        file.publish();
    }

    static std::string textOf(const std::string& path) {
        const auto bytes = test::readBytes(path);
        return {bytes.begin(), bytes.end()};
    }

    static unsigned permissionsOf(const std::string& path) {
        struct stat file = {};
        EXPECT_EQ(::stat(path.c_str(), &file), 0);
        return file.st_mode & 0777U;
    }

    [[nodiscard]] int fileCount() const {
        int count = 0;
        for ([[maybe_unused]] const auto& entry : fs::directory_iterator(folder.path()))
            ++count;
        return count;
    }

    test::TemporaryFolder folder;
    std::string path = folder.file("list.txt");
};

TEST_F(AtomicFileTest, HasItsNameOnceItIsPublishedAndNotBefore) {
    AtomicFile file(path);
    write(file, "one ");
    EXPECT_FALSE(fs::exists(path));
    write(file, "two");
    file.publish();
    EXPECT_EQ(textOf(path), "one two");
    EXPECT_EQ(fileCount(), 1);
}

TEST_F(AtomicFileTest, LeavesNothingWhenItIsGivenUp) {
    test::writeBytes(path, {1, 2, 3});
    {
        AtomicFile file(path);
        write(file, "one");
    }
    EXPECT_EQ(test::readBytes(path), (std::vector<uint8_t>{1, 2, 3}));
    EXPECT_EQ(fileCount(), 1);
}

TEST_F(AtomicFileTest, LiesInTheFolderOfItsTarget) {
    const AtomicFile file(path);
    EXPECT_EQ(fs::path(file.pathToWrite()).parent_path(), folder.path());
    EXPECT_TRUE(fs::exists(file.pathToWrite()));
    EXPECT_FALSE(file.isDirect());
}

TEST_F(AtomicFileTest, TwoOfOneNameDoNotTouchEachOther) {
    AtomicFile first(path);
    AtomicFile second(path);
    write(first, "first");
    write(second, "second");
    first.publish();
    EXPECT_EQ(textOf(path), "first");
    second.publish();
    EXPECT_EQ(textOf(path), "second");
    EXPECT_EQ(fileCount(), 1);
}

TEST_F(AtomicFileTest, TwoThatAreWrittenByNameDoNotTouchEachOtherEither) {
    AtomicFile first(path);
    first.makeWay();
    AtomicFile second(path);
    second.makeWay();
    EXPECT_NE(first.pathToWrite(), second.pathToWrite());
}

// Every reader of the name sees one of the texts whole, whatever the processes do meanwhile.
TEST_F(AtomicFileTest, ProcessesThatWriteOneNameAtOnceLeaveOneWholeFile) {
    const auto writeOften = [this](char letter) {
        return [this, letter]() -> std::string {
            for (int i = 0; i < 50; ++i)
                writeWhole(path, std::string(100'000, letter));
            return "done";
        };
    };
    writeWhole(path, std::string(100'000, 'a'));
    const test::ChildProcess one(writeOften('b'));
    const test::ChildProcess other(writeOften('c'));
    for (int i = 0; i < 200; ++i) {
        const std::string text = textOf(path);
        ASSERT_EQ(text.size(), 100'000U);
        ASSERT_EQ(text, std::string(100'000, text.front()));
    }
    EXPECT_EQ(one.text() + other.text(), "donedone");
    EXPECT_EQ(fileCount(), 1);
}

TEST_F(AtomicFileTest, GivesANewFileThePermissionsOfAnyNewFile) {
    const mode_t before = ::umask(027);
    writeWhole(path, "text");
    ::umask(before);
    EXPECT_EQ(permissionsOf(path), 0640U);
}

TEST_F(AtomicFileTest, KeepsThePermissionsOfTheFileThatItReplaces) {
    test::writeBytes(path, {1});
    ASSERT_EQ(::chmod(path.c_str(), 0600), 0);
    writeWhole(path, "text");
    EXPECT_EQ(permissionsOf(path), 0600U);
    EXPECT_EQ(textOf(path), "text");
}

TEST_F(AtomicFileTest, FollowsALinkAndLeavesIt) {
    fs::create_directory(folder.path() / "elsewhere");
    const std::string target = folder.file("elsewhere/real.txt");
    test::writeBytes(target, {1});
    fs::create_symlink("elsewhere/real.txt", path);
    AtomicFile file(path);
    EXPECT_EQ(fs::path(file.pathToWrite()).parent_path(), fs::path(target).parent_path());
    write(file, "text");
    file.publish();
    EXPECT_TRUE(fs::is_symlink(path));
    EXPECT_EQ(textOf(target), "text");
}

TEST_F(AtomicFileTest, MakesTheFileThatALinkLeadsTo) {
    fs::create_symlink("real.txt", path);
    writeWhole(path, "text");
    EXPECT_TRUE(fs::is_symlink(path));
    EXPECT_EQ(textOf(folder.file("real.txt")), "text");
}

TEST_F(AtomicFileTest, RefusesLinksThatGoInACircle) {
    fs::create_symlink("other", path);
    fs::create_symlink("list.txt", folder.file("other"));
    EXPECT_THROW(AtomicFile{path}, Exception);
    EXPECT_EQ(fileCount(), 2);
}

TEST_F(AtomicFileTest, WritesToADeviceDirectly) {
    AtomicFile file("/dev/full");
    EXPECT_TRUE(file.isDirect());
    EXPECT_EQ(file.pathToWrite(), "/dev/full");
    EXPECT_EQ(test::thrownText<Exception>([&] { write(file, "text"); }),
              "No space left on device: /dev/full");
}

TEST_F(AtomicFileTest, WritesToAPipeDirectly) {
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    const int reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(reader, 0);
    writeWhole(path, "text");
    char text[8] = {};
    EXPECT_EQ(::read(reader, text, sizeof text), 4);
    EXPECT_STREQ(text, "text");
    ::close(reader);
    EXPECT_TRUE(fs::is_fifo(path));
    EXPECT_EQ(fileCount(), 1);
}

TEST_F(AtomicFileTest, AppendsToStandardOutputUnderItsName) {
    const test::ChildProcess child([this]() -> std::string {
        const int out = ::open(path.c_str(), O_WRONLY | O_CREAT, 0600);
        ::dup2(out, STDOUT_FILENO);
        static_cast<void>(::write(STDOUT_FILENO, "before ", 7));
        writeWhole("/dev/stdout", "text");
        static_cast<void>(::write(STDOUT_FILENO, " after", 6));
        return "done";
    });
    EXPECT_EQ(child.text(), "done");
    EXPECT_EQ(textOf(path), "before text after");
}

// Whoever opened the name himself would begin at its start, and so overwrite what is there.
TEST_F(AtomicFileTest, AppendsWhatAnotherHasWrittenByNameToStandardOutput) {
    const std::string large(200'000, 'x'); // of more than one block
    const test::ChildProcess child([&]() -> std::string {
        const int out = ::open(path.c_str(), O_WRONLY | O_CREAT, 0600);
        ::dup2(out, STDOUT_FILENO);
        static_cast<void>(::write(STDOUT_FILENO, "before ", 7));
        AtomicFile file("/dev/stdout");
        file.makeWay();
        test::writeBytes(file.pathToWrite(), {large.begin(), large.end()});
        file.publish();
        static_cast<void>(::write(STDOUT_FILENO, " after", 6));
        return "done";
    });
    EXPECT_EQ(child.text(), "done");
    EXPECT_EQ(textOf(path), "before " + large + " after");
}

TEST_F(AtomicFileTest, PublishesWhatAnotherHasWrittenByName) {
    AtomicFile file(path);
    file.makeWay();
    EXPECT_FALSE(fs::exists(file.pathToWrite()));
    test::writeBytes(file.pathToWrite(), {1, 2, 3});
    file.publish();
    EXPECT_EQ(test::readBytes(path).size(), 3U);
    EXPECT_EQ(fileCount(), 1);
}

TEST_F(AtomicFileTest, RefusesWhereNothingCanBePublished) {
    const std::string place = folder.path().string();
    EXPECT_EQ(test::thrownText<Exception>([&] { AtomicFile{place}; }), "Is a directory: " + place);
    const std::string absent = folder.file("absent/list.txt");
    EXPECT_EQ(test::thrownText<Exception>([&] { AtomicFile{absent}; }),
              "No such file or directory: " + absent);
}

TEST_F(AtomicFileTest, LeavesWhatIsThereWhereThatIsAskedFor) {
    test::writeBytes(path, {1, 2, 3});
    EXPECT_THROW((AtomicFile{path, AtomicFile::Existing::Refuse}), Exception);
    EXPECT_EQ(test::readBytes(path).size(), 3U);
    EXPECT_EQ(fileCount(), 1);
}

TEST_F(AtomicFileTest, LeavesWhatHasAppearedMeanwhileWhereThatIsAskedFor) {
    {
        AtomicFile file(path, AtomicFile::Existing::Refuse);
        write(file, "text");
        test::writeBytes(path, {1, 2, 3});
        EXPECT_THROW(file.publish(), Exception);
    }
    EXPECT_EQ(test::readBytes(path).size(), 3U);
    EXPECT_EQ(fileCount(), 1);
}

TEST_F(AtomicFileTest, PublishesUnderAFreeNameWhereOnlyThatIsAskedFor) {
    AtomicFile file(path, AtomicFile::Existing::Refuse);
    write(file, "text");
    file.publish(AtomicFile::Flush::BySystem);
    EXPECT_EQ(textOf(path), "text");
    EXPECT_EQ(fileCount(), 1);
}

TEST_F(AtomicFileTest, IsLeftToTheParentByAForkedChild) {
    AtomicFile file(path);
    write(file, "text");
    const test::ChildProcess child([&]() -> std::string {
        file.~AtomicFile();
        return "gone";
    });
    EXPECT_EQ(child.text(), "gone");
    file.publish();
    EXPECT_EQ(textOf(path), "text");
}

TEST_F(AtomicFileTest, HoldsNoDescriptorAfterItsEnd) {
    const auto openFiles = [] {
        int count = 0;
        for ([[maybe_unused]] const auto& entry : fs::directory_iterator("/proc/self/fd"))
            ++count;
        return count;
    };
    const int before = openFiles();
    writeWhole(path, "text");
    { const AtomicFile givenUp(path); }
    EXPECT_THROW(AtomicFile{folder.file("absent/list.txt")}, Exception);
    EXPECT_EQ(openFiles(), before);
}

} // namespace
} // namespace tio::ffmpeg
