#include "qstd/trace_fnc.h"

#include "qstd/source_name.h"
#include "qstd/trace_file.h"

namespace qstd {

TraceFnc::TraceFnc(SourceLocation where) : m_where(where), m_isActive(TraceActiveLevel() >= c_level) {
    if (m_isActive) {
        Write("entry");
    }
}

TraceFnc::~TraceFnc() {
    if (m_isActive) {
        Write("exit");
    }
}

void TraceFnc::Write(const char* text) const {
    TraceWrite(c_level, m_where.function_name(), SourceName(m_where.file_name()), static_cast<int>(m_where.line()),
               text);
}

void TraceHere(int level, const std::string& text, SourceLocation where) {
    if (TraceActiveLevel() >= level) {
        TraceWrite(level, where.function_name(), SourceName(where.file_name()), static_cast<int>(where.line()), text);
    }
}

std::string ThisFncName(SourceLocation where) {
    return where.function_name();
}

}  // namespace qstd
