#pragma once

#include <boost/program_options/options_description.hpp>
#include <boost/program_options/variables_map.hpp>
#include <deque>
#include <functional>
#include <string>

#include "qapp/options.h"

namespace qapp {

/// Something that a program can do instead of serving.
struct Action {
    std::string name;  ///< of the option that asks for it, without the dashes
    std::string help;  ///< of the option
    std::function<void()> function;
};

/// Does it. What it throws is logged as an error. @return whether it threw nothing.
bool Perform(const Action& action);

/// The actions of a program, each an option of its command line. For the main thread.
class Actions {
public:
    void Add(Action action);

    /// Adds the options that ask for the actions.
    void Describe(boost::program_options::options_description& description) const;

    /// The action that a command line asks for, null when it asks for none. It lives as long as this object.
    /// @param values every option that was given
    /// @param options the framework's own of them
    /// @throws qstd::Exception naming two options of which one only may be given.
    const Action* Choose(const boost::program_options::variables_map& values, const Options& options) const;

private:
    std::deque<Action> m_actions;  ///< whose elements stay where they are
};

}  // namespace qapp
