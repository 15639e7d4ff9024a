#!/usr/bin/env bash
# Checks that the test suite catches real faults: applies each single-line
# mutation of scripts/mutations.txt, one at a time, to a scratch copy of the
# tree (build/mutate/src), rebuilds it (normal build, -j2), runs the suite and
# prints the mutations that no test caught. Run by hand, not in CI.
#   scripts/mutate.sh            every mutation
#   scripts/mutate.sh WORD       only the mutations whose line contains WORD
# Exit status 0 when every mutation was caught. The unmutated copy must build
# and pass first; a mutation that does not build is reported apart. The run
# works on its copy only, so the tree may be edited meanwhile.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
work=$root/build/mutate
filter=${1:-}
jobs=${MUTATE_JOBS:-2}

mkdir -p "$work"
# A copy of the tree as it is (time stamps kept, so a rerun rebuilds only what changed).
rm -rf "$work/src" && mkdir -p "$work/src"
tar -C "$root" --exclude=./build --exclude=./.git -cf - . | tar -C "$work/src" -xf -
# A run that did not end may have left objects built from mutated files, newer
# than the originals' time stamps: such a build is not trusted, it is redone.
if [ -e "$work/mutated" ]; then rm -rf "$work/build"; fi
build() { cmake --build "$work/build" -j"$jobs" > "$work/build.log" 2>&1; }
suite() { ctest --test-dir "$work/build" -j$((jobs + 1)) --stop-on-failure --timeout 300 > "$work/ctest.log" 2>&1; }

echo "=== unmutated copy: configure, build, test"
cmake -S "$work/src" -B "$work/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DALARMSDK_BUILD_BENCH=OFF \
  > "$work/configure.log" 2>&1 || { cat "$work/configure.log"; exit 2; }
build || { tail -40 "$work/build.log"; exit 2; }
suite || { tail -40 "$work/ctest.log"; echo "the unmutated suite fails: fix it first"; exit 2; }

# Replaces TEXT on the one line of FILE that holds it; fails when not exactly one does.
apply() {
  python3 - "$1" "$2" "$3" <<'EOF'
import sys
path, text, replacement = sys.argv[1:4]
with open(path, encoding="utf-8") as f:
    lines = f.read().split("\n")
hits = [i for i, line in enumerate(lines) if text in line]
if len(hits) != 1:
    sys.exit(f"{len(hits)} lines of {path} hold the text")
lines[hits[0]] = lines[hits[0]].replace(text, replacement, 1)
with open(path, "w", encoding="utf-8") as f:
    f.write("\n".join(lines))
EOF
}

caught=0
survived=()
broken=()
while IFS= read -r line; do
  case "$line" in '' | '#'*) continue ;; esac
  # Split at tabs without merging them (a tab is whitespace to read).
  IFS=$'\x1f' read -r file text replacement what <<< "${line//$'\t'/$'\x1f'}"
  [ -z "$filter" ] || [[ "$file $text $what" == *"$filter"* ]] || continue
  label="$file: $what"
  echo "$file" > "$work/mutated"
  cp -p "$work/src/$file" "$work/original"
  if ! apply "$work/src/$file" "$text" "$replacement" 2> "$work/apply.log"; then
    broken+=("$label ($(cat "$work/apply.log"))")
    echo "NOT APPLIED  $label"
    continue
  fi
  if ! build; then
    broken+=("$label (does not build)")
    echo "NO BUILD     $label"
  elif suite; then
    survived+=("$label")
    echo "SURVIVED     $label"
  else
    caught=$((caught + 1))
    failed=$(grep -m1 -E '^\s+[0-9]+ - ' "$work/ctest.log" | sed -E 's/^\s+[0-9]+ - //' || true)
    echo "caught       $label   [$failed]"
  fi
  cp "$work/original" "$work/src/$file"  # a fresh time stamp, so it is rebuilt
done < "$work/src/scripts/mutations.txt"  # the list as it was at the start
build || true  # leave the copy built unmutated
rm -f "$work/mutated"

echo "=== $caught caught, ${#survived[@]} survived, ${#broken[@]} not applied or not built"
for s in "${survived[@]}"; do echo "survived: $s"; done
for b in "${broken[@]}"; do echo "not run:  $b"; done
[ "${#survived[@]}" -eq 0 ] && [ "${#broken[@]}" -eq 0 ]
