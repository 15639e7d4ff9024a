#!/usr/bin/env bash
# Builds the SDK and runs its test suites, installing what is missing.
#   scripts/test.sh              the suites marked "always" (CI=true: every suite)
#   scripts/test.sh NAME ...     just those
# A suite is one line of the table below. "preset": configured, built and
# tested with the CMake presets of its name (CMakePresets.json; build in
# build/<name>), counted from ctest's JUnit file. Otherwise a command whose
# last "N passed, N failed" gives the counts (its output is in build/<name>.log).
# The run ends with the totals alone on the last line: "N passed, N failed".
set -euo pipefail
cd "$(dirname "$0")/.."

#  name      runs     setup     how
suite_table='
   normal    always   -         preset
   sanitize  always   -         preset
   format    ci       --clang   scripts/format.sh --check
   tsan      ci       -         preset
   clang     ci       --clang   preset
   mutate    ci       -         scripts/mutate.sh --sample 6
   fuzz      ci       --clang   scripts/fuzz.sh
   arm       ci       --arm     preset
   package   ci       --arm     scripts/package-check.sh
   soak      ci       -         scripts/soak.sh 2
'

everything=0
if { [ "${CI:-}" = "true" ] || [ "${ALARMSDK_TEST_ARM:-0}" = "1" ]; } && [ -f cmake/toolchain-aarch64.cmake ]; then
  everything=1
fi
declare -A how=()
selected=()
setup_args=()
while read -r name runs setup command; do
  [ -n "$name" ] || continue
  how[$name]=$command
  if { [ "$#" -eq 0 ] && { [ "$runs" = always ] || [ "$everything" = 1 ]; }; } || [[ " $* " == *" $name "* ]]; then
    selected+=("$name")
    [ "$setup" = - ] || [[ " ${setup_args[*]-} " == *" $setup "* ]] || setup_args+=("$setup")
  fi
done <<< "$suite_table"
for name in "$@"; do
  [ -n "${how[$name]+set}" ] || { echo "unknown suite: $name (known: ${!how[*]})" >&2; exit 2; }
done

bash scripts/setup.sh "${setup_args[@]}"

jobs=$(nproc)
export CMAKE_BUILD_PARALLEL_LEVEL=${CMAKE_BUILD_PARALLEL_LEVEL:-$jobs}
# Rebuilds (and the mutation run's copy of the tree) come from the compiler cache.
if command -v ccache > /dev/null; then
  export CMAKE_C_COMPILER_LAUNCHER=${CMAKE_C_COMPILER_LAUNCHER:-ccache}
  export CMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER:-ccache}
  export CCACHE_BASEDIR=${CCACHE_BASEDIR:-$PWD} CCACHE_NOHASHDIR=${CCACHE_NOHASHDIR:-1}
fi
mkdir -p build

# Each runner sets passed and failed; a suite that cannot configure or build is one failure.
run_preset() {
  local name=$1 junit=build/$1/junit.xml
  echo "=== $name: configure and build"
  cmake --preset "$name" > "build/$name.configure.log" 2>&1 || { cat "build/$name.configure.log"; return 1; }
  cmake --build --preset "$name" || return 1
  echo "=== $name: tests"
  rm -f "$junit"
  # Most cases wait on sockets and pauses rather than the CPU, so run more than one per core.
  ctest --preset "$name" -j$((jobs + 1)) || true
  [ -f "$junit" ] || return 1
  # Passed: "run". Failed: "fail" and "notrun" unless skipped on purpose (a
  # skip rule matched, or disabled), which counts neither way.
  local total skipped
  total=$(grep -c '<testcase ' "$junit" || true)
  skipped=$(grep -cE '<skipped message="SKIP_|<testcase [^>]*status="disabled"' "$junit" || true)
  passed=$(grep -c '<testcase [^>]*status="run"' "$junit" || true)
  failed=$((total - passed - skipped))
}

run_command() {
  local name=$1 rc=0 counts
  echo "=== $name: $2"
  bash -c "$2" 2>&1 | tee "build/$name.log" || rc=$?
  counts=$(grep -oE '[0-9]+ passed, [0-9]+ failed' "build/$name.log" | tail -1)
  [ -n "$counts" ] || return 1
  passed=${counts%% passed*}
  failed=$(echo "$counts" | sed -E 's/.* ([0-9]+) failed/\1/')
  # A command that failed without counting it still failed.
  if [ "$rc" -ne 0 ] && [ "$failed" -eq 0 ]; then failed=1; fi
}

total_passed=0
total_failed=0
summary=""
for name in "${selected[@]}"; do
  started=$SECONDS
  passed=0
  failed=0
  if [ "${how[$name]}" = preset ]; then run_preset "$name" || failed=$((failed + 1)); else
    run_command "$name" "${how[$name]}" || failed=$((failed + 1))
  fi
  total_passed=$((total_passed + passed))
  total_failed=$((total_failed + failed))
  summary+="  $name: $passed passed, $failed failed, $((SECONDS - started)) s"$'\n'
done

echo "=== summary"
printf '%s' "$summary"
echo "$total_passed passed, $total_failed failed"
[ "$total_failed" -eq 0 ]
