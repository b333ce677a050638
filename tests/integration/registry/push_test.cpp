#include <condition_variable>
#include <mutex>

#include "tests/integration/registry/registry_fixture.h"

namespace {

using test::ErrorOf;
using test::Number;
using testing::StartsWith;

/// Collects what a server tells it. May take its time.
class Recorder : public POA_reg::Listener {
public:
    explicit Recorder(std::chrono::milliseconds delay = {}) : m_delay(delay) {}

    void notify(const char* /*id*/, const reg::Batch& batch) override {
        std::this_thread::sleep_for(m_delay);
        const std::lock_guard<std::mutex> guard(m_mutex);
        for (CORBA::ULong i = 0; i < batch.events.length(); ++i) {
            m_values.push_back(batch.events[i].val.number());
        }
        m_changed.notify_all();
    }

    bool Await(std::size_t count) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::seconds(100), [&] { return m_values.size() >= count; });
    }

    std::vector<double> Values() {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_values;
    }

private:
    const std::chrono::milliseconds m_delay;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<double> m_values;
};

class RegistryPush : public test::RegistryServerTest {
protected:
    RegistryPush() {
        const CORBA::Object_var object = test::ClientOrb()->resolve_initial_references("RootPOA");
        m_adapter = PortableServer::POA::_narrow(object);
        const PortableServer::POAManager_var manager = m_adapter->the_POAManager();
        manager->activate();
    }

    reg::Listener_ptr Activate(Recorder& recorder) {
        const PortableServer::ObjectId_var id = m_adapter->activate_object(&recorder);
        const CORBA::Object_var object = m_adapter->id_to_reference(id);
        return reg::Listener::_narrow(object);
    }

    static reg::Filter SpeedOnly() {
        reg::Filter filter;
        filter.patterns = test::Paths({"knobs/speed"});
        filter.types = 0;
        filter.queue_limit = 0;
        filter.lease_s = 0;
        filter.present = false;
        return filter;
    }

    /// A listener where nobody answers, or nobody is.
    static reg::Listener_ptr ListenerAt(int port) {
        const std::string url = "corbaloc:iiop:1.2@192.0.2.1:" + std::to_string(port) + "/listener";
        const CORBA::Object_var object = test::ClientOrb()->string_to_object(url.c_str());
        return reg::Listener::_unchecked_narrow(object);
    }

    PortableServer::POA_var m_adapter;
};

TEST_F(RegistryPush, SwitchedOff_IsNotOffered) {
    Start();
    Recorder* const recorder = new Recorder;
    const PortableServer::ServantBase_var owner(recorder);
    const reg::Listener_var listener = Activate(*recorder);
    EXPECT_THAT(ErrorOf([&] { m_registry->subscribe_to(SpeedOnly(), listener); }), StartsWith("11: "));
}

TEST_F(RegistryPush, Listener_IsToldInOrder) {
    Start({"push=1"});
    Recorder* const recorder = new Recorder;
    const PortableServer::ServantBase_var owner(recorder);
    const reg::Listener_var listener = Activate(*recorder);
    const reg::Lease_var lease = m_registry->subscribe_to(SpeedOnly(), listener);
    for (int i = 1; i <= 20; ++i) {
        m_registry->set("knobs/speed", Number(i));
    }
    ASSERT_TRUE(recorder->Await(20));
    std::vector<double> expected;
    for (int i = 1; i <= 20; ++i) {
        expected.push_back(i);
    }
    EXPECT_EQ(recorder->Values(), expected);
    EXPECT_EQ(m_registry->renew(lease->id), 60U);
    m_registry->unsubscribe(lease->id);
    EXPECT_THAT(ErrorOf([&] { m_registry->renew(lease->id); }), StartsWith("9: "));
}

TEST_F(RegistryPush, NoListener_IsAnError) {
    Start({"push=1"});
    EXPECT_THAT(ErrorOf([&] { m_registry->subscribe_to(SpeedOnly(), reg::Listener::_nil()); }), StartsWith("8: "));
}

TEST_F(RegistryPush, ListenerThatIsGone_IsGivenUpAfterThreeFailures) {
    Start({"push=1"});
    const reg::Listener_var listener = ListenerAt(9);
    const reg::Lease_var lease = m_registry->subscribe_to(SpeedOnly(), listener);
    m_registry->set("knobs/speed", Number(1));
    EXPECT_TRUE(AwaitErrors("A listener was given up after 3 calls that failed in a row"));
    EXPECT_THAT(ErrorOf([&] { m_registry->renew(lease->id); }), StartsWith("9: "));
}

TEST_F(RegistryPush, ReferenceToTheServerItself_IsGivenUpToo) {
    Start({"push=1"});
    const std::string url = "corbaloc:iiop:1.2@127.0.0.1:" + std::to_string(m_port) + "/Registry";
    const CORBA::Object_var object = test::ClientOrb()->string_to_object(url.c_str());
    const reg::Listener_var listener = reg::Listener::_unchecked_narrow(object);
    const reg::Lease_var lease = m_registry->subscribe_to(SpeedOnly(), listener);
    m_registry->set("knobs/speed", Number(1));
    EXPECT_TRUE(AwaitErrors("A listener was given up after 3 calls that failed in a row"));
}

TEST_F(RegistryPush, ListenerThatNeverReturns_DelaysNeitherWritersNorOtherListenersNorTheStop) {
    Start({"push=1"});
    constexpr std::chrono::seconds c_stuck(6);
    Recorder* const stuck = new Recorder(c_stuck);
    const PortableServer::ServantBase_var stuckOwner(stuck);
    Recorder* const good = new Recorder;
    const PortableServer::ServantBase_var goodOwner(good);
    const reg::Listener_var stuckListener = Activate(*stuck);
    const reg::Listener_var goodListener = Activate(*good);
    reg::Lease_var lease = m_registry->subscribe_to(SpeedOnly(), stuckListener);
    lease = m_registry->subscribe_to(SpeedOnly(), goodListener);
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 1; i <= 100; ++i) {
        m_registry->set("knobs/speed", Number(i));
    }
    EXPECT_TRUE(good->Await(100));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, c_stuck);
    ASSERT_EQ(Stop(), 0);
    EXPECT_LT(StopMilliseconds(), 5000);
}

TEST_F(RegistryPush, ListenersBeyondTheSixteenth_AreALimit) {
    Start({"push=1"});
    const reg::Listener_var listener = ListenerAt(9);
    std::vector<std::string> ids;
    for (int i = 0; i < 16; ++i) {
        const reg::Lease_var lease = m_registry->subscribe_to(SpeedOnly(), listener);
        ids.emplace_back(lease->id);
    }
    EXPECT_THAT(ErrorOf([&] { m_registry->subscribe_to(SpeedOnly(), listener); }), StartsWith("7: "));
    m_registry->unsubscribe(ids[3].c_str());
    // The place is free once its thread has seen it.
    std::string error = "7";
    for (int i = 0; i < 20000 && !error.empty(); ++i) {
        error = ErrorOf([&] { const reg::Lease_var lease = m_registry->subscribe_to(SpeedOnly(), listener); });
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    EXPECT_EQ(error, "");
}

}  // namespace
