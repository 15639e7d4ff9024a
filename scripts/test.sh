#!/usr/bin/env bash
# Builds the SDK and runs the whole test suite, installing what is missing.
#   scripts/test.sh                 normal and sanitizer builds (CI: also tsan, clang, fuzz, arm, package, soak)
#   scripts/test.sh normal|sanitize|tsan|clang|fuzz|arm|package|soak ...   just those
# Each build lives in build/<name>; every test case runs in a process of its own.
# fuzz runs every libFuzzer target for FUZZ_SECONDS (default 30) each.
# package: install, the out-of-tree consumer and the Debian packages (native
# and arm64), checked by scripts/package-check.sh.
set -euo pipefail
cd "$(dirname "$0")/.."

if [ "$#" -gt 0 ]; then
  suites="$*"
elif { [ "${CI:-}" = "true" ] || [ "${ALARMSDK_TEST_ARM:-0}" = "1" ]; } && [ -f cmake/toolchain-aarch64.cmake ]; then
  suites="normal sanitize tsan clang fuzz arm package soak"
else
  suites="normal sanitize"
fi

setup_args=()
case " $suites " in *" arm "* | *" package "*) setup_args+=(--arm) ;; esac
case " $suites " in *" clang "* | *" fuzz "*) setup_args+=(--clang) ;; esac
bash scripts/setup.sh "${setup_args[@]}"

jobs=$(nproc)
total_passed=0
total_failed=0
summary=""

# A suite that does not configure or build counts as one failure, and the
# summary says so.
note_broken() {
  total_failed=$((total_failed + 1))
  summary="$summary  $1: $2 FAILED, $((SECONDS - $3)) s"$'\n'
}

# Configures and builds DIR with the cmake arguments that follow (the whole
# tree, or only TARGET when it is not empty); a failure is noted in the
# summary and the failure count.
configure_and_build() {
  local name=$1 dir=$2 started=$3 target=$4
  shift 4
  mkdir -p build
  echo "=== $name: configure and build"
  cmake -S . -B "$dir" "$@" > "$dir.configure.log" 2>&1 ||
    { cat "$dir.configure.log"; note_broken "$name" configure "$started"; return 1; }
  cmake --build "$dir" -j"$jobs" ${target:+--target "$target"} || { note_broken "$name" build "$started"; return 1; }
}

run_suite() {
  local name=$1
  shift
  local dir="build/$name"
  local started=$SECONDS
  configure_and_build "$name" "$dir" "$started" "" "$@" || return 1
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

run_package_checks() {
  local started=$SECONDS log=build/package-check.log rc=0
  mkdir -p build
  echo "=== package: install, consumer, Debian packages"
  bash scripts/package-check.sh 2>&1 | tee "$log" || rc=$?
  local line passed failed
  line=$(grep -E '^=== package checks: [0-9]+ passed, [0-9]+ failed' "$log" | tail -1 || true)
  passed=$(echo "$line" | sed -nE 's/.* ([0-9]+) passed.*/\1/p')
  failed=$(echo "$line" | sed -nE 's/.* ([0-9]+) failed.*/\1/p')
  if [ -z "$line" ]; then passed=0; failed=1; rc=1; fi
  total_passed=$((total_passed + passed))
  total_failed=$((total_failed + failed))
  summary="$summary  package: $passed passed, $failed failed, $((SECONDS - started)) s"$'\n'
  return $rc
}

# Builds the libFuzzer targets with clang and runs each from its checked-in
# seeds (new inputs go to build/fuzz/corpus, never into the source tree). A
# crash, leak, sanitizer report or hang fails the run.
run_fuzz() {
  local dir=build/fuzz
  local seconds=${FUZZ_SECONDS:-30}
  local started=$SECONDS
  configure_and_build fuzz "$dir" "$started" alarmsdk_fuzzers -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DALARMSDK_FUZZ=ON -DALARMSDK_BUILD_TESTS=OFF -DALARMSDK_BUILD_BENCH=OFF ||
    return 1
  local target rc=0 failed=0 ran=0 line
  while read -r target; do
    [ -n "$target" ] || continue
    ran=$((ran + 1))
    mkdir -p "$dir/corpus/$target"
    echo "=== fuzz: $target for ${seconds} s"
    if "$dir/fuzz/$target" -max_total_time="$seconds" -timeout=10 -print_final_stats=1 \
        -artifact_prefix="$dir/$target-" "$dir/corpus/$target" "fuzz/corpus/$target" > "$dir/$target.log" 2>&1; then
      line=$(grep -E 'stat::number_of_executed_units' "$dir/$target.log" | awk '{print $2}')
      echo "$target: ${line:-?} inputs, no crash"
    else
      tail -40 "$dir/$target.log"
      echo "$target: FAILED (see $dir/$target.log and $dir/$target-*)"
      failed=$((failed + 1))
      rc=1
    fi
  done < "$dir/fuzz/targets.txt"
  total_passed=$((total_passed + ran - failed))
  total_failed=$((total_failed + failed))
  summary="$summary  fuzz: $((ran - failed)) targets clean, $failed failed, $((SECONDS - started)) s"$'\n'
  return $rc
}

status=0
for suite in $suites; do
  case "$suite" in
    normal) run_suite normal -DCMAKE_BUILD_TYPE=RelWithDebInfo -DALARMSDK_BUILD_BENCH=OFF || status=1 ;;
    sanitize)
      export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
      run_suite sanitize -DCMAKE_BUILD_TYPE=Debug -DALARMSDK_SANITIZE=ON -DALARMSDK_BUILD_BENCH=OFF || status=1
      unset ASAN_OPTIONS UBSAN_OPTIONS ;;
    tsan) run_suite tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DALARMSDK_TSAN=ON -DALARMSDK_BUILD_BENCH=OFF || status=1 ;;
    clang)
      run_suite clang -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DALARMSDK_BUILD_BENCH=OFF || status=1 ;;
    fuzz) run_fuzz || status=1 ;;
    # The toolchain file alone configures the cross build; what it lacks for Arm
    # (Google Benchmark) is skipped with a line in the configure log.
    arm) run_suite arm -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-aarch64.cmake || status=1 ;;
    package) run_package_checks || status=1 ;;
    # scripts/soak.sh for 2 minutes on the normal build.
    soak) started=$SECONDS; if ! configure_and_build soak build/normal "$started" "" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DALARMSDK_BUILD_BENCH=OFF; then status=1; elif scripts/soak.sh 2 build/normal; then total_passed=$((total_passed + 1)); summary="$summary  soak: held for 2 min, $((SECONDS - started)) s"$'\n'; else note_broken soak run "$started"; status=1; fi ;;
    *) echo "unknown suite: $suite" >&2; exit 2 ;;
  esac
done

echo "=== summary"
printf '%s' "$summary"
echo "$total_passed passed, $total_failed failed"
exit $status
