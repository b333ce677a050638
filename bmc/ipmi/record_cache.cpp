#include "bmc/ipmi/record_cache.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <boost/crc.hpp>

#include "qstd/descriptor.h"

namespace bmc::ipmi {

namespace {

constexpr std::string_view c_magic = "zelkor-sdr\n";
constexpr std::uint8_t c_version = 1;
constexpr std::size_t c_mostRecords = 4096;
constexpr std::size_t c_mostRecordSize = 5 + 255;
constexpr std::size_t c_mostTextSize = 4096;
constexpr std::size_t c_mostFileSize = 2 * c_mostTextSize + c_mostRecords * (2 + c_mostRecordSize) + 1024;

// Numbers are stored with the low byte first, strings of bytes after their length in two bytes.

void Put(std::string& bytes, std::uint64_t number, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) {
        bytes += static_cast<char>((number >> (8 * i)) & 0xffU);
    }
}

template <typename Bytes>
void PutString(std::string& bytes, const Bytes& text) {
    Put(bytes, text.size(), 2);
    bytes.append(text.begin(), text.end());
}

std::uint32_t Crc(std::string_view bytes) {
    boost::crc_32_type crc;
    crc.process_bytes(bytes.data(), bytes.size());
    return crc.checksum();
}

/// Takes numbers and strings off the front of bytes. Once they are at their end it gives zeros and is not good any
/// more.
class Taker {
public:
    explicit Taker(std::string_view bytes) : m_rest(bytes) {}

    std::string_view Take(std::size_t size) {
        m_isGood = m_isGood && size <= m_rest.size();
        if (!m_isGood) {
            return {};
        }
        const std::string_view taken = m_rest.substr(0, size);
        m_rest.remove_prefix(size);
        return taken;
    }

    std::uint32_t TakeNumber(std::size_t size) {
        std::uint32_t number = 0;
        std::size_t shift = 0;
        for (const char byte : Take(size)) {
            number |= static_cast<std::uint32_t>(static_cast<std::uint8_t>(byte)) << shift;
            shift += 8;
        }
        return number;
    }

    std::string_view TakeString(std::size_t mostSize) {
        const std::size_t size = TakeNumber(2);
        m_isGood = m_isGood && size <= mostSize;
        return Take(size);
    }

    bool IsGood() const { return m_isGood; }
    bool IsAtEnd() const { return m_isGood && m_rest.empty(); }

private:
    std::string_view m_rest;
    bool m_isGood = true;
};

std::optional<std::string> ReadSmallFile(const std::string& path) {
    const qstd::Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat status {};
    if (file.Get() < 0 || ::fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        (status.st_uid != ::geteuid() && status.st_uid != 0) || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0 ||
        static_cast<std::uint64_t>(status.st_size) > c_mostFileSize) {
        return std::nullopt;
    }
    std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
    std::size_t size = 0;
    while (size < bytes.size()) {
        const ssize_t got = ::read(file.Get(), bytes.data() + size, bytes.size() - size);
        if (got <= 0 && !(got < 0 && errno == EINTR)) {
            return std::nullopt;
        }
        size += got > 0 ? static_cast<std::size_t>(got) : 0;
    }
    return bytes;
}

bool WriteAll(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t put = ::write(descriptor, bytes.data(), bytes.size());
        if (put < 0 && errno != EINTR) {
            return false;
        }
        bytes.remove_prefix(put > 0 ? static_cast<std::size_t>(put) : 0);
    }
    return true;
}

/// Writes a file of that name in one step: whoever looks sees the old one or the new one. @return errno, 0 for done
int ReplaceFile(const std::string& path, std::string_view bytes) {
    std::string temporary = path + ".XXXXXX";
    const qstd::Descriptor file(::mkostemp(temporary.data(), O_CLOEXEC));  // mode 0600
    if (file.Get() < 0) {
        return errno;
    }
    if (WriteAll(file.Get(), bytes) && ::rename(temporary.c_str(), path.c_str()) == 0) {
        return 0;
    }
    const int reason = errno;
    ::unlink(temporary.c_str());
    return reason;
}

}  // namespace

std::string EncodeCacheFile(const std::string& place, const BoardRecords& records) {
    std::string bytes(c_magic);
    Put(bytes, c_version, 1);
    PutString(bytes, place);
    Put(bytes, static_cast<std::uint8_t>(records.origin), 1);
    PutString(bytes, records.fingerprint);
    Put(bytes, records.records.size(), 2);
    for (const RawRecord& record : records.records) {
        PutString(bytes, record);
    }
    Put(bytes, Crc(bytes), 4);
    return bytes;
}

std::optional<BoardRecords> DecodeCacheFile(std::string_view bytes, const std::string& place) {
    constexpr std::size_t c_crcSize = 4;
    if (bytes.size() < c_magic.size() + c_crcSize || bytes.substr(0, c_magic.size()) != c_magic ||
        Taker(bytes.substr(bytes.size() - c_crcSize)).TakeNumber(c_crcSize) !=
            Crc(bytes.substr(0, bytes.size() - c_crcSize))) {
        return std::nullopt;
    }
    Taker taker(bytes.substr(c_magic.size(), bytes.size() - c_magic.size() - c_crcSize));
    if (taker.TakeNumber(1) != c_version || taker.TakeString(c_mostTextSize) != place) {
        return std::nullopt;
    }
    BoardRecords records;
    const std::uint32_t origin = taker.TakeNumber(1);
    if (origin > static_cast<std::uint32_t>(RecordOrigin_e::board)) {
        return std::nullopt;
    }
    records.origin = static_cast<RecordOrigin_e>(origin);
    const std::string_view fingerprint = taker.TakeString(c_mostTextSize);
    records.fingerprint.assign(fingerprint.begin(), fingerprint.end());
    const std::uint32_t count = taker.TakeNumber(2);
    for (std::uint32_t i = 0; i < std::min<std::uint32_t>(count, c_mostRecords) && taker.IsGood(); ++i) {
        const std::string_view record = taker.TakeString(c_mostRecordSize);
        records.records.emplace_back(record.begin(), record.end());
    }
    return taker.IsAtEnd() ? std::optional(std::move(records)) : std::nullopt;
}

RecordCache::RecordCache(std::string folder, LogFunction log, bool isReadOnly)
    : m_folder(std::move(folder)), m_log(std::move(log)), m_isReadOnly(isReadOnly) {
    if (!m_folder.empty() && !m_isReadOnly) {
        ::mkdir(m_folder.c_str(), S_IRWXU);  // one that cannot be made shows at the first Store
    }
}

std::optional<BoardRecords> RecordCache::Load(const std::string& label, const std::string& place) const {
    if (m_folder.empty()) {
        return std::nullopt;
    }
    const auto bytes = ReadSmallFile(PathOf(label));
    return bytes ? DecodeCacheFile(*bytes, place) : std::nullopt;
}

void RecordCache::Store(const std::string& label, const std::string& place, const BoardRecords& records) {
    if (m_folder.empty() || m_isReadOnly) {
        return;
    }
    const std::string path = PathOf(label);
    const int reason = ReplaceFile(path, EncodeCacheFile(place, records));
    if (reason != 0 && !m_isProblemTold.exchange(true)) {
        m_log(qstd::LogLevel_e::warning,
              "Sensor records cannot be kept in " + path + ": " + std::generic_category().message(reason));
    }
}

std::string RecordCache::PathOf(const std::string& label) const {
    std::string name = label;
    std::replace(name.begin(), name.end(), '/', '_');
    return m_folder + "/" + name + ".sdr";
}

}  // namespace bmc::ipmi
