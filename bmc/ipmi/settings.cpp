#include "bmc/ipmi/settings.h"

#include <arpa/inet.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <tuple>
#include <utility>

#include "bmc/ipmi/configuration_rule.h"
#include "qcfg/checker.h"
#include "qcfg/element_reader.h"
#include "qstd/exception.h"

namespace bmc::ipmi {

namespace {

using qcfg::ElementReader;

constexpr std::size_t c_maxUserSize = 16;
constexpr const char* c_defaultCacheFolder = "/var/cache/zelkor";

std::string Environment(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? std::string() : value;
}

/// The number of an attribute, proved before, decimal or hexadecimal with "0x".
unsigned int Number(const ElementReader& reader, const char* name, unsigned int fallback) {
    const std::string text = reader.Text(name, {});
    if (text.empty()) {
        return fallback;
    }
    return static_cast<unsigned int>(std::stoul(text, nullptr, text.compare(0, 2, "0x") == 0 ? 16 : 10));
}

/// The address in the one form in which addresses can be compared.
std::string Canonical(const ElementReader& reader, const std::string& host) {
    in6_addr address{};
    std::array<char, INET6_ADDRSTRLEN> text{};
    const int family = ::inet_pton(AF_INET, host.c_str(), &address) == 1 ? AF_INET : AF_INET6;
    if (family == AF_INET6) {
        ::inet_pton(AF_INET6, host.c_str(), &address);
        if (IN6_IS_ADDR_LINKLOCAL(&address)) {
            reader.Refuse("attribute \"host\" of <board>: \"" + host +
                          "\" is a link-local address, which says nothing without a network interface");
        }
    }
    const bool isMapped = family == AF_INET6 && IN6_IS_ADDR_V4MAPPED(&address);
    const bool isAny = family == AF_INET6 ? IN6_IS_ADDR_UNSPECIFIED(&address) : address.s6_addr32[0] == INADDR_ANY;
    if (isMapped || isAny) {
        reader.Refuse("attribute \"host\" of <board>: \"" + host + "\" is not the address of one host" +
                      (isMapped ? "; write the IPv4 address in it by itself" : ""));
    }
    return ::inet_ntop(family, &address, text.data(), text.size());
}

/// Reads one section: what has been seen so far makes duplicates and contradictions known.
class SettingsReader {
public:
    SettingsReader(const std::string& configFile, Passwords_e passwords)
        : m_configFile(configFile), m_passwords(passwords) {}

    Settings Read(const qcfg::Element& section);

private:
    struct ControllerPlace {
        std::size_t index;
        int line;  ///< of the first board that it is of
    };

    void ReadBoard(const qcfg::Element& element);
    void ProveUnique(const ElementReader& reader, int line, const BoardSettings& board);
    std::size_t ReadController(const ElementReader& reader, int line);
    ControllerSettings ReadLan(const ElementReader& reader) const;
    ControllerSettings ReadDevice(const ElementReader& reader) const;
    PasswordSource ReadPasswordSource(const ElementReader& reader) const;
    Target ReadTarget(const ElementReader& reader) const;
    std::optional<FpgaTemplate> ReadFpga(const qcfg::Element& board) const;
    std::string Resolve(const std::string& path) const;

    const std::string& m_configFile;
    const Passwords_e m_passwords;
    std::chrono::milliseconds m_timeout{};
    unsigned int m_retries = 0;
    Settings m_settings;
    std::map<std::string, int> m_uriLines;
    std::map<std::string, int> m_labelLines;
    std::map<std::string, int> m_nameLines;
    std::map<std::string, ControllerPlace> m_controllers;  ///< by ControllerSettings::Name
    std::map<std::tuple<std::size_t, std::uint8_t, std::uint8_t>, int> m_targetLines;
};

Settings SettingsReader::Read(const qcfg::Element& section) {
    qcfg::RefuseErrors(section, SectionRule(), m_configFile);
    const ElementReader reader(section, m_configFile);
    const ControllerSettings defaults;
    m_timeout =
        std::chrono::milliseconds(Number(reader, "timeout", static_cast<unsigned int>(defaults.timeout.count())));
    m_retries = Number(reader, "retries", defaults.retries);
    if (!reader.Has("cache")) {
        const std::string managed = Environment("CACHE_DIRECTORY");
        m_settings.cacheFolder = managed.empty() ? c_defaultCacheFolder : managed.substr(0, managed.find(':'));
    } else if (const std::string cache = reader.Text("cache", {}); cache != "none") {
        m_settings.cacheFolder = Resolve(cache);
    }
    for (const auto& child : section.GetChildren()) {
        ReadBoard(*child);
    }
    if (m_settings.boards.empty()) {
        reader.Refuse("<boards backend=\"ipmi\"> has no <board>; at least one must be there");
    }
    return std::move(m_settings);
}

void SettingsReader::ReadBoard(const qcfg::Element& element) {
    const ElementReader reader(element, m_configFile);
    BoardSettings board;
    board.uri = Uri::Parse(reader.RequiredText("uri"));
    board.type = reader.Enum("type", board.type);
    if (board.type == BoardType_e::none) {
        reader.Refuse("attribute \"type\" of <board>: no board is of type \"none\"");
    }
    board.name = reader.RequiredText("name");
    board.prefix = reader.Text("prefix", {});
    ProveUnique(reader, element.GetLine(), board);
    board.controller = ReadController(reader, element.GetLine());
    board.target = ReadTarget(reader);
    const auto [other, isNew] = m_targetLines.emplace(
        std::make_tuple(board.controller, board.target.address, board.target.channel), element.GetLine());
    if (!isNew) {
        reader.Refuse("board " + board.uri.ToString() + " is the same controller as the board in line " +
                      std::to_string(other->second) + ": " + m_settings.controllers[board.controller].Name() +
                      " with the same \"ipmb\" and \"channel\"");
    }
    board.fpga = ReadFpga(element);
    m_settings.boards.push_back(std::move(board));
}

void SettingsReader::ProveUnique(const ElementReader& reader, int line, const BoardSettings& board) {
    const auto refuseSecond = [&](std::map<std::string, int>& lines, const std::string& key, const std::string& text) {
        const auto [other, isNew] = lines.emplace(key, line);
        if (!isNew) {
            reader.Refuse(text + ", as the one in line " + std::to_string(other->second));
        }
    };
    const std::string uri = board.uri.ToString();
    const std::string label = BoardLabel(board.uri);
    refuseSecond(m_uriLines, uri, "second board with the uri " + uri);
    // Messages could not tell the two apart, and they would share one sensor log.
    refuseSecond(m_labelLines, label, "board " + uri + " has the label " + label);
    refuseSecond(m_nameLines, board.name, "board " + uri + " has the name " + ElementReader::Quoted(board.name));
}

/// @return the index of the controller, which may be that of a board before
std::size_t SettingsReader::ReadController(const ElementReader& reader, int line) {
    if (reader.Has("host") == reader.Has("device")) {
        reader.Refuse(reader.Has("host") ? "<board> has both \"host\" and \"device\"; one of them says the way to it"
                                         : "<board> needs the attribute \"host\" or \"device\"");
    }
    ControllerSettings controller = reader.Has("host") ? ReadLan(reader) : ReadDevice(reader);
    controller.timeout = m_timeout;
    controller.retries = m_retries;
    const auto [place, isNew] =
        m_controllers.emplace(controller.Name(), ControllerPlace{m_settings.controllers.size(), line});
    if (isNew) {
        m_settings.controllers.push_back(std::move(controller));
        return place->second.index;
    }
    const ControllerSettings& first = m_settings.controllers[place->second.index];
    const std::array<std::pair<const char*, bool>, 4> common = {{
        {"user", first.user == controller.user},
        {controller.password.isCredential ? "password-credential" : "password-file",
         first.password == controller.password},
        {"privilege", first.privilege == controller.privilege},
        {"cipher", first.cipherSuite == controller.cipherSuite},
    }};
    for (const auto& [attribute, isSame] : common) {
        if (!isSame) {
            reader.Refuse(std::string("attribute \"") + attribute + "\" of <board> says something else than that of " +
                          "the board in line " + std::to_string(place->second.line) + ", with which it shares " +
                          controller.Name());
        }
    }
    return place->second.index;
}

ControllerSettings SettingsReader::ReadLan(const ElementReader& reader) const {
    ControllerSettings controller;
    controller.host = Canonical(reader, reader.RequiredText("host"));
    controller.port = static_cast<std::uint16_t>(Number(reader, "port", controller.port));
    if (!reader.Has("user")) {
        reader.Refuse("<board> with \"host\" needs the attribute \"user\"");
    }
    controller.user = reader.RequiredText("user");
    if (controller.user.size() > c_maxUserSize) {
        reader.Refuse("attribute \"user\" of <board>: " + ElementReader::Quoted(controller.user) + " has " +
                      std::to_string(controller.user.size()) + " bytes, the limit is " + std::to_string(c_maxUserSize));
    }
    controller.password = ReadPasswordSource(reader);
    controller.privilege = reader.Enum("privilege", controller.privilege);
    controller.cipherSuite = static_cast<std::uint8_t>(Number(reader, "cipher", controller.cipherSuite));
    return controller;
}

ControllerSettings SettingsReader::ReadDevice(const ElementReader& reader) const {
    for (const char* const name : {"port", "user", "password-file", "password-credential", "privilege", "cipher"}) {
        if (reader.Has(name)) {
            reader.Refuse(std::string("attribute \"") + name + "\" of <board> goes with \"host\", not with \"device\"");
        }
    }
    ControllerSettings controller;
    controller.device = std::filesystem::path(reader.RequiredText("device")).lexically_normal().string();
    if (controller.device.front() != '/') {
        reader.Refuse("attribute \"device\" of <board>: " + ElementReader::Quoted(controller.device) +
                      " is not an absolute path");
    }
    return controller;
}

PasswordSource SettingsReader::ReadPasswordSource(const ElementReader& reader) const {
    PasswordSource source;
    source.isCredential = reader.Has("password-credential");
    if (source.isCredential == reader.Has("password-file")) {
        reader.Refuse(source.isCredential ? "<board> has both \"password-file\" and \"password-credential\""
                                          : "<board> with \"host\" needs the attribute \"password-file\" or "
                                            "\"password-credential\"");
    }
    if (source.isCredential) {
        const std::string name = reader.RequiredText("password-credential");
        const std::string subject = "attribute \"password-credential\" of <board>: ";
        if (name.find('/') != std::string::npos || name == "." || name == "..") {
            reader.Refuse(subject + ElementReader::Quoted(name) + " is not the name of a credential");
        }
        const std::string folder = Environment("CREDENTIALS_DIRECTORY");
        if (folder.empty()) {
            reader.Refuse(subject +
                          "the service manager has handed over no credentials (CREDENTIALS_DIRECTORY is not "
                          "set)");
        }
        source.path = folder + "/" + name;
    } else {
        source.path = Resolve(reader.RequiredText("password-file"));
    }
    if (m_passwords == Passwords_e::leftForSessions) {
        return source;
    }
    try {
        ReadPassword(source);
    } catch (const qstd::Exception& error) {
        reader.Refuse(error.what());
    }
    return source;
}

Target SettingsReader::ReadTarget(const ElementReader& reader) const {
    Target target;
    target.address = static_cast<std::uint8_t>(Number(reader, "ipmb", target.address));
    target.channel = static_cast<std::uint8_t>(Number(reader, "channel", target.channel));
    if (target.address % 2 != 0) {
        reader.Refuse("attribute \"ipmb\" of <board>: " + ElementReader::Quoted(reader.RequiredText("ipmb")) +
                      " is odd; slave addresses are even");
    }
    if (!target.IsBridged() && target.channel != 0) {
        reader.Refuse(
            "attribute \"channel\" of <board> is for a board behind the controller, with another \"ipmb\" than "
            "0x20");
    }
    return target;
}

std::optional<FpgaTemplate> SettingsReader::ReadFpga(const qcfg::Element& board) const {
    const std::shared_ptr<qcfg::Element> element = board.FindChild("fpga");
    if (element == nullptr) {
        return std::nullopt;
    }
    const ElementReader reader(*element, m_configFile);
    const std::string read = reader.RequiredText("read");
    const std::string write = reader.RequiredText("write");
    const std::string reply = reader.RequiredText("reply");
    std::optional<FpgaTemplate> fpga;
    try {
        fpga.emplace(read, write, reply);
    } catch (const qstd::Exception& error) {
        reader.Refuse(error.what());
    }
    if (reader.Has("revision")) {
        fpga->SetRevisionRegister(static_cast<std::uint16_t>(Number(reader, "revision", 0)));
    }
    return fpga;
}

std::string SettingsReader::Resolve(const std::string& path) const {
    return std::filesystem::absolute(std::filesystem::path(m_configFile).parent_path() / path)
        .lexically_normal()
        .string();
}

}  // namespace

std::string ControllerSettings::Name() const {
    if (!device.empty()) {
        return device;
    }
    const bool isV6 = host.find(':') != std::string::npos;
    return (isV6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

Settings ReadSettings(const qcfg::Element& section, const std::string& configFile, Passwords_e passwords) {
    return SettingsReader(configFile, passwords).Read(section);
}

}  // namespace bmc::ipmi

namespace qstd {

template <>
const BiMap<bmc::ipmi::Privilege_e> EnumMap<bmc::ipmi::Privilege_e>::items{
    {bmc::ipmi::Privilege_e::user, "user"},
    {bmc::ipmi::Privilege_e::operator_, "operator"},
    {bmc::ipmi::Privilege_e::administrator, "administrator"},
};

}  // namespace qstd
