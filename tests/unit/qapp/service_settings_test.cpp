#include "qapp/service_settings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "qstd/exception.h"

namespace {

using qapp::Watchdog_e;

qapp::ServiceSettings ReadService(const std::string& sections) {
    qcfg::Configuration configuration;
    configuration.LoadText("<zelkor>\n" + sections + "</zelkor>", "config.xml");
    return qapp::ReadServiceSettings(configuration);
}

void ExpectRefusal(const std::string& sections, const std::string& text) {
    try {
        ReadService(sections);
        ADD_FAILURE() << sections << " was taken";
    } catch (const qstd::Exception& error) {
        EXPECT_EQ(std::string(error.what()), text);
    }
}

TEST(ServiceSettings, NothingSaid_TheWatchdogIsForTheProcess) {
    EXPECT_EQ(ReadService("").watchdog, Watchdog_e::process);
    EXPECT_EQ(ReadService("<service/>").watchdog, Watchdog_e::process);
}

TEST(ServiceSettings, Watchdog_IsTaken) {
    EXPECT_EQ(ReadService("<service watchdog='process'/>").watchdog, Watchdog_e::process);
    EXPECT_EQ(ReadService("<service watchdog='workers'/>").watchdog, Watchdog_e::workers);
}

TEST(ServiceSettings, UnknownWatchdog_IsRefusedWithItsLine) {
    ExpectRefusal(
        "<service watchdog='dog'/>",
        "config.xml:2: attribute \"watchdog\" of <service>: \"dog\" is not the name of a thing to watch (process, "
        "workers)");
}

TEST(ServiceSettings, UnknownAttribute_IsRefusedWithItsLine) {
    ExpectRefusal("\n<service watchdogs='workers'/>",
                  "config.xml:3: unknown attribute \"watchdogs\" of <service>; did you mean \"watchdog\"?");
}

TEST(ServiceSettings, SecondSection_IsRefusedWithItsLine) {
    ExpectRefusal("<service watchdog='workers'/>\n<service watchdog='workers'/>\n",
                  "config.xml:3: second <service> section; there may be one only");
}

}  // namespace
