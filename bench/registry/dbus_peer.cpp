#include "dbus_peer.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace bench {

namespace {

constexpr const char* c_name = "org.example.Sensors";
constexpr const char* c_path = "/org/example/sensors/temperature/inlet";
constexpr const char* c_interface = "org.example.Sensor.Value";

sd_bus* Connect(const std::string& address) {
    sd_bus* bus = nullptr;
    if (sd_bus_new(&bus) < 0 || sd_bus_set_address(bus, address.c_str()) < 0 || sd_bus_set_bus_client(bus, 1) < 0 ||
        sd_bus_start(bus) < 0) {
        throw std::runtime_error("cannot connect to the private bus");
    }
    return bus;
}

int ReadValue(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* /*property*/,
              sd_bus_message* reply, void* /*data*/, sd_bus_error* /*error*/) {
    const double value = 48.25;
    return sd_bus_message_append_basic(reply, 'd', &value);
}

const sd_bus_vtable c_table[] = {SD_BUS_VTABLE_START(0), SD_BUS_PROPERTY("Value", "d", ReadValue, 0, 0),
                                 SD_BUS_VTABLE_END};

[[noreturn]] void Serve(const std::string& address) {
    sd_bus* const bus = Connect(address);
    sd_bus_add_object_vtable(bus, nullptr, c_path, c_interface, c_table, nullptr);
    sd_bus_request_name(bus, c_name, 0);
    while (true) {
        if (sd_bus_process(bus, nullptr) == 0) {
            sd_bus_wait(bus, UINT64_MAX);
        }
    }
}

void ReadOnce(sd_bus* bus) {
    sd_bus_error error = SD_BUS_ERROR_NULL;
    double value = 0;
    if (sd_bus_get_property_trivial(bus, c_name, c_path, c_interface, "Value", &error, 'd', &value) < 0) {
        const std::string text = error.message == nullptr ? "" : error.message;
        sd_bus_error_free(&error);
        throw std::runtime_error("cannot read the property: " + text);
    }
}

}  // namespace

DbusPeer::DbusPeer(const std::string& folder) : m_address("unix:path=" + folder + "/bus") {
    const std::string config = folder + "/bus.conf";
    std::ofstream(config) << R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig><type>session</type><listen>)"
                          << m_address << R"(</listen><auth>EXTERNAL</auth>
<policy context="default"><allow send_destination="*"/><allow eavesdrop="true"/><allow own="*"/></policy></busconfig>)";
    m_bus = ::fork();
    if (m_bus == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::execlp("dbus-daemon", "dbus-daemon", ("--config-file=" + config).c_str(), "--nofork", nullptr);
        ::_exit(127);
    }
    constexpr useconds_t c_pause = 10000;
    for (int attempt = 0; ::access((folder + "/bus").c_str(), F_OK) != 0 && attempt < 500; ++attempt) {
        ::usleep(c_pause);
    }
    m_service = ::fork();
    if (m_service == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        Serve(m_address);
    }
    // The service is there when its property can be read.
    for (int attempt = 0; attempt < 500; ++attempt) {
        try {
            MakeReader()();
            return;
        } catch (const std::exception&) {
            ::usleep(c_pause);
        }
    }
    throw std::runtime_error("no service on the private bus; is dbus-daemon installed?");
}

DbusPeer::~DbusPeer() {
    for (const pid_t process : {m_service, m_bus}) {
        ::kill(process, SIGKILL);
        ::waitpid(process, nullptr, 0);
    }
}

std::function<void()> DbusPeer::MakeReader() const {
    const std::shared_ptr<sd_bus> bus(Connect(m_address), sd_bus_flush_close_unref);
    return [bus] { ReadOnce(bus.get()); };
}

}  // namespace bench
