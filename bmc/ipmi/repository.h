#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "bmc/ipmi/link.h"
#include "bmc/ipmi/sensor_record.h"

namespace bmc::ipmi {

/// Where a controller keeps sensor data records.
enum class RepositoryKind_e : std::uint8_t {
    main,    ///< the repository of the whole system
    device,  ///< the device SDRs: the records of its own sensors, of all its logical units
};

/// Tells whether a repository has changed: the bytes of Get SDR Repository Info that do (version, count, times of the
/// last addition and erasure), or those of Get Device SDR Info (count, flags, change indicator if there is one).
struct RepositoryStamp {
    std::vector<std::uint8_t> bytes;
    friend bool operator==(const RepositoryStamp&, const RepositoryStamp&) = default;
};

struct Repository {
    RepositoryStamp stamp;
    std::vector<RawRecord> records;  ///< in the repository's order
};

/// One transaction. Nothing when the controller has no such repository.
/// @param who the board or controller, for messages
/// @throws qstd::Exception
std::optional<RepositoryStamp> ReadStamp(Link& link, RepositoryKind_e kind, const std::string& who);

/// All records, as they are at one moment. One transaction for each record where the controller allows it, some more
/// where it only gives parts of records. Nothing when the controller has no such repository.
/// @throws qstd::Exception, also for a repository that never ends, has more than 4096 records, or does not keep still
std::optional<Repository> ReadRepository(Link& link, RepositoryKind_e kind, const std::string& who);

/// The main repository of a controller, which is read once for all the boards behind it. Any thread; who comes while
/// it is read waits for it.
class RepositoryStore {
public:
    /// @param controller the controller itself; goes on to live
    /// @param name of the controller, for messages
    RepositoryStore(Link& controller, std::string name) : m_controller(controller), m_name(std::move(name)) {}

    /// As ReadStamp.
    std::optional<RepositoryStamp> ReadStamp() const;

    /// The repository as it is now, read anew only when its stamp is another one than at the last call. Null when the
    /// controller has none. @throws qstd::Exception
    std::shared_ptr<const Repository> Read();

private:
    Link& m_controller;
    const std::string m_name;
    std::mutex m_mutex;  ///< guards m_last, and is held while it is read
    std::shared_ptr<const Repository> m_last;
};

}  // namespace bmc::ipmi
