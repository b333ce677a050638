#include "qstd/log_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

#include "tests/support/file.h"
#include "tests/support/temp_folder.h"

namespace {

using qstd::LogFile;

bool WriteText(LogFile& file, const std::string& text) {
    return file.Write(text.data(), text.size());
}

class LogFileTest : public testing::Test {
protected:
    std::string Path() const { return m_folder.Path("a.log"); }
    test::TempFolder m_folder;
};

/// Every hook gives a text of its own.
class HookedFile : public LogFile {
protected:
    std::string FileHeader() const override { return "header\n"; }
    std::string FileTrailer() const override { return "trailer\n"; }
    std::string LineHeader() const override { return "<"; }
    std::string LineTrailer() const override { return ">"; }
    std::string AppendBanner() const override { return "banner\n"; }
};

TEST_F(LogFileTest, WritesLines) {
    LogFile file;
    EXPECT_FALSE(file.IsOpen());
    ASSERT_TRUE(file.Open(Path(), false));
    EXPECT_TRUE(file.IsOpen());
    EXPECT_TRUE(file.WriteHeader("as it stands"));
    EXPECT_TRUE(WriteText(file, " one"));
    EXPECT_TRUE(file.Write("two and more", 3));
    EXPECT_TRUE(file.Write("", 0));
    file.Close();
    EXPECT_FALSE(file.IsOpen());
    EXPECT_EQ(test::ReadFile(Path()), "as it stands one\ntwo\n\n");
}

TEST_F(LogFileTest, Appends_WhatAnEarlierRunWroteStays) {
    test::WriteFile(Path(), "earlier\n");
    LogFile file;
    ASSERT_TRUE(file.Open(Path(), false));
    EXPECT_TRUE(WriteText(file, "x"));
    EXPECT_EQ(test::ReadFile(Path()), "earlier\nx\n");
}

TEST_F(LogFileTest, AppendsAfterWhatAnotherWroteMeanwhile) {
    LogFile one;
    LogFile other;
    ASSERT_TRUE(one.Open(Path(), false));
    ASSERT_TRUE(other.Open(Path(), false));
    WriteText(one, "1");
    WriteText(other, "2");
    WriteText(one, "3");
    EXPECT_EQ(test::ReadFile(Path()), "1\n2\n3\n");
}

TEST_F(LogFileTest, Truncates_OnlyWhenAsked) {
    test::WriteFile(Path(), "earlier\n");
    LogFile file;
    ASSERT_TRUE(file.Open(Path(), true));
    WriteText(file, "x");
    EXPECT_EQ(test::ReadFile(Path()), "x\n");
}

TEST_F(LogFileTest, CreatesMissingFolders) {
    LogFile file;
    ASSERT_TRUE(file.Open(m_folder.Path("a/b/c.log"), false));
    EXPECT_TRUE(test::Exists(m_folder.Path("a/b/c.log")));
}

TEST_F(LogFileTest, FileThatCannotBe_IsFalseWithTheReason) {
    LogFile file;
    EXPECT_FALSE(file.Open(m_folder.Path(), false));
    EXPECT_EQ(errno, EISDIR);
    test::WriteFile(m_folder.Path("file"), "");
    EXPECT_FALSE(file.Open(m_folder.Path("file/a.log"), false));
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_FALSE(file.Open("", false));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(file.IsOpen());
    EXPECT_FALSE(WriteText(file, "x"));
    EXPECT_FALSE(file.WriteHeader("x"));
    EXPECT_FALSE(file.WriteHeader(""));
}

TEST_F(LogFileTest, OpenThatFails_KeepsTheOpenFile) {
    LogFile file;
    ASSERT_TRUE(file.Open(Path(), false));
    EXPECT_FALSE(file.Open(m_folder.Path(), true));
    EXPECT_TRUE(WriteText(file, "x"));
    EXPECT_EQ(test::ReadFile(Path()), "x\n");
}

TEST_F(LogFileTest, PipeWithoutReader_IsRefusedAtOnce) {
    ASSERT_EQ(::mkfifo(Path().c_str(), 0600), 0);
    LogFile file;
    EXPECT_FALSE(file.Open(Path(), false));
    EXPECT_EQ(errno, ENXIO);
}

TEST_F(LogFileTest, FullDisk_WriteIsFalseAndNothingIsThrown) {
    LogFile file;
    ASSERT_TRUE(file.Open("/dev/full", false));
    EXPECT_FALSE(WriteText(file, "x"));
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_FALSE(file.WriteHeader("x"));
    EXPECT_TRUE(file.IsOpen());
    HookedFile hooked;
    EXPECT_FALSE(hooked.Open("/dev/full", false));
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_FALSE(hooked.IsOpen());
}

TEST_F(LogFileTest, LineWrittenInPart_IsTakenBack) {
    // A limit on the size of files makes the kernel take a part of a line and then refuse the rest.
    LogFile file;
    ASSERT_TRUE(file.Open(Path(), false));
    ASSERT_TRUE(WriteText(file, "whole"));
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    const auto handler = ::signal(SIGXFSZ, SIG_IGN);
    rlimit small = before;
    small.rlim_cur = 10;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    const bool isWritten = WriteText(file, "too long for the rest");
    const int reason = errno;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
    ::signal(SIGXFSZ, handler);
    EXPECT_FALSE(isWritten);
    EXPECT_EQ(reason, EFBIG);
    EXPECT_EQ(test::ReadFile(Path()), "whole\n");
    EXPECT_TRUE(WriteText(file, "next"));
    EXPECT_EQ(test::ReadFile(Path()), "whole\nnext\n");
}

TEST_F(LogFileTest, Hooks_NewFile) {
    HookedFile file;
    ASSERT_TRUE(file.Open(Path(), false));
    WriteText(file, "x");
    file.WriteHeader("as it stands\n");
    file.Close();
    file.Close();
    EXPECT_EQ(test::ReadFile(Path()), "header\n<x>\nas it stands\ntrailer\n");
}

TEST_F(LogFileTest, Hooks_FileThatHoldsSomething) {
    test::WriteFile(Path(), "earlier\n");
    HookedFile file;
    ASSERT_TRUE(file.Open(Path(), false));
    file.Close();
    EXPECT_EQ(test::ReadFile(Path()), "earlier\nbanner\ntrailer\n");
}

TEST_F(LogFileTest, Hooks_OpenedAgainTruncating_LeavesNoTrailerOfBefore) {
    HookedFile file;
    ASSERT_TRUE(file.Open(Path(), false));
    WriteText(file, "x");
    ASSERT_TRUE(file.Open(Path(), true));
    EXPECT_EQ(test::ReadFile(Path()), "header\n");
}

TEST_F(LogFileTest, Hooks_OpenedUnderAnotherName_EndsTheFirst) {
    HookedFile file;
    ASSERT_TRUE(file.Open(Path(), false));
    ASSERT_TRUE(file.Open(m_folder.Path("b.log"), false));
    EXPECT_EQ(test::ReadFile(Path()), "header\ntrailer\n");
    EXPECT_EQ(test::ReadFile(m_folder.Path("b.log")), "header\n");
}

TEST_F(LogFileTest, DestructionWritesNoTrailer) {
    {
        HookedFile file;
        ASSERT_TRUE(file.Open(Path(), false));
    }
    EXPECT_EQ(test::ReadFile(Path()), "header\n");
}

TEST_F(LogFileTest, CopyStartsClosed_AndTheOriginalStaysOpen) {
    LogFile file;
    ASSERT_TRUE(file.Open(Path(), false));
    LogFile copy(file);
    EXPECT_FALSE(copy.IsOpen());
    LogFile assigned;
    ASSERT_TRUE(assigned.Open(m_folder.Path("b.log"), false));
    assigned = file;
    EXPECT_TRUE(WriteText(assigned, "still b"));
    EXPECT_TRUE(WriteText(file, "x"));
    EXPECT_EQ(test::ReadFile(Path()), "x\n");
    EXPECT_EQ(test::ReadFile(m_folder.Path("b.log")), "still b\n");
}

}  // namespace
