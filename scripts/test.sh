#!/usr/bin/env bash
# Builds and tests the project twice: a Release build (with the benchmarks
# compiled, not run) and a RelWithDebInfo build under AddressSanitizer and
# UndefinedBehaviorSanitizer with leak checking. Installs the Debian packages
# of scripts/packages.txt first when any is missing. Exits non-zero on the
# first failure. JOBS overrides the parallelism (default 2).
set -euo pipefail
cd "$(dirname "$0")/.."

JOBS=${JOBS:-2}

# Packages not yet installed (dpkg-query reports removed ones too, so read
# the status rather than the exit code).
missing_packages() {
    local pkg
    grep -v '^[[:space:]]*#' scripts/packages.txt | tr -s '[:space:]' '\n' | sed '/^$/d' | sort -u |
        while read -r pkg; do
            if [ "$(dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null)" != "install ok installed" ]; then
                echo "$pkg"
            fi
        done
}

install_packages() {
    local missing
    missing=$(missing_packages)
    [ -z "$missing" ] && return 0
    echo "== installing: $(echo $missing)"
    local sudo=""
    if [ "$(id -u)" != 0 ]; then
        command -v sudo >/dev/null || { echo "need root or sudo to install: $missing" >&2; exit 1; }
        sudo="sudo"
    fi
    export DEBIAN_FRONTEND=noninteractive
    $sudo apt-get update -qq
    # shellcheck disable=SC2086
    $sudo apt-get install -y -qq --no-install-recommends $missing
}

launcher=()
if command -v ccache >/dev/null; then
    launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi

# build_and_test DIR CMAKE-ARGS...
build_and_test() {
    local dir=$1
    shift
    echo "== configure $dir"
    cmake -S . -B "$dir" -DRZ_BUILD_TESTS=ON "${launcher[@]}" "$@"
    echo "== build $dir"
    cmake --build "$dir" -j"$JOBS"
    echo "== test $dir"
    ctest --test-dir "$dir" --output-on-failure --no-tests=error -j"$JOBS"
}

install_packages

build_and_test build -DCMAKE_BUILD_TYPE=Release -DRZ_BUILD_BENCH=ON -DRZ_SANITIZE=OFF

export ASAN_OPTIONS=detect_leaks=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
build_and_test build-asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DRZ_BUILD_BENCH=OFF -DRZ_SANITIZE=ON

echo "== all tests passed"
