#include "qcfg/value_types.h"

#include <gtest/gtest.h>

#include "bmc/enums.h"
#include "qcfg/element.h"

namespace {

using qcfg::Place_e;

std::string FaultInText(const qcfg::ValueTypePtr& type, const std::string& text) {
    return type->FindFault(text, Place_e::text);
}

std::string FaultInAttribute(const qcfg::ValueTypePtr& type, const std::string& text) {
    return type->FindFault(text, Place_e::attribute);
}

TEST(Boolean, EveryWordInAnyCase_Fine) {
    for (const char* const text : {"true", "FALSE", "1", "0", "Yes", "nO", "on", "OFF"}) {
        EXPECT_EQ(FaultInAttribute(qcfg::Boolean(), text), "") << text;
    }
}

TEST(Boolean, AnythingElse_Fault) {
    for (const char* const text : {"", "maybe", "2", " true", "true "}) {
        EXPECT_EQ(FaultInAttribute(qcfg::Boolean(), text), "is not a boolean (true, false, 1, 0, yes, no, on, off)")
            << text;
    }
}

TEST(Whole, LimitsIncluded) {
    const auto type = qcfg::Whole(-3, 70);
    EXPECT_EQ(FaultInAttribute(type, "-3"), "");
    EXPECT_EQ(FaultInAttribute(type, "70"), "");
    EXPECT_EQ(FaultInAttribute(type, "+7"), "");
    EXPECT_EQ(FaultInAttribute(type, "007"), "");
    EXPECT_EQ(FaultInAttribute(type, "-4"), "is below the limit of -3");
    EXPECT_EQ(FaultInAttribute(type, "71"), "is above the limit of 70");
}

TEST(Whole, BeyondAnyInteger_IsOutOfRange) {
    const auto type = qcfg::Whole(0, 70);
    EXPECT_EQ(FaultInAttribute(type, "99999999999999999999999"), "is above the limit of 70");
    EXPECT_EQ(FaultInAttribute(type, "-99999999999999999999999"), "is below the limit of 0");
}

TEST(Whole, NoNumber_Fault) {
    for (const char* const text : {"", "+", "-", "12abc", "1.0", " 1", "1 ", "0x", "0X10", "1e3", "--1"}) {
        EXPECT_EQ(FaultInText(qcfg::Whole(0, 70), text), "is not a whole number") << text;
    }
}

TEST(Whole, Hexadecimal_InTextsOnly) {
    const auto type = qcfg::Whole(1, 70);
    EXPECT_EQ(FaultInText(type, "0x1F"), "");
    EXPECT_EQ(FaultInAttribute(type, "0x1F"), "is not a whole number");
    EXPECT_EQ(FaultInText(type, "0x0"), "is below the limit of 1");
    EXPECT_EQ(FaultInText(type, "0x47"), "is above the limit of 70");
    EXPECT_EQ(FaultInText(type, "0x1G"), "is not a hexadecimal number of at most 32 bits");
    EXPECT_EQ(FaultInText(type, "0x100000000"), "is not a hexadecimal number of at most 32 bits");
}

/// What is called fine is what the typed reader takes, with the value that was meant.
TEST(WholeOrHex, Hexadecimal_InAttributesToo) {
    const auto type = qcfg::WholeOrHex(2, 0xfe);
    EXPECT_EQ(FaultInAttribute(type, "0x82"), "");
    EXPECT_EQ(FaultInAttribute(type, "130"), "");
    EXPECT_EQ(FaultInAttribute(type, "0xff"), "is above the limit of 254");
    EXPECT_EQ(FaultInAttribute(type, "0x"), "is not a whole number");
    EXPECT_EQ(FaultInAttribute(type, "0x8g"), "is not a hexadecimal number of at most 32 bits");
    EXPECT_EQ(type->Describe(Place_e::attribute), "whole number 2..254, or hexadecimal with 0x");
    EXPECT_EQ(type->GetSchemaName(Place_e::attribute), qcfg::Whole(2, 0xfe)->GetSchemaName(Place_e::text));
    EXPECT_EQ(type->GetSchemaForms(Place_e::attribute).size(), 2U);
}

TEST(Whole, WhatIsFine_TheTypedReaderTakesUnchanged) {
    const auto type = qcfg::Whole(-2147483647LL - 1, 2147483647);
    for (const char* const text :
         {"0",          "1",          "+7",         "-5",         "007",         "2147483647", "-2147483648", "0x1F",
          "0x7fffffff", "0x80000000", "0xFFFFFFFF", "2147483648", "-2147483649", "",           "x",           "0x",
          "1.5",        "1 ",         "+",          "-0",         "0x-1",        "0x 1",       "1,000"}) {
        int value = -1;
        const bool isTaken = qcfg::Element("e", text).GetValue(value);
        const bool isFine = FaultInText(type, text).empty();
        const bool isHexBeyondInt = std::string(text) == "0x80000000" || std::string(text) == "0xFFFFFFFF";
        EXPECT_EQ(isFine, isTaken && !isHexBeyondInt) << text;
    }
}

TEST(Real, LimitsIncludedAndFinite) {
    const auto type = qcfg::Real(0, 100);
    for (const char* const text : {"0", "100", "5.0", ".5", "5.", "1e2", "+3", "0x10"}) {
        EXPECT_EQ(FaultInText(type, text), "") << text;
    }
    EXPECT_EQ(FaultInText(type, "-0.1"), "is below the limit of 0");
    EXPECT_EQ(FaultInText(type, "100.5"), "is above the limit of 100");
    EXPECT_EQ(FaultInText(type, "0x65"), "is above the limit of 100");
    for (const char* const text : {"nan", "inf", "-inf", "1e999", "", "five", "1,5", " 1", "1e"}) {
        EXPECT_EQ(FaultInText(type, text), "is not a finite number") << text;
    }
}

TEST(Real, WithoutUpperLimit_AnyFiniteNumber) {
    EXPECT_EQ(FaultInText(qcfg::Real(0), "1e300"), "");
    EXPECT_EQ(qcfg::Real(0)->Describe(Place_e::text), "number of at least 0, or hexadecimal with 0x");
    EXPECT_EQ(qcfg::Real(0, 1)->Describe(Place_e::attribute), "number 0..1");
}

TEST(Text, AnythingButEmpty) {
    EXPECT_EQ(FaultInAttribute(qcfg::Text("path"), " "), "");
    EXPECT_EQ(FaultInAttribute(qcfg::Text("path"), ""), "is empty");
}

TEST(Address, WithoutPrefix) {
    const auto type = qcfg::Address();
    for (const char* const text : {"0.0.0.0", "192.168.1.255", "::", "::1", "fe80::1", "::ffff:10.0.0.1"}) {
        EXPECT_EQ(FaultInAttribute(type, text), "") << text;
    }
    for (const char* const text : {"", "localhost", "1.2.3", "1.2.3.256", "01.2.3.4", "1.2.3.4/8", "fe80::1%eth0"}) {
        EXPECT_EQ(FaultInAttribute(type, text), "is not an IPv4 or IPv6 address") << text;
    }
}

TEST(AddressPrefix, LengthWithinTheAddress) {
    const auto type = qcfg::AddressPrefix();
    for (const char* const text :
         {"127.0.0.1", "127.0.0.0/8", "0.0.0.0/0", "10.0.0.1/32", "::1", "fe80::/10", "::/128"}) {
        EXPECT_EQ(FaultInAttribute(type, text), "") << text;
    }
    for (const char* const text :
         {"127.0.0.0/33", "127.0.0.0/", "127.0.0.0/08", "127.0.0.0/+8", "127.0.0.0/8/8", "127.0.0.0/99999999999"}) {
        EXPECT_EQ(FaultInAttribute(type, text), "has a prefix length that is not in the range 0..32") << text;
    }
    EXPECT_EQ(FaultInAttribute(type, "::/129"), "has a prefix length that is not in the range 0..128");
    EXPECT_EQ(FaultInAttribute(type, "/8"), "is not an IPv4 or IPv6 address or prefix");
}

TEST(IdList, AllOrIds_Fine) {
    for (const char* const text : {"all", "16", "0x30,49", "16,17,", ",16", "0xffffffff", "-1", "2147483647"}) {
        EXPECT_EQ(FaultInText(qcfg::IdList(), text), "") << text;
    }
}

TEST(IdList, BadToken_IsNamed) {
    const std::string reason = ", which is not an id (decimal or 0x, 32 bits, no blanks)";
    EXPECT_EQ(FaultInText(qcfg::IdList(), "16, 17"), "holds \" 17\"" + reason);
    EXPECT_EQ(FaultInText(qcfg::IdList(), "16,all"), "holds \"all\"" + reason);
    EXPECT_EQ(FaultInText(qcfg::IdList(), "0x"), "holds \"0x\"" + reason);
    EXPECT_EQ(FaultInText(qcfg::IdList(), "0x1G"), "holds \"0x1G\"" + reason);
    EXPECT_EQ(FaultInText(qcfg::IdList(), "2147483648"), "holds \"2147483648\"" + reason);
}

TEST(IdList, NoToken_Fault) {
    EXPECT_EQ(FaultInText(qcfg::IdList(), ""), "holds no id");
    EXPECT_EQ(FaultInText(qcfg::IdList(), ",,"), "holds no id");
}

TEST(EnumName, NameOrNumber_Fine) {
    const auto type = qcfg::EnumName<bmc::BoardType_e>("boardType", "board type");
    for (const char* const text : {"icb", "44", "044", "+44", "os", "243"}) {
        EXPECT_EQ(FaultInAttribute(type, text), "") << text;
    }
}

TEST(EnumName, NeitherNameNorNumber_Fault) {
    const auto type = qcfg::EnumName<bmc::BoardType_e>("boardType", "board type");
    EXPECT_EQ(FaultInAttribute(type, "Processor"), "is not the name of a board type; did you mean \"processor\"?");
    EXPECT_EQ(FaultInAttribute(type, "zebra crossing"), "is not the name of a board type");
    EXPECT_EQ(FaultInAttribute(type, "9999"), "is not the number of a board type");
    EXPECT_EQ(FaultInAttribute(type, "-1"), "is not the number of a board type");
}

}  // namespace
