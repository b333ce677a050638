#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "bmc/board.h"
#include "bmc/enums.h"
#include "bmc/sensor_id.h"
#include "bmc/sweep.h"
#include "qcfg/element.h"
#include "qcfg/serializable.h"

/// Base of the workers that watch sensors: the choice of the sensors to watch. Has no state; the operations are for the
/// worker's own thread.
class Module : public qcfg::ISerializable {
public:
    /// Chosen sensors of each board. The pool owns the boards.
    using Selection = std::map<bmc::Board*, std::set<bmc::SensorId>>;

    /// An "include" or "exclude" entry of a list of sensors.
    struct ListEntry {
        bool isInclude = false;
        std::string board = "all";                            ///< or a board's uri
        bmc::BoardType_e boardType = bmc::BoardType_e::none;  ///< none: board tells which
        std::string sensors;                                  ///< "all" or ids separated by commas
    };

    /// The entry that a child of "sensors" is; nothing for another element, and, with a log message, for an entry whose
    /// board type does not exist.
    static std::optional<ListEntry> ReadEntry(const qcfg::Element& element);

    /// Adds the sensors of @p board to @p out. @throws what the board raises; sensors added before that stay.
    static void AddSensors(bmc::Board& board, Selection& out);

    /// The same for its temperature sensors; one that cannot be found is logged and left out.
    static void AddTemperatureSensors(bmc::Board& board, Selection& out);

    /// Adds every sensor of every local board to @p out. A board that cannot be reached is logged and left out.
    static void GetAllSensors(Selection& out);

    /// Adds every temperature sensor of every local board to @p out; a board without any gets no entry. What cannot be
    /// reached is logged and left out.
    static void GetTemperatureSensors(Selection& out);

    /// Applies the "include" and "exclude" entries of the section's "sensors" child, in their order, to @p starting.
    /// @param available what an entry may choose from
    /// @return the selection, boards without sensors left out.
    /// @throws qstd::Exception for a sensor id that is not a number. A bad board type only costs its entry.
    static Selection HandleSensorsList(const std::shared_ptr<qcfg::Element>& section, const Selection& available,
                                       const Selection& starting);

    /// Sensors by the uri of their board, which finds the board anew in every pass.
    using SensorIds = bmc::SensorIds;

    /// Appends the sensors of @p selected to @p out, in their order, by the uri of their board.
    static void Convert(const Selection& selected, SensorIds& out);

protected:
    Module() = default;
};
