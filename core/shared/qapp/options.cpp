#include "qapp/options.h"

#include <arpa/inet.h>

#include <boost/program_options/parsers.hpp>
#include <boost/program_options/positional_options.hpp>
#include <boost/program_options/value_semantic.hpp>

#include "qstd/exception.h"
#include "qstd/trace_file.h"

namespace po = boost::program_options;

namespace qapp {

namespace {

constexpr int c_maxPort = 65535;

/// One style for all programs of this system: no guessing of shortened names.
constexpr int c_style = po::command_line_style::unix_style & ~po::command_line_style::allow_guessing;

void CheckRange(const char* option, int value, int least, int most) {
    if (value < least || value > most) {
        throw qstd::Exception(std::string("--") + option + ": " + std::to_string(value) + " is not in the range " +
                              std::to_string(least) + ".." + std::to_string(most));
    }
}

void CheckAddress(const std::string& address) {
    in6_addr buffer{};
    if (::inet_pton(AF_INET, address.c_str(), &buffer) != 1 && ::inet_pton(AF_INET6, address.c_str(), &buffer) != 1) {
        throw qstd::Exception("--listen: \"" + address + "\" is not an IPv4 or IPv6 address");
    }
}

Options ToOptions(const po::variables_map& values) {
    Options options;
    options.configFile = values["config"].as<std::string>();
    options.logDir = values["log-dir"].as<std::string>();
    options.port = values["port"].as<int>();
    options.isPortGiven = !values["port"].defaulted();
    options.daemon = values.count("daemon") != 0;
    options.traceLevel = values["trace-level"].as<int>();
    options.checkConfig = values.count("check-config") != 0;
    options.printSchema = values.count("print-schema") != 0;
    options.version = values.count("version") != 0;
    options.help = values.count("help") != 0;
    if (values.count("listen") != 0) {
        options.listen = values["listen"].as<std::string>();
        CheckAddress(options.listen);
    }
    if (values.count("pid-file") != 0) {
        options.pidFile = values["pid-file"].as<std::string>();
    }
    CheckRange("port", options.port, 0, c_maxPort);
    CheckRange("trace-level", options.traceLevel, 0, qstd::TraceFile::c_maxLevel);
    return options;
}

}  // namespace

po::options_description DescribeOptions(const Options& defaults) {
    const auto text = [](const std::string& value, const char* name) {
        return po::value<std::string>()->default_value(value)->value_name(name);
    };
    po::options_description description("Options");
    auto add = description.add_options();
    add("config,c", text(defaults.configFile, "FILE"), "configuration file");
    add("log-dir,l", text(defaults.logDir, "DIR"), "directory of the log, the trace and sensors/");
    add("port,p", po::value<int>()->default_value(defaults.port)->value_name("N"),
        "TCP port of the registry server; 0 = any free port");
    add("listen", po::value<std::string>()->value_name("ADDRESS"), "address to listen on, IPv4 or IPv6 (default: all)");
    add("pid-file", po::value<std::string>()->value_name("FILE"), "write the process id there, locked while running");
    add("daemon", "detach; otherwise stay in the foreground and also log to standard error");
    add("trace-level", po::value<int>()->default_value(defaults.traceLevel)->value_name("N"),
        "0..4; 0 = no trace file");
    add("check-config", "read and check the configuration, print what is wrong as FILE:LINE: text, exit");
    add("print-schema", "print the XML schema of the configuration, exit");
    add("version", "print the version, exit");
    add("help", "print this text, exit");
    return description;
}

Options ParseOptions(int argc, const char* const* argv, const po::options_description& description,
                     po::variables_map& values) {
    try {
        const po::parsed_options parsed = po::command_line_parser(argc, argv).options(description).style(c_style).run();
        for (const po::option& option : parsed.options) {
            if (option.position_key >= 0) {
                throw qstd::Exception("unexpected argument \"" + option.value.front() +
                                      "\" on the command line; options begin with \"-\"");
            }
        }
        po::store(parsed, values);
        po::notify(values);
    } catch (const po::error& error) {
        throw qstd::Exception(error.what());
    }
    return ToOptions(values);
}

}  // namespace qapp
