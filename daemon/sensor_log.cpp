#include "sensor_log.h"

#include "qstd/log.h"
#include "qstd/strings.h"
#include "qstd/ver_info.h"

namespace {

constexpr const char* c_rule = "-------------------------------------------------------------------------------";

}  // namespace

SensorLog::SensorLog(const std::string& fileName, const std::string& boardId, const std::string& columns)
    : m_fileName(fileName),
      m_boardId(boardId),
      m_columns(columns),
      m_time(qstd::Time::c_current),
      m_headerPending(true) {
    if (!Open(m_fileName, false)) {
        qstd::LogWarning("Cannot open log file for sensor: " + m_fileName);
    }
    Close();
}

std::string SensorLog::Header() {
    std::string text;
    text.append(c_rule).append("\n");
    text.append("* ***** Sensor logging started *****\n");
    text.append("* Version       : ").append(qstd::VerInfo::Get().ToString()).append("\n");
    text.append("* Start time    : ").append(qstd::Time(qstd::Time::c_current).ToString()).append("\n");
    text.append("* Process name  : ").append(qstd::GetProgName()).append("\n");
    text.append("* Board id      : ").append(m_boardId).append("\n");
    text.append(c_rule).append("\n");
    text.append("\n");
    text.append(m_columns).append("\n");
    return text;
}

void SensorLog::WriteMessage(const std::string& line) {
    if (!TryWrite(line)) {
        qstd::LogWarning("Cannot open log file for sensor: " + m_fileName);
    }
    Close();
}

bool SensorLog::TryWrite(const std::string& line) {
    if (!Open(m_fileName, false)) {
        return false;
    }
    if (m_headerPending) {
        if (!WriteHeader(Header())) {
            return false;
        }
        m_headerPending = false;
    }
    return Write(line.c_str(), line.size());
}

std::string SensorLog::FileHeader() const {
    return {};
}

std::string SensorLog::LineHeader() const {
    m_time.UpdateToCurrent();
    return "[" + m_time.ToString() + "] ";
}
