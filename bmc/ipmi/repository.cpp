#include "bmc/ipmi/repository.h"

#include <algorithm>
#include <bitset>
#include <chrono>
#include <cstddef>
#include <random>
#include <thread>

#include <fmt/format.h>

#include "qstd/exception.h"

namespace bmc::ipmi {

namespace {

constexpr std::uint16_t c_firstRecord = 0x0000;
constexpr std::uint16_t c_endOfRecords = 0xffff;
constexpr std::uint8_t c_wholeRecord = 0xff;
constexpr std::size_t c_headerSize = 5;
constexpr std::size_t c_mostRecordsRead = 4096;
constexpr int c_mostReservations = 16;  ///< for one record
constexpr int c_leastGivingWay = 1000;  ///< microseconds at most after the first cancelled reservation
constexpr int c_mostDoublings = 7;      ///< of that: more than a record takes behind a slow bus
constexpr int c_mostReadings = 3;       ///< of a repository that changes while it is read
constexpr std::size_t c_greatPart = 32;
constexpr std::size_t c_smallPart = 16;  ///< fits into a message on the IPMB

struct Commands {
    NetFn_e netFn;
    std::uint8_t info;
    std::uint8_t reserve;
    std::uint8_t get;
};

constexpr Commands CommandsOf(RepositoryKind_e kind) {
    return kind == RepositoryKind_e::main ? Commands{NetFn_e::storage, 0x20, 0x22, 0x23}
                                          : Commands{NetFn_e::sensor, 0x20, 0x22, 0x21};
}

/// The controller does not know the command.
bool IsUnknown(const Response& response) {
    constexpr std::uint8_t c_invalidForUnit = 0xc2;
    return response.completionCode == c_invalidCommand || response.completionCode == c_invalidForUnit;
}

/// The controller would not give that many bytes: 0xCA, and what others say in its place.
bool IsTooMuch(const Response& response) {
    switch (response.completionCode) {
        case c_cannotReturnBytes:
        case 0xc7:
        case 0xc8:
        case 0xc9:
        case 0xcc:
        case 0xff:
            return true;
        default:
            return false;
    }
}

/// The logical units that are asked: of device SDRs each that says it has sensors, because some controllers give all
/// records from the first one, and some give each unit's from that unit.
std::vector<std::uint8_t> UnitsOf(RepositoryKind_e kind, const RepositoryStamp& stamp) {
    std::vector<std::uint8_t> units{0};
    for (std::uint8_t unit = 1; kind == RepositoryKind_e::device && unit < 4; ++unit) {
        if ((stamp.bytes[1] >> unit & 1U) != 0) {
            units.push_back(unit);
        }
    }
    return units;
}

/// Reads one repository once, record by record.
class Reader {
public:
    Reader(Link& link, RepositoryKind_e kind, std::uint8_t lun, std::string who)
        : m_link(link), m_commands(CommandsOf(kind)), m_lun(lun), m_who(std::move(who)) {}

    /// Adds the records that @p records does not have yet.
    void ReadInto(std::vector<RawRecord>& records) {
        std::bitset<c_endOfRecords + 1> seen;
        Reserve();
        for (std::uint16_t id = c_firstRecord; id != c_endOfRecords; id = m_next) {
            if (seen.test(id)) {
                throw qstd::Exception(
                    fmt::format("{}: the sensor records never end: record 0x{:04x} comes twice", m_who, id));
            }
            if (records.size() == c_mostRecordsRead) {
                throw qstd::Exception(
                    fmt::format("{}: there are more than {} sensor records", m_who, c_mostRecordsRead));
            }
            seen.set(id);
            RawRecord record = ReadRecord(id);
            if (!record.empty() && (m_lun == 0 || std::find(records.begin(), records.end(), record) == records.end())) {
                records.push_back(std::move(record));
            }
        }
    }

private:
    /// Asks for part of a record and notes which one follows it.
    Response Get(std::uint16_t id, std::size_t offset, std::size_t count) {
        const auto low = [](std::uint16_t word) { return static_cast<std::uint8_t>(word & 0xffU); };
        const auto high = [](std::uint16_t word) { return static_cast<std::uint8_t>(word >> 8); };
        Request request(m_commands.netFn, m_commands.get,
                        {low(m_reservation), high(m_reservation), low(id), high(id), static_cast<std::uint8_t>(offset),
                         static_cast<std::uint8_t>(count)},
                        m_lun);
        Response response = m_link.Execute(request, Purpose_e::sweeping);
        if (response.completionCode == c_completed) {
            const auto& data = ExpectData(response, 2, m_who + ": " + CommandName(request));
            m_next = static_cast<std::uint16_t>(data[0] | (data[1] << 8));
            response.data.erase(response.data.begin(), response.data.begin() + 2);
        }
        return response;
    }

    void Reserve() {
        const Request request(m_commands.netFn, m_commands.reserve, {}, m_lun);
        const Response response = m_link.Execute(request, Purpose_e::sweeping);
        if (IsUnknown(response)) {
            m_reservation = 0;  // what a repository without reservations wants
            return;
        }
        const auto& data = ExpectData(response, 2, m_who + ": " + CommandName(request));
        m_reservation = static_cast<std::uint16_t>(data[0] | (data[1] << 8));
    }

    /// Whoever reserves cancels the reservation of everybody else. Two who read at the same time would do so to each
    /// other for ever: waiting for a random time, longer each time, lets one of them come through.
    void GiveWay(int earlier) {
        std::uniform_int_distribution<int> wait(0, c_leastGivingWay << std::min(earlier, c_mostDoublings));
        std::this_thread::sleep_for(std::chrono::microseconds(wait(m_random)));
    }

    /// @return empty for the first record of an empty repository, or of a logical unit that has none
    RawRecord ReadRecord(std::uint16_t id) {
        for (int i = 0; i < c_mostReservations; ++i) {
            RawRecord record;
            const Response last = m_isWholeGiven ? ReadWhole(id, record) : ReadParts(id, record);
            if (last.completionCode == c_reservationLost) {
                GiveWay(i);
                Reserve();
                continue;
            }
            const bool isNothingThere = last.completionCode == c_notPresent || (m_lun != 0 && IsUnknown(last));
            if (isNothingThere && id == c_firstRecord) {
                m_next = c_endOfRecords;
                return {};
            }
            ExpectData(last, 0, fmt::format("{}: sensor record 0x{:04x}", m_who, id));
            return record;
        }
        throw qstd::Exception(fmt::format("{}: sensor record 0x{:04x}: the reservation was cancelled {} times", m_who,
                                          id, c_mostReservations));
    }

    Response ReadWhole(std::uint16_t id, RawRecord& record) {
        Response response = Get(id, 0, c_wholeRecord);
        if (IsTooMuch(response)) {
            m_isWholeGiven = false;
            return ReadParts(id, record);
        }
        if (response.completionCode != c_completed) {
            return response;
        }
        record = response.data;
        if (record.size() < c_headerSize || record.size() < SizeOf(record)) {
            m_isWholeGiven = false;
            return ReadParts(id, record);
        }
        record.resize(SizeOf(record));
        return response;
    }

    /// Reads what is missing of @p record.
    Response ReadParts(std::uint16_t id, RawRecord& record) {
        bool isBeginningRefused = false;
        for (;;) {
            // How long the record is stands in its header; who asks beyond the end may be refused.
            const bool isLengthKnown = record.size() >= c_headerSize;
            const std::size_t wanted = isLengthKnown        ? SizeOf(record) - record.size()
                                       : isBeginningRefused ? c_headerSize - record.size()
                                                            : m_part;
            const std::size_t count = std::min(wanted, m_part);
            Response response = Get(id, record.size(), count);
            if (IsTooMuch(response) && !isLengthKnown && !isBeginningRefused) {
                isBeginningRefused = true;
                continue;
            }
            if (IsTooMuch(response) && count > c_smallPart) {
                m_part = c_smallPart;
                continue;
            }
            if (response.completionCode != c_completed) {
                return response;
            }
            if (response.data.empty()) {
                throw qstd::Exception(
                    fmt::format("{}: sensor record 0x{:04x} ends after {} bytes", m_who, id, record.size()));
            }
            const std::size_t taken = std::min(count, response.data.size());
            record.insert(record.end(), response.data.begin(),
                          response.data.begin() + static_cast<std::ptrdiff_t>(taken));
            if (record.size() >= c_headerSize && record.size() >= SizeOf(record)) {
                record.resize(SizeOf(record));
                return response;
            }
        }
    }

    static std::size_t SizeOf(const RawRecord& record) { return c_headerSize + record[c_headerSize - 1]; }

    Link& m_link;
    const Commands m_commands;
    const std::uint8_t m_lun;
    const std::string m_who;
    std::minstd_rand m_random{std::random_device{}()};
    std::uint16_t m_reservation = 0;
    std::uint16_t m_next = c_endOfRecords;
    bool m_isWholeGiven = true;
    std::size_t m_part = c_greatPart;
};

}  // namespace

std::optional<RepositoryStamp> ReadStamp(Link& link, RepositoryKind_e kind, const std::string& who) {
    const Commands commands = CommandsOf(kind);
    const Request request(commands.netFn, commands.info);
    const Response response = link.Execute(request, Purpose_e::sweeping);
    if (IsUnknown(response)) {
        return std::nullopt;
    }
    const std::string what = who + ": " + CommandName(request);
    if (kind == RepositoryKind_e::device) {
        const auto& data = ExpectData(response, 2, what);
        return RepositoryStamp{
            {data.begin(), data.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(data.size(), 6))}};
    }
    // Version, count (2); free space (2) says nothing; additions (4), erasures (4).
    const auto& data = ExpectData(response, 13, what);
    RepositoryStamp stamp{{data.begin(), data.begin() + 3}};
    stamp.bytes.insert(stamp.bytes.end(), data.begin() + 5, data.begin() + 13);
    return stamp;
}

std::optional<Repository> ReadRepository(Link& link, RepositoryKind_e kind, const std::string& who) {
    auto stamp = ReadStamp(link, kind, who);
    for (int i = 0; i < c_mostReadings; ++i) {
        if (!stamp) {
            return std::nullopt;
        }
        std::vector<RawRecord> records;
        for (const std::uint8_t lun : UnitsOf(kind, *stamp)) {
            Reader(link, kind, lun, who).ReadInto(records);
        }
        auto after = ReadStamp(link, kind, who);
        if (after == stamp) {
            return Repository{*stamp, std::move(records)};
        }
        stamp = std::move(after);
    }
    throw qstd::Exception(
        fmt::format("{}: the sensor records changed each of {} times that they were read", who, c_mostReadings));
}

std::optional<RepositoryStamp> RepositoryStore::ReadStamp() const {
    return ipmi::ReadStamp(m_controller, RepositoryKind_e::main, m_name);
}

std::shared_ptr<const Repository> RepositoryStore::Read() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_last && ReadStamp() == m_last->stamp) {
        return m_last;
    }
    auto repository = ReadRepository(m_controller, RepositoryKind_e::main, m_name);
    m_last = repository ? std::make_shared<const Repository>(std::move(*repository)) : nullptr;
    return m_last;
}

}  // namespace bmc::ipmi
