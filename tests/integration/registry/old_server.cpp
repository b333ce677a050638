// A registry server of the protocol's first version, which has no views: what a newer client must get along with. It
// is a program of its own because calls within a process pass by sockets and messages. Its tree is made for the
// tests; some of its nodes misbehave, as a server may. It prints its port and runs until a signal ends it.

#include <unistd.h>

#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <mutex>
#include <registry.hh>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr CORBA::ULongLong c_readable = 2, c_writable = 4;
constexpr CORBA::ULong c_page = 10;  // items, so that small trees take several pages

struct Node {
    std::string path;  // the nodes stand in the order of a walk
    CORBA::ULongLong flags = 0;
    reg::DataType type = reg::TYPE_EMPTY;
    reg::ErrorCode code = reg::NOT_READABLE;
    std::string text;
    reg::Value value;

    std::string Name() const { return path.substr(path.rfind('/') + 1); }
    bool IsBelow(const std::string& top) const { return top.empty() ? !path.empty() : path.rfind(top + "/", 0) == 0; }
    /// Levels below @p top.
    CORBA::UShort Depth(const std::string& top) const {
        if (path == top) {
            return 0;
        }
        CORBA::UShort depth = 1;
        for (std::size_t i = top.empty() ? 0 : top.size() + 1; i < path.size(); ++i) {
            depth = static_cast<CORBA::UShort>(depth + (path[i] == '/' ? 1 : 0));
        }
        return depth;
    }
};

[[noreturn]] void Raise(reg::ErrorCode code, const std::string& path, const std::string& text) {
    throw reg::Error(code, path.c_str(), text.c_str());
}

[[noreturn]] void HangForEver() {
    for (;;) {
        ::pause();
    }
}

class OldRegistry : public POA_reg::Registry {
public:
    OldRegistry() {
        AddContainer("");
        AddContainer("box");
        Add("box/reading", c_readable, reg::TYPE_DOUBLE).number(48.1);
        Add("box/label", c_readable, reg::TYPE_STRING)
            .characters(
                "Gr\xC3\xBC\xC3\x9F"
                "e \xE2\x84\xA6");
        Add("box/count", c_readable, reg::TYPE_INTEGER).whole(-7);
        Add("box/large", c_readable, reg::TYPE_INTEGER).whole(1LL << 40);
        Add("box/larger", c_readable, reg::TYPE_INTEGER).whole((1LL << 62) + 1);
        CORBA::Any any;
        any <<= "whatever";
        Add("box/strange", c_readable, 99).other(any);
        m_nodes.back().value._d(99);
        Add("box/absent", c_readable, reg::TYPE_DOUBLE, reg::NO_VALUE, "no value").none(0);
        Add("box/broken", c_readable, reg::TYPE_DOUBLE, reg::FAILED, "bus").none(0);
        Add("speed", c_readable | c_writable, reg::TYPE_DOUBLE).number(4000);
        AddContainer("many");
        for (int i = 0; i < 25; ++i) {
            Add("many/n" + std::to_string(i), c_readable, reg::TYPE_INTEGER).whole(i);
        }
    }

    reg::ServerInfo* hello(const char* client) override {
        reg::ServerInfo_var info = new reg::ServerInfo;
        info->major = 1;
        info->minor = 0;
        info->product = (std::string("old server for ") + client).c_str();
        info->boot_id = "boot-1";
        return info._retn();
    }

    reg::NodeInfo* describe(const char* path) override { return new reg::NodeInfo(Info(Find(path))); }

    reg::NodeInfoSeq* children(const char* path, CORBA::ULong start) override {
        const Node& parent = Find(path);
        reg::NodeInfoSeq_var page = new reg::NodeInfoSeq;
        CORBA::ULong index = 0;
        for (const Node& node : m_nodes) {
            if (node.IsBelow(parent.path) && node.Depth(parent.path) == 1 && index++ >= start &&
                page->length() < c_page) {
                page->length(page->length() + 1);
                page[page->length() - 1] = Info(node);
            }
        }
        return page._retn();
    }

    reg::Reading* get(const char* path) override {
        Misbehave(path);
        const Node& node = Find(path);
        if (node.code != reg::OK) {
            Raise(node.code, node.path, node.text);
        }
        reg::Reading_var reading = new reg::Reading;
        reading->val = node.value;
        reading->at = 0;
        return reading._retn();
    }

    /// The node's value, or why there is none.
    static reg::Value ValueOf(const Node& node) {
        if (node.code == reg::OK) {
            return node.value;
        }
        reg::Value value;
        value.failure(reg::Outcome{node.code, node.text.c_str()});
        return value;
    }

    reg::ValueSeq* get_many(const reg::PathSeq& paths) override {
        reg::ValueSeq_var values = new reg::ValueSeq;
        values->length(paths.length());
        for (CORBA::ULong i = 0; i < paths.length(); ++i) {
            try {
                values[i] = ValueOf(Find(paths[i].in()));
            } catch (const reg::Error& error) {
                values[i].failure(reg::Outcome{error.code, error.text});
            }
        }
        return values._retn();
    }

    reg::Page* subtree(const char* path, CORBA::ULong depth, CORBA::ULong, const char* after) override {
        const Node& top = Find(path);
        reg::Page_var page = new reg::Page;
        page->at = 0;
        bool isOn = *after == '\0';
        for (const Node& node : m_nodes) {
            const bool isInside = &node == &top || node.IsBelow(top.path);
            if (isInside && isOn && node.Depth(top.path) <= depth) {
                if (page->items.length() == c_page) {
                    return page._retn();
                }
                Append(page.inout(), node, node.Depth(top.path));
            }
            isOn = isOn || node.path == after;
        }
        page->next = "";
        return page._retn();
    }

    void set(const char* path, const reg::NewValue& value) override {
        if (std::string(path) == "exit") {
            ::_exit(1);
        }
        Node& node = const_cast<Node&>(Find(path));
        if ((node.flags & c_writable) == 0) {
            Raise(reg::NOT_WRITABLE, path, "cannot be written: " + node.path);
        }
        if (value._d() == reg::TYPE_STRING) {
            Raise(reg::FAILED, path, std::string("Bad cast from ") + value.characters() + " to double");
        }
        node.value.number(value.number());
    }

    reg::OutcomeSeq* set_many(const reg::AssignmentSeq& assignments) override {
        reg::OutcomeSeq_var outcomes = new reg::OutcomeSeq;
        outcomes->length(assignments.length());
        for (CORBA::ULong i = 0; i < assignments.length(); ++i) {
            outcomes[i].code = reg::OK;
            try {
                set(assignments[i].where, assignments[i].val);
            } catch (const reg::Error& error) {
                outcomes[i].code = error.code;
                outcomes[i].text = error.text;
            }
        }
        return outcomes._retn();
    }

    /// The patterns show in the lease's id, so that a test sees what arrived.
    reg::Lease* subscribe(const reg::Filter& filter) override {
        const std::lock_guard lock(m_mutex);
        m_id = "s";
        for (CORBA::ULong i = 0; i < filter.patterns.length(); ++i) {
            m_id += std::string(":") + filter.patterns[i].in();
        }
        reg::Lease_var lease = new reg::Lease;
        lease->id = m_id.c_str();
        lease->lease_s = filter.lease_s + 1;
        lease->queue_limit = filter.queue_limit + 2;
        return lease._retn();
    }

    reg::Lease* subscribe_to(const reg::Filter&, reg::Listener_ptr) override {
        Raise(reg::NOT_OFFERED, "", "callbacks are not offered");
    }

    /// Three events of three types after two that were lost, then nothing more.
    reg::Batch* poll(const char* id, CORBA::ULongLong received, CORBA::ULong max, CORBA::ULong wait) override {
        std::unique_lock lock(m_mutex);
        Demand(id);
        reg::Batch_var batch = new reg::Batch;
        batch->boot_id = "boot-1";
        batch->lost = 2;
        batch->more = false;
        constexpr CORBA::ULongLong c_first = 3, c_last = 5;
        constexpr CORBA::UShort c_types[] = {reg::TYPE_VALUE, reg::TYPE_THRESHOLD, 7};
        for (CORBA::ULongLong number = std::max(received + 1, c_first); number <= c_last && max-- > 0; ++number) {
            batch->events.length(batch->events.length() + 1);
            reg::Event& event = batch->events[batch->events.length() - 1];
            event.seq = number;
            event.type = c_types[number - c_first];
            event.at = 1000000 * static_cast<reg::Time>(number);
            event.path = "box/reading";
            event.val.number(static_cast<double>(number) / 10);
        }
        if (batch->events.length() == 0) {
            m_ended.wait_for(lock, std::chrono::milliseconds(wait), [&] { return m_id != id; });
            Demand(id);
        }
        return batch._retn();
    }

    CORBA::ULong renew(const char* id) override {
        const std::lock_guard lock(m_mutex);
        Demand(id);
        return 60;
    }

    void unsubscribe(const char* id) override {
        const std::lock_guard lock(m_mutex);
        Demand(id);
        m_id.clear();
        m_ended.notify_all();
    }

private:
    void AddContainer(const std::string& path) {
        Add(path, 0, reg::TYPE_EMPTY, reg::NOT_READABLE, "no value to read").none(0);
    }

    reg::Value& Add(const std::string& path, CORBA::ULongLong flags, reg::DataType type, reg::ErrorCode code = reg::OK,
                    const std::string& text = {}) {
        m_nodes.push_back({path, flags, type, code, text, {}});
        return m_nodes.back().value;
    }

    const Node& Find(const std::string& path) const {
        for (const Node& node : m_nodes) {
            if (node.path == path) {
                return node;
            }
        }
        Raise(reg::NO_SUCH_NODE, path, "no such node: " + path);
    }

    reg::NodeInfo Info(const Node& node) const {
        reg::NodeInfo info;
        info.name = node.Name().c_str();
        info.flags = node.flags;
        info.type = node.type;
        info.size = node.type == reg::TYPE_EMPTY ? 0 : 1;
        info.children = 0;
        for (const Node& other : m_nodes) {
            info.children += other.IsBelow(node.path) && other.Depth(node.path) == 1 ? 1 : 0;
        }
        return info;
    }

    void Append(reg::Page& page, const Node& node, CORBA::UShort depth) const {
        page.items.length(page.items.length() + 1);
        reg::Item& item = page.items[page.items.length() - 1];
        item.depth = depth;
        item.info = Info(node);
        item.val = ValueOf(node);
        page.next = node.path.c_str();
    }

    static void Misbehave(const std::string& path) {
        if (path == "hang") {
            HangForEver();
        }
        if (path == "exit") {
            ::_exit(1);
        }
        if (path == "oversize") {  // beyond this server's message size
            Raise(reg::FAILED, path, std::string(20000, 'x'));
        }
        if (path == "throw") {
            throw std::runtime_error("not meant to leave");
        }
    }

    /// With the lock held.
    void Demand(const std::string& id) const {
        if (id != m_id) {
            Raise(reg::NO_SUCH_SUBSCRIPTION, "", "no such subscription: " + id);
        }
    }

    std::vector<Node> m_nodes;
    std::mutex m_mutex;  // guards what follows
    std::condition_variable m_ended;
    std::string m_id;  // of the one subscription; empty: none
};

/// The port in an object's stringified reference: the two bytes behind the host's name.
int PortOf(CORBA::ORB_ptr orb, CORBA::Object_ptr object) {
    const CORBA::String_var reference = orb->object_to_string(object);
    const std::string text(reference);
    std::string host;
    for (const char letter : std::string("127.0.0.1") + '\0') {
        constexpr const char* c_digits = "0123456789abcdef";
        host += c_digits[letter >> 4];
        host += c_digits[letter & 15];
    }
    const std::size_t place = text.find(host) + host.size();
    const int first = std::stoi(text.substr(place, 2), nullptr, 16);
    const int second = std::stoi(text.substr(place + 2, 2), nullptr, 16);
    const std::uint16_t one = 1;
    return *reinterpret_cast<const unsigned char*>(&one) == 1 ? second * 256 + first : first * 256 + second;
}

}  // namespace

int main() {
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGTERM);
    sigaddset(&ends, SIGINT);
    sigprocmask(SIG_BLOCK, &ends, nullptr);
    const char* options[][2] = {{"endPoint", "giop:tcp:127.0.0.1:0"},
                                {"traceLevel", "0"},
                                {"nativeCharCodeSet", "ISO-8859-1"},
                                {"giopMaxMsgSize", "16384"},
                                {"inConScanPeriod", "1"},  // closes connections that are idle very soon
                                {"scanGranularity", "1"},
                                {nullptr, nullptr}};
    int count = 0;
    const CORBA::ORB_var orb = CORBA::ORB_init(count, nullptr, "omniORB4", options);
    const CORBA::Object_var object = orb->resolve_initial_references("omniINSPOA");
    const PortableServer::POA_var poa = PortableServer::POA::_narrow(object);
    OldRegistry registry;
    const PortableServer::ObjectId_var key = PortableServer::string_to_ObjectId("Registry");
    poa->activate_object_with_id(key, &registry);
    const PortableServer::POAManager_var manager = poa->the_POAManager();
    manager->activate();
    const CORBA::Object_var reference = poa->id_to_reference(key);
    std::cout << PortOf(orb, reference) << std::endl;
    int signal = 0;
    sigwait(&ends, &signal);
    return 0;
}
