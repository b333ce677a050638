// The command line of an application, and what it can be asked for in place of serving: to check a configuration, to
// print its schema, an action on the boards.

#include <csignal>
#include <ctime>
#include <exception>
#include <filesystem>
#include <iostream>
#include <sstream>

#include "qapp/configuration_rules.h"
#include "qapp/registry_settings.h"
#include "qapp/zelkor_application.h"
#include "qcfg/checker.h"
#include "qcfg/schema_writer.h"
#include "qstd/exception.h"
#include "qstd/log.h"

namespace qapp {

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
    try {
        LoadConfiguration(options);
        qcfg::Findings findings = qcfg::CheckConfiguration(m_config.GetRoot(), GetRules());
        if (!qcfg::HasError(findings)) {
            const qcfg::Findings more = CheckTlsFiles(m_config);
            findings.insert(findings.end(), more.begin(), more.end());
        }
        for (const qcfg::Finding& finding : findings) {
            std::cout << qcfg::ToText(finding, m_config.GetFileName()) << '\n';
        }
        std::cout.flush();
        if (qcfg::HasError(findings)) {
            return false;
        }
        const std::shared_ptr<qcfg::Element> section = FindBoardsSection();
        const BoardBackend& backend = FindBackend(*section);
        if (backend.check) {
            backend.check(*section, m_config.GetFileName());
        }
        return true;
    } catch (const std::exception& error) {
        std::cout << error.what() << std::endl;
        return false;
    }
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
