#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "bmc/ipmi/link.h"
#include "bmc/ipmi/message.h"
#include "bmc/ipmi/repository.h"
#include "bmc/ipmi/sensor_record.h"

namespace bmc::ipmi {

/// Where the records of a board's sensors come from. The numbers stand in cache files.
enum class RecordOrigin_e : std::uint8_t {
    controller = 0,  ///< the main repository of the controller that a session reaches
    device = 1,      ///< the board's own device SDRs
    board = 2,       ///< the board's own main repository
};

/// The records of a board's sensors and what they depend on.
struct BoardRecords {
    RecordOrigin_e origin = RecordOrigin_e::controller;
    /// Device id, GUID and the repository's stamp: the records hold as long as these are the same.
    std::vector<std::uint8_t> fingerprint;
    std::vector<RawRecord> records;
    friend bool operator==(const BoardRecords&, const BoardRecords&) = default;
};

/// Finds the records of one board's sensors. They are the records of the controller's main repository that the board
/// owns: by its address and channel, or by 0x20 for a board that the session reaches directly. When there are none,
/// its device SDRs, if its device id says that it provides them. When there are none either, and the board is behind
/// the controller, those of its own main repository that are owned by its address or by 0x20, as which a controller may
/// know itself. Records that software owns are never a board's. Any thread.
class RecordSource {
public:
    /// @param label the board, for messages
    /// @param own the link to the board; goes on to live, as does @p controller
    RecordSource(std::string label, Link& own, RepositoryStore& controller, Target target)
        : m_label(std::move(label)), m_own(own), m_controller(controller), m_target(target) {}

    /// What the fingerprint of records of @p origin would be now. Three transactions. @throws qstd::Exception
    std::vector<std::uint8_t> ReadFingerprint(RecordOrigin_e origin) const;

    /// Those of @p records, which came from @p origin, that hold sensors of this board. Asks nobody.
    std::vector<RawRecord> Select(const std::vector<RawRecord>& records, RecordOrigin_e origin) const;

    /// All records that hold sensors of this board, which may be none. @throws qstd::Exception
    BoardRecords Read() const;

private:
    struct Identity {
        std::vector<std::uint8_t> bytes;
        bool providesDeviceRecords = false;
    };
    Identity ReadIdentity() const;

    const std::string m_label;
    Link& m_own;
    RepositoryStore& m_controller;
    const Target m_target;
};

}  // namespace bmc::ipmi
