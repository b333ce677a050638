#include "qreg/corba/views.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "qreg/corba/random_id.h"
#include "qreg/reg_node.h"
#include "qstd/strings.h"

namespace qreg::corba {

View::View(const Access& access, const std::vector<std::string_view>& paths) {
    m_entries.reserve(paths.size());
    for (const std::string_view path : paths) {
        m_entries.push_back(Look(access, path));
    }
}

View::Entry View::Look(const Access& access, std::string_view path) {
    Entry entry;
    try {
        entry.node = &access.Find(path);
        const NodeInfo info = Access::Describe(*entry.node);
        entry.isInteger = info.type == qnode::enums::ValueType_e::integer;
        if ((info.flags & RegNode::c_readable) == 0) {
            entry.state = ErrorCode_e::not_readable;
        } else if (!entry.isInteger && info.type != qnode::enums::ValueType_e::real) {
            entry.state = ErrorCode_e::wrong_type;
        }
    } catch (const RegistryError& error) {
        entry.state = error.GetCode();
    }
    return entry;
}

ErrorCode_e View::Read(const Entry& entry, double& number) noexcept {
    if (entry.state != ErrorCode_e::ok) {
        return entry.state;
    }
    try {
        if (!entry.isInteger) {
            return entry.node->OnGet(&number, 0, 1) ? ErrorCode_e::ok : ErrorCode_e::no_value;
        }
        int whole = 0;
        if (!entry.node->OnGet(&whole, 0, 1)) {
            return ErrorCode_e::no_value;
        }
        number = whole;
        return ErrorCode_e::ok;
    } catch (...) {
        number = std::numeric_limits<double>::quiet_NaN();
        return ErrorCode_e::failed;
    }
}

void View::Read(double* numbers, std::uint16_t* states, const std::atomic<bool>& isStopping) const noexcept {
    for (const Entry& entry : m_entries) {
        *numbers = std::numeric_limits<double>::quiet_NaN();
        *states = static_cast<std::uint16_t>(isStopping.load(std::memory_order_relaxed) ? ErrorCode_e::stopping
                                                                                        : Read(entry, *numbers));
        ++numbers;
        ++states;
    }
}

std::string Views::Open(std::shared_ptr<const View> view) {
    std::string id = RandomId();
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (m_views.size() == c_most) {
        m_views.erase(std::min_element(m_views.begin(), m_views.end(), [](const auto& left, const auto& right) {
            return left.second.used < right.second.used;
        }));
    }
    m_views.emplace(id, Held{std::move(view), ++m_uses});
    return id;
}

std::shared_ptr<const View> Views::Find(const std::string& id) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto found = m_views.find(id);
    if (found == m_views.end()) {
        RaiseNoSuchView(id);
    }
    found->second.used = ++m_uses;
    return found->second.view;
}

void Views::Close(const std::string& id) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (m_views.erase(id) == 0) {
        RaiseNoSuchView(id);
    }
}

void Views::RaiseNoSuchView(const std::string& id) {
    throw RegistryError(ErrorCode_e::no_such_view, {}, "No view \"" + qstd::OneLine(id) + "\"");
}

}  // namespace qreg::corba
