#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "bmc/ipmi/freeipmi_transport.h"
#include "tests/integration/ipmi/small_simulator.h"

namespace {
using namespace bmc::ipmi;
using namespace std::chrono_literals;
using std::chrono::steady_clock;
TEST(Scratch, Time) {
    test::SmallSimulator sim;
    ControllerSettings s;
    s.host = "127.0.0.1"; s.port = sim.GetPort(); s.user = "ops"; s.cipherSuite = 3;
    s.privilege = Privilege_e::administrator;
    FreeIpmiTransport t(s, [](const auto& use) { use("ops-secret"); });
    auto a = steady_clock::now();
    t.Open(a + 3s);
    printf("open %.3f ms\n", std::chrono::duration<double, std::milli>(steady_clock::now() - a).count());
    for (int r = 0; r < 5; ++r) {
        a = steady_clock::now();
        for (int i = 1; i <= 60; ++i) {
            auto x = t.Exchange({}, {NetFn_e::sensor, 0x2d, {std::uint8_t(i)}}, Sending_e::repeated, a + 3s);
            if (r == 0 && i < 3) { printf("cc %x", x.completionCode); for (auto b : x.data) printf(" %02x", b); puts(""); }
        }
        printf("60: %.3f ms\n", std::chrono::duration<double, std::milli>(steady_clock::now() - a).count());
    }
    for (unsigned addr : {0x82u, 0x84u}) {
        a = steady_clock::now();
        try {
            auto x = t.Exchange({std::uint8_t(addr), 0}, {NetFn_e::app, 1}, Sending_e::repeated, a + 3s);
            printf("%x: cc %x", addr, x.completionCode); for (auto b : x.data) printf(" %02x", b);
        } catch (std::exception& e) { printf("%x: %s", addr, e.what()); }
        printf(" %.3f ms\n", std::chrono::duration<double, std::milli>(steady_clock::now() - a).count());
    }
    a = steady_clock::now();
    t.Close(a + 1s);
    printf("close %.3f ms\n", std::chrono::duration<double, std::milli>(steady_clock::now() - a).count());
    auto attempt = [&](const char* what, ControllerSettings n, std::string pw) {
        FreeIpmiTransport u(n, [&](const auto& use) { use(pw.c_str()); });
        auto b = steady_clock::now();
        try { u.Open(b + 1500ms); printf("%s: ok\n", what); } catch (TransportError& e) { printf("%s: %d %s", what, int(e.GetFailure()), e.what()); }
        printf(" %.3f ms\n", std::chrono::duration<double, std::milli>(steady_clock::now() - b).count());
    };
    attempt("wrong pw", s, "xxx");
    auto n = s; n.user = "nobody"; attempt("wrong user", n, "ops-secret");
    n = s; n.user = "guest"; attempt("priv", n, "guest-secret");
    n = s; n.user = "guest"; n.privilege = Privilege_e::user; attempt("guest", n, "guest-secret");
    n = s; n.cipherSuite = 17; attempt("cipher", n, "ops-secret");
    n = s; n.port = 1; attempt("dead port", n, "ops-secret");
    n = s; n.host = "::1"; attempt("v6", n, "ops-secret");
    n = s; n.host = "fe80::1"; attempt("v6ll", n, "ops-secret");
    n = s; n.host = "fe80::1%lo"; attempt("v6ll%", n, "ops-secret");
    n = s; n.host = "203.0.113.1"; attempt("remote", n, "ops-secret");
    n = s; n.host = "255.255.255.255"; attempt("bc", n, "ops-secret");
    n = s; n.host = "2001:db8::1"; attempt("v6 no route", n, "ops-secret");
    n = s; n.host = "240.0.0.1"; attempt("class e", n, "ops-secret");
    n = s; n.user = "guest";
    { FreeIpmiTransport u(n, [&](const auto& use) { use("guest-secret"); });
      u.Open(steady_clock::now()+1s);
      for (Request q : {Request(6, 0x3b, {4}), Request(6, 0x3b, {0}), Request(0, 2, {5}), Request(10, 0x49, {1,2,3,0x44})}) {
       auto x = u.Exchange({}, q, Sending_e::once, steady_clock::now()+1s);
            printf("cc %x", x.completionCode); for (auto b : x.data) printf(" %02x", b); puts(""); } }
    n.cipherSuite = 17; n.retries = 0;attempt("cipher", n, "ops-secret");
}
}
