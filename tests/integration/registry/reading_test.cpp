#include <cmath>

#include "tests/integration/registry/registry_fixture.h"

namespace {

using test::ErrorOf;
using test::Paths;
using testing::HasSubstr;
using testing::StartsWith;

class RegistryReading : public test::RegistryServerTest {};

TEST_F(RegistryReading, Hello_TellsProtocolProductAndAnotherBootIdAfterEachStart) {
    Start();
    const reg::ServerInfo_var info = m_registry->hello("test");
    EXPECT_EQ(info->major, 1);
    EXPECT_EQ(info->minor, 1);
    EXPECT_STREQ(info->product, "registry_server 1.0");
    EXPECT_THAT(info->boot_id.in(), testing::MatchesRegex("[0-9a-f]{32}"));
    ASSERT_EQ(Stop(), 0);
    std::filesystem::remove(m_folder.Path("out"));
    Start();
    const reg::ServerInfo_var again = m_registry->hello("test");
    EXPECT_STRNE(info->boot_id, again->boot_id);
}

TEST_F(RegistryReading, Get_GivesEveryTypeOfValue) {
    Start();
    reg::Reading_var reading = m_registry->get("values/number");
    ASSERT_EQ(reading->val._d(), reg::TYPE_DOUBLE);
    EXPECT_EQ(reading->val.number(), 1.5);
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    EXPECT_NEAR(static_cast<double>(reading->at),
                static_cast<double>(std::chrono::duration_cast<std::chrono::microseconds>(now).count()), 60e6);
    reading = m_registry->get("values/whole");
    ASSERT_EQ(reading->val._d(), reg::TYPE_INTEGER);
    EXPECT_EQ(reading->val.whole(), 7);
    reading = m_registry->get("values/text");
    ASSERT_EQ(reading->val._d(), reg::TYPE_STRING);
    EXPECT_STREQ(reading->val.characters(), "grün");
}

TEST_F(RegistryReading, Get_TellsWhyThereIsNoValue) {
    Start();
    EXPECT_THAT(ErrorOf([&] { m_registry->get("values/none"); }), StartsWith("1: "));
    EXPECT_THAT(ErrorOf([&] { m_registry->get("values/nothing"); }), StartsWith("2: "));
    EXPECT_THAT(ErrorOf([&] { m_registry->get("values"); }), StartsWith("3: "));
    EXPECT_THAT(ErrorOf([&] { m_registry->get("values/hidden"); }), StartsWith("3: "));
    EXPECT_THAT(ErrorOf([&] { m_registry->get("values/long"); }), StartsWith("7: "));
    EXPECT_EQ(ErrorOf([&] { m_registry->get("values/broken"); }), "8: the bus is stuck");
    try {
        m_registry->get("values/none");
    } catch (const reg::Error& error) {
        EXPECT_STREQ(error.path, "values/none");
    }
}

TEST_F(RegistryReading, Describe_TellsTypeFlagsAndChildren) {
    Start({"leaves=12"});
    reg::NodeInfo_var info = m_registry->describe("");
    EXPECT_STREQ(info->name, "root");
    EXPECT_EQ(info->children, 4U);
    EXPECT_EQ(info->type, reg::TYPE_EMPTY);
    info = m_registry->describe("knobs/speed");
    EXPECT_STREQ(info->name, "speed");
    EXPECT_EQ(info->flags, 6U);
    EXPECT_EQ(info->type, reg::TYPE_DOUBLE);
    EXPECT_EQ(info->size, 1U);
    info = m_registry->describe("many");
    EXPECT_EQ(info->children, 12U);
    EXPECT_THAT(ErrorOf([&] { m_registry->describe("nowhere"); }), StartsWith("1: "));
}

TEST_F(RegistryReading, Children_ComeInPagesOfAThousandInTheirOrder) {
    Start({"leaves=2300"});
    std::vector<CORBA::ULong> sizes;
    CORBA::ULong start = 0;
    for (;;) {
        reg::NodeInfoSeq_var page = m_registry->children("many", start);
        if (page->length() == 0) {
            break;
        }
        EXPECT_EQ(std::string(page[0U].name), "leaf_" + std::to_string(start));
        sizes.push_back(page->length());
        start += page->length();
    }
    EXPECT_THAT(sizes, testing::ElementsAre(1000U, 1000U, 300U));
    const reg::NodeInfoSeq_var none = m_registry->children("values/number", 0);
    EXPECT_EQ(none->length(), 0U);
}

TEST_F(RegistryReading, GetMany_AnswersEachPathForItself) {
    Start();
    reg::ValueSeq_var outcomes =
        m_registry->get_many(Paths({"values/number", "nowhere", "values/nothing", "values/broken", "values/whole"}));
    ASSERT_EQ(outcomes->length(), 5U);
    EXPECT_EQ(outcomes[0U].number(), 1.5);
    EXPECT_EQ(outcomes[1U].failure().code, reg::NO_SUCH_NODE);
    EXPECT_THAT(std::string(outcomes[1U].failure().text), HasSubstr("nowhere"));
    EXPECT_EQ(outcomes[2U].failure().code, reg::NO_VALUE);
    EXPECT_EQ(outcomes[3U].failure().code, reg::FAILED);
    EXPECT_STREQ(outcomes[3U].failure().text, "the bus is stuck");
    EXPECT_EQ(outcomes[4U].whole(), 7);
    reg::ValueSeq_var none = m_registry->get_many(Paths({}));
    EXPECT_EQ(none->length(), 0U);
}

TEST_F(RegistryReading, GetMany_WhatHasNoRoomInAMessageIsToldItemByItem) {
    Start({"maxMessage=200000"});
    std::vector<std::string> paths;
    for (int i = 0; i < 10; ++i) {
        paths.push_back("texts/text_" + std::to_string(i));
    }
    paths.emplace_back("values/number");
    reg::ValueSeq_var outcomes = m_registry->get_many(Paths(paths));
    ASSERT_EQ(outcomes->length(), 11U);
    EXPECT_EQ(outcomes[0U]._d(), reg::TYPE_STRING);
    EXPECT_EQ(outcomes[2U]._d(), reg::TYPE_STRING);
    EXPECT_EQ(outcomes[3U].failure().code, reg::LIMIT);
    EXPECT_STREQ(outcomes[3U].failure().text, "No room: a reply has at most 200000 bytes");
    EXPECT_EQ(outcomes[10U].number(), 1.5);

    const std::vector<std::string> tooMany(4000, "values/number");
    EXPECT_THAT(ErrorOf([&] { m_registry->get_many(Paths(tooMany)); }), HasSubstr("200000 bytes"));
}

TEST_F(RegistryReading, Subtree_ParentsBeforeChildrenAndFailuresCostOnlyTheirItem) {
    Start({"leaves=1"});
    const reg::Page_var page = m_registry->subtree("values", 9, 0, "");
    ASSERT_EQ(page->items.length(), 9U);
    EXPECT_STREQ(page->next, "");
    EXPECT_EQ(page->items[0].depth, 0);
    EXPECT_STREQ(page->items[0].info.name, "values");
    EXPECT_EQ(page->items[0].val._d(), reg::TYPE_EMPTY);
    EXPECT_EQ(page->items[1].depth, 1);
    EXPECT_EQ(page->items[1].val.number(), 1.5);
    EXPECT_STREQ(page->items[3].val.characters(), "grün");
    EXPECT_EQ(page->items[4].val.failure().code, reg::NO_VALUE);
    EXPECT_EQ(page->items[5].val.failure().code, reg::FAILED);
    EXPECT_STREQ(page->items[5].val.failure().text, "the bus is stuck");
    EXPECT_EQ(page->items[6].val.number(), 3.0);
    EXPECT_EQ(page->items[7].val._d(), reg::TYPE_EMPTY);
    EXPECT_EQ(page->items[8].val.failure().code, reg::LIMIT);
    EXPECT_THAT(ErrorOf([&] { m_registry->subtree("nowhere", 9, 0, ""); }), StartsWith("1: "));
    EXPECT_THAT(ErrorOf([&] { m_registry->subtree("values", 9, 0, "knobs"); }), StartsWith("1: "));
}

TEST_F(RegistryReading, Subtree_DepthEndsTheWalk) {
    Start({"leaves=1"});
    const reg::Page_var itself = m_registry->subtree("", 0, 0, "");
    EXPECT_EQ(itself->items.length(), 1U);
    const reg::Page_var children = m_registry->subtree("", 1, 0, "");
    EXPECT_EQ(children->items.length(), 5U);
}

/// The whole tree in pages of at most @p limit items: the names in order.
std::vector<std::string> Collect(reg::Registry_ptr registry, CORBA::ULong limit, std::size_t& pages) {
    std::vector<std::string> names;
    std::string after;
    do {
        const reg::Page_var page = registry->subtree("", 99, limit, after.c_str());
        for (CORBA::ULong i = 0; i < page->items.length(); ++i) {
            names.push_back(std::to_string(page->items[i].depth) + " " + page->items[i].info.name.in());
        }
        after = page->next;
        ++pages;
    } while (!after.empty());
    return names;
}

TEST_F(RegistryReading, Subtree_PagesGoOnWhereTheLastOneEnded) {
    Start({"leaves=20"});
    std::size_t one = 0;
    std::size_t many = 0;
    const std::vector<std::string> whole = Collect(m_registry, 50, one);
    EXPECT_EQ(whole.size(), 1U + 9U + 5U + 21U + 101U);
    EXPECT_EQ(Collect(m_registry, 1, many), whole);
    EXPECT_GE(many, whole.size());
}

TEST_F(RegistryReading, Subtree_PagesEndByTheirSizeToo) {
    Start({"leaves=5500"});
    // 100 texts of 60000 bytes: a message would not take them.
    std::size_t pages = 0;
    EXPECT_EQ(Collect(m_registry, 0, pages).size(), 1U + 9U + 5U + 5501U + 101U);
    EXPECT_GE(pages, 12U);
    const reg::Page_var first = m_registry->subtree("many", 9, 0, "");
    EXPECT_EQ(first->items.length(), 5000U);
}

TEST_F(RegistryReading, View_GivesNumbersAndStatesInTheOrderAsked) {
    Start();
    const CORBA::String_var id =
        m_registry->open_view(Paths({"values/number", "values/whole", "values/text", "values/nothing", "values/broken",
                                     "values/hidden", "nowhere", "many/leaf_5"}));
    EXPECT_THAT(id.in(), testing::MatchesRegex("[0-9a-f]{32}"));
    const reg::Columns_var columns = m_registry->read_view(id);
    ASSERT_EQ(columns->numbers.length(), 8U);
    std::vector<int> states;
    for (CORBA::ULong i = 0; i < columns->states.length(); ++i) {
        states.push_back(columns->states[i]);
        EXPECT_EQ(std::isnan(columns->numbers[i]), states.back() != 0);
    }
    EXPECT_THAT(states, testing::ElementsAre(0, 0, 5, 2, 8, 3, 1, 0));
    EXPECT_EQ(columns->numbers[0], 1.5);
    EXPECT_EQ(columns->numbers[1], 7.0);
    EXPECT_EQ(columns->numbers[7], 5.0);
    m_registry->close_view(id);
    EXPECT_THAT(ErrorOf([&] { m_registry->read_view(id); }), StartsWith("10: "));
    EXPECT_THAT(ErrorOf([&] { m_registry->close_view(id); }), StartsWith("10: "));
}

TEST_F(RegistryReading, View_TheOneNotReadForLongestGivesWay) {
    Start();
    std::vector<CORBA::String_var> ids(64);
    for (CORBA::String_var& id : ids) {
        id = m_registry->open_view(Paths({"values/number"}));
    }
    reg::Columns_var columns = m_registry->read_view(ids[0]);
    const CORBA::String_var one = m_registry->open_view(Paths({"values/number"}));
    columns = m_registry->read_view(ids[0]);
    EXPECT_THAT(ErrorOf([&] { m_registry->read_view(ids[1]); }), StartsWith("10: "));
    columns = m_registry->read_view(ids[2]);
    columns = m_registry->read_view(one);
}

TEST_F(RegistryReading, OldestProtocolAndOldClient_AreServed) {
    Start();
    const reg::Registry_1_1_var oldest = Connect("iiop:1.0");
    reg::Reading_var reading = oldest->get("values/number");
    EXPECT_EQ(reading->val.number(), 1.5);
    const reg::Page_var page = oldest->subtree("many", 9, 0, "");
    EXPECT_EQ(page->items.length(), 701U);

    const std::string url = "corbaloc:iiop:1.2@127.0.0.1:" + std::to_string(m_port) + "/Registry";
    const CORBA::Object_var object = test::ClientOrb()->string_to_object(url.c_str());
    const reg::Registry_var old = reg::Registry::_narrow(object);
    ASSERT_FALSE(CORBA::is_nil(old));
    reading = old->get("values/number");
    EXPECT_EQ(reading->val.number(), 1.5);
}

TEST_F(RegistryReading, SlowNode_HoldsUpNobodyElse) {
    Start();
    const reg::Registry_1_1_var other = Connect();
    // Reads it all the time, 300 ms each.
    const reg::PathSeq paths = test::Paths(std::vector<std::string>(100, "values/slow"));
    std::thread slow([&] { ErrorOf([&] { const reg::ValueSeq_var all = other->get_many(paths); }); });
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 50; ++i) {
        const reg::Reading_var reading = m_registry->get("values/number");
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10)) << "not 300 ms for each of them";
    EXPECT_EQ(Stop(), 0);
    slow.join();
}

}  // namespace
