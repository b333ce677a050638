#include "bmc/uri.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "qstd/exception.h"

namespace bmc {

namespace {

bool IsNamePart(std::string_view text) {
    const auto isAllowed = [](char letter) {
        return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
               (letter >= '0' && letter <= '9') || letter == '_' || letter == '-' || letter == '.';
    };
    return !text.empty() && text.front() != '.' && std::all_of(text.begin(), text.end(), isAllowed);
}

}  // namespace

const Uri c_localIcbUri("icb", "0");

Uri::Uri(std::string text, std::string subSystem, std::string id)
    : m_text(std::move(text)), m_subSystem(std::move(subSystem)), m_id(std::move(id)) {}

Uri Uri::Parse(const std::string& text) {
    const auto slash = text.find('/');
    const std::string subSystem = text.substr(0, slash);
    const std::string id = slash == std::string::npos ? std::string() : text.substr(slash + 1);
    if (!IsNamePart(subSystem) || !IsNamePart(id)) {
        throw qstd::Exception("Bad board uri \"" + text + "\": not of the form SUBSYSTEM/ID");
    }
    return {subSystem, id};
}

std::string BoardLabel(const Uri& uri) {
    return uri.GetSubSystemStr() + "_" + uri.GetId();
}

}  // namespace bmc
