#include "bmc/ipmi/password.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

#include "tests/support/expect_text.h"
#include "tests/support/file.h"
#include "tests/support/temp_folder.h"

namespace {

using bmc::ipmi::PasswordSource;
using bmc::ipmi::ReadPassword;
using bmc::ipmi::Secret;

class PasswordTest : public testing::Test {
protected:
    void Write(const std::string& text, ::mode_t mode = 0600) const {
        test::WriteFile(m_path, text);
        ASSERT_EQ(::chmod(m_path.c_str(), mode), 0);
    }
    std::string Read(bool isCredential = false) const { return ReadPassword({m_path, isCredential}).Reveal(); }
    std::string Error(bool isCredential = false) const {
        const std::string subject = (isCredential ? "credential " : "password file ") + m_path + ": ";
        const std::string text = test::TextOf([&] { ReadPassword({m_path, isCredential}); });
        EXPECT_EQ(text.substr(0, subject.size()), subject);
        return text.substr(std::min(text.size(), subject.size()));
    }

    test::TempFolder m_folder;
    std::string m_path = m_folder.Path("p");
};

TEST_F(PasswordTest, FirstLine_IsThePassword) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"secret", "secret"},
        {"secret\n", "secret"},
        {" two words \n", " two words "},
        {"p\xc3\xa4ss", "p\xc3\xa4ss"},
        {"12345678901234567890", "12345678901234567890"},
        {"12345678901234567890\n", "12345678901234567890"},
    };
    for (const auto& [text, password] : cases) {
        Write(text);
        EXPECT_EQ(Read(), password);
        EXPECT_EQ(ReadPassword({m_path}).GetSize(), password.size());
    }
}

TEST_F(PasswordTest, WhatIsNoPassword_IsRefusedWithoutShowingIt) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", "has no password in its first line"},
        {"\n", "has no password in its first line"},
        {"123456789012345678901", "the password has more than 20 bytes"},
        {"123456789012345678901\n", "the password has more than 20 bytes"},
        {std::string(100000, 'x'), "the password has more than 20 bytes"},
        {"secret\nother", "has more than one line; the password is the only one"},
        {"secret\n\n", "has more than one line; the password is the only one"},
        {"\nsecret\n", "has more than one line; the password is the only one"},
        {"12345678901234567890\nother", "has more than one line; the password is the only one"},
        {"secret\r\n", "the password holds a control character"},
        {"sec\tret", "the password holds a control character"},
        {std::string("secret\0", 7), "the password holds a control character"},
        {"secret\x7f", "the password holds a control character"},
    };
    for (const auto& [text, error] : cases) {
        Write(text);
        EXPECT_EQ(Error(), error);
    }
}

TEST_F(PasswordTest, ModeThatLetsOthersIn_IsRefused) {
    const auto error = [](const std::string& mode) {
        return "has mode " + mode + ", must not be readable or writable by its group or by others (chmod 600)";
    };
    for (const ::mode_t mode : {0400, 0600, 0700}) {
        Write("secret", mode);
        EXPECT_EQ(Read(), "secret");
    }
    const std::vector<std::pair<::mode_t, std::string>> refused = {
        {0640, "0640"}, {0620, "0620"}, {0604, "0604"}, {0602, "0602"}, {04644, "4644"}};
    for (const auto& [mode, text] : refused) {
        Write("secret", mode);
        EXPECT_EQ(Error(), error(text));
    }
}

TEST_F(PasswordTest, Credential_MayBeReadByTheGroup) {
    for (const ::mode_t mode : {0400, 0440, 0640}) {
        Write("secret", mode);
        EXPECT_EQ(Read(true), "secret");
    }
    const std::vector<std::pair<::mode_t, std::string>> refused = {{0460, "0460"}, {0444, "0444"}, {0442, "0442"}};
    for (const auto& [mode, text] : refused) {
        Write("secret", mode);
        EXPECT_EQ(Error(true),
                  "has mode " + text + ", must not be writable by its group nor readable or writable by others");
    }
}

TEST_F(PasswordTest, FileOfSomebodyElse_IsRefused) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give a file away";
    }
    Write("secret");
    ASSERT_EQ(::chown(m_path.c_str(), 12345, 0), 0);
    EXPECT_EQ(Error(), "belongs to user 12345, must belong to root or to user 0, as whom this program runs");
}

TEST_F(PasswordTest, WhatIsNoRegularFile_IsRefusedAtOnce) {
    EXPECT_EQ(Error(), "cannot open: No such file or directory");
    test::WriteFile(m_folder.Path("real"), "secret");
    std::filesystem::create_symlink(m_folder.Path("real"), m_path);
    EXPECT_EQ(Error(), "is a symbolic link, which is not followed");
    std::filesystem::remove(m_path);
    std::filesystem::create_directory(m_path);
    EXPECT_EQ(Error(), "is not a regular file");
    std::filesystem::remove(m_path);
    ASSERT_EQ(::mkfifo(m_path.c_str(), 0600), 0);
    EXPECT_EQ(Error(), "is not a regular file");
}

TEST_F(PasswordTest, Secret_IsWipedAtItsEnd) {
    alignas(Secret) std::array<unsigned char, sizeof(Secret)> place{};
    auto* const secret = new (place.data()) Secret("hunter2", 7);
    const auto* const text = reinterpret_cast<const unsigned char*>(secret->Reveal());
    const auto offset = static_cast<std::size_t>(text - place.data());
    EXPECT_EQ(place.at(offset), 'h');
    secret->~Secret();
    for (std::size_t i = 0; i <= Secret::c_maxSize; ++i) {
        EXPECT_EQ(place.at(offset + i), 0) << i;
    }
}

template <class T>
concept Printable = requires(std::ostream& out, const T& value) {
    out << value;
};

TEST_F(PasswordTest, Secret_CanBeNeitherCopiedNorPrinted) {
    static_assert(!std::is_copy_constructible_v<Secret> && !std::is_copy_assignable_v<Secret>);
    static_assert(!Printable<Secret>);
    static_assert(Printable<std::string>, "the question has an answer");
}

}  // namespace
