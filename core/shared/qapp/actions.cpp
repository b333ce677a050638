#include "qapp/actions.h"

#include <exception>
#include <utility>

#include "qstd/exception.h"
#include "qstd/log.h"

namespace qapp {

bool Perform(const Action& action) {
    try {
        action.function();
        return true;
    } catch (const std::exception& error) {
        qstd::LogError(error.what());
    } catch (...) {
        qstd::LogError("Problem at --" + action.name + " - Unknown Exception");
    }
    return false;
}

void Actions::Add(Action action) {
    m_actions.push_back(std::move(action));
}

void Actions::Describe(boost::program_options::options_description& description) const {
    for (const Action& action : m_actions) {
        description.add_options()(action.name.c_str(), action.help.c_str());
    }
}

const Action* Actions::Choose(const boost::program_options::variables_map& values, const Options& options) const {
    // What else a program may be asked to do; --help and --version come before everything.
    std::string other = options.daemon        ? "daemon"
                        : options.checkConfig ? "check-config"
                        : options.printSchema ? "print-schema"
                                              : "";
    const Action* chosen = nullptr;
    for (const Action& action : m_actions) {
        if (values.count(action.name) == 0) {
            continue;
        }
        if (!other.empty()) {
            throw qstd::Exception("--" + action.name + " and --" + other + " exclude each other");
        }
        chosen = &action;
        other = action.name;
    }
    return chosen;
}

}  // namespace qapp
