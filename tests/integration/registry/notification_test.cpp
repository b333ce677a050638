#include "tests/integration/registry/registry_fixture.h"

namespace {

using test::ErrorOf;
using test::Number;
using testing::StartsWith;

class RegistryNotification : public test::RegistryServerTest {
protected:
    reg::Filter SpeedOnly() const {
        reg::Filter filter;
        filter.patterns = test::Paths({"knobs/*"});
        filter.types = 0;
        filter.queue_limit = 0;
        filter.lease_s = 0;
        filter.present = false;
        return filter;
    }
};

TEST_F(RegistryNotification, Poll_GivesEventsUntilTheyAreSaidToBeReceived) {
    Start();
    const reg::Lease_var lease = m_registry->subscribe(SpeedOnly());
    EXPECT_EQ(lease->lease_s, 60U);
    EXPECT_EQ(lease->queue_limit, 1000U);
    m_registry->set("knobs/speed", Number(1));
    m_registry->set("knobs/speed", Number(2));
    reg::Batch_var batch = m_registry->poll(lease->id, 0, 1, 5000);
    ASSERT_EQ(batch->events.length(), 1U);
    EXPECT_TRUE(batch->more);
    EXPECT_EQ(batch->lost, 0U);
    const reg::ServerInfo_var info = m_registry->hello("");
    EXPECT_STREQ(batch->boot_id, info->boot_id);
    EXPECT_EQ(batch->events[0].seq, 1U);
    EXPECT_EQ(batch->events[0].type, reg::TYPE_VALUE);
    EXPECT_STREQ(batch->events[0].path, "knobs/speed");
    EXPECT_EQ(batch->events[0].val.number(), 1.0);
    batch = m_registry->poll(lease->id, 0, 0, 5000);
    EXPECT_EQ(batch->events.length(), 2U);
    batch = m_registry->poll(lease->id, 1, 0, 5000);
    ASSERT_EQ(batch->events.length(), 1U);
    EXPECT_EQ(batch->events[0].seq, 2U);
    batch = m_registry->poll(lease->id, 2, 0, 0);
    EXPECT_EQ(batch->events.length(), 0U);
}

TEST_F(RegistryNotification, Poll_WaitsForTheFirstEventWithoutHoldingUpOthers) {
    Start();
    const reg::Lease_var lease = m_registry->subscribe(SpeedOnly());
    const reg::Registry_1_1_var other = Connect();
    reg::Batch_var batch;
    std::thread poller([&] { batch = other->poll(lease->id, 0, 10, 20000); });
    m_registry->set("knobs/speed", Number(7));
    poller.join();
    ASSERT_EQ(batch->events.length(), 1U);
    EXPECT_EQ(batch->events[0].val.number(), 7.0);
}

TEST_F(RegistryNotification, Present_ComesFirst) {
    Start();
    reg::Filter filter = SpeedOnly();
    filter.patterns = test::Paths({"values/whole", "values/text"});
    filter.present = true;
    const reg::Lease_var lease = m_registry->subscribe(filter);
    reg::Batch_var batch = m_registry->poll(lease->id, 0, 10, 5000);
    ASSERT_EQ(batch->events.length(), 2U);
    EXPECT_EQ(batch->events[0].type, reg::TYPE_PRESENT);
    EXPECT_EQ(batch->events[0].val.whole(), 7);
    EXPECT_STREQ(batch->events[1].val.characters(), "grün");
}

TEST_F(RegistryNotification, EventsThatDoNotFitIntoOneMessageComeWithTheNextPoll) {
    Start();
    reg::Filter filter = SpeedOnly();
    filter.patterns = test::Paths({"texts"});
    filter.present = true;
    const reg::Lease_var lease = m_registry->subscribe(filter);
    CORBA::ULongLong received = 0;
    std::size_t polls = 0;
    while (received < 100) {
        const reg::Batch_var batch = m_registry->poll(lease->id, received, 0, 5000);
        ASSERT_GT(batch->events.length(), 0U);
        EXPECT_EQ(batch->events[0].seq, received + 1);
        EXPECT_EQ(batch->lost, 0U);
        received = batch->events[batch->events.length() - 1].seq;
        ++polls;
    }
    EXPECT_GE(polls, 12U);
}

TEST_F(RegistryNotification, RenewAndUnsubscribe_KnowTheirSubscriptions) {
    Start();
    const reg::Lease_var lease = m_registry->subscribe(SpeedOnly());
    EXPECT_EQ(m_registry->renew(lease->id), 60U);
    m_registry->unsubscribe(lease->id);
    EXPECT_THAT(ErrorOf([&] { m_registry->renew(lease->id); }), StartsWith("9: "));
    EXPECT_THAT(ErrorOf([&] { m_registry->unsubscribe(lease->id); }), StartsWith("9: "));
    EXPECT_THAT(ErrorOf([&] { m_registry->poll(lease->id, 0, 1, 0); }), StartsWith("9: "));
}

TEST_F(RegistryNotification, TooManyPatterns_AreALimit) {
    Start();
    reg::Filter filter = SpeedOnly();
    filter.patterns = test::Paths(std::vector<std::string>(65, "knobs"));
    EXPECT_THAT(ErrorOf([&] { m_registry->subscribe(filter); }), StartsWith("7: "));
}

}  // namespace
