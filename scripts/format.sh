#!/usr/bin/env bash
# Lays out the C and C++ sources by .clang-format.
#   scripts/format.sh            rewrites every file that differs
#   scripts/format.sh --check    changes nothing; names each file that differs and fails if any does
# Ends with "N passed, N failed" (files already laid out, files that are not).
set -euo pipefail
cd "$(dirname "$0")/.."
mode=${1:-}
case "$mode" in "" | --check) ;; *) echo "usage: $0 [--check]" >&2; exit 2 ;; esac

mapfile -t files < <(find bench examples fuzz include platform src tests tools -path fuzz/corpus -prune -o \
  -type f \( -name '*.c' -o -name '*.cpp' -o -name '*.h' \) -print | LC_ALL=C sort)
passed=0
failed=0
for file in "${files[@]}"; do
  if clang-format --style=file "$file" | cmp -s - "$file"; then
    passed=$((passed + 1))
  elif [ "$mode" = --check ]; then
    echo "not laid out: $file (scripts/format.sh rewrites it)"
    failed=$((failed + 1))
  else
    clang-format --style=file -i "$file"
    echo "rewrote $file"
    passed=$((passed + 1))
  fi
done
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
