#include "bmc/ipmi/record_source.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <utility>

#include "bmc/ipmi/device_id.h"

namespace bmc::ipmi {

namespace {

/// The identity and the stamp, each preceded by its length.
std::vector<std::uint8_t> MakeFingerprint(const std::vector<std::uint8_t>& identity,
                                          const std::optional<RepositoryStamp>& stamp) {
    std::vector<std::uint8_t> bytes = identity;
    if (stamp) {
        bytes.push_back(static_cast<std::uint8_t>(stamp->bytes.size()));
        bytes.insert(bytes.end(), stamp->bytes.begin(), stamp->bytes.end());
    } else {
        bytes.push_back(0);
    }
    return bytes;
}

/// Device SDRs, or the board's own main repository.
RepositoryKind_e OwnKind(RecordOrigin_e origin) {
    return origin == RecordOrigin_e::device ? RepositoryKind_e::device : RepositoryKind_e::main;
}

}  // namespace

RecordSource::Identity RecordSource::ReadIdentity() const {
    constexpr std::size_t c_mostSize = 15;
    constexpr std::size_t c_guidSize = 16;
    const Response idResponse = m_own.Execute(DeviceId::MakeRequest(), Purpose_e::sweeping);
    Identity identity;
    identity.providesDeviceRecords =
        DeviceId::Decode(idResponse, m_label + ": " + CommandName(DeviceId::MakeRequest())).providesDeviceRecords;
    std::vector<std::uint8_t> id = idResponse.data;
    id.resize(std::min(id.size(), c_mostSize));
    id[2] &= 0x7fU;  // whether firmware is being written or the board starts says nothing of its sensors
    identity.bytes.push_back(static_cast<std::uint8_t>(id.size()));
    identity.bytes.insert(identity.bytes.end(), id.begin(), id.end());

    const Response guid = m_own.Execute(Request(NetFn_e::app, 0x08), Purpose_e::sweeping);
    const bool hasGuid = guid.completionCode == c_completed && guid.data.size() >= c_guidSize;
    identity.bytes.push_back(hasGuid ? c_guidSize : 0);
    if (hasGuid) {
        identity.bytes.insert(identity.bytes.end(), guid.data.begin(), guid.data.begin() + c_guidSize);
    }
    return identity;
}

std::vector<std::uint8_t> RecordSource::ReadFingerprint(RecordOrigin_e origin) const {
    const Identity identity = ReadIdentity();
    return MakeFingerprint(identity.bytes, origin == RecordOrigin_e::controller
                                               ? m_controller.ReadStamp()
                                               : ReadStamp(m_own, OwnKind(origin), m_label));
}

std::vector<RawRecord> RecordSource::Select(const std::vector<RawRecord>& records, RecordOrigin_e origin) const {
    const auto isOurs = [&](const SensorRecord& sensor) {
        switch (origin) {
            case RecordOrigin_e::controller:
                return sensor.owner == m_target.address &&
                       (!m_target.IsBridged() || sensor.channel == m_target.channel);
            case RecordOrigin_e::device:
                return sensor.owner % 2 == 0;
            case RecordOrigin_e::board:
                return sensor.owner == m_target.address || sensor.owner == c_controllerAddress;
        }
        return false;
    };
    std::vector<RawRecord> selected;
    for (const RawRecord& record : records) {
        const std::vector<SensorRecord> sensors = DecodeRecord(record);
        if (!sensors.empty() && isOurs(sensors.front())) {
            selected.push_back(record);
        }
    }
    return selected;
}

BoardRecords RecordSource::Read() const {
    const Identity identity = ReadIdentity();
    BoardRecords found;
    if (const auto repository = m_controller.Read()) {
        found.records = Select(repository->records, RecordOrigin_e::controller);
        found.fingerprint = MakeFingerprint(identity.bytes, repository->stamp);
    }
    const auto tryOwn = [&](RecordOrigin_e origin) {
        if (const auto repository = ReadRepository(m_own, OwnKind(origin), m_label)) {
            found.origin = origin;
            found.records = Select(repository->records, origin);
            found.fingerprint = MakeFingerprint(identity.bytes, repository->stamp);
        }
    };
    if (found.records.empty() && identity.providesDeviceRecords) {
        tryOwn(RecordOrigin_e::device);
    }
    if (found.records.empty() && m_target.IsBridged()) {
        tryOwn(RecordOrigin_e::board);
    }
    return found;
}

}  // namespace bmc::ipmi
