#pragma once

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "tests/support/process.h"

namespace test {

/// What a real bash offers at the end of @p line, a completion by a completion.
/// @param script the completion's file @param function its function
/// @param program stands in place of the line's first word, so that the completion asks that program
inline std::vector<std::string> BashCompletions(const std::string& script, const std::string& function,
                                                const std::string& program, const std::string& line) {
    const std::string harness = R"(
        # A completion waits for its program for a second only, which a loaded machine may miss.
        timeout() { command timeout 60 "${@:2}"; }
        source "$1"
        COMP_LINE=$4 COMP_POINT=${#4}
        # As bash cuts it: at blanks, colons and equals signs.
        cut=${4//:/ : }
        read -ra COMP_WORDS <<<"${cut//=/ = }"
        [[ $4 == *[[:space:]] ]] && COMP_WORDS+=('')
        COMP_WORDS[0]=$3 COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
        "$2"
        ((${#COMPREPLY[@]})) && printf '%s\n' "${COMPREPLY[@]}"
        exit 0
    )";
    const Result result = RunProgram({"/bin/bash", "-c", harness, "bash", script, function, program, line});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.error, "");
    std::vector<std::string> lines;
    std::istringstream text(result.output);
    for (std::string each; std::getline(text, each);) {
        lines.push_back(each);
    }
    return lines;
}

}  // namespace test
