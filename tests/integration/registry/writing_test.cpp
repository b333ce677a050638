#include "tests/integration/registry/registry_fixture.h"

namespace {

using test::Characters;
using test::ErrorOf;
using test::Number;
using test::Whole;
using testing::HasSubstr;
using testing::StartsWith;

class RegistryWriting : public test::RegistryServerTest {
protected:
    std::string Set(const char* path, const reg::NewValue& value) {
        return ErrorOf([&] { m_registry->set(path, value); });
    }
};

TEST_F(RegistryWriting, Set_TakesNumbersWholeNumbersAndTexts) {
    Start();
    EXPECT_EQ(Set("knobs/speed", Number(4000)), "");
    reg::Reading_var reading = m_registry->get("knobs/speed");
    EXPECT_EQ(reading->val.number(), 4000.0);
    EXPECT_EQ(Set("knobs/speed", Whole(3000)), "");
    EXPECT_EQ(Set("knobs/speed", Characters("2000")), "");
    reading = m_registry->get("knobs/speed");
    EXPECT_EQ(reading->val.number(), 2000.0);
    EXPECT_EQ(Set("knobs/steps", Whole(5)), "");
    EXPECT_EQ(Set("knobs/steps", Number(6)), "");
    reading = m_registry->get("knobs/steps");
    EXPECT_EQ(reading->val.whole(), 6);
    EXPECT_EQ(Set("knobs/label", Characters("grün")), "");
    reading = m_registry->get("knobs/label");
    EXPECT_STREQ(reading->val.characters(), "grün");
}

TEST_F(RegistryWriting, Set_TellsWhyItWasNotDone) {
    Start();
    EXPECT_THAT(Set("nowhere", Number(1)), StartsWith("1: "));
    EXPECT_THAT(Set("values/number", Number(1)), StartsWith("4: "));
    EXPECT_THAT(Set("knobs/steps", Number(1.5)), StartsWith("5: "));
    EXPECT_THAT(Set("knobs/steps", Whole(5000000000)), StartsWith("5: "));
    EXPECT_THAT(Set("knobs/label", Number(1)), StartsWith("5: "));
    reg::NewValue none;
    none.none(0);
    EXPECT_THAT(Set("knobs/speed", none), StartsWith("5: "));
    EXPECT_EQ(Set("knobs/speed", Number(20000)), "8: Too high value: 20000");
}

TEST_F(RegistryWriting, Set_AValueOfATypeInventedLaterIsOfTheWrongType) {
    Start();
    reg::Blob bytes;
    bytes.length(5);
    reg::NewValue later;
    later.other(bytes);
    later._d(99);
    EXPECT_EQ(Set("knobs/speed", later), "5: This server knows no values of type 99");
}

TEST_F(RegistryWriting, SetMany_DoesEachWhateverCameOfTheOnesBefore) {
    Start();
    reg::AssignmentSeq assignments;
    assignments.length(4);
    assignments[0].where = "knobs/steps";
    assignments[0].val = Whole(11);
    assignments[1].where = "nowhere";
    assignments[1].val = Whole(11);
    assignments[2].where = "knobs/speed";
    assignments[2].val = Number(20000);
    assignments[3].where = "knobs/label";
    assignments[3].val = Characters("last");
    reg::OutcomeSeq_var outcomes = m_registry->set_many(assignments);
    ASSERT_EQ(outcomes->length(), 4U);
    EXPECT_EQ(outcomes[0U].code, reg::OK);
    EXPECT_EQ(outcomes[1U].code, reg::NO_SUCH_NODE);
    EXPECT_EQ(outcomes[2U].code, reg::FAILED);
    EXPECT_STREQ(outcomes[2U].text, "Too high value: 20000");
    EXPECT_EQ(outcomes[3U].code, reg::OK);
    const reg::Reading_var reading = m_registry->get("knobs/label");
    EXPECT_STREQ(reading->val.characters(), "last");
}

TEST_F(RegistryWriting, EveryWrite_IsLoggedWithBothValues) {
    Start();
    EXPECT_EQ(Set("knobs/speed", Number(4000)), "");
    EXPECT_EQ(Set("knobs/speed", Number(20000)), "8: Too high value: 20000");
    EXPECT_THAT(Set("values/number", Number(1)), StartsWith("4: "));
    reg::NewValue later;
    later.other(reg::Blob());
    later._d(99);
    EXPECT_THAT(Set("knobs/speed", later), StartsWith("5: "));
    ASSERT_EQ(Stop(), 0);
    const std::string log = Errors();
    EXPECT_THAT(log, HasSubstr("INFO     Registry: knobs/speed set from 100 to 4000 by 127.0.0.1\n"));
    EXPECT_THAT(log,
                HasSubstr("WARNING  Registry: knobs/speed not set from 4000 to 20000 for 127.0.0.1: Too high value: "
                          "20000\n"));
    EXPECT_THAT(log, HasSubstr("WARNING  Refused to write values/number = 1 for 127.0.0.1: "));
    EXPECT_THAT(log,
                HasSubstr("WARNING  Refused to write knobs/speed = ? for 127.0.0.1: This server knows no values of "
                          "type 99\n"));
}

TEST_F(RegistryWriting, Readers_AreTheOnlyOnesThatAreAnswered) {
    Start({"read=10.1.2.0/24", "write=10.1.3.0/24"});
    const reg::ServerInfo_var info = m_registry->hello("a stranger");
    EXPECT_EQ(info->major, 1);
    EXPECT_EQ(ErrorOf([&] { m_registry->get("knobs/speed"); }), "6: Clients at 127.0.0.1 may not read");
    EXPECT_EQ(ErrorOf([&] { m_registry->subtree("", 1, 0, ""); }), "6: Clients at 127.0.0.1 may not read");
    EXPECT_EQ(ErrorOf([&] { m_registry->children("", 0); }), "6: Clients at 127.0.0.1 may not read");
    EXPECT_EQ(ErrorOf([&] { m_registry->get_many(test::Paths({"knobs/speed"})); }),
              "6: Clients at 127.0.0.1 may not read");
    EXPECT_EQ(ErrorOf([&] { m_registry->subscribe(reg::Filter()); }), "6: Clients at 127.0.0.1 may not read");
    EXPECT_EQ(ErrorOf([&] { m_registry->poll("x", 0, 0, 0); }), "6: Clients at 127.0.0.1 may not read");
    EXPECT_EQ(ErrorOf([&] { m_registry->open_view(test::Paths({"knobs/speed"})); }),
              "6: Clients at 127.0.0.1 may not read");
    EXPECT_EQ(Set("knobs/speed", Number(4000)), "6: Clients at 127.0.0.1 may not write");
    EXPECT_TRUE(AwaitErrors("Refused to read knobs/speed for 127.0.0.1, which may not read"));
}

TEST_F(RegistryWriting, Stranger_IsDeniedAndLoggedWithAddressPathAndValue) {
    Start({"write=10.1.2.0/24"});
    EXPECT_EQ(Set("knobs/speed", Number(4000)), "6: Clients at 127.0.0.1 may not write");
    reg::AssignmentSeq assignments;
    assignments.length(2);
    for (CORBA::ULong i = 0; i < 2; ++i) {
        assignments[i].where = "knobs/label";
        assignments[i].val = Characters("two\nlines");
    }
    reg::OutcomeSeq_var outcomes = m_registry->set_many(assignments);
    EXPECT_EQ(outcomes[0U].code, reg::DENIED);
    EXPECT_EQ(outcomes[1U].code, reg::DENIED);
    const reg::Reading_var reading = m_registry->get("knobs/speed");
    EXPECT_EQ(reading->val.number(), 100.0);
    EXPECT_TRUE(AwaitErrors("Refused to write knobs/speed = 4000 for 127.0.0.1, which may not write"));
    EXPECT_TRUE(AwaitErrors("Refused to write knobs/label = \"two?lines\" for 127.0.0.1, which may not write"));
}

TEST_F(RegistryWriting, Stranger_WhoTriesAgainAndAgainDoesNotFillTheLog) {
    Start({"write=10.1.2.0/24"});
    for (int i = 0; i < 200; ++i) {
        EXPECT_THAT(Set("knobs/speed", Number(i)), StartsWith("6: "));
    }
    ASSERT_EQ(Stop(), 0);
    const std::vector<std::string> lines = test::ReadLines(m_folder.Path("err"));
    EXPECT_EQ(lines.size(), 11U);
    EXPECT_THAT(lines.back(), HasSubstr("(190 more were not logged)"));
}

TEST_F(RegistryWriting, KnownAddress_MayWriteAlsoWhenItComesOverAnIpv6Socket) {
    Start({"listen=", "write=127.0.0.0/8"});
    EXPECT_EQ(Set("knobs/speed", Number(4000)), "");
}

}  // namespace
