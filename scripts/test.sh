#!/usr/bin/env bash
# Builds the SDK and runs the whole test suite, installing what is missing.
#   scripts/test.sh                 normal and sanitizer builds (plus arm in CI)
#   scripts/test.sh normal|sanitize|tsan|arm ...   just those builds
# Each build lives in build/<name>; every test case runs in a process of its own.
set -euo pipefail
cd "$(dirname "$0")/.."

if [ "$#" -gt 0 ]; then
  suites="$*"
elif { [ "${CI:-}" = "true" ] || [ "${ALARMSDK_TEST_ARM:-0}" = "1" ]; } && [ -f cmake/toolchain-aarch64.cmake ]; then
  suites="normal sanitize arm"
else
  suites="normal sanitize"
fi

case " $suites " in
  *" arm "*) bash scripts/setup.sh --arm ;;
  *) bash scripts/setup.sh ;;
esac

jobs=$(nproc)
total_passed=0
total_failed=0
summary=""

run_suite() {
  local name=$1
  shift
  local dir="build/$name"
  mkdir -p build
  local started=$SECONDS
  echo "=== $name: configure and build"
  cmake -S . -B "$dir" -DALARMSDK_BUILD_BENCH=OFF "$@" > "$dir.configure.log" 2>&1 ||
    { cat "$dir.configure.log"; return 1; }
  cmake --build "$dir" -j"$jobs" || return 1
  echo "=== $name: tests"
  local log="$dir/ctest.log"
  local rc=0
  # Most cases wait on sockets and pauses rather than the CPU, so run more than one per core.
  ctest --test-dir "$dir" -j$((jobs + 1)) --output-on-failure --no-tests=error 2>&1 | tee "$log" || rc=$?
  local line passed failed total
  line=$(grep -E 'tests passed, [0-9]+ tests failed out of [0-9]+' "$log" | tail -1 || true)
  failed=$(echo "$line" | sed -E 's/.* ([0-9]+) tests failed out of ([0-9]+).*/\1/')
  total=$(echo "$line" | sed -E 's/.* ([0-9]+) tests failed out of ([0-9]+).*/\2/')
  if [ -z "$line" ]; then failed=1; total=1; rc=1; fi
  passed=$((total - failed))
  total_passed=$((total_passed + passed))
  total_failed=$((total_failed + failed))
  summary="$summary  $name: $passed passed, $failed failed, $((SECONDS - started)) s"$'\n'
  return $rc
}

status=0
for suite in $suites; do
  case "$suite" in
    normal) run_suite normal -DCMAKE_BUILD_TYPE=RelWithDebInfo || status=1 ;;
    sanitize)
      export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
      run_suite sanitize -DCMAKE_BUILD_TYPE=Debug -DALARMSDK_SANITIZE=ON || status=1
      unset ASAN_OPTIONS UBSAN_OPTIONS ;;
    tsan) run_suite tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DALARMSDK_TSAN=ON || status=1 ;;
    arm)
      run_suite arm -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-aarch64.cmake -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DALARMSDK_TEST_TIMEOUT=300 || status=1 ;;
    *) echo "unknown suite: $suite" >&2; exit 2 ;;
  esac
done

echo "=== summary"
printf '%s' "$summary"
echo "$total_passed passed, $total_failed failed"
exit $status
