#include "tools/regctl/watch.h"

#include <algorithm>
#include <limits>

#include "qnode/notification.h"
#include "qstd/strings.h"
#include "tools/regctl/json_text.h"
#include "tools/regctl/value_text.h"

namespace regctl {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds c_wait{15000};  // of one poll; servers grant that much
constexpr std::chrono::seconds c_lease{60};
constexpr std::size_t c_batch = 1000;

/// A misspelt path would be watched for ever.
void CheckPaths(const std::vector<std::string>& patterns, Registry& registry) {
    for (const std::string& pattern : patterns) {
        if (pattern.find('*') == std::string::npos) {
            registry.Describe(pattern);
        }
    }
}

/// Tells of the notifications that were lost since the last batch.
void TellLoss(std::uint64_t lost, std::uint64_t& told, const Output& output) {
    if (lost > told) {
        const std::uint64_t more = lost - told;
        output.err << c_program << ": " << more << (more == 1 ? " notification was lost" : " notifications were lost")
                   << std::endl;
        told = lost;
    }
}

/// Ends the subscription however the watching ended; the server would find out by itself, later.
class Subscription {
public:
    Subscription(Registry& registry, const qreg::Filter& filter)
        : m_registry(registry), m_id(registry.Subscribe(filter).id) {}
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;
    ~Subscription() {
        try {
            m_registry.Unsubscribe(m_id);
        } catch (const qstd::Exception&) {
            // It is gone.
        }
    }
    const std::string& GetId() const noexcept { return m_id; }

private:
    Registry& m_registry;
    const std::string m_id;
};

}  // namespace

std::string EventLine(const qreg::Event& event, const Output& output) {
    if (output.isJson) {
        return EventJson(event);
    }
    const std::string line = TimeText(event.time) + ' ' + qstd::OneLine(event.path) + ' ' + EventTypeText(event.type) +
                             ' ' + ValueText(event.value);
    const bool isMarked = output.hasColour && event.type == static_cast<int>(qnode::NotificationType::threshold);
    return isMarked ? c_yellow + line + c_usual : line;
}

int Watch(const WatchRequest& request, Registry& registry, const Output& output,
          const std::function<bool()>& isInterrupted, const std::function<void(const std::string& id)>& onSubscribed) {
    const auto end = request.timeout ? Clock::now() + *request.timeout : Clock::time_point::max();
    CheckPaths(request.patterns, registry);
    qreg::Filter filter;
    filter.patterns = request.patterns;
    filter.lease = c_lease;
    const Subscription subscription(registry, filter);
    onSubscribed(subscription.GetId());
    std::uint64_t received = 0, lost = 0;
    std::size_t left = request.count.value_or(std::numeric_limits<std::size_t>::max());
    while (left > 0 && !isInterrupted()) {
        const auto now = Clock::now();
        if (now >= end) {
            break;
        }
        // Rounded up: no polls of nothing at the end.
        const auto wait = std::min(c_wait, std::chrono::ceil<std::chrono::milliseconds>(end - now));
        qreg::Batch batch;
        try {
            batch = registry.Poll(subscription.GetId(), received, std::min(left, c_batch), wait);
        } catch (const qstd::Exception&) {
            if (isInterrupted()) {
                break;
            }
            throw;
        }
        TellLoss(batch.lost, lost, output);
        for (std::size_t i = 0; i < batch.events.size() && left > 0; ++i, --left) {
            received = batch.events[i]->sequence;
            output.out << EventLine(*batch.events[i], output) << '\n';
            Flush(output);
        }
    }
    return c_exitDone;
}

}  // namespace regctl
