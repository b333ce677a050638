#include "qreg/guarded_access.h"

#include <optional>
#include <string>
#include <utility>
#include <variant>

#include "qreg/path_names.h"
#include "qstd/log.h"

namespace qreg {

namespace {

constexpr std::size_t c_refusalsPerMinute = 10;
constexpr std::size_t c_longestPath = 200;
constexpr std::size_t c_longestValue = 80;
constexpr std::size_t c_longestReason = 300;

/// What a client says in quotation marks, so that it does not read as words of the log: a value that ends in
/// " by 10.0.0.1" names nobody.
std::string Quoted(const std::string& text, std::size_t most) {
    std::string quoted = "\"";
    for (const char letter : ForLog(text, most)) {
        quoted += letter == '"' || letter == '\\' ? "\\" : "";
        quoted += letter;
    }
    return quoted + '"';
}

/// As the tree writes it: slashes more than needed could hide the node's name behind the end of what is shown.
std::string PathText(std::string_view path) {
    std::string plain;
    PathNames names(path);
    for (std::string_view name; names.Next(name);) {
        plain += plain.empty() ? "" : "/";
        plain += name;
    }
    const bool isPlain = !plain.empty() && plain.find_first_of(" \"\\") == std::string::npos;
    return isPlain ? ForLog(plain, c_longestPath) : Quoted(plain, c_longestPath);
}

std::string ShownValue(const qnode::Value& value) {
    if (const auto* text = std::get_if<std::string>(&value)) {
        return Quoted(*text, c_longestValue);
    }
    return qnode::TypeOf(value) == qnode::enums::ValueType_e::empty ? "no value" : qnode::ToText(value);
}

/// Whether the node itself was asked, and has perhaps done something.
bool HasReachedNode(ErrorCode_e code) {
    return code == ErrorCode_e::ok || code == ErrorCode_e::failed;
}

}  // namespace

GuardedAccess::GuardedAccess(const Access& access, ClientList mayRead, ClientList mayWrite,
                             std::chrono::milliseconds patience)
    : m_access(access),
      m_mayRead(std::move(mayRead)),
      m_mayWrite(std::move(mayWrite)),
      m_before(access, patience),
      m_refusals(c_refusalsPerMinute) {}

bool GuardedAccess::MayRead(const Peer& peer) const {
    return m_mayRead.IsEmpty() || m_mayRead.Contains(peer) || m_mayWrite.Contains(peer);
}

bool GuardedAccess::MayWrite(const Peer& peer) const {
    return m_mayWrite.IsEmpty() ? MayRead(peer) : m_mayWrite.Contains(peer);
}

void GuardedAccess::RefuseToRead(const Peer& peer, std::string_view path) const {
    if (MayRead(peer)) {
        return;
    }
    m_refusals.Warning("Refused to read " + (path.empty() ? "" : PathText(path) + " ") + "for " + peer.ToText() +
                       ", which may not read");
    throw RegistryError(ErrorCode_e::denied, std::string(path), "Clients at " + peer.ToText() + " may not read");
}

Outcome GuardedAccess::Write(const Peer& peer, std::string_view path, const qnode::Value& value) const {
    if (!MayWrite(peer)) {
        m_refusals.Warning("Refused to write " + PathText(path) + " = " + ShownValue(value) + " for " + peer.ToText() +
                           ", which may not write");
        return {ErrorCode_e::denied, {}, "Clients at " + peer.ToText() + " may not write"};
    }
    const std::string shownPath = PathText(path);
    // Until the line is written: the log tells of writes in their order, each from the value that the last one left.
    const WriteTurns::Turn turn(m_turns, shownPath);
    const std::string before = ValueBeforeText(path);
    Outcome outcome = m_access.Write(path, value);
    if (!HasReachedNode(outcome.code)) {
        TellRefusal(peer, path, ShownValue(value), outcome.text);
    } else if (outcome.code == ErrorCode_e::ok) {
        qstd::LogInfo("Registry: " + shownPath + " set from " + before + " to " + ShownValue(value) + " by " +
                      peer.ToText());
    } else {
        qstd::LogWarning("Registry: " + shownPath + " not set from " + before + " to " + ShownValue(value) + " for " +
                         peer.ToText() + ": " + ForLog(outcome.text, c_longestReason));
    }
    return outcome;
}

void GuardedAccess::TellRefusal(const Peer& peer, std::string_view path, const std::string& value,
                                const std::string& reason) const {
    m_refusals.Warning("Refused to write " + PathText(path) + " = " + value + " for " + peer.ToText() + ": " +
                       ForLog(reason, c_longestReason));
}

std::string GuardedAccess::ValueBeforeText(std::string_view path) const {
    const std::optional<Outcome> outcome = m_before.Read(path);
    if (outcome && outcome->code == ErrorCode_e::ok) {
        return ShownValue(outcome->value);
    }
    return outcome && outcome->code == ErrorCode_e::no_value ? "no value" : "unknown";
}

}  // namespace qreg
