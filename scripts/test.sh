#!/usr/bin/env bash
# Installs what is missing, builds Orvanta twice (normal, and with
# AddressSanitizer + UBSan) and runs every test in both builds.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh

# The code's layout is checked first: it costs nothing.
if command -v clang-format >/dev/null; then
  git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run --Werror
fi

jobs=$(nproc)
run_build() {
  local dir=$1 tests=$2; shift 2
  cmake -S . -B "$dir" -DORVANTA_WERROR=ON "$@" >/dev/null
  cmake --build "$dir" -j "$jobs"
  (cd "$dir" && ctest --output-on-failure -j "$jobs" -R "$tests")
}

run_build build . -DCMAKE_BUILD_TYPE=RelWithDebInfo
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 LSAN_OPTIONS=suppressions=$PWD/tests/lsan.supp \
  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  run_build build-asan . -DCMAKE_BUILD_TYPE=Debug -DORVANTA_SANITIZE=ON
# ThreadSanitizer on the programs whose subjects run threads of their own.
TSAN_OPTIONS="halt_on_error=1 suppressions=$PWD/tests/tsan.supp" \
  run_build build-tsan '^(capture|session|audio|encode|output|overlay|wmv|playback|notify|camera)$' -DCMAKE_BUILD_TYPE=Debug -DORVANTA_TSAN=ON
echo "all tests passed"
