#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "bmc/ipmi/failures.h"
#include "bmc/ipmi/link.h"
#include "bmc/ipmi/sensor_record.h"

/// A sensor data repository that gives what it is asked for, or spoils it as it is told to.
class FakeRepository {
public:
    using Response = bmc::ipmi::Response;

    /// Adds a record and gives it the next record id.
    void Add(bmc::ipmi::RawRecord record) {
        const std::size_t id = m_records.size() + 1;
        record[0] = static_cast<std::uint8_t>(id & 0xff);
        record[1] = static_cast<std::uint8_t>(id >> 8);
        m_records.push_back(std::move(record));
        ++m_changes;
    }
    void Clear() {
        m_records.clear();
        ++m_changes;
    }

    Response Info() const {
        const auto count = static_cast<std::uint8_t>(m_records.size());
        return {0, {0x51, count, 0, 0xff, 0xff, m_changes, 0, 0, 0x60, 0, 0, 0, 0x60, 0x22}};
    }
    Response DeviceInfo() const {
        return {0, {static_cast<std::uint8_t>(m_records.size()), m_deviceFlags, m_changes, 0, 0, 0}};
    }

    Response Reserve() {
        ++m_reservation;
        return {0, {m_reservation, 0}};
    }

    Response Get(const std::vector<std::uint8_t>& data) {
        ++m_gets;
        if (m_beforeGet) {
            m_beforeGet();
        }
        if (m_lostReservations > 0) {
            --m_lostReservations;
            ++m_reservation;
            return {0xc5, {}};
        }
        const std::size_t offset = data.at(4);
        if (offset != 0 && data.at(0) != m_reservation && m_needsReservation) {
            return {0xc5, {}};
        }
        const std::size_t wanted = data.at(2) | data.at(3) << 8;
        const std::size_t index = wanted == 0 ? 0 : wanted - 1;
        if (index >= m_records.size()) {
            return {0xcb, {}};
        }
        const bmc::ipmi::RawRecord& record = m_records[index];
        const std::size_t rest = record.size() - std::min(offset, record.size());
        std::size_t count = data.at(5) == 0xff ? rest : data.at(5);
        if (count > m_mostBytes || (m_isEndStrict && count > rest)) {
            return {m_refusal, {}};
        }
        count = std::min({count, rest, m_bytesGiven});
        std::size_t next = index + 1 == m_records.size() ? 0xffff : index + 2;
        next = m_nextOf.count(wanted) != 0 ? m_nextOf[wanted] : next;
        Response response{0, {static_cast<std::uint8_t>(next & 0xff), static_cast<std::uint8_t>(next >> 8)}};
        const auto begin = record.begin() + static_cast<std::ptrdiff_t>(offset);
        response.data.insert(response.data.end(), begin, begin + static_cast<std::ptrdiff_t>(count));
        return response;
    }

    std::vector<bmc::ipmi::RawRecord> m_records;
    std::uint8_t m_changes = 1;  ///< in the stamp
    std::uint8_t m_deviceFlags = 0x81;
    std::size_t m_gets = 0;

    // What goes wrong.
    std::size_t m_mostBytes = 1000;   ///< more are refused
    std::size_t m_bytesGiven = 1000;  ///< more are not given, without a word
    std::uint8_t m_refusal = 0xca;
    bool m_isEndStrict = false;  ///< refuses to be asked beyond a record's end
    bool m_needsReservation = true;
    bool m_knowsReservations = true;
    int m_lostReservations = 0;
    std::map<std::size_t, std::size_t> m_nextOf;
    std::function<void()> m_beforeGet;

private:
    std::uint8_t m_reservation = 0;
};

/// A management controller behind a link, with repositories and sensors.
class FakeLink : public bmc::ipmi::Link {
public:
    using Request = bmc::ipmi::Request;
    using Response = bmc::ipmi::Response;

    Response Execute(const Request& request, bmc::ipmi::Purpose_e /*purpose*/) override {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_requests.push_back(request);
        if (m_isSilent) {
            throw bmc::ipmi::NoAnswer("io/1: no answer", false);
        }
        const auto fixed = m_fixed.find({request.netFn, request.command});
        return fixed != m_fixed.end() ? fixed->second : Answer(request);
    }

    std::unique_ptr<bmc::ipmi::Batch> Begin(std::vector<Request> requests) override {
        m_batchSizes.push_back(requests.size());
        return std::make_unique<FakeBatch>(*this, std::move(requests));
    }
    std::optional<bool> IsAnswering() const override { return !m_isSilent; }
    unsigned long GetReturns() const override { return 0; }

    /// How often a command was executed.
    std::size_t Count(std::uint8_t netFn, std::uint8_t command) const {
        return static_cast<std::size_t>(std::count_if(
            m_requests.begin(), m_requests.end(),
            [&](const Request& request) { return request.netFn == netFn && request.command == command; }));
    }
    void Forget() { m_requests.clear(); }

    std::optional<FakeRepository> m_main;
    std::optional<FakeRepository> m_device;
    std::optional<FakeRepository> m_secondDevice;  ///< the device SDRs of logical unit 1, if they are of their own
    std::vector<std::uint8_t> m_deviceId{0x20, 0x01, 0x02, 0x45, 0x02, 0x03, 1, 2, 3, 4, 5};
    std::optional<std::vector<std::uint8_t>> m_guid;
    std::map<int, Response> m_readings;    ///< by sensor id
    std::map<int, Response> m_thresholds;  ///< by sensor id
    std::map<int, Response> m_factors;     ///< by count
    std::map<std::pair<int, int>, Response> m_fixed;
    bool m_isSilent = false;
    std::vector<Request> m_requests;
    std::vector<std::size_t> m_batchSizes;

private:
    class FakeBatch : public bmc::ipmi::Batch {
    public:
        FakeBatch(FakeLink& controller, std::vector<Request> requests)
            : m_controller(controller), m_requests(std::move(requests)) {}
        Response Await(std::size_t index) override {
            return m_controller.Execute(m_requests.at(index), bmc::ipmi::Purpose_e::sweeping);
        }

    private:
        FakeLink& m_controller;
        std::vector<Request> m_requests;
    };

    Response Answer(const Request& request) {
        const int sensor = request.data.empty() ? 0 : request.data[0] + 256 * request.lun;
        switch (request.netFn << 8 | request.command) {
            case 0x0601:
                return {0, m_deviceId};
            case 0x0608:
                return m_guid ? Response{0, *m_guid} : Response{0xc1, {}};
            case 0x042d:
                return Look(m_readings, sensor);
            case 0x0427:
                return Look(m_thresholds, sensor);
            case 0x0423:
                return Look(m_factors, request.data.at(1));
            case 0x0a20:
                return m_main ? m_main->Info() : Response{0xc1, {}};
            case 0x0420:
                return m_device ? m_device->DeviceInfo() : Response{0xc1, {}};
            case 0x0a22:
                return m_main->m_knowsReservations ? m_main->Reserve() : Response{0xc1, {}};
            case 0x0422:
                return Device(request).Reserve();
            case 0x0a23:
                return m_main->Get(request.data);
            case 0x0421:
                return Device(request).Get(request.data);
            default:
                return {0xc1, {}};
        }
    }

    FakeRepository& Device(const Request& request) {
        return request.lun == 1 && m_secondDevice ? *m_secondDevice : *m_device;
    }

    static Response Look(const std::map<int, Response>& answers, int key) {
        const auto found = answers.find(key);
        return found == answers.end() ? Response{0xcb, {}} : found->second;
    }

    mutable std::mutex m_mutex;
};
