#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <thread>
#include <vector>

namespace bench {

using Clock = std::chrono::steady_clock;

/// Call times of one kind of call, in microseconds.
class Samples {
public:
    void Add(Clock::duration duration) {
        m_microseconds.push_back(std::chrono::duration<double, std::micro>(duration).count());
    }
    void Add(const Samples& other) {
        m_microseconds.insert(m_microseconds.end(), other.m_microseconds.begin(), other.m_microseconds.end());
    }

    /// @param share 0.5 for the median, 0.99 for the slowest but one in a hundred
    double Quantile(double share) const {
        if (m_microseconds.empty()) {
            return 0;
        }
        std::vector<double> sorted = m_microseconds;
        std::sort(sorted.begin(), sorted.end());
        return sorted[std::min(sorted.size() - 1,
                               static_cast<std::size_t>(share * static_cast<double>(sorted.size())))];
    }
    double Median() const { return Quantile(0.5); }
    std::size_t Count() const { return m_microseconds.size(); }

private:
    std::vector<double> m_microseconds;
};

/// Times @p count calls one by one, after a tenth as many for warming up.
inline Samples Time(std::size_t count, const std::function<void()>& call) {
    for (std::size_t index = 0; index < count / 10; ++index) {
        call();
    }
    Samples samples;
    for (std::size_t index = 0; index < count; ++index) {
        const Clock::time_point begin = Clock::now();
        call();
        samples.Add(Clock::now() - begin);
    }
    return samples;
}

/// Calls per second of @p threads callers at once, each of which makes a client of its own and calls it for @p length.
inline double Throughput(std::size_t threads, Clock::duration length,
                         const std::function<std::function<void()>()>& makeClient) {
    std::atomic<std::size_t> calls{0};
    std::atomic<std::size_t> ready{0};
    std::atomic<bool> isOn{false};
    std::atomic<bool> isOver{false};
    std::vector<std::thread> callers;
    for (std::size_t index = 0; index < threads; ++index) {
        callers.emplace_back([&] {
            const std::function<void()> call = makeClient();
            call();
            ++ready;
            while (!isOn) {
                std::this_thread::yield();
            }
            std::size_t mine = 0;
            while (!isOver) {
                call();
                ++mine;
            }
            calls += mine;
        });
    }
    while (ready < threads) {
        std::this_thread::yield();
    }
    const Clock::time_point begin = Clock::now();
    isOn = true;
    std::this_thread::sleep_for(length);
    isOver = true;
    const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    for (std::thread& caller : callers) {
        caller.join();
    }
    return static_cast<double>(calls) / seconds;
}

}  // namespace bench
