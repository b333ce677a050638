#include "qreg/error.h"

#include <gtest/gtest.h>

namespace {

using qreg::ErrorCode_e;
using qreg::RegistryError;

TEST(RegistryError, CarriesCodePathAndACompleteText) {
    const RegistryError error(ErrorCode_e::no_such_node, "boards/x", "No node \"x\"");
    EXPECT_EQ(error.GetCode(), ErrorCode_e::no_such_node);
    EXPECT_EQ(error.GetPath(), "boards/x");
    EXPECT_STREQ(error.what(), "No node \"x\"");
    EXPECT_TRUE(error.GetFlag());
}

TEST(ErrorCode, NumbersAndNamesAreThoseOfTheProtocol) {
    const auto& names = qstd::EnumMap<ErrorCode_e>::items;
    const std::vector<std::string> expected{"ok",           "no such node",         "no value",     "not readable",
                                            "not writable", "wrong type",           "denied",       "limit",
                                            "failed",       "no such subscription", "no such view", "not offered",
                                            "stopping"};
    for (std::size_t number = 0; number < expected.size(); ++number) {
        EXPECT_EQ(names.GetName(static_cast<ErrorCode_e>(number)), expected[number]);
    }
    EXPECT_EQ(names.GetNames().size(), expected.size());
}

}  // namespace
