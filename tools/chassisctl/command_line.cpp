#include "tools/chassisctl/command_line.h"

#include <array>

#include <boost/program_options.hpp>

#include "qstd/exception.h"

namespace chassisctl {

namespace po = boost::program_options;

namespace {

/// Options that are given once and say how a controller is reached.
constexpr std::array<const char*, 8> c_controllerOptions{"host",      "port",   "user",   "password-file",
                                                         "privilege", "cipher", "device", "timeout"};

}  // namespace

CommandLine ParseCommandLine(const std::vector<std::string>& arguments) {
    CommandLine line;
    std::string type, uri, name, live;
    po::options_description options;
    // clang-format off
    options.add_options()
        ("socket", po::value(&line.socketPath)->default_value("/run/zelkor/chassis.sock"))
        ("help", po::bool_switch(&line.help))
        ("version", po::bool_switch(&line.version))
        ("json", po::bool_switch(&line.json))
        ("follow", po::bool_switch(&line.follow))
        ("type", po::value(&type))
        ("uri", po::value(&uri))
        ("name", po::value(&name))
        ("live", po::value(&live))
        ("ipmb", po::value(&line.ipmb))
        ("word", po::value(&line.words));
    // clang-format on
    for (const char* const option : c_controllerOptions) {
        options.add_options()(option, po::value<std::string>());
    }
    po::positional_options_description positional;
    positional.add("word", -1);
    // No short options: "-5" is a number.
    constexpr int c_style = po::command_line_style::allow_long | po::command_line_style::long_allow_next |
                            po::command_line_style::long_allow_adjacent;
    po::variables_map found;
    try {
        po::store(po::command_line_parser(arguments).options(options).positional(positional).style(c_style).run(),
                  found);
        po::notify(found);
    } catch (const po::error& error) {
        throw qstd::Exception(error.what());
    }
    const auto given = [&](const char* option, const std::string& value) {
        return found.count(option) != 0 ? std::optional<std::string>(value) : std::nullopt;
    };
    line.type = given("type", type);
    line.uri = given("uri", uri);
    line.name = given("name", name);
    line.live = given("live", live);
    for (const char* const option : c_controllerOptions) {
        if (found.count(option) != 0) {
            line.controller.emplace(option, found[option].as<std::string>());
        }
    }
    return line;
}

std::string HelpText() {
    return R"(zelkor-chassisctl: looks into the simulated chassis of a running zelkor-platformd and disturbs it.

usage: zelkor-chassisctl [--socket PATH] COMMAND

  list [--json]                     boards and sensors with their present readings
  set BOARD SENSOR VALUE            hold the reading at VALUE ("nan", "inf" too)
  auto BOARD SENSOR                 back to the model
  invalid BOARD SENSOR              readings become invalid
  fail BOARD [SENSOR] [TEXT]        every access raises an error with TEXT
  missing BOARD [SENSOR]            the board (or sensor) is no longer found
  slow BOARD MILLISECONDS           every access to the board takes that long
  heal BOARD [SENSOR]               undo set, invalid, fail, missing and slow
  limit BOARD SENSOR NAME VALUE     change a threshold (lnr lc lnc unc uc unr nominal; "none" = invalid)
  clock BOARD SECONDS               set the controller's clock offset to the host
  fpga read ADDRESS                 a register of the fan controller (decimal or 0x)
  fpga write ADDRESS VALUE
  fpga fail ADDRESS | fpga heal ADDRESS
  journal [--follow] [--json]       what was done to the hardware, oldest first
  shutdown-count BOARD              how often the board was told to shut down
  power BOARD                       whether the board has power

BOARD is the uri (io/1), SENSOR the decimal id. PATH is /run/zelkor/chassis.sock unless given.

Without a daemon:

  import [--type NAME] [--uri URI] [--name NAME] [--live PERCENT] FILE
      prints a <board> of a chassis description, made from the table that "ipmitool sensor" prints or from
      comma-separated values (a first row with at least sensor_id, name and value; also board, type, units, nominal,
      lnr, lc, lnc, unc, uc and unr). "-" reads standard input. The uri is io/1 and the type io unless given; the name is
      the table's board or else the file's name. Rows that cannot be taken over are named on standard error.
      --live makes readings move: temperatures follow the fans from the recorded value at 4000 RPM and 25 degrees
      ambient, other readings swing around the recorded value by PERCENT.

  import [--type NAME] [--uri URI] [--name NAME] [--live PERCENT] [--timeout MS] [--ipmb ADDRESS]...
         --host ADDRESS --user USER --password-file FILE [--port N] [--privilege NAME] [--cipher N]
  import [--type NAME] [--uri URI] [--name NAME] [--live PERCENT] [--timeout MS] [--ipmb ADDRESS]...
         --device /dev/ipmi0
      prints the same of a management controller that is asked now, over the LAN or by this host's system interface:
      sensors with their limits and present readings. The options are those of a configuration's <board>: port 623,
      privilege "operator" ("user" is enough), cipher suite 17 and 1000 ms for an answer unless given; the only line of
      FILE is the password, and nobody else may read it. --ipmb names a board by its address on the controller's bus,
      0x20 being the controller itself; each gives a <board> of its own, with the uris counted up from the first one.
      The name is that of the controller, followed by the address when there are several.

  --help, --version

Exit status: 0; 1 when the command is refused or wrong; 2 when no daemon, or no controller, answers.
)";
}

}  // namespace chassisctl
