#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "qnode/notification.h"
#include "qstd/convert.h"

namespace test {

/// Collects what the nodes of a tree tell while it lives, each notification as "PATH/TYPE VALUE", where TYPE is its
/// number and VALUE must be a double.
class NotificationCapture : private qnode::NotificationListener {
public:
    explicit NotificationCapture(std::shared_ptr<qnode::TreeNode> root) : m_listening(std::move(root), *this) {
        m_listening.SetInterest(true);
    }

    /// Those of the nodes below @p path, without it and the slash after it.
    std::vector<std::string> Below(const std::string& path) const {
        const std::lock_guard<std::mutex> guard(m_mutex);
        std::vector<std::string> found;
        for (const std::string& text : m_texts) {
            if (text.rfind(path + "/", 0) == 0) {
                found.push_back(text.substr(path.size() + 1));
            }
        }
        return found;
    }

    std::vector<std::string> All() const {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_texts;
    }

    void Clear() {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_texts.clear();
    }

private:
    void OnNotification(const qnode::Notification& notification) override {
        const bool isDouble = notification.value.GetType() == typeid(double);
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_texts.push_back(notification.path + "/" + std::to_string(static_cast<int>(notification.type)) + " " +
                          (isDouble ? qstd::NumberText(notification.value.Get<double>()) : "(no double)"));
    }

    mutable std::mutex m_mutex;
    std::vector<std::string> m_texts;
    qnode::Listening m_listening;  ///< the last member: nothing above goes while it still calls
};

}  // namespace test
