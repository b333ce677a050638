#include "sensor_list_helper.h"

#include <algorithm>
#include <iterator>

#include "bmc/uri.h"
#include "qstd/convert.h"
#include "qstd/strings.h"

bmc::SensorId SensorListHelper::ToSensorId(const std::string& token) {
    constexpr std::size_t c_leastHexSize = 3;
    if (token.size() >= c_leastHexSize && token[0] == '0' && token[1] == 'x') {
        return bmc::SensorId(static_cast<int>(qstd::HexTo<unsigned int>(token)));
    }
    return bmc::SensorId(qstd::FromString<int>(token));
}

SensorListHelper::SensorListHelper(const Module::Selection& available, const Module::Selection& starting)
    : m_result(starting), m_all(available) {
    std::transform(m_all.begin(), m_all.end(), std::back_inserter(m_boards),
                   [](const auto& entry) { return entry.first; });
}

void SensorListHelper::AddToSensorList(const std::string& board, const bmc::BoardType_e& boardType,
                                       const std::string& sensors, bool include) {
    const std::vector<bmc::Board*> boards = FindUris(board, boardType);
    if (sensors == "all") {
        for (bmc::Board* const target : boards) {
            if (include) {
                m_result[target] = m_all[target];
            } else {
                m_result[target].clear();
            }
        }
        return;
    }
    std::vector<bmc::SensorId> ids;
    const std::vector<std::string> tokens = qstd::TokenizeString(sensors, ',');
    std::transform(tokens.begin(), tokens.end(), std::back_inserter(ids), ToSensorId);
    for (const bmc::SensorId& id : ids) {
        for (bmc::Board* const target : boards) {
            if (!include) {
                m_result[target].erase(id);
            } else if (m_all[target].count(id) != 0) {
                m_result[target].insert(id);
            }
        }
    }
}

std::vector<bmc::Board*> SensorListHelper::FindUris(const std::string& board, const bmc::BoardType_e& boardType) const {
    std::vector<bmc::Board*> boards;
    std::copy_if(m_boards.begin(), m_boards.end(), std::back_inserter(boards), [&](const bmc::Board* candidate) {
        if (boardType != c_noBoardType) {
            return candidate->GetType() == boardType;
        }
        return board == "all" || candidate->GetUri().ToString() == board;
    });
    return boards;
}

Module::Selection SensorListHelper::GetSensors() {
    std::erase_if(m_result, [](const auto& entry) { return entry.second.empty(); });
    return m_result;
}
