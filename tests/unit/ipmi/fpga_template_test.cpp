#include "bmc/ipmi/fpga_template.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "tests/support/expect_text.h"

namespace {

using bmc::ipmi::FpgaTemplate;
using bmc::ipmi::Request;
using Bytes = std::vector<std::uint8_t>;

constexpr const char* c_read = "0x30 0x10 {addr:hi} {addr:lo}";
constexpr const char* c_write = "0x30 0x11 {addr:hi} {addr:lo} {value:hi} {value:lo}";
constexpr const char* c_reply = "{value:hi} {value:lo}";

TEST(FpgaTemplate, Requests_HoldAddressAndValueWhereTheTemplateSays) {
    const FpgaTemplate fpga(" 0x32\t16  7 {addr:lo} 0xFF {addr:hi} ",
                            "0x3e 0 {value:lo} {addr:hi} {addr:lo} 9 {value:hi}", c_reply);
    const Request read = fpga.MakeRead(0x1234);
    EXPECT_EQ(read.netFn, 0x32);
    EXPECT_EQ(read.command, 16);
    EXPECT_EQ(read.lun, 0);
    EXPECT_EQ(read.data, (Bytes{7, 0x34, 0xff, 0x12}));
    const Request write = fpga.MakeWrite(0x1234, 0xabcd);
    EXPECT_EQ(write.netFn, 0x3e);
    EXPECT_EQ(write.command, 0);
    EXPECT_EQ(write.data, (Bytes{0xcd, 0x12, 0x34, 9, 0xab}));
}

TEST(FpgaTemplate, Reply_IsReadWhenItIsAsTheTemplateSays) {
    const FpgaTemplate fpga(c_read, c_write, "7 * {value:lo} 0x0a {value:hi}");
    EXPECT_EQ(fpga.ReadReply({7, 99, 0x34, 10, 0x12}), 0x1234);
    EXPECT_EQ(fpga.ReadReply({7, 0, 0xff, 10, 0xff, 1, 2}), 0xffff) << "more bytes may follow";
    EXPECT_EQ(fpga.ReadReply({8, 99, 0x34, 10, 0x12}), std::nullopt);
    EXPECT_EQ(fpga.ReadReply({7, 99, 0x34, 11, 0x12}), std::nullopt);
    EXPECT_EQ(fpga.ReadReply({7, 99, 0x34, 10}), std::nullopt);
    EXPECT_EQ(fpga.ReadReply({}), std::nullopt);
}

TEST(FpgaTemplate, RevisionRegister_IsUnknownUntilSet) {
    FpgaTemplate fpga(c_read, c_write, c_reply);
    EXPECT_EQ(fpga.GetRevisionRegister(), std::nullopt);
    fpga.SetRevisionRegister(0xffff);
    EXPECT_EQ(fpga.GetRevisionRegister(), 0xffff);
}

struct RefusedTemplate {
    std::string read;
    std::string write;
    std::string reply;
    std::string text;
};

TEST(FpgaTemplate, WhatIsWrong_IsNamedWithItsText) {
    const std::string noToken =
        " is neither a byte (0..255, 0x00..0xff) nor {addr:hi}, {addr:lo}, {value:hi}, {value:lo} or *";
    const std::string noCommand = "must begin with two bytes, network function and command";
    std::string tooLong;
    for (std::size_t i = 0; i <= FpgaTemplate::c_maxSize; ++i) {
        tooLong += "1 ";
    }
    const std::string both = " {addr:hi} {addr:lo}";
    const std::vector<RefusedTemplate> cases = {
        {"6 1 {adr:hi}", c_write, c_reply, "\"read\" of <fpga>: \"{adr:hi}\"" + noToken},
        {"6 256" + both, c_write, c_reply, "\"read\" of <fpga>: \"256\"" + noToken},
        {"6 0x100" + both, c_write, c_reply, "\"read\" of <fpga>: \"0x100\"" + noToken},
        {"6 0x" + both, c_write, c_reply, "\"read\" of <fpga>: \"0x\"" + noToken},
        {"6 -1" + both, c_write, c_reply, "\"read\" of <fpga>: \"-1\"" + noToken},
        {"6 1f" + both, c_write, c_reply, "\"read\" of <fpga>: \"1f\"" + noToken},
        {"6 {addr:hi}{addr:lo}", c_write, c_reply, "\"read\" of <fpga>: \"{addr:hi}{addr:lo}\"" + noToken},
        {"", c_write, c_reply, "\"read\" of <fpga>: " + noCommand},
        {"6", c_write, c_reply, "\"read\" of <fpga>: " + noCommand},
        {"6" + both, c_write, c_reply, "\"read\" of <fpga>: " + noCommand},
        {"* 1" + both, c_write, c_reply, "\"read\" of <fpga>: " + noCommand},
        {"7 1" + both, c_write, c_reply,
         "\"read\" of <fpga>: the network function is 7, must be an even number 0..62 (0x00..0x3e)"},
        {"0x40 1" + both, c_write, c_reply,
         "\"read\" of <fpga>: the network function is 64, must be an even number 0..62 (0x00..0x3e)"},
        {"6 1 {addr:lo}", c_write, c_reply, "\"read\" of <fpga>: {addr:hi} is missing"},
        {"6 1 {addr:hi}", c_write, c_reply, "\"read\" of <fpga>: {addr:lo} is missing"},
        {"6 1 {addr:hi}" + both, c_write, c_reply, "\"read\" of <fpga>: {addr:hi} stands there 2 times, must once"},
        {"6 1 {value:lo}" + both, c_write, c_reply, "\"read\" of <fpga>: {value:lo} has no meaning there"},
        {"6 1 *" + both, c_write, c_reply, "\"read\" of <fpga>: \"*\" is for replies; a byte that is sent has a value"},
        {c_read, "6 2" + both, c_reply, "\"write\" of <fpga>: {value:hi} is missing"},
        {c_read, "6 2 {value:hi}" + both, c_reply, "\"write\" of <fpga>: {value:lo} is missing"},
        {c_read, "5 2", c_reply,
         "\"write\" of <fpga>: the network function is 5, must be an even number 0..62 (0x00..0x3e)"},
        {c_read, c_write, "", "\"reply\" of <fpga>: {value:hi} is missing"},
        {c_read, c_write, "{value:hi}", "\"reply\" of <fpga>: {value:lo} is missing"},
        {c_read, c_write, "{addr:hi} {value:hi} {value:lo}", "\"reply\" of <fpga>: {addr:hi} has no meaning there"},
        {c_read, c_write, tooLong, "\"reply\" of <fpga>: has 33 bytes, the limit is 32"},
    };
    for (const RefusedTemplate& each : cases) {
        EXPECT_EQ(test::TextOf([&] { FpgaTemplate(each.read, each.write, each.reply); }), "attribute " + each.text);
    }
}

}  // namespace
