#!/bin/sh
# Checks that every source is as clang-format leaves it. Exit status 77 (skipped) when clang-format is not installed.
# Usage: check_format.sh ROOT
set -eu
if ! command -v clang-format >/dev/null 2>&1; then
    echo "clang-format is not installed: nothing is checked"
    exit 77
fi
cd "$1"
list=$(mktemp)
trap 'rm -f "$list"' EXIT
find bench bmc core daemon examples fuzz tests tools \( -name '*.h' -o -name '*.cpp' \) -type f >"$list"
if [ ! -s "$list" ]; then
    echo "no sources below $1"
    exit 1
fi
xargs clang-format --dry-run --Werror <"$list"
echo "$(wc -l <"$list") files are formatted"
