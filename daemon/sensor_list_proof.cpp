#include "sensor_list_proof.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include "bmc/enums.h"
#include "qcfg/suggestion.h"
#include "qstd/strings.h"
#include "sensor_list_helper.h"

namespace {

using qcfg::Severity_e;

std::string TypeName(bmc::BoardType_e type) {
    return qstd::EnumMap<bmc::BoardType_e>::items.GetName(type);
}

std::string Quoted(const std::string& text) {
    return '"' + qstd::OneLine(text) + '"';
}

/// "a, b, c"
void Append(std::string& list, const std::string& item) {
    list += (list.empty() ? "" : ", ") + item;
}

bool Has(const Module::Selection& selection, bmc::Board* board, const bmc::SensorId& id) {
    const auto found = selection.find(board);
    return found != selection.end() && found->second.count(id) != 0;
}

/// One entry of a list.
class EntryProof {
public:
    EntryProof(const qcfg::Element& element, Module::ListEntry entry, const SensorListUse& use,
               const ChassisSurvey& survey, qcfg::Findings& findings)
        : m_element(element),
          m_entry(std::move(entry)),
          m_isByType(m_entry.boardType != SensorListHelper::c_noBoardType),
          m_use(use),
          m_survey(survey),
          m_findings(findings) {}

    void Prove() {
        ChooseBoards();
        if (m_chosen.empty() && m_silent.empty()) {
            ReportNoBoard();
        } else if (m_entry.sensors == "all") {
            ProveAll();
        } else {
            ProveIds();
        }
    }

private:
    void Add(Severity_e severity, const std::string& text) {
        m_findings.push_back({severity, m_element.GetLine(), "<" + m_element.GetName() + ">: " + text});
    }

    void AddFault(const std::string& text) { Add(m_entry.isInclude ? Severity_e::error : Severity_e::warning, text); }

    bool IsForAllBoards() const { return !m_isByType && m_entry.board == "all"; }

    /// The boards that the entry applies to: those that answer, and those that do not or may be of its type.
    void ChooseBoards() {
        const SensorListHelper helper(m_survey.boardsAsKeys, {});
        const std::vector<bmc::Board*> found = helper.FindUris(m_entry.board, m_entry.boardType);
        for (const ChassisSurvey::Board& board : m_survey.boards) {
            const bool isMeant = board.board == nullptr
                                     ? m_isByType || IsForAllBoards() || board.uri.ToString() == m_entry.board
                                     : std::find(found.begin(), found.end(), board.board) != found.end();
            if (isMeant && board.silence.empty()) {
                m_chosen.push_back(&board);
            } else if (isMeant) {
                Append(m_silent, board.uri.ToString());
            }
        }
    }

    void ReportNoBoard() {
        if (m_isByType) {
            AddFault("the chassis has no board of the type " + Quoted(TypeName(m_entry.boardType)));
        } else if (!IsForAllBoards()) {
            std::vector<std::string> uris;
            std::transform(m_survey.boards.begin(), m_survey.boards.end(), std::back_inserter(uris),
                           [](const ChassisSurvey::Board& board) { return board.uri.ToString(); });
            const std::string similar = qcfg::FindSimilar(m_entry.board, uris);
            AddFault("the chassis has no board " + Quoted(m_entry.board) +
                     (similar.empty() ? "" : "; did you mean \"" + similar + "\"?"));
        }
    }

    /// "board "io/2" has no sensor 0x30"
    std::string NoneHas(const std::string& what) const {
        if (m_isByType) {
            return "no board of the type " + Quoted(TypeName(m_entry.boardType)) + " has a " + what;
        }
        return IsForAllBoards() ? "no board has a " + what : "board " + Quoted(m_entry.board) + " has no " + what;
    }

    std::string KindOfSensor() const { return m_use.available == &m_survey.all ? "sensor" : "temperature sensor"; }

    /// An "exclude" may take out what is not there, to be on the safe side, and so may one that is for all boards.
    void ProveAll() {
        const bool isAny = std::any_of(m_chosen.begin(), m_chosen.end(), [this](const ChassisSurvey::Board* board) {
            return m_use.available->count(board->board) != 0;
        });
        if (isAny || !m_entry.isInclude || IsForAllBoards()) {
            return;
        }
        if (m_silent.empty()) {
            AddFault(NoneHas(KindOfSensor()));
        } else {
            Add(Severity_e::warning,
                "whether there is a " + KindOfSensor() + " cannot be proved: no answer from " + m_silent);
        }
    }

    void ProveIds() {
        std::string unproved;
        for (const std::string& token : qstd::TokenizeString(m_entry.sensors, ',')) {
            const bmc::SensorId id = SensorListHelper::ToSensorId(token);
            if (FindBoardWith(*m_use.available, id) != nullptr) {
                continue;
            }
            if (const ChassisSurvey::Board* const board = FindBoardWith(m_survey.all, id)) {
                ReportNotForWorker(token, id, *board);
            } else if (m_silent.empty()) {
                AddFault(NoneHas("sensor " + token));
            } else {
                Append(unproved, token);
            }
        }
        if (!unproved.empty()) {
            Add(Severity_e::warning,
                "whether there is a sensor " + unproved + " cannot be proved: no answer from " + m_silent);
        }
    }

    const ChassisSurvey::Board* FindBoardWith(const Module::Selection& selection, const bmc::SensorId& id) const {
        const auto found = std::find_if(m_chosen.begin(), m_chosen.end(), [&](const ChassisSurvey::Board* board) {
            return Has(selection, board->board, id);
        });
        return found == m_chosen.end() ? nullptr : *found;
    }

    void ReportNotForWorker(const std::string& token, const bmc::SensorId& id, const ChassisSurvey::Board& board) {
        std::string text = "sensor " + token + " of " + board.uri.ToString();
        if (const auto sensor = board.sensors.find(id); sensor != board.sensors.end()) {
            const char* const type = qstd::EnumMap<bmc::SensorType_e>::items.FindName(sensor->second.type);
            text +=
                " (" + qstd::OneLine(sensor->second.name) + ") is of the type " + (type == nullptr ? "unknown" : type);
        }
        AddFault(text + ", and <" + m_use.worker + "> watches temperature sensors only");
    }

    const qcfg::Element& m_element;
    const Module::ListEntry m_entry;
    const bool m_isByType;
    const SensorListUse& m_use;
    const ChassisSurvey& m_survey;
    qcfg::Findings& m_findings;
    std::vector<const ChassisSurvey::Board*> m_chosen;
    std::string m_silent;  ///< boards, for messages
};

/// A worker without sensors ends at once. With a list that is what the file says; without one it is the chassis that
/// has nothing to watch, which the file may be fine with.
void ReportNothingToWatch(const qcfg::Element& section, const SensorListUse& use, bool isComplete,
                          qcfg::Findings& findings) {
    bool isEnabled = true;
    section.GetAttrValue("enabled", isEnabled);
    if (!isEnabled) {
        return;
    }
    const std::shared_ptr<qcfg::Element> list = section.FindChild("sensors");
    const bool isFault = list != nullptr && isComplete;
    const std::string who = isComplete ? "" : " of the boards that answer";
    findings.push_back({isFault ? Severity_e::error : Severity_e::warning, (list ? *list : section).GetLine(),
                        "<" + (list ? *list : section).GetName() + ">: no sensor" + who +
                            " is left to watch: " + use.worker + " ends as soon as it starts"});
}

}  // namespace

Module::Selection ProveSensorList(const std::shared_ptr<qcfg::Element>& section, const SensorListUse& use,
                                  const ChassisSurvey& survey, qcfg::Findings& findings) {
    if (section == nullptr) {
        return *use.starting;
    }
    if (const std::shared_ptr<qcfg::Element> list = section->FindChild("sensors")) {
        for (const std::shared_ptr<qcfg::Element>& element : list->GetChildren()) {
            if (auto entry = Module::ReadEntry(*element)) {
                EntryProof(*element, std::move(*entry), use, survey, findings).Prove();
            }
        }
    }
    Module::Selection selection = Module::HandleSensorsList(section, *use.available, *use.starting);
    if (selection.empty()) {
        ReportNothingToWatch(*section, use, survey.IsComplete(), findings);
    }
    return selection;
}
