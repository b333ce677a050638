#include "qstd/ver_info.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

TEST(VerInfo, IsWhatItWasSetTo_AndWrittenAsFourNumbers) {
    EXPECT_EQ(qstd::VerInfo::Get().ToString(), "0.0.0.0");
    EXPECT_TRUE(qstd::VerInfo::Init(2, 8, 167, 20437, "text", "compiler 1", "2026/11/21 14:03:07", "machine", "user"));
    const qstd::VerInfo& version = qstd::VerInfo::Get();
    std::ostringstream out;
    out << version;
    EXPECT_EQ(out.str(), "2.8.167.20437");
    EXPECT_EQ(version.m_description, "text");
    EXPECT_EQ(version.m_compiler, "compiler 1");
    EXPECT_EQ(version.m_builtAt, "2026/11/21 14:03:07");
    EXPECT_EQ(version.m_machine, "machine");
    EXPECT_EQ(version.m_user, "user");
    qstd::VerInfo::Init(0, 0, 0, 0, "", "", "", "", "");
}

}  // namespace
