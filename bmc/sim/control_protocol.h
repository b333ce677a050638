#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

/// The language of the simulated chassis' control socket, shared by the daemon's side and the command line tool.
///
/// A Unix stream socket, one request per connection. A request is one line: fields separated by a tab, ended by a
/// newline; the first field is the command. The reply is any number of body lines, each "+" followed by its fields, and
/// then one last line: "ok", or "error", a tab and a text; the server then closes. "journal-follow" never comes to the
/// last line: body lines come until the client closes.
///
/// All functions may be called from any thread and work in the "C" locale.
namespace bmc::sim {

/// Longest request in bytes, the newline included.
constexpr std::size_t c_maxRequestSize = 4096;
constexpr char c_fieldSeparator = '\t';
/// What stands for a reading or threshold that is not there.
constexpr const char* c_notAvailableText = "na";

/// The fields of a line without its newline; empty fields are kept, so there is always at least one.
std::vector<std::string> SplitFields(const std::string& line);

/// One line without newline. @throws qstd::Exception naming the field that holds a tab, newline or null byte.
std::string JoinFields(const std::vector<std::string>& fields);

/// The shortest text that reads back to @p value; "nan", "inf", "-inf".
std::string RealText(double value);

/// "0x40": a register address.
std::string AddressText(unsigned int address);

/// The whole of @p text as a number ("nan", "inf" and "-inf" too); nothing when it is none.
std::optional<double> ParseReal(const std::string& text);

/// The whole of @p text as a decimal integer within @p least and @p most.
std::optional<long long> ParseInteger(const std::string& text, long long least, long long most);

/// A register address or value, decimal or after "0x" hexadecimal, 0 to 0xFFFF.
std::optional<unsigned int> ParseRegister(const std::string& text);

}  // namespace bmc::sim
