#include "tests/unit/regctl/fake_registry.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

bool IsBelow(const std::string& path, const std::string& top) {
    return top.empty() ? !path.empty() : path.starts_with(top + "/");
}

std::size_t DepthOf(const std::string& path) {
    return path.empty() ? 0 : 1 + static_cast<std::size_t>(std::count(path.begin(), path.end(), '/'));
}

}  // namespace

FakeRegistry& FakeRegistry::Add(const std::string& path) {
    qreg::corba::TreeItem item;
    item.depth = DepthOf(path);
    item.path = path;
    item.info.name = path.substr(path.rfind('/') + 1);
    item.outcome.code = qreg::ErrorCode_e::not_readable;
    item.outcome.text = "not readable: " + path;
    m_items.push_back(item);
    return *this;
}

FakeRegistry& FakeRegistry::Add(const std::string& path, const qnode::Value& value, unsigned long long flags) {
    Add(path);
    m_items.back().info.flags = flags;
    m_items.back().info.type = qnode::TypeOf(value);
    m_items.back().info.size = 1;
    m_items.back().outcome = {qreg::ErrorCode_e::ok, value, ""};
    return *this;
}

FakeRegistry& FakeRegistry::AddFailing(const std::string& path, qreg::ErrorCode_e code, const std::string& text) {
    Add(path, 0.0);
    m_items.back().outcome = {code, {}, text};
    return *this;
}

const qreg::corba::TreeItem& FakeRegistry::Find(const std::string& path) const {
    for (const auto& item : m_items) {
        if (item.path == path) {
            return item;
        }
    }
    throw qreg::RegistryError(qreg::ErrorCode_e::no_such_node, path, "no such node: " + path);
}

qreg::NodeInfo FakeRegistry::Describe(const std::string& path) {
    qreg::NodeInfo info = Find(path).info;
    info.children = Children(path).size();
    return info;
}

std::vector<qreg::NodeInfo> FakeRegistry::Children(const std::string& path) {
    const std::size_t depth = Find(path).depth;
    std::vector<qreg::NodeInfo> children;
    for (const auto& item : m_items) {
        if (IsBelow(item.path, path) && item.depth == depth + 1) {
            children.push_back(item.info);
        }
    }
    return children;
}

std::vector<qreg::Outcome> FakeRegistry::GetMany(const std::vector<std::string>& paths) {
    std::vector<qreg::Outcome> outcomes;
    for (const std::string& path : paths) {
        try {
            outcomes.push_back(Find(path).outcome);
        } catch (const qreg::RegistryError& error) {
            outcomes.push_back({error.GetCode(), {}, error.what()});
        }
    }
    return outcomes;
}

void FakeRegistry::Subtree(const std::string& path, const std::function<void(const qreg::corba::TreeItem&)>& visit) {
    const std::size_t depth = Find(path).depth;
    for (qreg::corba::TreeItem item : m_items) {
        if (item.path == path || IsBelow(item.path, path)) {
            item.depth -= depth;
            visit(item);
        }
    }
}

void FakeRegistry::Set(const std::string& path, const qnode::Value& value) {
    if ((Find(path).info.flags & 4) == 0) {
        throw qreg::RegistryError(qreg::ErrorCode_e::not_writable, path, "cannot be written: " + path);
    }
    if (sets != nullptr) {
        sets->emplace_back(path, value);
    }
}

qreg::Lease FakeRegistry::Subscribe(const qreg::Filter& wanted) {
    filter = wanted;
    return {"id", wanted.lease, 10};
}

qreg::Batch FakeRegistry::Poll(const std::string& id, std::uint64_t last, std::size_t, std::chrono::milliseconds wait) {
    EXPECT_EQ(id, "id");
    received.push_back(last);
    waits.push_back(wait);
    return received.size() <= polls.size() ? polls[received.size() - 1]() : qreg::Batch{};
}

void FakeRegistry::Unsubscribe(const std::string& id) {
    EXPECT_EQ(id, "id");
    ++unsubscribed;
}

bool FakeRegistry::EndPolls(const std::string&) {
    return true;
}

qreg::Batch MakeBatch(std::uint64_t lost, const std::vector<std::uint64_t>& sequences) {
    qreg::Batch batch;
    batch.lost = lost;
    for (const std::uint64_t sequence : sequences) {
        batch.events.push_back(std::make_shared<const qreg::Event>(
            qreg::Event{sequence, static_cast<std::uint16_t>(sequence % 2),
                        std::chrono::system_clock::time_point(std::chrono::seconds(sequence)), "a/b",
                        static_cast<double>(sequence) / 10}));
    }
    return batch;
}
