#include "bmc/ipmi/plugin_loader.h"

#include <dlfcn.h>

#include <filesystem>
#include <system_error>

#include "bmc/ipmi/plugin.h"
#include "build_info.h"
#include "qcfg/document.h"
#include "qstd/exception.h"
#include "qstd/log.h"

namespace bmc::ipmi {

namespace {

void LogForPlugin(qstd::LogLevel_e level, const std::string& text) {
    switch (level) {
        case qstd::LogLevel_e::info:
            return qstd::LogInfo(text);
        case qstd::LogLevel_e::warning:
            return qstd::LogWarning(text);
        case qstd::LogLevel_e::error:
            return qstd::LogError(text);
        case qstd::LogLevel_e::critical:
            return qstd::LogCritical(text);
    }
}

std::string LastError() {
    const char* const text = ::dlerror();
    return text == nullptr ? "unknown reason" : text;
}

const PluginApi& Load(const std::string& path) {
    std::error_code ignored;
    if (!std::filesystem::exists(path, ignored)) {
        throw qstd::Exception("boards over IPMI need " + path +
                              ", which is not there: the package with it is not installed");
    }
    void* const library = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        throw qstd::Exception("cannot load " + path + ": " + LastError());
    }
    const auto entry = reinterpret_cast<PluginEntry>(::dlsym(library, c_pluginEntry));
    if (entry == nullptr) {
        throw qstd::Exception("cannot use " + path + ": " + LastError());
    }
    const PluginApi* const api = entry();
    const std::string build = api == nullptr || api->build == nullptr ? "unknown" : api->build;
    if (api == nullptr || build != c_buildId) {
        throw qstd::Exception("cannot use " + path + ": it is of the build " + build + ", this program of the build " +
                              c_buildId);
    }
    return *api;
}

/// Runs @p action, whose failure is told with the line of @p section.
template <class Action>
auto AtSection(const qcfg::Element& section, const std::string& configFile, Action action) {
    try {
        return action();
    } catch (const qstd::Exception& error) {
        throw qstd::Exception(qcfg::AtLine(configFile, section.GetLine(), error.what()));
    }
}

}  // namespace

std::unique_ptr<Backend> Create(const qcfg::Element& section, const std::string& configFile) {
    const Settings settings = ReadSettings(section, configFile);
    return AtSection(section, configFile, [&] { return LoadBackend(settings, PluginPath()); });
}

std::unique_ptr<Backend> CreateToAct(const qcfg::Element& section, const std::string& configFile) {
    const Settings settings = ReadSettings(section, configFile, Passwords_e::leftForSessions);
    return AtSection(section, configFile, [&] { return LoadBackend(settings, PluginPath()); });
}

std::unique_ptr<Backend> CreateToLook(const qcfg::Element& section, const std::string& configFile) {
    Settings settings = ReadSettings(section, configFile);
    settings.isCacheReadOnly = true;
    return AtSection(section, configFile, [&] { return LoadBackend(settings, PluginPath()); });
}

void Check(const qcfg::Element& section, const std::string& configFile) {
    ReadSettings(section, configFile);
    AtSection(section, configFile, [] { ProvePlugin(PluginPath()); });
}

std::string PluginPath() {
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) {
        throw qstd::Exception("cannot find out where this program is: /proc/self/exe: " + error.message());
    }
    return (program.parent_path().parent_path() / "lib/zelkor/zelkor-bmc-ipmi.so").string();
}

std::unique_ptr<Backend> LoadBackend(const Settings& settings, const std::string& path) {
    return Load(path).create(settings, PluginHost{LogForPlugin});
}

void ProvePlugin(const std::string& path) {
    Load(path);
}

}  // namespace bmc::ipmi
