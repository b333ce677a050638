#include "tools/chassisctl/controller_settings.h"

#include <charconv>
#include <filesystem>
#include <memory>
#include <set>
#include <string_view>
#include <utility>

#include "qcfg/document.h"
#include "qcfg/element.h"
#include "qstd/exception.h"
#include "tools/chassisctl/sensor_text.h"

namespace chassisctl {

namespace {

/// What stands for the configuration's file: a relative path on the command line is relative to the present folder.
constexpr const char* c_noFile = "command line";

using Controller = std::map<std::string, std::string>;

/// Refuses what the options cannot mean together.
void CheckCombination(const Controller& controller) {
    const bool isLan = controller.count("host") != 0;
    if (isLan == (controller.count("device") != 0)) {
        throw qstd::Exception(isLan ? "--host and --device are two ways to a controller; give one of them"
                                    : "the way to the controller is missing: give --host or --device");
    }
    for (const char* const option : {"port", "user", "password-file", "privilege", "cipher"}) {
        if (!isLan && controller.count(option) != 0) {
            throw qstd::Exception(std::string("--") + option + " goes with --host, not with --device");
        }
    }
    for (const char* const option : {"user", "password-file"}) {
        if (isLan && controller.count(option) == 0) {
            throw qstd::Exception(std::string("--host needs --") + option);
        }
    }
}

/// The number of an address, decimal or hexadecimal with "0x"; nothing for what is no number.
std::optional<unsigned int> ParseAddress(const std::string& text) {
    constexpr int c_hexadecimal = 16;
    constexpr int c_decimal = 10;
    const bool isHexadecimal = text.starts_with("0x");
    const char* const begin = text.data() + (isHexadecimal ? 2 : 0);
    unsigned int address = 0;
    const auto [stop, error] =
        std::from_chars(begin, text.data() + text.size(), address, isHexadecimal ? c_hexadecimal : c_decimal);
    return error == std::errc() && stop == text.data() + text.size() ? std::optional(address) : std::nullopt;
}

void RefuseDuplicates(const std::vector<std::string>& addresses) {
    std::set<unsigned int> seen;
    for (const std::string& text : addresses) {
        const auto address = ParseAddress(text);
        if (address && !seen.insert(*address).second) {
            throw qstd::Exception("--ipmb " + text + " is given twice");
        }
    }
}

/// The uri of board number @p index: that of the first, its id counted up.
std::string NumberedUri(const bmc::Uri& first, std::size_t index) {
    if (index == 0) {
        return first.ToString();
    }
    const std::string& id = first.GetId();
    unsigned int number = 0;
    const auto [stop, error] = std::from_chars(id.data(), id.data() + id.size(), number);
    constexpr unsigned int c_most = 1'000'000;
    if (error != std::errc() || stop != id.data() + id.size() || number > c_most) {
        throw qstd::Exception("--uri \"" + first.ToString() + "\" with several boards must end in a number up to " +
                              std::to_string(c_most) + ", which is counted up");
    }
    return bmc::Uri(first.GetSubSystemStr(), std::to_string(number + index)).ToString();
}

/// What the controller is called when the command line does not say.
std::string ControllerName(const Controller& controller) {
    const auto host = controller.find("host");
    const std::string name =
        host != controller.end() ? host->second : std::filesystem::path(controller.at("device")).filename().string();
    return name.empty() ? "controller" : name;
}

std::shared_ptr<qcfg::Element> MakeBoard(const Controller& controller, const BoardOptions& options) {
    auto board = std::make_shared<qcfg::Element>("board");
    const auto add = [&](const char* name, const std::string& value) {
        board->AddAttr(std::make_shared<qcfg::Attribute>(name, value));
    };
    add("uri", options.uri);
    add("type", options.type);
    add("name", options.name);
    for (const auto& [name, value] : controller) {
        if (name != "timeout") {
            add(name.c_str(), value);
        }
    }
    return board;
}

/// The section of a configuration that says the same as the command line.
qcfg::Element MakeSection(const CommandLine& line, const BoardOptions& first) {
    qcfg::Element section("boards");
    section.AddAttr(std::make_shared<qcfg::Attribute>("backend", "ipmi"));
    section.AddAttr(std::make_shared<qcfg::Attribute>("cache", "none"));
    if (const auto timeout = line.controller.find("timeout"); timeout != line.controller.end()) {
        section.AddAttr(std::make_shared<qcfg::Attribute>("timeout", timeout->second));
    }
    const bmc::Uri firstUri = bmc::Uri::Parse(first.uri);
    const std::string name = first.name.empty() ? ControllerName(line.controller) : first.name;
    if (line.ipmb.empty()) {
        BoardOptions only = first;
        only.name = name;
        section.AddChild(MakeBoard(line.controller, only));
    }
    for (std::size_t index = 0; index < line.ipmb.size(); ++index) {
        BoardOptions options = first;
        options.uri = NumberedUri(firstUri, index);
        options.name = line.ipmb.size() == 1 ? name : name + "-" + line.ipmb[index];
        const auto board = MakeBoard(line.controller, options);
        board->AddAttr(std::make_shared<qcfg::Attribute>("ipmb", line.ipmb[index]));
        section.AddChild(board);
    }
    return section;
}

/// What is wrong with an attribute, said of the option of that name.
std::string OfOption(const std::string& text) {
    constexpr std::string_view c_begin = "attribute \"";
    constexpr std::string_view c_end = "\" of <board";
    const std::string place = qcfg::AtLine(c_noFile, 0, "");
    const std::string reason = text.starts_with(place) ? text.substr(place.size()) : text;
    const std::size_t end = reason.find(c_end);
    if (!reason.starts_with(c_begin) || end == std::string::npos) {
        return reason;
    }
    const std::size_t rest = reason.find('>', end);  // of <board> or <boards>
    return "--" + reason.substr(c_begin.size(), end - c_begin.size()) + reason.substr(rest + 1);
}

}  // namespace

bmc::ipmi::Settings ReadControllerSettings(const CommandLine& line, const BoardOptions& first) {
    CheckCombination(line.controller);
    RefuseDuplicates(line.ipmb);
    const qcfg::Element section = MakeSection(line, first);
    try {
        return bmc::ipmi::ReadSettings(section, c_noFile);
    } catch (const qstd::Exception& error) {
        throw qstd::Exception(OfOption(error.what()));
    }
}

}  // namespace chassisctl
