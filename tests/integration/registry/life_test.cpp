#include "tests/integration/registry/raw_giop.h"
#include "tests/integration/registry/registry_fixture.h"

namespace {

using test::ErrorOf;
using test::Number;
using testing::HasSubstr;
using testing::StartsWith;

class RegistryLife : public test::RegistryServerTest {};

TEST_F(RegistryLife, Stop_WithClientsConnectedAndPollsWaiting_IsQuick) {
    Start();
    std::vector<reg::Registry_1_1_var> clients;
    for (int i = 0; i < 20; ++i) {
        clients.emplace_back(Connect());
    }
    std::vector<std::unique_ptr<test::RawConnection>> idle;
    for (int i = 0; i < 20; ++i) {
        idle.push_back(std::make_unique<test::RawConnection>(m_port));
    }
    reg::Filter filter;
    filter.types = filter.queue_limit = filter.lease_s = 0;
    filter.present = false;
    std::vector<std::thread> pollers;
    std::vector<std::string> errors(3);
    for (std::size_t i = 0; i < errors.size(); ++i) {
        const reg::Lease_var lease = m_registry->subscribe(filter);
        pollers.emplace_back([id = std::string(lease->id), &client = clients[i], &error = errors[i]] {
            error = ErrorOf([&] { client->poll(id.c_str(), 0, 1, 20000); });
        });
    }
    // Half of the pollers may only be on their way: both are to end.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ASSERT_EQ(Stop(), 0);
    EXPECT_LT(StopMilliseconds(), 10000) << "polls may wait for twenty seconds";
    for (std::thread& poller : pollers) {
        poller.join();
    }
    for (const std::string& error : errors) {
        EXPECT_THAT(error, testing::AnyOf(StartsWith("12: "), "COMM_FAILURE", "TRANSIENT"));
    }
}

TEST_F(RegistryLife, Refuse_EndsPollsAndLetsNobodyIn) {
    Start();
    reg::Filter filter;
    filter.types = filter.queue_limit = filter.lease_s = 0;
    filter.present = false;
    const reg::Lease_var lease = m_registry->subscribe(filter);
    std::string pollError;
    const reg::Registry_1_1_var other = Connect();
    std::thread poller([&] { pollError = ErrorOf([&] { other->poll(lease->id, 0, 1, 20000); }); });
    m_server->Signal(SIGUSR1);
    ASSERT_TRUE(AwaitOutput("refusing"));
    poller.join();
    EXPECT_THAT(pollError, StartsWith("12: "));
    EXPECT_EQ(ErrorOf([&] { m_registry->get("values/number"); }), "12: The server is about to end");
    EXPECT_THAT(ErrorOf([&] { m_registry->hello(""); }), StartsWith("12: "));
    EXPECT_THAT(ErrorOf([&] { m_registry->set("knobs/speed", Number(1)); }), StartsWith("12: "));
    EXPECT_THAT(ErrorOf([&] { m_registry->subscribe(filter); }), StartsWith("12: "));
    EXPECT_THAT(ErrorOf([&] { m_registry->open_view(test::Paths({})); }), StartsWith("12: "));
}

TEST_F(RegistryLife, Refuse_WaitsForAWriteThatIsUnderWay) {
    Start();
    std::string error;
    const reg::Registry_1_1_var other = Connect();
    std::thread writer([&] { error = ErrorOf([&] { other->set("knobs/stiff", Number(5)); }); });
    // The write takes 400 ms.
    EXPECT_TRUE(AwaitOutput("stiff begins\n"));
    m_server->Signal(SIGUSR1);
    EXPECT_TRUE(AwaitOutput("refusing"));
    writer.join();
    EXPECT_LT(Output().find("stiff ends\n"), Output().find("refusing"));
    EXPECT_EQ(error, "");
    EXPECT_THAT(Errors(), testing::Not(HasSubstr("still under way")));
}

TEST_F(RegistryLife, Stop_WhileManySlowNodesAreRead_WaitsForOneOfThemOnly) {
    Start();
    // Each takes 300 ms.
    const reg::PathSeq slow = test::Paths(std::vector<std::string>(100, "values/slow"));
    const CORBA::String_var view = m_registry->open_view(slow);
    const reg::Registry_1_1_var other = Connect();
    std::string errors[2];
    std::thread many([&] { errors[0] = ErrorOf([&] { const reg::ValueSeq_var all = m_registry->get_many(slow); }); });
    std::thread viewer([&] { errors[1] = ErrorOf([&] { const reg::Columns_var all = other->read_view(view); }); });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    ASSERT_EQ(Stop(), 0);
    EXPECT_LT(StopMilliseconds(), 10000);
    many.join();
    viewer.join();
    for (const std::string& error : errors) {
        EXPECT_THAT(error, testing::AnyOf(StartsWith("12: "), "COMM_FAILURE", "TRANSIENT"));
    }
}

TEST_F(RegistryLife, ClientKilledWhileSubscribed_HarmsNobody) {
    Start();
    reg::Filter filter;
    filter.types = filter.queue_limit = filter.lease_s = 0;
    filter.present = false;
    const reg::Lease_var lease = m_registry->subscribe(filter);
    {
        const test::RawConnection poller(m_port);
        poller.Send(test::RawMessage(1, "Registry", "poll")
                        .Text(lease->id.in())
                        .Long(0)
                        .Long(0)
                        .Long(0)
                        .Long(10)
                        .Long(20000)
                        .Bytes());
    }
    m_registry->set("knobs/speed", Number(1));
    const reg::Batch_var batch = m_registry->poll(lease->id, 0, 10, 5000);
    EXPECT_EQ(batch->events.length(), 1U);
}

}  // namespace
