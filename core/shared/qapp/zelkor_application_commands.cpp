// The command line of an application, and what it can be asked for in place of serving: to check a configuration, to
// print its schema, an action on the boards.

#include <chrono>
#include <csignal>
#include <ctime>
#include <exception>
#include <filesystem>
#include <iostream>
#include <sstream>

#include "bmc/board_pool.h"
#include "qapp/configuration_rules.h"
#include "qapp/registry_settings.h"
#include "qapp/zelkor_application.h"
#include "qcfg/checker.h"
#include "qcfg/schema_writer.h"
#include "qstd/exception.h"
#include "qstd/log.h"

namespace qapp {

namespace {

/// How long --check-config may wait for boards, all of them together: longer than a controller that does not answer
/// takes to be given up with the default time-outs, and short enough for a check before the start of a service.
constexpr std::chrono::seconds c_checkMayTake{15};

}  // namespace

Options ZelkorApplication::ReadCommandLine(int argc, char** argv) {
    Options defaults;
    defaults.configFile = ConfDir() + "/" + ConfFile();
    defaults.logDir = m_logFileDir;
    OnInitLogFileDir(defaults.logDir);
    defaults.port = DefaultPort();
    defaults.pidFile = PidFile();
    boost::program_options::options_description description = DescribeOptions(defaults);
    m_actions.Describe(description);
    OnProgramOptionsAdd(description);
    std::ostringstream help;
    help << "Usage: " << m_name << " [options]\n" << description;
    m_helpText = help.str();

    boost::program_options::variables_map values;
    try {
        Options options = ParseOptions(argc, argv, description, values);
        options.action = m_actions.Choose(values, options);
        OnProgramOptionsProcess(values);
        while (options.logDir.size() > 1 && options.logDir.back() == '/') {
            options.logDir.pop_back();
        }
        if (options.pidFile.empty()) {
            options.pidFile = defaults.pidFile;
        }
        if (options.daemon) {
            // A background process leaves the folder it was started in.
            options.configFile = std::filesystem::absolute(options.configFile).string();
            options.logDir = std::filesystem::absolute(options.logDir).string();
            options.pidFile = options.pidFile.empty() ? "" : std::filesystem::absolute(options.pidFile).string();
        }
        return options;
    } catch (const qstd::Exception& error) {
        throw qstd::Exception(std::string(error.what()) + " (see --help)");
    }
}

bool ZelkorApplication::CheckAndPrint(const Options& options) {
    qcfg::Findings findings;
    try {
        LoadConfiguration(options);
        findings = qcfg::CheckConfiguration(m_config.GetRoot(), GetRules());
        if (!qcfg::HasError(findings)) {
            const qcfg::Findings ofTls = CheckTlsSection(m_config, options);
            findings.insert(findings.end(), ofTls.begin(), ofTls.end());
            ProveOnBoards(findings);
        }
    } catch (const std::exception& error) {
        findings.push_back(qcfg::ErrorFrom(error.what(), options.configFile, 0));
    }
    bmc::BoardPool::Instance().Open(nullptr);
    qcfg::SortByLine(findings);
    std::string lines;
    for (const qcfg::Finding& finding : findings) {
        lines += qcfg::ToText(finding, options.configFile) + '\n';
    }
    return Print(lines) && !qcfg::HasError(findings);
}

bool ZelkorApplication::Print(const std::string& text) {
    std::cout << text << std::flush;
    if (!std::cout.good()) {
        throw qstd::Exception("Standard output cannot be written");
    }
    return true;
}

void ZelkorApplication::ProveOnBoards(qcfg::Findings& findings) {
    ::tzset();
    const auto deadline = std::chrono::steady_clock::now() + c_checkMayTake;
    const std::shared_ptr<qcfg::Element> section = FindBoardsSection();
    try {
        const BoardBackend& backend = FindBackend(*section);
        if (backend.check) {
            backend.check(*section, m_config.GetFileName());
        }
        const auto& create = backend.createForCheck    ? backend.createForCheck
                             : backend.createForAction ? backend.createForAction
                                                       : backend.create;
        bmc::BoardPool::Instance().Open(create(*section, m_config.GetFileName()));
    } catch (const std::exception& error) {
        findings.push_back(qcfg::ErrorFrom(error.what(), m_config.GetFileName(), section->GetLine()));
        return;
    }
    bmc::BoardPool::Instance().LimitAccesses(deadline);
    OnCheckConfig(findings);
}

qcfg::ElementRule ZelkorApplication::GetRules() const {
    std::vector<qcfg::VariantRule> backends;
    for (const BoardBackend& backend : m_backends) {
        backends.push_back(backend.rule);
    }
    return ConfigurationRules(backends, GetSectionRules());
}

bool ZelkorApplication::RunAction(const Options& options) {
    std::signal(SIGPIPE, SIG_IGN);  // whoever reads standard error may go
    ::tzset();
    OnPreInit();
    LoadConfiguration(options);
    std::string logProblem;
    try {
        OpenLogs(options);
    } catch (const qstd::Exception& error) {
        logProblem = error.what();  // no reason not to act: a full disk must not keep the chassis from being made safe
    }
    OpenBoards(true);
    qstd::Log::GetInstance().OpenStandardError();
    if (!logProblem.empty()) {
        qstd::LogWarning(logProblem);
    }
    return Perform(*options.action);
}

std::string ZelkorApplication::CreateXsd() const {
    return qcfg::WriteSchema(GetRules());
}

}  // namespace qapp
