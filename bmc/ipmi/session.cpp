#include "bmc/ipmi/session.h"

#include <exception>
#include <utility>

#include "qstd/clock.h"

namespace bmc::ipmi {

namespace {

SteadyTime SteadyNow() {
    return qstd::Clock::Get().SteadyNow();
}

SteadyTime HalfWayTo(SteadyTime deadline) {
    const SteadyTime now = SteadyNow();
    return now + (deadline - now) / 2;
}

/// Where a session that is opened before @p deadline must be open, so that there is time to use it.
SteadyTime OpeningEnd(SteadyTime deadline) {
    const SteadyTime now = SteadyNow();
    return now + (deadline - now) * 3 / 4;
}

const Request& WhoAreYou() {
    // Get Device ID: every controller has it, every account may. Never destroyed: threads end late.
    static const auto* const request = new Request(NetFn_e::app, 0x01);
    return *request;
}

/// Codes by which the controller says that the board behind it did not take or answer the request.
bool SaysSilent(std::uint8_t completionCode) {
    return completionCode == c_lostArbitration || completionCode == c_busError || completionCode == c_noAcknowledge ||
           completionCode == c_timeout;
}

}  // namespace

ExchangeResult Session::Establish(std::chrono::milliseconds time) {
    const SteadyTime deadline = SteadyNow() + time;
    ExchangeResult result = Open(OpeningEnd(deadline));
    if (result.verdict == Verdict_e::answered) {
        result = Try(Target{}, WhoAreYou(), Sending_e::repeated, deadline);
        if (result.verdict == Verdict_e::undecided && !result.IsInterrupted()) {
            result.verdict = Verdict_e::controllerSilent;
        }
    }
    return result;
}

ExchangeResult Session::Read(const Target& target, const Request& request, const TryTimes& times) {
    const SteadyTime begin = SteadyNow();
    const SteadyTime end = begin + times.whole;
    ExchangeResult result = Try(target, request, Sending_e::repeated, begin + times.first);
    if (result.verdict == Verdict_e::boardSilent && result.wasSent) {
        // A bus that was busy or disturbed at that moment.
        result = Try(target, request, Sending_e::repeated, begin + times.first);
    }
    if (result.verdict != Verdict_e::undecided || result.IsInterrupted()) {
        return result;
    }
    // The controller may have dropped the session.
    ExchangeResult opened = Open(OpeningEnd(end));
    if (opened.verdict != Verdict_e::answered) {
        opened.wasSent = true;
        return opened;
    }
    // Who tells his name and then leaves the request unanswered is not silent: it is this request that he cannot take.
    // Nobody else who asks him, and nobody who switches him off, is to fail because of it.
    ExchangeResult name = Try(target, WhoAreYou(), Sending_e::repeated, HalfWayTo(end));
    if (name.verdict != Verdict_e::answered) {
        if (name.verdict == Verdict_e::undecided && !name.IsInterrupted() &&
            name.failure != TransportFailure_e::broken) {
            name.verdict = target.IsBridged() ? Verdict_e::boardSilent : Verdict_e::controllerSilent;
        }
        return name;
    }
    return Try(target, request, Sending_e::repeated, end);
}

ExchangeResult Session::Write(const Target& target, const Request& request, const TryTimes& times) {
    const SteadyTime begin = SteadyNow();
    ExchangeResult result = Try(target, request, Sending_e::once, begin + times.first);
    if (result.verdict == Verdict_e::boardSilent && result.wasSent) {
        result.verdict = Verdict_e::undecided;
    }
    if (m_isOpen || result.IsInterrupted()) {
        return result;
    }
    ExchangeResult opened = Open(begin + times.whole);
    if (opened.verdict == Verdict_e::controllerSilent) {
        opened.wasSent = true;
        return opened;
    }
    return result;
}

ExchangeResult Session::Probe(const Target& target, std::chrono::milliseconds time) {
    ExchangeResult result = Try(target, WhoAreYou(), Sending_e::once, SteadyNow() + time);
    if (result.verdict == Verdict_e::undecided && !result.IsInterrupted()) {
        result.verdict = Verdict_e::boardSilent;
    }
    return result;
}

void Session::ExpectStrayInterrupt() noexcept {
    m_isOpen = false;
    m_mayBeInterruptedByStray = true;
}

void Session::Close(SteadyTime deadline) noexcept {
    if (std::exchange(m_isOpen, false)) {
        m_transport.Close(deadline);
    }
}

ExchangeResult Session::Open(SteadyTime deadline) {
    m_isOpen = false;
    for (;;) {
        const bool mayRepeat = std::exchange(m_mayBeInterruptedByStray, false);
        try {
            m_transport.Open(deadline);
            m_isOpen = true;
            return {Verdict_e::answered};
        } catch (const TransportError& error) {
            const bool isInterrupted = error.GetFailure() == TransportFailure_e::interrupted;
            if (!isInterrupted || !mayRepeat) {
                return {isInterrupted ? Verdict_e::undecided : Verdict_e::controllerSilent,
                        {},
                        error.GetFailure(),
                        error.what()};
            }
        } catch (const std::exception& error) {
            return {Verdict_e::controllerSilent, {}, TransportFailure_e::system, error.what()};
        }
    }
}

ExchangeResult Session::Try(const Target& target, const Request& request, Sending_e sending, SteadyTime deadline) {
    try {
        Response response = m_transport.Exchange(target, request, sending, deadline);
        if (response.isOfBridge && SaysSilent(response.completionCode)) {
            return {Verdict_e::boardSilent,
                    {},
                    TransportFailure_e::noAnswer,
                    CompletionText(response.completionCode),
                    response.completionCode != c_noAcknowledge};
        }
        return {Verdict_e::answered, std::move(response)};
    } catch (const TransportError& error) {
        if (target.IsBridged() && error.GetFailure() == TransportFailure_e::noAnswer) {
            // Most likely the controller lives: its place for a session is not to be used up.
            m_transport.Close(SteadyNow() + m_politeness);
        }
        m_isOpen = false;
        return {Verdict_e::undecided, {}, error.GetFailure(), error.what(), true};
    } catch (const std::exception& error) {
        m_isOpen = false;
        return {Verdict_e::undecided, {}, TransportFailure_e::broken, error.what(), true};
    }
}

}  // namespace bmc::ipmi
