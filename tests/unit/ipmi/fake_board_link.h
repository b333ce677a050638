#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "bmc/ipmi/failures.h"
#include "bmc/ipmi/link.h"

/// A board's controller with power, clock and registers, behind a link that loses what it is told to lose.
class FakeBoardLink : public bmc::ipmi::Link {
public:
    using Response = bmc::ipmi::Response;
    using Request = bmc::ipmi::Request;

    /// What becomes of the next request that changes something.
    enum class Loss_e {
        none,
        request,  ///< lost on its way: not executed, no answer
        answer,   ///< executed, but the answer is lost
        both,     ///< nothing was sent, because the board is known not to answer
    };

    Response Execute(const Request& request, bmc::ipmi::Purpose_e purpose) override {
        m_requests.emplace_back(request, purpose);
        if (m_isSilent) {
            throw bmc::ipmi::NoAnswer("io/1: no answer", false);
        }
        const bool isChange = purpose == bmc::ipmi::Purpose_e::writing || purpose == bmc::ipmi::Purpose_e::switching;
        Loss_e loss = Loss_e::none;
        if (isChange && !m_losses.empty()) {
            loss = m_losses.front();
            m_losses.pop_front();
        }
        if (loss == Loss_e::request || loss == Loss_e::both) {
            throw bmc::ipmi::NoAnswer("io/1: no answer", loss == Loss_e::request);
        }
        const Response response = Answer(request);
        if (loss == Loss_e::answer) {
            throw bmc::ipmi::NoAnswer("io/1: no answer", true);
        }
        return response;
    }

    std::unique_ptr<bmc::ipmi::Batch> Begin(std::vector<Request> /*requests*/) override { return nullptr; }
    std::optional<bool> IsAnswering() const override { return !m_isSilent; }
    unsigned long GetReturns() const override { return 0; }

    /// How often requests of that command were sent, executed or not.
    std::size_t Count(std::uint8_t netFn, std::uint8_t command) const {
        std::size_t count = 0;
        for (const auto& [request, purpose] : m_requests) {
            count += request.netFn == netFn && request.command == command ? 1 : 0;
        }
        return count;
    }

    std::vector<std::pair<Request, bmc::ipmi::Purpose_e>> m_requests;
    std::deque<Loss_e> m_losses;
    bool m_isSilent = false;
    std::map<std::pair<int, int>, Response> m_fixed;  ///< answers to commands that say the same every time

    std::vector<std::uint8_t> m_chassis{0x01, 0x00, 0x40};
    int m_statusReadsUntilOff = 0;  ///< power goes off some reads after it was told to
    bool m_obeys = true;            ///< executes what changes something; else only says so
    std::vector<std::uint8_t> m_clock{0, 0, 0, 0};
    std::map<std::uint16_t, std::uint16_t> m_registers;

private:
    Response Answer(const Request& request) {
        const auto fixed = m_fixed.find({request.netFn, request.command});
        if (fixed != m_fixed.end()) {
            return fixed->second;
        }
        const auto& data = request.data;
        switch (request.netFn << 8 | request.command) {
            case 0x0001:
                if (m_isGoingOff && m_statusReadsUntilOff-- <= 0) {
                    m_chassis[0] &= 0xfe;
                }
                return {0, m_chassis};
            case 0x0002:
                m_isGoingOff = m_obeys && data.at(0) == 0;
                return {};
            case 0x0a48:
                return {0, m_clock};
            case 0x0a49:
                if (m_obeys) {
                    m_clock = data;
                }
                return {};
            case 0x3010: {
                const std::uint16_t value = m_registers[Word(data, 0)];
                return {0, {static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value & 0xff)}};
            }
            case 0x3011:
                if (m_obeys) {
                    m_registers[Word(data, 0)] = Word(data, 2);
                }
                return {};
            default:
                return {0xc1, {}};
        }
    }

    static std::uint16_t Word(const std::vector<std::uint8_t>& data, std::size_t at) {
        return static_cast<std::uint16_t>(data.at(at) << 8 | data.at(at + 1));
    }

    bool m_isGoingOff = false;
};
