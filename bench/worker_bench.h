#pragma once

#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>

#include "bmc/board_pool.h"
#include "bmc/sim/sim_backend.h"
#include "platform_daemon.h"
#include "qcfg/element.h"
#include "qstd/clock.h"

// What the benchmarks of workers share: a simulated chassis, the daemon around it, and a worker whose own thread
// sleeps.

namespace bench {

/// Temperature sensors 1 to @p count of a board, held at different readings inside their limits.
inline void WriteSensors(std::ostream& file, int count) {
    for (int sensor = 1; sensor <= count; ++sensor) {
        file << "<sensor id='" << sensor << "' name='Temp " << sensor
             << "' type='temperature' units='degrees C' value='" << 30 + sensor * 0.37
             << "' nominal='40' lnr='-20' lc='-10' lnc='0' unc='80' uc='90' unr='100'/>\n";
    }
}

/// The chassis behind the pool while it lives.
class Chassis {
public:
    /// @param write writes the description of the chassis
    explicit Chassis(void (*write)(std::ostream&)) : m_folder(std::filesystem::temp_directory_path() / "zelkor-bench") {
        std::filesystem::create_directories(m_folder);
        std::ofstream file(m_folder / "chassis.xml");
        write(file);
        file.close();
        qcfg::Element section("boards");
        section.AddAttr(std::make_shared<qcfg::Attribute>("chassis", "chassis.xml"));
        bmc::BoardPool::Instance().Open(bmc::sim::Create(section, (m_folder / "config.xml").string()));
    }
    Chassis(const Chassis&) = delete;
    Chassis& operator=(const Chassis&) = delete;
    ~Chassis() {
        bmc::BoardPool::Instance().Open(nullptr);
        std::filesystem::remove_all(m_folder);
    }

    std::string Folder() const { return m_folder.string(); }

private:
    std::filesystem::path m_folder;
};

/// Tells when a worker's own thread has gone to sleep for good.
class SleepWatch : public qstd::Clock {
public:
    SleepWatch() { Replace(this); }
    ~SleepWatch() override { Replace(nullptr); }

    void Sleep(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
               std::chrono::seconds /*period*/) override {
        {
            const std::lock_guard<std::mutex> guard(m_mutex);
            m_isAsleep = true;
            m_changed.notify_all();
        }
        condition.wait(lock);
    }

    void AwaitSleep() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return m_isAsleep; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_isAsleep = false;
};

/// The daemon with the registry tree of the present boards, without having been run.
class Daemon : public PlatformDaemon {
public:
    Daemon(const std::string& section, const std::string& logFileDir) {
        Prepare("<zelkor>" + section + "</zelkor>", logFileDir);
        AddRegistryNodes();
    }
};

}  // namespace bench
