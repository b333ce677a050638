#include "qreg/client_list.h"

#include <gmock/gmock.h>

#include "tests/support/expect_text.h"

namespace {

using qreg::ClientList;
using qreg::Peer;

const Peer c_operator{"10.0.0.7", "CN=operator,O=Lab"};
const Peer c_nobody{"10.0.0.7"};

TEST(ClientList, Empty_HoldsNobody) {
    EXPECT_TRUE(ClientList().IsEmpty());
    EXPECT_FALSE(ClientList().Contains(c_operator));
    EXPECT_FALSE(ClientList().Contains({}));
}

TEST(ClientList, Address_NamesEveryClientThere) {
    ClientList list;
    list.Add("10.0.0.0/8");
    EXPECT_FALSE(list.IsEmpty());
    EXPECT_TRUE(list.Contains(c_operator));
    EXPECT_TRUE(list.Contains(c_nobody));
    EXPECT_FALSE(list.Contains({"11.0.0.7", "CN=operator,O=Lab"}));
}

TEST(ClientList, Subject_NamesThatCertificateFromEverywhere) {
    ClientList list;
    list.Add("", "CN=operator,O=Lab");
    EXPECT_TRUE(list.Contains(c_operator));
    EXPECT_TRUE(list.Contains({"fe80::1", "CN=operator,O=Lab"}));
    EXPECT_FALSE(list.Contains(c_nobody));
}

TEST(ClientList, Subject_IsComparedWholeAndLetterByLetter) {
    ClientList list;
    list.Add("", "CN=operator,O=Lab");
    for (const char* other : {"", "CN=operator", "CN=operator,O=Lab,C=DE", "CN=Operator,O=Lab", "O=Lab,CN=operator",
                              "CN=operator,O=Lab ", "CN=operator\\,O=Lab"}) {
        EXPECT_FALSE(list.Contains({"10.0.0.7", other})) << other;
    }
}

TEST(ClientList, AddressAndSubject_MustBothHold) {
    ClientList list;
    list.Add("10.0.0.0/8", "CN=operator,O=Lab");
    EXPECT_TRUE(list.Contains(c_operator));
    EXPECT_FALSE(list.Contains(c_nobody));
    EXPECT_FALSE(list.Contains({"11.0.0.7", "CN=operator,O=Lab"}));
}

TEST(ClientList, OneOfSeveralEntriesIsEnough) {
    ClientList list;
    list.Add("127.0.0.0/8");
    list.Add("", "CN=operator,O=Lab");
    EXPECT_TRUE(list.Contains({"127.0.0.1"}));
    EXPECT_TRUE(list.Contains(c_operator));
    EXPECT_FALSE(list.Contains(c_nobody));
}

TEST(ClientList, EntryThatNamesNobody_IsRefused) {
    ClientList list;
    EXPECT_EQ(test::TextOf([&] { list.Add("", ""); }),
              "Clients must be named by an address or by the subject of a certificate");
    EXPECT_THAT(test::TextOf([&] { list.Add("here", "CN=operator"); }), testing::StartsWith("Bad address \"here\": "));
    EXPECT_TRUE(list.IsEmpty());
}

TEST(Peer, IsToldInOneLineOfLimitedLength) {
    EXPECT_EQ(c_nobody.ToText(), "10.0.0.7");
    EXPECT_EQ(c_operator.ToText(), "10.0.0.7 (CN=operator,O=Lab)");
    const Peer hostile{"10.0.0.7", "CN=a\nb" + std::string(5000, 'x')};
    EXPECT_THAT(hostile.ToText(), testing::StartsWith("10.0.0.7 (CN=a?bxxx"));
    EXPECT_THAT(hostile.ToText(), testing::EndsWith("xxx...)"));
    EXPECT_LT(hostile.ToText().size(), 300U);
}

TEST(ForLog, CutsBetweenLetters) {
    EXPECT_EQ(qreg::ForLog("abcdefgh", 8), "abcdefgh");
    EXPECT_EQ(qreg::ForLog("abcdefghi", 8), "abcde...");
    EXPECT_EQ(qreg::ForLog("abcd\xC3\xA4ghi", 8), "abcd...");
}

}  // namespace
