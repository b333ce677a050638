#pragma once

#include <string>

#include "qstd/source_location.h"

namespace qstd {

/// Traces entry and exit of a function at level 4. Costs one comparison when that level is not admitted.
///
///     void Fan::Stop() {
///         const qstd::TraceFnc trace;
class TraceFnc {
public:
    static constexpr int c_level = 4;

    /// @param where the function to be named; leave it to its default.
    explicit TraceFnc(SourceLocation where = SourceLocation::current());
    TraceFnc(const TraceFnc&) = delete;
    TraceFnc& operator=(const TraceFnc&) = delete;
    ~TraceFnc();

private:
    void Write(const char* text) const;

    SourceLocation m_where;
    bool m_isActive;
};

/// Writes one trace record at @p level from the calling function, when the trace admits the level.
void TraceHere(int level, const std::string& text, SourceLocation where = SourceLocation::current());

/// The signature of the calling function, as the compiler writes it.
std::string ThisFncName(SourceLocation where = SourceLocation::current());

}  // namespace qstd
