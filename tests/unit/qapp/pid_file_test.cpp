#include "qapp/pid_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "qstd/exception.h"
#include "tests/support/file.h"
#include "tests/support/temp_folder.h"

namespace {

std::string ErrorOf(const std::string& fileName) {
    try {
        qapp::PidFile().Create(fileName);
    } catch (const qstd::Exception& error) {
        return error.what();
    }
    return "created";
}

TEST(PidFile, HoldsTheProcessIdWhileItLives) {
    const test::TempFolder folder;
    const std::string path = folder.Path("pid");
    {
        qapp::PidFile file;
        file.Create(path);
        EXPECT_EQ(test::ReadFile(path), std::to_string(::getpid()) + "\n");
        EXPECT_EQ(ErrorOf(path), "Cannot write pid file " + path + ": locked by process " + std::to_string(::getpid()));
    }
    EXPECT_FALSE(test::Exists(path));
}

TEST(PidFile, LeftBehind_IsTakenOver) {
    const test::TempFolder folder;
    test::WriteFile(folder.Path("pid"), "999999999\n");
    qapp::PidFile file;
    file.Create(folder.Path("pid"));
    EXPECT_EQ(test::ReadFile(folder.Path("pid")), std::to_string(::getpid()) + "\n");
}

TEST(PidFile, FileOfAnotherKind_IsRefusedAndStays) {
    const test::TempFolder folder;
    const std::string path = folder.Path("notes");
    for (const std::string text :
         {"keep me\n", "12 men\n", "\n12\n", "12\n13\n", "123456789012345678901234567890123456"}) {
        test::WriteFile(path, text);
        EXPECT_EQ(ErrorOf(path), "Cannot write pid file " + path + ": it holds something else than a process id");
        EXPECT_EQ(test::ReadFile(path), text);
    }
    for (const std::string text : {"", "12", "12\n"}) {
        test::WriteFile(path, text);
        EXPECT_EQ(ErrorOf(path), "created");
    }
}

TEST(PidFile, ThatCannotBeMade_IsNamed) {
    const test::TempFolder folder;
    EXPECT_EQ(ErrorOf(folder.Path("no/pid")),
              "Cannot write pid file " + folder.Path("no/pid") + ": No such file or directory");
    EXPECT_EQ(ErrorOf(folder.Path()), "Cannot write pid file " + folder.Path() + ": Is a directory");
}

}  // namespace
