// What the registry costs, beside what the same bytes cost without it. Everything is measured in one run, in rounds
// that take turns, because machines are noisy: only the ratios say something. Longer than other sources because it is a
// list of measurements that share one setting.
//
// usage: registry_bench [ROUNDS [one|tls|eight|thousand|snapshots|notifications]]

#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <registry.hh>
#include <string>
#include <vector>

#include "bench_tree.h"
#include "dbus_peer.h"
#include "qnode/node.h"
#include "qreg/corba/server.h"
#include "qreg/corba/tls_context.h"
#include "qreg/tls/identity.h"
#include "qstd/any.h"
#include "raw_peer.h"
#include "sampling.h"

namespace {

using bench::Samples;

constexpr std::size_t c_boards = 50;
constexpr std::size_t c_sensors = 100;     // a board: 5,000 sensors, 55,000 leaves
constexpr std::size_t c_fewSensors = 455;  // 5,005 leaves
constexpr std::size_t c_many = 1000;

/// Which cores the two ends of a connection run on.
enum class Cores_e {
    one,    ///< both on the same: what a call costs, without the waking of another core
    apart,  ///< each on its own
    any,    ///< wherever the system puts them
};

/// Moves this process and its children, every thread of them.
void Pin(Cores_e cores) {
    const std::string mine = cores == Cores_e::any ? "ffffffff" : "1";
    const std::string theirs = cores == Cores_e::apart ? "2" : mine;
    const std::string command = "taskset -ap " + mine +
                                " $PPID >/dev/null; for p in $(pgrep -P $PPID); do taskset -ap " + theirs +
                                " $p >/dev/null 2>&1; done; true";
    if (std::system(command.c_str()) != 0) {
        throw std::runtime_error("cannot pin to a core");
    }
}

/// A process of its own that tells a number (its port) when it is ready and runs until it is killed.
class Peer {
public:
    explicit Peer(const std::function<int()>& start) {
        int ends[2];
        if (::pipe(ends) != 0) {
            throw std::runtime_error("no pipe");
        }
        m_pid = ::fork();
        if (m_pid == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            const int number = start();
            if (::write(ends[1], &number, sizeof number) != sizeof number) {
                ::_exit(1);
            }
            while (true) {
                ::pause();
            }
        }
        ::close(ends[1]);
        if (::read(ends[0], &m_number, sizeof m_number) != sizeof m_number) {
            throw std::runtime_error("a peer did not start");
        }
        ::close(ends[0]);
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    ~Peer() {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }

    int GetPort() const { return m_number; }

private:
    pid_t m_pid = -1;
    int m_number = 0;
};

/// The registry server on the tree of a large chassis, and beside it a node that tells the time every two milliseconds.
int ServeRegistry() {
    const auto root = bench::MakeTree(c_boards, c_sensors);
    root->Add(bench::MakeBoard("small", c_fewSensors));
    const auto ticker = root->Add(bench::MakeNumber("ticker", 0));
    qreg::ServerSettings settings;
    settings.listen = "127.0.0.1";
    settings.product = "bench";
    static auto server = qreg::corba::CreateServer(settings, root);
    server->Serve();
    std::thread([ticker] {
        while (true) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            const double now =
                std::chrono::duration<double, std::micro>(bench::Clock::now().time_since_epoch()).count();
            qnode::Node(ticker).Emit(qnode::NotificationType::value, qstd::Any(now));
        }
    }).detach();
    return server->GetPort();
}

/// Who speaks TLS with the certificates in @p folder, which are made as for any chassis.
std::shared_ptr<const qreg::tls::Identity> IdentityIn(const std::string& folder, qreg::tls::Side_e side) {
    const std::string own = folder + (side == qreg::tls::Side_e::server ? "/server" : "/operator");
    return std::make_shared<const qreg::tls::Identity>(
        side, qreg::tls::IdentityFiles{.certificate = own + ".pem", .key = own + ".key", .ca = folder + "/ca.pem"});
}

std::string MakeCertificates(const std::string& folder) {
    const std::string command =
        "cd " + folder + " && " ZELKOR_EXAMPLES "/tls/make-certificates localhost 127.0.0.1 >/dev/null 2>&1";
    if (std::system(command.c_str()) != 0) {
        throw std::runtime_error("no certificates could be made");
    }
    return folder;
}

/// A registry server that speaks TLS only.
int ServeOverTls(const std::string& folder) {
    qreg::ServerSettings settings;
    settings.listen = "127.0.0.1";
    settings.product = "bench";
    settings.tls = qreg::TlsSettings{IdentityIn(folder, qreg::tls::Side_e::server), std::nullopt, settings.listen};
    static auto server = qreg::corba::CreateServer(settings, bench::MakeTree(2, c_sensors));
    server->Serve();
    return server->GetPort();
}

class Bench {
public:
    Bench(int rounds, const std::string& folder)
        : m_rounds(rounds),
          m_raw(bench::ServeRaw),
          m_registry(ServeRegistry),
          m_overTls([certificates = MakeCertificates(folder)] { return ServeOverTls(certificates); }),
          m_dbus(folder) {
        int count = 0;
        qreg::corba::UseIdentity(IdentityIn(folder, qreg::tls::Side_e::client));
        const char* options[][2] = {
            {"maxGIOPConnectionPerServer", "64"}, {"clientTransportRule", "* tcp,ssl"}, {nullptr, nullptr}};
        m_orb = CORBA::ORB_init(count, nullptr, "omniORB4", options);
    }
    ~Bench() { m_orb->destroy(); }
    Bench(const Bench&) = delete;
    Bench& operator=(const Bench&) = delete;

    void OneValue() {
        const std::string path = bench::ValuePath(1, 3);
        const reg::Registry_1_1_var registry = Resolve(m_registry.GetPort());
        const auto get = [&] { reg::Reading_var(registry->get(path.c_str())); };
        const auto [request, reply] =
            BytesOf([&](reg::Registry_1_1_ptr relayed) { reg::Reading_var(relayed->get(path.c_str())); });
        std::printf("\none value by path, %zu -> %zu bytes, one client, both ends on one core: median us (p99)\n",
                    request, reply);
        Pin(Cores_e::one);
        bench::RawClient raw(m_raw.GetPort(), request, reply);
        const std::function<void()> readProperty = m_dbus.MakeReader();
        Samples rawTimes;
        Samples getTimes;
        Samples dbusTimes;
        for (int round = 0; round < m_rounds; ++round) {
            rawTimes.Add(bench::Time(4000, [&] { raw.Call(); }));
            getTimes.Add(bench::Time(4000, get));
            dbusTimes.Add(bench::Time(1000, readProperty));
        }
        Pin(Cores_e::any);
        Show("raw", rawTimes, rawTimes);
        Show("registry get", getTimes, rawTimes);
        Show("D-Bus property (sd-bus)", dbusTimes, rawTimes);
        std::printf("  %-28s %8.2f of D-Bus (goal 0.50)\n", "registry get", getTimes.Median() / dbusTimes.Median());
    }

    void OverTls() {
        const std::string path = bench::ValuePath(1, 3);
        const auto getFrom = [&path](const reg::Registry_1_1_var& registry) {
            return [&path, registry] { reg::Reading_var(registry->get(path.c_str())); };
        };
        const auto inClear = getFrom(Resolve(m_registry.GetPort()));
        const auto overTls = getFrom(Resolve(m_overTls.GetPort(), "ssliop"));
        std::printf("\nthe same over TLS: median us (p99)\n");
        Pin(Cores_e::one);
        Samples clearTimes;
        Samples tlsTimes;
        for (int round = 0; round < m_rounds; ++round) {
            clearTimes.Add(bench::Time(4000, inClear));
            tlsTimes.Add(bench::Time(4000, overTls));
        }
        Pin(Cores_e::any);
        Show("in clear", clearTimes, clearTimes, "in clear");
        Show("over TLS", tlsTimes, clearTimes, "in clear");
    }

    void EightClients() {
        const std::string path = bench::ValuePath(1, 3);
        const auto [request, reply] =
            BytesOf([&](reg::Registry_1_1_ptr relayed) { reg::Reading_var(relayed->get(path.c_str())); });
        std::printf("\none value by path, eight clients at once: calls a second\n");
        std::vector<double> raws;
        std::vector<double> gets;
        for (int round = 0; round < m_rounds; ++round) {
            raws.push_back(bench::Throughput(8, std::chrono::milliseconds(500), [&, r = request, a = reply] {
                const auto client = std::make_shared<bench::RawClient>(m_raw.GetPort(), r, a);
                return [client] { client->Call(); };
            }));
            gets.push_back(bench::Throughput(8, std::chrono::milliseconds(500), [&] {
                const auto registry = std::make_shared<reg::Registry_1_1_var>(Resolve(m_registry.GetPort()));
                return [registry, path] { reg::Reading_var((*registry)->get(path.c_str())); };
            }));
        }
        std::sort(raws.begin(), raws.end());
        std::sort(gets.begin(), gets.end());
        const double raw = raws[raws.size() / 2];
        const double get = gets[gets.size() / 2];
        std::printf("  %-28s %8.0f\n  %-28s %8.0f  %.2f of raw (goal 0.75)\n", "raw", raw, "registry get", get,
                    get / raw);
    }

    void Thousand() {
        reg::PathSeq paths;
        paths.length(c_many);
        for (CORBA::ULong index = 0; index < c_many; ++index) {
            paths[index] = bench::ValuePath(index / c_sensors, index % c_sensors).c_str();
        }
        Bulk("a thousand values in one call", 4.0, 300,
             [&](reg::Registry_1_1_ptr registry) { reg::ValueSeq_var(registry->get_many(paths)); });
        const reg::Registry_1_1_var registry = Resolve(m_registry.GetPort());
        const CORBA::String_var view = registry->open_view(paths);
        Bulk("the same thousand, prepared", 1.3, 1000,
             [&](reg::Registry_1_1_ptr peer) { reg::Columns_var(peer->read_view(view)); });
        registry->close_view(view);
    }

    void Snapshots() {
        std::size_t leaves = 0;
        const auto snapshot = [&leaves](reg::Registry_1_1_ptr registry, const std::string& path) {
            CORBA::String_var after("");
            leaves = 0;
            do {
                const reg::Page_var page = registry->subtree(path.c_str(), 100, 0, after);
                leaves += page->items.length();
                after = page->next;
            } while (*after != 0);
        };
        const reg::Registry_1_1_var registry = Resolve(m_registry.GetPort());
        Samples small;
        Samples large;
        std::size_t smallLeaves = 0;
        for (int round = 0; round < m_rounds; ++round) {
            small.Add(bench::Time(50, [&] { snapshot(registry, "small"); }));
            smallLeaves = leaves;
            large.Add(bench::Time(10, [&] { snapshot(registry, "boards"); }));
        }
        std::printf("\nsnapshots: median us\n");
        std::printf("  %zu nodes: %.0f (%.3f a node; goal 1000)\n", smallLeaves, small.Median(),
                    small.Median() / static_cast<double>(smallLeaves));
        std::printf("  %zu nodes: %.0f (%.3f a node; goal 15000)\n", leaves, large.Median(),
                    large.Median() / static_cast<double>(leaves));
    }

    void Notifications() {
        constexpr int c_subscribers = 20;
        std::printf("\na notification every 2 ms to %d subscribers, from Emit to the client: us\n", c_subscribers);
        std::vector<std::thread> threads;
        std::vector<Samples> delays(c_subscribers);
        for (Samples& mine : delays) {
            threads.emplace_back([this, &mine] { Subscribe(mine); });
        }
        Samples all;
        for (std::size_t index = 0; index < threads.size(); ++index) {
            threads[index].join();
            all.Add(delays[index]);
        }
        std::printf("  median %.0f, p99 %.0f (goal 1000), %zu events\n", all.Median(), all.Quantile(0.99), all.Count());
    }

private:
    reg::Registry_1_1_ptr Resolve(int port, const std::string& protocol = "iiop") const {
        const std::string url = "corbaloc:" + protocol + ":1.2@127.0.0.1:" + std::to_string(port) + "/Registry";
        const CORBA::Object_var object = m_orb->string_to_object(url.c_str());
        return reg::Registry_1_1::_narrow(object);
    }

    void Subscribe(Samples& delays) const {
        const reg::Registry_1_1_var registry = Resolve(m_registry.GetPort());
        reg::Filter filter;
        filter.patterns.length(1);
        filter.patterns[0] = "ticker";
        filter.types = 0;
        filter.queue_limit = 0;
        filter.lease_s = 0;
        filter.present = false;
        const reg::Lease_var lease = registry->subscribe(filter);
        CORBA::ULongLong received = 0;
        while (received < 1000) {
            const reg::Batch_var batch = registry->poll(lease->id, received, 100, 5000);
            const bench::Clock::time_point now = bench::Clock::now();
            for (CORBA::ULong index = 0; index < batch->events.length(); ++index) {
                const reg::Event& event = batch->events[index];
                received = event.seq;
                delays.Add(now - bench::Clock::time_point(std::chrono::duration_cast<bench::Clock::duration>(
                                     std::chrono::duration<double, std::micro>(event.val.number()))));
            }
        }
        registry->unsubscribe(lease->id);
    }

    /// What one call of @p call puts on the wire, either way.
    template <class Call>
    std::pair<std::size_t, std::size_t> BytesOf(const Call& call) const {
        bench::CountingRelay relay(m_registry.GetPort());
        const reg::Registry_1_1_var relayed = Resolve(relay.GetPort());
        call(relayed);
        relay.Take();
        call(relayed);
        return relay.Take();
    }

    template <class Call>
    void Bulk(const char* name, double goal, std::size_t count, const Call& call) {
        const auto [request, reply] = BytesOf(call);
        const reg::Registry_1_1_var registry = Resolve(m_registry.GetPort());
        std::printf("\n%s, %zu -> %zu bytes: median us (p99); goal %.1f\n", name, request, reply, goal);
        for (const Cores_e cores : {Cores_e::apart, Cores_e::one}) {
            Pin(cores);
            bench::RawClient raw(m_raw.GetPort(), request, reply);
            Samples rawTimes;
            Samples times;
            for (int round = 0; round < m_rounds; ++round) {
                rawTimes.Add(bench::Time(count, [&] { raw.Call(); }));
                times.Add(bench::Time(count, [&] { call(registry); }));
            }
            std::printf(" %s\n", cores == Cores_e::apart ? "each end on a core of its own" : "both ends on one core");
            Show("raw", rawTimes, rawTimes);
            Show("registry", times, rawTimes);
        }
        Pin(Cores_e::any);
    }

    static void Show(const char* name, const Samples& samples, const Samples& floor, const char* whose = "raw") {
        std::printf("  %-28s %8.1f (%8.1f)  %.2f of %s\n", name, samples.Median(), samples.Quantile(0.99),
                    samples.Median() / floor.Median(), whose);
    }

    const int m_rounds;
    const Peer m_raw;
    const Peer m_registry;
    const Peer m_overTls;
    const bench::DbusPeer m_dbus;
    CORBA::ORB_var m_orb;
};

}  // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    char folder[] = "/tmp/registry_bench.XXXXXX";
    if (::mkdtemp(folder) == nullptr) {
        return 1;
    }
    {
        Bench bench(argc > 1 ? std::atoi(argv[1]) : 5, folder);
        const std::string only = argc > 2 ? argv[2] : "";
        const std::vector<std::pair<std::string, void (Bench::*)()>> all{
            {"one", &Bench::OneValue},      {"tls", &Bench::OverTls},         {"eight", &Bench::EightClients},
            {"thousand", &Bench::Thousand}, {"snapshots", &Bench::Snapshots}, {"notifications", &Bench::Notifications}};
        for (const auto& [name, measure] : all) {
            if (only.empty() || only == name) {
                (bench.*measure)();
            }
        }
    }
    return std::system(("rm -r " + std::string(folder)).c_str());
}
