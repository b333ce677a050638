#include "qreg/corba/client.h"

#include <algorithm>
#include <limits>
#include <map>
#include <optional>
#include <type_traits>
#include <utility>

#include "qreg/corba/client_failure.h"
#include "qreg/corba/client_orb.h"
#include "qreg/corba/client_values.h"
#include "qstd/strings.h"

namespace qreg::corba {

namespace {

using namespace client;

/// The most nodes asked for or set in one request: both messages stay well below the limits of servers.
constexpr std::size_t c_itemsOfRequest = 1000;
constexpr std::size_t c_patterns = 4096;  // the protocol's bound of a sequence of paths

CORBA::ULong ToUnsigned(std::size_t number) {
    return static_cast<CORBA::ULong>(std::min<std::size_t>(number, std::numeric_limits<CORBA::ULong>::max()));
}

CORBA::ULong ToUnsigned(std::chrono::milliseconds time) {
    return ToUnsigned(static_cast<std::size_t>(std::max<std::chrono::milliseconds::rep>(time.count(), 0)));
}

/// @throws RegistryError limit when one cannot be sent.
reg::PathSeq ToPaths(const std::vector<std::string>& paths, const char* what) {
    if (paths.size() > c_patterns) {
        throw RegistryError(
            ErrorCode_e::limit, "",
            std::to_string(paths.size()) + " " + what + " cannot be sent, the most is " + std::to_string(c_patterns));
    }
    reg::PathSeq result;
    result.length(ToUnsigned(paths.size()));
    for (CORBA::ULong i = 0; i < result.length(); ++i) {
        result[i] = ToPath(paths[i]);
    }
    return result;
}

/// The path as nodes give it: without empty names.
std::string PlainPath(const std::string& path) {
    std::string result;
    for (const std::string& name : qstd::TokenizeString(path, '/')) {
        result += (result.empty() ? "" : "/") + name;
    }
    return result;
}

}  // namespace

class Client::Impl {
private:
    using Clock = std::chrono::steady_clock;

    /// Calls @p request and turns what the ORB raises into what this class raises. A server may close a connection that
    /// is idle at the very moment of the next request, so that one is repeated, once.
    template <class F>
    auto Guard(std::chrono::milliseconds limit, const F& request) {
        constexpr std::chrono::milliseconds c_idle{500};
        const bool wasIdle = !m_lastUse || Clock::now() - *m_lastUse > c_idle;
        try {
            const UseNoter noter{*this};
            try {
                return request();
            } catch (const CORBA::COMM_FAILURE&) {
                if (!wasIdle) {
                    throw;
                }
            }
            return request();
        } catch (const reg::Error& error) {
            throw RegistryError(static_cast<ErrorCode_e>(error.code), std::string(error.path), std::string(error.text));
        } catch (const CORBA::SystemException& failure) {
            throw NoServer(FailureText(m_server, limit, failure), true);
        } catch (const omniORB::fatalException&) {
            // Its way to say that a server ended TLS in the middle of the handshake.
            throw NoServer(FailureText(m_server, limit, CORBA::COMM_FAILURE()), true);
        }
    }

    /// Notes the end of a request, whatever came of it.
    struct UseNoter {
        Impl& impl;
        ~UseNoter() { impl.m_lastUse = Clock::now(); }
    };

    /// The ORB repeats nothing of its own accord.
    static void NeverRepeat(CORBA::Object_ptr object) {
        omniORB::installTransientExceptionHandler(
            object, nullptr, [](void*, CORBA::ULong, const CORBA::TRANSIENT&) -> CORBA::Boolean { return false; });
        omniORB::installCommFailureExceptionHandler(
            object, nullptr, [](void*, CORBA::ULong, const CORBA::COMM_FAILURE&) -> CORBA::Boolean { return false; });
    }

public:
    Impl(ServerAddress server, std::chrono::milliseconds timeout)
        : m_server(std::move(server)), m_url(m_server.ToUrl()), m_timeout(timeout), m_orb(m_server) {}

    /// Carries out a request on the registry.
    /// @param wait how long the server may wait before it answers
    template <class F>
    auto Ask(const F& request, std::chrono::milliseconds wait = {}) {
        return Guard(m_timeout + wait, [&] {
            if (CORBA::is_nil(m_registry)) {
                const CORBA::Object_var object = m_orb.Get()->string_to_object(m_url.c_str());
                m_registry = reg::Registry::_unchecked_narrow(object);
                NeverRepeat(m_registry);
            }
            omniORB::setClientCallTimeout(m_registry, ToUnsigned(m_timeout + wait));
            return request(m_registry.in());
        });
    }

    /// The same on the registry as one that knows views. @pre KnowsViews()
    template <class F>
    auto AskViews(const F& request) {
        return Guard(m_timeout, [&] { return request(m_views.in()); });
    }

    bool KnowsViews() {
        if (!m_isVersionKnown) {
            m_views = Ask([](reg::Registry_ptr registry) { return reg::Registry_1_1::_narrow(registry); });
            m_isVersionKnown = true;
            if (!CORBA::is_nil(m_views)) {
                NeverRepeat(m_views);
                omniORB::setClientCallTimeout(m_views, ToUnsigned(m_timeout));
            }
        }
        return !CORBA::is_nil(m_views);
    }

    /// Carries out requests of many items each and puts their outcomes together. An item that cannot be sent has its
    /// problem for its outcome.
    /// @param fill puts item i into a place of the request; throws RegistryError when it cannot be sent
    /// @param send carries out one request
    template <class Sequence, class Answer, class Fill, class Send>
    std::vector<Outcome> InPortions(std::size_t count, const Fill& fill, const Send& send) {
        std::vector<Outcome> outcomes(count);
        std::vector<std::size_t> places;  // of the request's items
        Sequence request;
        for (std::size_t i = 0; i < count; ++i) {
            try {
                request.length(ToUnsigned(places.size() + 1));
                fill(request, request.length() - 1, i);
                places.push_back(i);
            } catch (const RegistryError& error) {
                outcomes[i] = {error.GetCode(), {}, error.what()};
            }
            if (places.size() < c_itemsOfRequest && (i + 1 < count || places.empty())) {
                continue;
            }
            request.length(ToUnsigned(places.size()));
            const std::unique_ptr<Answer> answer(
                Ask([&](reg::Registry_ptr registry) { return send(registry, request); }));
            if (answer->length() != places.size()) {
                Nonsense(std::to_string(answer->length()) + " outcomes for " + std::to_string(places.size()));
            }
            for (CORBA::ULong k = 0; k < answer->length(); ++k) {
                outcomes[places[k]] = ToOutcome((*answer)[k]);
            }
            places.clear();
        }
        return outcomes;
    }

    /// @param what went wrong
    [[noreturn]] void Nonsense(const std::string& what) const {
        throw NoServer("the registry server at " + m_server.ToString() + " gives a wrong answer: " + what, true);
    }

    std::string OpenLocalView(const std::vector<std::string>& paths) {
        std::string id = "local-" + std::to_string(++m_lastLocalView);
        m_localViews[id] = paths;
        return id;
    }

    /// The paths of a view that the server does not know. @throws RegistryError no_such_view.
    std::map<std::string, std::vector<std::string>>::iterator FindLocalView(const std::string& id) {
        const auto found = m_localViews.find(id);
        if (found == m_localViews.end()) {
            throw RegistryError(ErrorCode_e::no_such_view, "", "no such view: " + id);
        }
        return found;
    }

    void CloseLocalView(const std::string& id) { m_localViews.erase(FindLocalView(id)); }

private:
    const ServerAddress m_server;
    const std::string m_url;
    const std::chrono::milliseconds m_timeout;
    const ClientOrb m_orb;
    reg::Registry_var m_registry;
    std::optional<Clock::time_point> m_lastUse;
    bool m_isVersionKnown = false;
    reg::Registry_1_1_var m_views;
    std::map<std::string, std::vector<std::string>> m_localViews;
    std::size_t m_lastLocalView = 0;
};

Client::Client(const std::string& host, int port, std::chrono::milliseconds timeout,
               const std::optional<ClientTls>& tls)
    : m_impl(std::make_unique<Impl>(ServerAddress{host, port, tls}, timeout)) {}

Client::~Client() = default;

ServerInfo Client::Hello() {
    const std::string name = qstd::GetProgName();
    reg::ServerInfo_var info = m_impl->Ask([&](reg::Registry_ptr registry) { return registry->hello(name.c_str()); });
    return {info->major, info->minor, std::string(info->product), std::string(info->boot_id)};
}

NodeInfo Client::Describe(const std::string& path) {
    reg::NodeInfo_var info = m_impl->Ask([&](reg::Registry_ptr registry) { return registry->describe(ToPath(path)); });
    return ToNodeInfo(info);
}

std::vector<NodeInfo> Client::Children(const std::string& path) {
    const std::size_t count = Describe(path).children;
    std::vector<NodeInfo> children;
    while (children.size() < count) {
        reg::NodeInfoSeq_var page = m_impl->Ask(
            [&](reg::Registry_ptr registry) { return registry->children(ToPath(path), ToUnsigned(children.size())); });
        if (page->length() == 0) {
            m_impl->Nonsense("only " + std::to_string(children.size()) + " of " + std::to_string(count) +
                             " children of " + path);
        }
        for (CORBA::ULong i = 0; i < page->length(); ++i) {
            children.push_back(ToNodeInfo(page[i]));
        }
    }
    return children;
}

qnode::Value Client::Get(const std::string& path) {
    reg::Reading_var reading = m_impl->Ask([&](reg::Registry_ptr registry) { return registry->get(ToPath(path)); });
    return ToValue(reading->val);
}

std::vector<Outcome> Client::GetMany(const std::vector<std::string>& paths) {
    return m_impl->InPortions<reg::PathSeq, reg::ValueSeq>(
        paths.size(),
        [&](reg::PathSeq& request, CORBA::ULong place, std::size_t i) { request[place] = ToPath(paths[i]); },
        [](reg::Registry_ptr registry, const reg::PathSeq& request) { return registry->get_many(request); });
}

void Client::Subtree(const std::string& path, std::size_t depth, const std::function<void(const TreeItem&)>& visit) {
    std::vector<std::string> above{PlainPath(path)};  // the path of the last node of each depth
    std::string after;
    do {
        reg::Page_var page = m_impl->Ask([&](reg::Registry_ptr registry) {
            return registry->subtree(ToPath(path), ToUnsigned(depth), 0, ToPath(after));
        });
        for (CORBA::ULong i = 0; i < page->items.length(); ++i) {
            const reg::Item& item = page->items[i];
            if (item.depth > above.size()) {
                m_impl->Nonsense("a node without the one above it: " + std::string(item.info.name));
            }
            above.resize(std::max<std::size_t>(item.depth, 1));
            if (item.depth > 0) {
                const std::string& parent = above.back();
                above.push_back(parent.empty() ? std::string(item.info.name)
                                               : parent + "/" + std::string(item.info.name));
            }
            visit({item.depth, above.back(), ToNodeInfo(item.info), ToOutcome(item)});
        }
        if (page->items.length() == 0 && *page->next != '\0') {
            m_impl->Nonsense("a page of a subtree without nodes");
        }
        after = page->next;
    } while (!after.empty());
}

void Client::Set(const std::string& path, const qnode::Value& value) {
    const reg::NewValue sent = ToNewValue(path, value);
    m_impl->Ask([&](reg::Registry_ptr registry) { registry->set(ToPath(path), sent); });
}

std::vector<Outcome> Client::SetMany(const std::vector<std::pair<std::string, qnode::Value>>& assignments) {
    return m_impl->InPortions<reg::AssignmentSeq, reg::OutcomeSeq>(
        assignments.size(),
        [&](reg::AssignmentSeq& request, CORBA::ULong place, std::size_t i) {
            const auto& [path, value] = assignments[i];
            request[place].where = ToPath(path);
            request[place].val = ToNewValue(path, value);
        },
        [](reg::Registry_ptr registry, const reg::AssignmentSeq& request) { return registry->set_many(request); });
}

Lease Client::Subscribe(const Filter& filter) {
    reg::Filter sent;
    sent.patterns = ToPaths(filter.patterns, "patterns");
    sent.types = filter.types;
    sent.queue_limit = ToUnsigned(filter.queueLimit);
    sent.lease_s = ToUnsigned(static_cast<std::size_t>(std::max<std::int64_t>(filter.lease.count(), 0)));
    sent.present = filter.wantsPresent;
    reg::Lease_var lease = m_impl->Ask([&](reg::Registry_ptr registry) { return registry->subscribe(sent); });
    return {std::string(lease->id), std::chrono::seconds(lease->lease_s), lease->queue_limit};
}

Batch Client::Poll(const std::string& id, std::uint64_t received, std::size_t max, std::chrono::milliseconds wait) {
    reg::Batch_var batch = m_impl->Ask(
        [&](reg::Registry_ptr registry) {
            return registry->poll(id.c_str(), received, ToUnsigned(max), ToUnsigned(wait));
        },
        wait);
    return ToBatch(batch);
}

std::chrono::seconds Client::Renew(const std::string& id) {
    return std::chrono::seconds(m_impl->Ask([&](reg::Registry_ptr registry) { return registry->renew(id.c_str()); }));
}

void Client::Unsubscribe(const std::string& id) {
    m_impl->Ask([&](reg::Registry_ptr registry) { registry->unsubscribe(id.c_str()); });
}

std::string Client::OpenView(const std::vector<std::string>& paths) {
    if (!m_impl->KnowsViews()) {
        return m_impl->OpenLocalView(paths);
    }
    const reg::PathSeq sent = ToPaths(paths, "paths of a view");
    const CORBA::String_var id =
        m_impl->AskViews([&](reg::Registry_1_1_ptr registry) { return registry->open_view(sent); });
    return id.in();
}

Client::Readings Client::ReadView(const std::string& id) {
    Readings readings;
    if (!m_impl->KnowsViews()) {
        for (const Outcome& outcome : GetMany(m_impl->FindLocalView(id)->second)) {
            const auto [value, state] = ToReading(outcome);
            readings.values.push_back(value);
            readings.states.push_back(state);
        }
        return readings;
    }
    reg::Columns_var columns =
        m_impl->AskViews([&](reg::Registry_1_1_ptr registry) { return registry->read_view(id.c_str()); });
    if (columns->numbers.length() != columns->states.length()) {
        m_impl->Nonsense(std::to_string(columns->numbers.length()) + " numbers and " +
                         std::to_string(columns->states.length()) + " states");
    }
    const CORBA::ULong count = columns->numbers.length();
    readings.values.reserve(count);
    readings.states.reserve(count);
    for (CORBA::ULong i = 0; i < count; ++i) {
        readings.values.push_back(columns->numbers[i]);
        readings.states.push_back(static_cast<ErrorCode_e>(columns->states[i]));
    }
    return readings;
}

void Client::CloseView(const std::string& id) {
    if (!m_impl->KnowsViews()) {
        m_impl->CloseLocalView(id);
    } else {
        m_impl->AskViews([&](reg::Registry_1_1_ptr registry) { registry->close_view(id.c_str()); });
    }
}

}  // namespace qreg::corba
