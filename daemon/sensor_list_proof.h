#pragma once

#include <memory>
#include <string>

#include "chassis_survey.h"
#include "module.h"
#include "qcfg/element.h"
#include "qcfg/finding.h"

/// What a worker does with its list of sensors.
struct SensorListUse {
    std::string worker;                            ///< name of its section
    const Module::Selection* available = nullptr;  ///< of the survey: what entries may choose from
    const Module::Selection* starting = nullptr;   ///< the selection before the first entry
};

/// Proves the worker's list of sensors on the chassis: boards, types of boards and ids that are not there or that the
/// worker cannot watch, and a list that leaves nothing to watch. What an entry does not find is an error in an
/// "include", where something is not watched that should be, and a warning in an "exclude", which has its effect all
/// the same. What a board that does not answer keeps from being proved is a warning. Pure but for the boards' types and
/// uris, for which nobody is asked.
/// @param section the worker's, proved by its rules; null: there is none, and the starting selection holds
/// @return what the worker would watch of the boards that answer
Module::Selection ProveSensorList(const std::shared_ptr<qcfg::Element>& section, const SensorListUse& use,
                                  const ChassisSurvey& survey, qcfg::Findings& findings);
