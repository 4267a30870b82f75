#!/usr/bin/env bash
# Builds and tests the project twice: a Release build (with the benchmarks
# compiled, not run) and a RelWithDebInfo build under AddressSanitizer and
# UndefinedBehaviorSanitizer with leak checking; then runs both fuzz targets
# from a clang build (build-fuzz) for FUZZ_SECONDS each (default 60; 0 skips).
# First installs whatever
# Debian packages of scripts/packages.txt are missing (scripts/setup.sh).
# Exits non-zero on the first failure. JOBS sets the parallelism (default 2).
set -euo pipefail
cd "$(dirname "$0")/.."

JOBS=${JOBS:-2}

launcher=()
if command -v ccache >/dev/null; then
    launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi

# build_and_test DIR CMAKE-ARGS...
build_and_test() {
    local dir=$1
    shift
    echo "== configure $dir (${SECONDS}s)"
    cmake -S . -B "$dir" -DRZ_BUILD_TESTS=ON "${launcher[@]}" "$@"
    echo "== build $dir (${SECONDS}s)"
    cmake --build "$dir" -j"$JOBS"
    echo "== test $dir (${SECONDS}s)"
    ctest --test-dir "$dir" --output-on-failure --no-tests=error -j"$JOBS"
}

bash scripts/setup.sh

build_and_test build -DCMAKE_BUILD_TYPE=Release -DRZ_BUILD_BENCH=ON -DRZ_SANITIZE=OFF

export ASAN_OPTIONS=detect_leaks=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
build_and_test build-asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DRZ_BUILD_BENCH=OFF -DRZ_SANITIZE=ON

fuzz_seconds=${FUZZ_SECONDS:-60}
if [ "$fuzz_seconds" -gt 0 ]; then
    echo "== configure build-fuzz (${SECONDS}s)"
    CC=clang-14 CXX=clang++-14 cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DRZ_BUILD_TESTS=OFF \
        -DRZ_BUILD_BENCH=OFF -DRZ_SANITIZE=OFF "${launcher[@]}"
    echo "== build build-fuzz (${SECONDS}s)"
    cmake --build build-fuzz -j"$JOBS" --target fuzz_ops fuzz_load fuzz_load_seeds
    echo "== fuzz (${SECONDS}s)"
    bash scripts/fuzz.sh build-fuzz "$fuzz_seconds"
fi

echo "== all tests passed (${SECONDS}s)"
