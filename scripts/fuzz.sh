#!/usr/bin/env bash
# Builds the libFuzzer targets (preset fuzz: clang, build/fuzz) and runs each
# from its checked-in seeds for FUZZ_SECONDS (default 30). New inputs go to
# build/fuzz/corpus, never into the source tree. A crash, leak, sanitizer
# report or hang fails the target. Ends with "N passed, N failed" (targets).
set -euo pipefail
cd "$(dirname "$0")/.."
dir=build/fuzz
seconds=${FUZZ_SECONDS:-30}

mkdir -p build
cmake --preset fuzz > build/fuzz.configure.log 2>&1 || { cat build/fuzz.configure.log; exit 1; }
cmake --build --preset fuzz

passed=0
failed=0
while read -r target; do
  [ -n "$target" ] || continue
  mkdir -p "$dir/corpus/$target"
  echo "=== fuzz: $target for ${seconds} s"
  if "$dir/fuzz/$target" -max_total_time="$seconds" -timeout=10 -print_final_stats=1 \
      -artifact_prefix="$dir/$target-" "$dir/corpus/$target" "fuzz/corpus/$target" > "$dir/$target.log" 2>&1; then
    echo "$target: $(awk '/stat::number_of_executed_units/ {print $2}' "$dir/$target.log") inputs, no crash"
    passed=$((passed + 1))
  else
    tail -40 "$dir/$target.log"
    echo "$target: FAILED (see $dir/$target.log and $dir/$target-*)"
    failed=$((failed + 1))
  fi
done < "$dir/fuzz/targets.txt"
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
