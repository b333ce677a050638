#pragma once

#include <boost/program_options/options_description.hpp>
#include <boost/program_options/variables_map.hpp>
#include <string>

namespace qapp {

struct Action;

/// The command line of an application.
struct Options {
    std::string configFile;
    std::string logDir;
    int port = 0;              ///< 0..65535; 0: any free port
    bool isPortGiven = false;  ///< a port on the command line wins over the configuration's
    std::string listen;        ///< address to listen on; empty: as the configuration says
    std::string pidFile;       ///< empty: none
    bool daemon = false;
    int traceLevel = 0;  ///< 0..4
    bool checkConfig = false;
    bool printSchema = false;
    bool version = false;
    bool help = false;
    const Action* action = nullptr;  ///< what to do instead of serving; null: serve
};

/// The framework's options, with the values of @p defaults as defaults.
boost::program_options::options_description DescribeOptions(const Options& defaults);

/// Reads a command line. @param values gets every value, for options that an application added.
/// @throws qstd::Exception naming the option and what is wrong with it.
Options ParseOptions(int argc, const char* const* argv, const boost::program_options::options_description& description,
                     boost::program_options::variables_map& values);

}  // namespace qapp
