#include "chassis_survey.h"

#include <algorithm>
#include <exception>
#include <future>
#include <utility>

#include "bmc/board_pool.h"
#include "bmc/broken_off.h"
#include "fans_node.h"
#include "qstd/strings.h"

namespace {

/// What one board told.
struct BoardAnswer {
    ChassisSurvey::Board board;
    Module::Selection all;
    Module::Selection temperatures;
};

/// Why the fan controller does not tell what a register holds; empty when it does.
std::string AskFans(const bmc::Board& board) {
    try {
        return board.FpgaSpiRead(FansNode::c_firstFan).failed == 0 ? "" : "the transfer failed";
    } catch (const std::exception& error) {
        return qstd::OneLine(error.what());
    } catch (...) {
        return "unknown exception";
    }
}

/// @throws what the board raises
void AskBoard(bmc::Board& board, BoardAnswer& answer) {
    Module::AddSensors(board, answer.all);
    Module::AddTemperatureSensors(board, answer.temperatures);
    for (const bmc::SensorId& id : answer.all[&board]) {
        if (const bmc::Sensor* const sensor = board.GetSensor(id)) {
            answer.board.sensors[id] = {sensor->GetType(), sensor->GetName(), sensor->GetUpperNonCritical(),
                                        sensor->GetUpperCritical(), sensor->GetUpperNonRecoverable()};
        }
    }
    board.GetFwRevision();  // sensors may be known from earlier; this is asked of the controller
    answer.board.isController = board.GetType() == bmc::BoardType_e::icb;
    answer.board.fanTrouble = answer.board.isController ? AskFans(board) : "";
}

BoardAnswer Survey(const bmc::Uri& uri) {
    BoardAnswer answer;
    answer.board.uri = uri;
    try {
        answer.board.board = bmc::BoardPool::Instance().GetBoard(uri);
        if (answer.board.board == nullptr) {
            answer.board.silence = "it is not there";
            return answer;
        }
        AskBoard(*answer.board.board, answer);
        return answer;
    } catch (const bmc::BrokenOff&) {
        answer.board.silence = "it takes too long";
    } catch (const std::exception& error) {
        answer.board.silence = qstd::OneLine(error.what());
    } catch (...) {
        answer.board.silence = "unknown exception";
    }
    answer.board.sensors.clear();
    answer.all.clear();
    answer.temperatures.clear();
    return answer;
}

}  // namespace

bool ChassisSurvey::IsComplete() const {
    return std::all_of(boards.begin(), boards.end(), [](const Board& board) { return board.silence.empty(); });
}

const ChassisSurvey::Board* ChassisSurvey::Find(const bmc::Uri& uri) const {
    const auto found = std::find_if(boards.begin(), boards.end(), [&](const Board& board) { return board.uri == uri; });
    return found == boards.end() ? nullptr : &*found;
}

ChassisSurvey SurveyChassis() {
    std::vector<std::future<BoardAnswer>> answers;
    for (const bmc::Uri& uri : bmc::BoardPool::Instance().GetAllLocalBoardUris()) {
        // A thread each, or, where there is none to be had, one after the other.
        answers.push_back(std::async(std::launch::async | std::launch::deferred, Survey, uri));
    }
    ChassisSurvey survey;
    for (std::future<BoardAnswer>& future : answers) {
        BoardAnswer answer = future.get();
        if (answer.board.board != nullptr) {
            survey.boardsAsKeys[answer.board.board];
        }
        survey.all.merge(answer.all);
        survey.temperatures.merge(answer.temperatures);
        survey.boards.push_back(std::move(answer.board));
    }
    return survey;
}
