#include "qreg/corba/registry_servant.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include <omniORB4/callHandle.h>

#include "qnode/local_node_structure.h"
#include "qreg/corba/interceptors.h"
#include "qreg/corba/is_a_call.h"
#include "qreg/corba/pages.h"
#include "qreg/corba/random_id.h"
#include "qreg/corba/room.h"
#include "qreg/corba/subscribe_to_call.h"
#include "qreg/corba/wire.h"
#include "qstd/strings.h"

namespace qreg::corba {

namespace {

constexpr std::size_t c_headers = 1024;  ///< of a reply, and what stands beside its items
constexpr std::size_t c_leastMessage = 8192;
constexpr std::size_t c_refusalSize = 80;  ///< the most bytes of the text of an item that has no room

std::size_t RoomOf(const ServerSettings& settings) {
    return std::max(settings.maxMessage, c_leastMessage) - c_headers;
}

void RaiseUnlessOk(const Outcome& outcome, const char* path) {
    if (outcome.code != ErrorCode_e::ok) {
        throw RegistryError(outcome.code, path, outcome.text);
    }
}

}  // namespace

RegistryServant::RegistryServant(const ServerSettings& settings, const Access& access, const GuardedAccess& guard,
                                 Subscriptions& subscriptions, CORBA::ORB_ptr orb)
    : m_access(access),
      m_guard(guard),
      m_subscriptions(subscriptions),
      m_orb(CORBA::ORB::_duplicate(orb)),
      m_product(settings.product),
      m_offersPush(settings.push),
      m_maxMessage(std::max(settings.maxMessage, c_leastMessage)),
      m_room(RoomOf(settings)),
      m_pageRoom(std::min<std::size_t>(m_maxMessage / 4, 512UL * 1024)),
      m_limits(settings.subscriptions),
      m_format{RandomId(), m_pageRoom},
      m_push(subscriptions, m_format, settings.subscriptions.wait) {}

std::size_t RegistryServant::Refuse(std::chrono::milliseconds limit) {
    m_isStopping = true;
    return m_writes.Close(limit);
}

void RegistryServant::StopPush() {
    m_push.Stop();
    m_guard.Flush();
}

void RegistryServant::RefuseWhenStopping() const {
    if (m_isStopping.load(std::memory_order_relaxed)) {
        throw RegistryError(ErrorCode_e::stopping, {}, "The server is about to end");
    }
}

template <class Answer>
auto RegistryServant::Do(const char* path, Answer&& answer) const -> decltype(answer()) {
    return DoForAll(path, [&] {
        if (m_guard.RestrictsReading()) {
            m_guard.RefuseToRead(CurrentPeer(), path != nullptr ? path : "");
        }
        return answer();
    });
}

template <class Answer>
auto RegistryServant::DoForAll(const char* path, Answer&& answer) const -> decltype(answer()) {
    try {
        RefuseWhenStopping();
        return answer();
    } catch (const RegistryError& error) {
        throw ToWire(error.GetPath().empty() && path != nullptr ? RegistryError(error.GetCode(), path, error.what())
                                                                : error);
    } catch (const CORBA::Exception&) {
        throw;
    } catch (const std::exception& exception) {
        throw ToWire(RegistryError(ErrorCode_e::failed, path != nullptr ? path : "", exception.what()));
    } catch (...) {
        throw ToWire(RegistryError(ErrorCode_e::failed, path != nullptr ? path : "", "Unknown exception"));
    }
}

::reg::ServerInfo* RegistryServant::hello(const char* /*client*/) {
    return DoForAll(nullptr, [&] {
        auto info = std::make_unique<::reg::ServerInfo>();
        info->major = 1;
        info->minor = 1;
        info->product = m_product.c_str();
        info->boot_id = m_format.bootId.c_str();
        return info.release();
    });
}

::reg::NodeInfo* RegistryServant::describe(const char* path) {
    return Do(path, [&] {
        auto info = std::make_unique<::reg::NodeInfo>();
        ToWire(Access::Describe(m_access.Find(path)), *info);
        return info.release();
    });
}

::reg::NodeInfoSeq* RegistryServant::children(const char* path, CORBA::ULong start) {
    return Do(path, [&] {
        auto infos = std::make_unique<::reg::NodeInfoSeq>();
        ListChildren(m_access.Find(path), start, m_pageRoom, *infos);
        return infos.release();
    });
}

::reg::Reading* RegistryServant::get(const char* path) {
    return Do(path, [&] {
        const Outcome outcome = m_access.Read(path);
        RaiseUnlessOk(outcome, path);
        auto reading = std::make_unique<::reg::Reading>();
        ToWire(outcome.value, reading->val);
        reading->at = Now();
        return reading.release();
    });
}

::reg::ValueSeq* RegistryServant::get_many(const ::reg::PathSeq& paths) {
    return Do(nullptr, [&] {
        const CORBA::ULong count = paths.length();
        RefuseTooMany(count, c_outcomeSize + c_refusalSize);
        Room room(m_room - count * (c_outcomeSize + c_refusalSize));
        auto values = std::make_unique<::reg::ValueSeq>();
        values->length(count);
        for (CORBA::ULong i = 0; i < count; ++i) {
            RefuseWhenStopping();
            Outcome outcome = m_access.Read(static_cast<const char*>(paths[i]));
            Shorten(outcome.text, c_longestText);
            if (!room.Take(SizeOf(outcome) - c_outcomeSize)) {
                outcome = Outcome{
                    ErrorCode_e::limit, {}, "No room: a reply has at most " + std::to_string(m_maxMessage) + " bytes"};
            }
            ToWire(outcome, (*values)[i]);
        }
        return values.release();
    });
}

::reg::Page* RegistryServant::subtree(const char* path, CORBA::ULong depth, CORBA::ULong limit, const char* after) {
    return Do(path, [&] {
        auto page = std::make_unique<::reg::Page>();
        page->at = Now();
        FillPage(m_access, {path, depth, limit, after, m_pageRoom, [this] { RefuseWhenStopping(); }}, *page);
        return page.release();
    });
}

void RegistryServant::set(const char* path, const ::reg::NewValue& value) {
    DoForAll(path, [&] { RaiseUnlessOk(WriteOne(path, value), path); });
}

::reg::OutcomeSeq* RegistryServant::set_many(const ::reg::AssignmentSeq& assignments) {
    return DoForAll(nullptr, [&] {
        const CORBA::ULong count = assignments.length();
        RefuseTooMany(count, c_outcomeSize + c_refusalSize);
        // What was written must be told, so texts are cut rather than the reply refused.
        const std::size_t longest = m_room / std::max<std::size_t>(count, 1) - c_outcomeSize;
        auto outcomes = std::make_unique<::reg::OutcomeSeq>();
        outcomes->length(count);
        for (CORBA::ULong i = 0; i < count; ++i) {
            const ::reg::Assignment& assignment = assignments[i];
            Outcome outcome = WriteOne(assignment.where, assignment.val);
            Shorten(outcome.text, std::min(longest, c_longestText));
            ToWire(outcome, (*outcomes)[i]);
        }
        return outcomes.release();
    });
}

Outcome RegistryServant::WriteOne(const char* path, const ::reg::NewValue& wire) {
    try {
        const RunningWrites::Write write(m_writes);
        qnode::Value value;
        try {
            value = FromWire(wire);
        } catch (const RegistryError& error) {
            m_guard.TellRefusal(CurrentPeer(), path, "?", error.what());
            throw;
        }
        Outcome outcome = m_guard.Write(CurrentPeer(), path, value);
        outcome.value = {};
        return outcome;
    } catch (const RegistryError& error) {
        return {error.GetCode(), {}, error.what()};
    }
}

::reg::Lease* RegistryServant::subscribe(const ::reg::Filter& filter) {
    return Do(nullptr, [&] {
        auto lease = std::make_unique<::reg::Lease>();
        ToWire(m_subscriptions.Subscribe(FromWire(filter)), *lease);
        return lease.release();
    });
}

CORBA::Boolean RegistryServant::_dispatch(omniCallHandle& handle) {
    const std::string_view operation = handle.operation_name();
    if (operation == SubscribeToCall::c_name) {
        SubscribeToCall call([this](const ::reg::Filter& filter, const ListenerAddress& listener) {
            return SubscribeTo(filter, listener);
        });
        handle.upcall(this, call);
        return 1;
    }
    if (operation == IsACall::c_name) {
        IsACall call;
        handle.upcall(this, call);
        return 1;
    }
    return POA_reg::Registry_1_1::_dispatch(handle);
}

::reg::Lease* RegistryServant::subscribe_to(const ::reg::Filter& /*filter*/, ::reg::Listener_ptr /*listener*/) {
    throw CORBA::NO_IMPLEMENT(0, CORBA::COMPLETED_NO);
}

::reg::Lease* RegistryServant::SubscribeTo(const ::reg::Filter& filter, const ListenerAddress& listener) {
    return Do(nullptr, [&] {
        if (!m_offersPush) {
            throw RegistryError(ErrorCode_e::not_offered, {}, "This server calls no listeners: poll instead");
        }
        const Peer peer = CurrentPeer();
        if (peer.isEncrypted) {
            throw RegistryError(ErrorCode_e::not_offered, {}, "Listeners are called in clear: over TLS poll instead");
        }
        const ::reg::Listener_var reachable = ListenerAt(m_orb.in(), listener, peer.address);
        auto lease = std::make_unique<::reg::Lease>();
        ToWire(m_push.Subscribe(FromWire(filter), reachable), *lease);
        return lease.release();
    });
}

::reg::Batch* RegistryServant::poll(const char* id, CORBA::ULongLong received, CORBA::ULong max, CORBA::ULong waitMs) {
    return Do(nullptr, [&] {
        const std::size_t most = max == 0 ? m_limits.batch : std::min<std::size_t>(max, m_limits.batch);
        const auto wait = std::min(std::chrono::milliseconds(waitMs), m_limits.wait);
        auto batch = std::make_unique<::reg::Batch>();
        m_format.ToWire(m_subscriptions.Poll(id, received, most, wait), *batch);
        return batch.release();
    });
}

CORBA::ULong RegistryServant::renew(const char* id) {
    return Do(nullptr, [&] { return static_cast<CORBA::ULong>(m_subscriptions.Renew(id).count()); });
}

void RegistryServant::unsubscribe(const char* id) {
    Do(nullptr, [&] { m_subscriptions.Unsubscribe(id); });
}

char* RegistryServant::open_view(const ::reg::PathSeq& paths) {
    return Do(nullptr, [&] {
        RefuseTooMany(paths.length(), sizeof(CORBA::Double) + sizeof(CORBA::UShort));
        std::vector<std::string_view> views;
        views.reserve(paths.length());
        for (CORBA::ULong i = 0; i < paths.length(); ++i) {
            views.emplace_back(static_cast<const char*>(paths[i]));
        }
        return CORBA::string_dup(m_views.Open(std::make_shared<const View>(m_access, views)).c_str());
    });
}

::reg::Columns* RegistryServant::read_view(const char* id) {
    return Do(nullptr, [&] {
        const std::shared_ptr<const View> view = m_views.Find(id);
        auto columns = std::make_unique<::reg::Columns>();
        columns->numbers.length(static_cast<CORBA::ULong>(view->GetSize()));
        columns->states.length(static_cast<CORBA::ULong>(view->GetSize()));
        view->Read(columns->numbers.get_buffer(), columns->states.get_buffer(), m_isStopping);
        RefuseWhenStopping();
        columns->at = Now();
        return columns.release();
    });
}

void RegistryServant::close_view(const char* id) {
    Do(nullptr, [&] { m_views.Close(id); });
}

void RegistryServant::RefuseTooMany(std::size_t count, std::size_t size) const {
    if (count * size > m_room) {
        throw RegistryError(ErrorCode_e::limit, {},
                            "The reply to " + std::to_string(count) + " items may have more than " +
                                std::to_string(m_maxMessage) + " bytes, the most of one message");
    }
}

}  // namespace qreg::corba
