#!/usr/bin/env bash
# Non-blank lines of the tests (tests/, fuzz/) against the library code
# (every library folder, the file module, the tool and the headers).
set -euo pipefail
cd "$(dirname "$0")/.."
count() {
    find "$@" -type f \( -name '*.cpp' -o -name '*.h' -o -name '*.c' -o -name '*.py' -o -name 'CMakeLists.txt' -o -name '*.cmake' \) -print0 |
        xargs -0 cat | grep -cv '^[[:space:]]*$'
}
lib_dirs=()
for d in */; do
    d=${d%/}
    case $d in tests | fuzz | bench | scripts | cmake | build*) continue ;; esac
    lib_dirs+=("$d")
done
t=$(count tests fuzz)
l=$(count "${lib_dirs[@]}")
echo "tests+fuzz $t  library $l  share $((100 * t / l))%"
