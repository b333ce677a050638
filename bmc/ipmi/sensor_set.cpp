#include "bmc/ipmi/sensor_set.h"

#include <algorithm>
#include <cstddef>
#include <exception>
#include <set>
#include <span>
#include <utility>

#include <fmt/format.h>

#include "bmc/broken_off.h"
#include "bmc/ipmi/failures.h"

namespace bmc::ipmi {

namespace {

/// So many requests are handed over at a time: others get through between them, and little is lost when it breaks off.
constexpr std::size_t c_batchSize = 64;

/// "16 (Inlet), 17 (Outlet)"; of many the first ones.
class NameList {
public:
    void Add(const SensorRecord& sensor) {
        if (m_count < c_mostNames) {
            m_text += fmt::format("{}{} ({})", m_count == 0 ? "" : ", ", sensor.id, sensor.name);
        }
        ++m_count;
    }
    bool IsEmpty() const { return m_count == 0; }
    std::string Text() const {
        return m_count <= c_mostNames ? m_text : fmt::format("{} and {} more", m_text, m_count - c_mostNames);
    }

private:
    static constexpr std::size_t c_mostNames = 20;
    std::string m_text;
    std::size_t m_count = 0;
};

bool Has(const std::vector<SensorRecord>& records, const SensorRecord& wanted) {
    return std::find(records.begin(), records.end(), wanted) != records.end();
}

/// The sensors of the records. Of those with the same id the first holds, the others are added to @p twice.
std::vector<SensorRecord> Distinct(const BoardRecords& records, NameList& twice) {
    std::vector<SensorRecord> sensors;
    std::set<int> ids;
    for (const RawRecord& raw : records.records) {
        for (SensorRecord& record : DecodeRecord(raw)) {
            if (ids.insert(record.id).second) {
                sensors.push_back(std::move(record));
            } else {
                twice.Add(record);
            }
        }
    }
    return sensors;
}

}  // namespace

SensorSet::SensorSet(SensorSetPlace place, Link& own, RepositoryStore& controller, RecordCache& cache, LogFunction log)
    : m_place(std::move(place)),
      m_own(own),
      m_source(m_place.label, own, controller, m_place.target),
      m_cache(cache),
      m_log(std::move(log)) {}

void SensorSet::Load() {
    const std::lock_guard<std::mutex> work(m_work);
    if (IsLoaded()) {
        return;
    }
    auto kept = m_cache.Load(m_place.label, PlaceText());
    if (kept) {
        kept->records = m_source.Select(kept->records, kept->origin);
    }
    const bool isAnyKept = kept && !kept->records.empty();
    try {
        if (isAnyKept && m_source.ReadFingerprint(kept->origin) == kept->fingerprint) {
            SetSensors(*kept, true);
        } else {
            SetSensors(ReadRecords(), true);
        }
    } catch (const BrokenOff&) {
        throw;
    } catch (const qstd::Exception& exception) {
        if (!isAnyKept) {
            throw;
        }
        SetSensors(*kept, false);
        m_log(qstd::LogLevel_e::warning,
              "The sensors of board " + m_place.label +
                  " are those that it had when it was last asked, without thresholds: " + exception.what());
        return;
    }
    try {
        ReadThresholds();
    } catch (const BrokenOff&) {
        throw;
    } catch (const qstd::Exception& exception) {
        m_log(qstd::LogLevel_e::warning,
              "Not all thresholds of board " + m_place.label + " could be read: " + exception.what());
    }
}

void SensorSet::SetSensors(const BoardRecords& records, bool isProved) {
    NameList twice;
    std::vector<std::unique_ptr<IpmiSensor>> sensors;
    for (SensorRecord& record : Distinct(records, twice)) {
        sensors.push_back(std::make_unique<IpmiSensor>(m_place.label, std::move(record), m_own));
    }
    m_origin = records.origin;
    m_fingerprint = records.fingerprint;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_sensors = std::move(sensors);
        m_isLoaded = true;
        m_isProved = isProved;
    }
    if (!twice.IsEmpty()) {
        m_log(qstd::LogLevel_e::warning, "Sensor numbers come twice in the records of board " + m_place.label +
                                             ", the second one is not used: " + twice.Text());
    }
}

void SensorSet::Refresh(bool checkRepository) {
    if (!IsLoaded()) {
        Load();
        return;
    }
    const std::lock_guard<std::mutex> work(m_work);
    bool isProved = false;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        isProved = m_isProved;
    }
    if (checkRepository || !isProved) {
        CheckRecords();
    }
    ReadThresholds();
}

void SensorSet::CheckRecords() {
    if (m_source.ReadFingerprint(m_origin) != m_fingerprint) {
        const BoardRecords records = ReadRecords();
        m_origin = records.origin;
        m_fingerprint = records.fingerprint;
        Compare(records);
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isProved = true;
}

BoardRecords SensorSet::ReadRecords() {
    BoardRecords records = m_source.Read();
    m_cache.Store(m_place.label, PlaceText(), records);
    return records;
}

void SensorSet::Compare(const BoardRecords& records) {
    NameList twice;
    const std::vector<SensorRecord> present = Distinct(records, twice);
    std::vector<SensorRecord> known;
    NameList gone;
    NameList back;
    NameList added;
    // m_sensors does not change once it is filled, and it is.
    for (const auto& sensor : m_sensors) {
        const bool isPresent = Has(present, sensor->GetRecord());
        if (isPresent != sensor->IsPresent()) {
            (isPresent ? back : gone).Add(sensor->GetRecord());
        }
        sensor->SetPresent(isPresent);
        known.push_back(sensor->GetRecord());
    }
    for (const SensorRecord& record : present) {
        if (!Has(known, record)) {
            added.Add(record);
        }
    }
    std::string text;
    const auto append = [&](const char* what, const NameList& names) {
        if (!names.IsEmpty()) {
            text += std::string("; ") + what + ": " + names.Text();
        }
    };
    append("gone or another one now", gone);
    append("back", back);
    append("new, used after a restart of the service", added);
    if (!text.empty()) {
        m_log(qstd::LogLevel_e::warning, "The sensor records of board " + m_place.label + " have changed" + text);
    }
}

void SensorSet::ReadThresholds() {
    std::vector<IpmiSensor*> sensors;
    for (const auto& sensor : m_sensors) {
        if (sensor->IsPresent()) {
            sensors.push_back(sensor.get());
        }
    }
    std::exception_ptr problem;
    for (std::size_t begin = 0; begin < sensors.size(); begin += c_batchSize) {
        const std::size_t count = std::min(c_batchSize, sensors.size() - begin);
        const std::exception_ptr problemHere = ReadThresholdsOf(std::span(sensors).subspan(begin, count));
        problem = problem ? problem : problemHere;
    }
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_areThresholdsRead = m_areThresholdsRead || !problem;
    }
    if (problem) {
        std::rethrow_exception(problem);
    }
}

std::exception_ptr SensorSet::ReadThresholdsOf(std::span<IpmiSensor* const> sensors) {
    std::vector<Request> requests;
    for (IpmiSensor* sensor : sensors) {
        if (sensor->HasThresholds()) {
            requests.push_back(sensor->ThresholdsRequest());
        }
    }
    const auto batch = m_own.Begin(std::move(requests));
    std::exception_ptr problem;
    std::size_t index = 0;
    for (IpmiSensor* sensor : sensors) {
        try {
            if (sensor->HasThresholds()) {
                sensor->TakeThresholds(batch->Await(index++));
            }
            sensor->ReadNominal();
        } catch (const BrokenOff&) {
            throw;
        } catch (const NoAnswer&) {
            throw;
        } catch (const qstd::Exception&) {
            problem = problem ? problem : std::current_exception();
        }
    }
    return problem;
}

bool SensorSet::IsLoaded() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_isLoaded;
}

bool SensorSet::IsComplete() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_isLoaded && m_isProved && m_areThresholdsRead;
}

std::vector<SensorId> SensorSet::Ids() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<SensorId> ids;
    for (const auto& sensor : m_sensors) {
        if (sensor->IsPresent()) {
            ids.push_back(sensor->GetId());
        }
    }
    return ids;
}

IpmiSensor* SensorSet::Find(const SensorId& id) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = std::find_if(m_sensors.begin(), m_sensors.end(),
                                    [&](const auto& sensor) { return sensor->IsPresent() && sensor->GetId() == id; });
    return found == m_sensors.end() ? nullptr : found->get();
}

std::string SensorSet::PlaceText() const {
    return fmt::format("{} 0x{:02x}/{}", m_place.controller, m_place.target.address, m_place.target.channel);
}

}  // namespace bmc::ipmi
