#include "tools/regctl/json_text.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "tools/regctl/value_text.h"

namespace regctl {

namespace {

using Json = nlohmann::ordered_json;

Json ToJson(const qnode::Value& value) {
    if (const auto* const real = std::get_if<double>(&value)) {
        return std::isfinite(*real) ? Json(*real) : Json(qnode::ToText(value));
    }
    if (const auto* const whole = std::get_if<int>(&value)) {
        return *whole;
    }
    if (const auto* const text = std::get_if<std::string>(&value)) {
        return *text;
    }
    return nullptr;
}

std::string JsonLine(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string CodeText(qreg::ErrorCode_e code) {
    const char* const name = qstd::EnumMap<qreg::ErrorCode_e>::items.FindName(code);
    return name != nullptr ? name : "code " + std::to_string(static_cast<std::uint32_t>(code));
}

void PutOutcome(Json& json, const qreg::Outcome& outcome) {
    if (outcome.code == qreg::ErrorCode_e::ok) {
        json["value"] = ToJson(outcome.value);
    } else {
        json["error"] = outcome.text;
        json["code"] = CodeText(outcome.code);
    }
}

}  // namespace

std::string ChildrenJson(const std::vector<qreg::NodeInfo>& children) {
    Json names = Json::array();
    for (const qreg::NodeInfo& child : children) {
        names.push_back(child.name);
    }
    return JsonLine(names);
}

std::string ItemJson(const qreg::corba::TreeItem& item) {
    Json json{{"path", item.path}, {"type", TypeText(item.info.type)}, {"flags", item.info.flags}};
    if (item.outcome.code != qreg::ErrorCode_e::not_readable) {
        PutOutcome(json, item.outcome);
    }
    return JsonLine(json);
}

std::string OutcomeJson(const std::string& path, const qreg::Outcome& outcome) {
    Json json{{"path", path}};
    if (outcome.code == qreg::ErrorCode_e::ok) {
        json["type"] = TypeText(qnode::TypeOf(outcome.value));
    }
    PutOutcome(json, outcome);
    return JsonLine(json);
}

std::string AssignmentJson(const std::string& path, const qnode::Value& value) {
    return JsonLine({{"path", path}, {"type", TypeText(qnode::TypeOf(value))}, {"value", ToJson(value)}});
}

std::string InfoJson(const std::string& path, const qreg::NodeInfo& info) {
    return JsonLine({{"path", path},
                     {"name", info.name},
                     {"type", TypeText(info.type)},
                     {"size", info.size},
                     {"flags", info.flags},
                     {"readable", IsReadable(info.flags)},
                     {"writable", IsWritable(info.flags)},
                     {"children", info.children}});
}

std::string EventJson(const qreg::Event& event) {
    return JsonLine({{"time", TimeText(event.time)},
                     {"sequence", event.sequence},
                     {"path", event.path},
                     {"type", EventTypeText(event.type)},
                     {"value", ToJson(event.value)}});
}

}  // namespace regctl
