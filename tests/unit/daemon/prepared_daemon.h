#pragma once

#include <string>

#include "platform_daemon.h"

namespace test {

/// The daemon with the registry tree of the present boards, without having been run.
class PreparedDaemon : public PlatformDaemon {
public:
    PreparedDaemon() { AddRegistryNodes(); }

    /// Gives it a configuration and a folder for log files.
    void Use(const std::string& sections, const std::string& logFileDir) {
        Prepare("<zelkor>" + sections + "</zelkor>", logFileDir);
    }
};

}  // namespace test
