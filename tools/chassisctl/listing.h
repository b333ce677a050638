#pragma once

#include <array>
#include <string>
#include <vector>

#include "tools/chassisctl/control_client.h"

// What `list` and `journal` print. Pure functions, callable from any thread.

namespace chassisctl {

/// A sensor as the daemon lists it; numbers as the daemon wrote them, "na" for one that is not there.
struct SensorEntry {
    std::string id, name, type, reading, units, nominal;
    std::array<std::string, 6> thresholds;  ///< lnr lc lnc unc uc unr
    std::vector<std::string> injected;      ///< "set", "fail: TEXT" and so on
};

struct BoardEntry {
    std::string uri, name, type, power;
    std::vector<std::string> injected;
    std::vector<SensorEntry> sensors;
};

/// The boards of an answer to `list`, in its order.
/// @throws qstd::Exception when a row is neither a board nor a sensor of the board before it.
std::vector<BoardEntry> ReadListing(const std::vector<Fields>& rows);

/// For people: boards as headings, sensors in columns.
std::string ListingText(const std::vector<BoardEntry>& boards);

/// For programs: one object. Doubles read back to the same value; a number that is not there is null, nan and the
/// infinities are strings.
std::string ListingJson(const std::vector<BoardEntry>& boards);

/// One entry of the journal as a line: seconds, board, action, arguments.
std::string JournalText(const Fields& row);

/// The same as one object on a line.
std::string JournalJson(const Fields& row);

}  // namespace chassisctl
