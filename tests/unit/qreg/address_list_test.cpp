#include "qreg/address_list.h"

#include <gtest/gtest.h>

#include "tests/support/expect_text.h"

namespace {

using qreg::AddressList;

AddressList ListOf(const std::vector<std::string>& texts) {
    AddressList list;
    for (const auto& text : texts) {
        list.Add(text);
    }
    return list;
}

TEST(AddressList, IsEmptyAtTheBegin) {
    EXPECT_TRUE(AddressList().IsEmpty());
    EXPECT_FALSE(AddressList().Contains("127.0.0.1"));
    EXPECT_FALSE(ListOf({"::1"}).IsEmpty());
}

TEST(AddressList, HoldsSingleAddresses) {
    const AddressList list = ListOf({"10.0.0.7", "2001:db8::1"});
    EXPECT_TRUE(list.Contains("10.0.0.7"));
    EXPECT_TRUE(list.Contains("2001:DB8:0::1"));
    EXPECT_FALSE(list.Contains("10.0.0.8"));
    EXPECT_FALSE(list.Contains("2001:db8::2"));
}

TEST(AddressList, Ipv4MappedIntoIpv6_IsTheSameAddress) {
    EXPECT_TRUE(ListOf({"127.0.0.0/8"}).Contains("::ffff:127.0.0.1"));
    EXPECT_TRUE(ListOf({"::ffff:10.0.0.0/104"}).Contains("10.1.2.3"));
    EXPECT_FALSE(ListOf({"127.0.0.0/8"}).Contains("::ffff:128.0.0.1"));
    EXPECT_FALSE(ListOf({"127.0.0.1"}).Contains("::7f00:1"));
}

TEST(AddressList, PrefixesEndAtAnyBit) {
    const AddressList list = ListOf({"192.168.8.0/21", "fe80::/10"});
    EXPECT_TRUE(list.Contains("192.168.8.0"));
    EXPECT_TRUE(list.Contains("192.168.15.255"));
    EXPECT_FALSE(list.Contains("192.168.16.0"));
    EXPECT_FALSE(list.Contains("192.168.7.255"));
    EXPECT_TRUE(list.Contains("fe80::1"));
    EXPECT_TRUE(list.Contains("febf:ffff::1"));
    EXPECT_FALSE(list.Contains("fec0::1"));
}

TEST(AddressList, LengthZeroIsEveryAddressOfItsKind) {
    EXPECT_TRUE(ListOf({"0.0.0.0/0"}).Contains("255.1.2.3"));
    EXPECT_FALSE(ListOf({"0.0.0.0/0"}).Contains("::1"));
    EXPECT_TRUE(ListOf({"::/0"}).Contains("::1"));
    EXPECT_FALSE(ListOf({"::/0"}).Contains("10.0.0.1"));
    EXPECT_FALSE(ListOf({"::/80"}).Contains("::ffff:10.0.0.1"));
    EXPECT_TRUE(ListOf({"::ffff:0:0/96"}).Contains("10.0.0.1"));
}

TEST(AddressList, WholeLengthIsOneAddress) {
    EXPECT_TRUE(ListOf({"10.0.0.7/32"}).Contains("10.0.0.7"));
    EXPECT_FALSE(ListOf({"10.0.0.7/32"}).Contains("10.0.0.6"));
    EXPECT_TRUE(ListOf({"::1/128"}).Contains("::1"));
}

TEST(AddressList, BitsBehindThePrefix_DoNotCount) {
    EXPECT_TRUE(ListOf({"10.1.2.3/8"}).Contains("10.0.0.1"));
    EXPECT_FALSE(ListOf({"10.1.2.3/8"}).Contains("11.1.2.3"));
}

TEST(AddressList, ZoneOfALinkLocalAddress_IsPassedOver) {
    EXPECT_TRUE(ListOf({"fe80::/10"}).Contains("fe80::1%eth0"));
}

TEST(AddressList, TextThatIsNoAddress_IsNeverIn) {
    const AddressList list = ListOf({"0.0.0.0/0", "::/0"});
    for (const std::string text : {"", "localhost", "10.0.0", "10.0.0.7/8", " 10.0.0.7", "/run/x.sock"}) {
        EXPECT_FALSE(list.Contains(text)) << text;
    }
}

TEST(AddressList, TextThatIsNoAddress_IsRefusedByName) {
    for (const std::string text : {"", "localhost", "10.0.0", "10.0.0.256", "010.0.0.1", "fe80::1%eth0", "/8", ":::"}) {
        EXPECT_EQ(test::TextOf([&] { AddressList().Add(text); }),
                  "Bad address \"" + text + "\": neither an IPv4 or IPv6 address nor a prefix of one");
    }
}

TEST(AddressList, BadLengthOfAPrefix_IsRefusedWithItsRange) {
    for (const std::string text : {"10.0.0.0/", "10.0.0.0/33", "10.0.0.0/-1", "10.0.0.0/8x", "10.0.0.0/ 8",
                                   "10.0.0.0/8/8", "10.0.0.0/99999999999"}) {
        EXPECT_EQ(test::TextOf([&] { AddressList().Add(text); }),
                  "Bad address \"" + text + "\": the length of a prefix is 0 to 32");
    }
    EXPECT_EQ(test::TextOf([&] { AddressList().Add("::/129"); }),
              "Bad address \"::/129\": the length of a prefix is 0 to 128");
}

}  // namespace
