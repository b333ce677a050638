#include "bmc/ipmi/id_string.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using bmc::ipmi::DecodeIdString;
using Bytes = std::vector<std::uint8_t>;

TEST(IdString, Text_AsLongAsItsCodeSays) {
    const Bytes bytes{'I', 'n', 'l', 'e', 't', 'X', 'Y'};
    EXPECT_EQ(DecodeIdString(0xc5, bytes), "Inlet");
    EXPECT_EQ(DecodeIdString(0xcf, bytes), "InletXY") << "no more than there is";
    EXPECT_EQ(DecodeIdString(0xc0, bytes), "");
    EXPECT_EQ(DecodeIdString(0xc5, {}), "");
}

TEST(IdString, TextThatCannotBePrinted_QuestionMarks) {
    EXPECT_EQ(DecodeIdString(0xc4, Bytes{'a', 0x07, 0xe9, 'b'}), "a??b");
    EXPECT_EQ(DecodeIdString(0xc3, Bytes{'a', 0x7f, '~'}), "a?~");
}

TEST(IdString, ZeroAndBlanksAtTheEnd_NotPartOfIt) {
    EXPECT_EQ(DecodeIdString(0xc5, Bytes{'a', 'b', 0, 'c', 'd'}), "ab");
    EXPECT_EQ(DecodeIdString(0xc5, Bytes{' ', 'a', 'b', ' ', ' '}), " ab");
}

TEST(IdString, SixBits_FourCharactersInThreeBytes) {
    // "IPMI" as the platform management FRU definition gives it for an example.
    EXPECT_EQ(DecodeIdString(0x84, Bytes{0x29, 0xdc, 0xa6}), "IPMI");
    EXPECT_EQ(DecodeIdString(0x85, Bytes{0x29, 0xdc, 0xa6, 0x29}), "IPMII");
    EXPECT_EQ(DecodeIdString(0x83, Bytes{0x29, 0xdc, 0xa6}), "IPM");
    EXPECT_EQ(DecodeIdString(0x9f, Bytes{0x29, 0xdc}), "IP") << "twelve of sixteen bits";
}

TEST(IdString, BcdPlus_TwoCharactersInAByte) {
    EXPECT_EQ(DecodeIdString(0x46, Bytes{0x12, 0xab, 0xcd}), "12 -.:");
    EXPECT_EQ(DecodeIdString(0x42, Bytes{0xef}), ",_");
    EXPECT_EQ(DecodeIdString(0x41, Bytes{0x98}), "9");
}

TEST(IdString, Unicode_LowByteFirst_PlainTextByMistakeToo) {
    EXPECT_EQ(DecodeIdString(0x03, Bytes{'a', 0, 0xac, 0x20, 'b', 0, 'c', 0}), "a?b");
    EXPECT_EQ(DecodeIdString(0x05, Bytes{'I', 'n', 'l', 'e', 't'}), "Inlet");
    EXPECT_EQ(DecodeIdString(0x01, Bytes{'a'}), "a");
}

}  // namespace
