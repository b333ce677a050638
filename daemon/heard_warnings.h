#pragma once

#include <memory>
#include <string>
#include <vector>

/// Listens to the log while it lives: what boards warn of when they are asked is of interest to whoever proves a
/// configuration, and no log is open then. For one thread; messages may come from any.
class HeardWarnings {
public:
    HeardWarnings();
    HeardWarnings(const HeardWarnings&) = delete;
    HeardWarnings& operator=(const HeardWarnings&) = delete;
    ~HeardWarnings();

    /// Warnings and worse up to now, each once.
    std::vector<std::string> Get() const;

private:
    class Sink;
    const std::shared_ptr<Sink> m_sink;
    const bool m_wasEnabled;
};
