#!/usr/bin/env bash
# Checks that the test suite catches real faults: applies each single-line
# mutation of scripts/mutations.txt, one at a time, to a scratch copy of the
# tree (build/mutate/tree), rebuilds it (preset normal without the
# benchmarks), runs the suite and prints the mutations that no test caught.
#   scripts/mutate.sh              every mutation
#   scripts/mutate.sh WORD         only the mutations whose line contains WORD
#   scripts/mutate.sh --sample N   N of them (CI): a window that moves through the
#                                  list day by day (MUTATE_SEED=<number> picks one)
#   scripts/mutate.sh --check      builds nothing: each mutation's text is found
#                                  exactly once and its replacement changes it
# A mutation's text is matched ignoring whitespace, also across line breaks, so
# laying the code out again does not break the list. Exit status 0 when every
# mutation was caught; the last line counts caught ones as passed and the rest
# as failed. The unmutated copy must build and pass first; a mutation that does
# not apply or build is reported apart. The run works on its copy only, so the
# tree may be edited meanwhile.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
work=$root/build/mutate
jobs=${MUTATE_JOBS:-2}
mode=all
filter=""
case "${1:-}" in
  --sample) mode=sample; sample=${2:?--sample needs a count} ;;
  --check) mode=check ;;
  *) filter=${1:-} ;;
esac

# apply FILE TEXT REPLACEMENT: replaces the one place of FILE that holds TEXT
# (whitespace ignored); fails when not exactly one does, or nothing would change.
apply() {
  perl -e '
    my ($path, $text, $replacement) = @ARGV;
    open(my $in, "<", $path) or die "cannot read $path\n";
    my $code = do { local $/; <$in> };
    close($in);
    (my $bare = $text) =~ s/\s+//g;
    (my $new = $replacement) =~ s/^\s+|\s+$//g;
    (my $newBare = $new) =~ s/\s+//g;
    die "the replacement is the text\n" if $bare eq $newBare;
    my $pattern = join("\\s*", map { quotemeta } split(//, $bare));
    my @at;
    while ($code =~ /$pattern/g) { push(@at, [$-[0], $+[0] - $-[0]]); }
    die scalar(@at) . " places of $path hold the text\n" if @at != 1;
    substr($code, $at[0][0], $at[0][1]) = $new;
    open(my $out, ">", $path) or die "cannot write $path\n";
    print $out $code;
  ' "$@"
}

# The list's mutations as "FILE<US>TEXT<US>REPLACEMENT<US>WHAT" (tabs split fields
# without merging), those of this run only.
select_mutations() {
  local all=() line
  while IFS= read -r line; do
    case "$line" in '' | '#'*) continue ;; esac
    line=${line//$'\t'/$'\x1f'}
    [ -z "$filter" ] || [[ "$line" == *"$filter"* ]] || continue
    all+=("$line")
  done < "$1"
  if [ "$mode" = sample ] && [ "${#all[@]}" -gt 0 ]; then
    local seed=${MUTATE_SEED:-$(($(date +%s) / 86400))} k
    for ((k = 0; k < sample && k < ${#all[@]}; k++)); do
      printf '%s\n' "${all[$(((seed * sample + k) % ${#all[@]}))]}"
    done
  elif [ "${#all[@]}" -gt 0 ]; then
    printf '%s\n' "${all[@]}"
  fi
}

if [ "$mode" = check ]; then
  scratch=$(mktemp)
  trap 'rm -f "$scratch"' EXIT
  passed=0
  failed=0
  while IFS=$'\x1f' read -r file text replacement what; do
    cp "$file" "$scratch"
    if reason=$(apply "$scratch" "$text" "$replacement" 2>&1); then passed=$((passed + 1)); else
      echo "does not apply: $file: $what ($reason)"
      failed=$((failed + 1))
    fi
  done < <(select_mutations scripts/mutations.txt)
  echo "$passed passed, $failed failed"
  [ "$failed" -eq 0 ]
  exit
fi

tree=$work/tree
mkdir -p "$work"
# The copy's build has the same place in it as build/normal in the tree, so
# with the compiler cache the unmutated copy costs hardly a compile.
if command -v ccache > /dev/null; then
  export CMAKE_C_COMPILER_LAUNCHER=${CMAKE_C_COMPILER_LAUNCHER:-ccache}
  export CMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER:-ccache}
  export CCACHE_BASEDIR=${CCACHE_BASEDIR:-$root} CCACHE_NOHASHDIR=${CCACHE_NOHASHDIR:-1}
fi
# A copy of the tree as it is (time stamps kept, so a rerun rebuilds only what
# changed).
mkdir -p "$tree"
find "$tree" -mindepth 1 -maxdepth 1 ! -name build -exec rm -rf {} +
tar -C "$root" --exclude=./build --exclude=./.git -cf - . | tar -C "$tree" -xf -
# A run that did not end may have left objects built from mutated files, newer
# than the originals' time stamps: such a build is not trusted, it is redone.
if [ -e "$work/mutated" ]; then rm -rf "$tree/build"; fi
build() { cmake --build "$tree/build/normal" -j"$jobs" > "$work/build.log" 2>&1; }
# Without the check that the list applies: a mutated copy fails it by construction.
suite() {
  ctest --test-dir "$tree/build/normal" -j$((jobs + 1)) --stop-on-failure --timeout 300 -E '^Mutations\.' \
    > "$work/ctest.log" 2>&1
}

echo "=== unmutated copy: configure, build, test"
(cd "$tree" && cmake --preset normal -DALARMSDK_BUILD_BENCH=OFF) > "$work/configure.log" 2>&1 ||
  { cat "$work/configure.log"; echo "0 passed, 1 failed"; exit 2; }
build || { tail -40 "$work/build.log"; echo "0 passed, 1 failed"; exit 2; }
suite || { tail -40 "$work/ctest.log"; echo "the unmutated suite fails: fix it first"; echo "0 passed, 1 failed"; exit 2; }

caught=0
survived=()
broken=()
while IFS=$'\x1f' read -r file text replacement what; do
  label="$file: $what"
  echo "$file" > "$work/mutated"
  cp -p "$tree/$file" "$work/original"
  if ! apply "$tree/$file" "$text" "$replacement" 2> "$work/apply.log"; then
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
  cp "$work/original" "$tree/$file"  # a fresh time stamp, so it is rebuilt
done < <(select_mutations "$tree/scripts/mutations.txt")  # the list as it was at the start
build || true  # leave the copy built unmutated
rm -f "$work/mutated"

echo "=== $caught caught, ${#survived[@]} survived, ${#broken[@]} not applied or not built"
for s in "${survived[@]}"; do echo "survived: $s"; done
for b in "${broken[@]}"; do echo "not run:  $b"; done
echo "$caught passed, $((${#survived[@]} + ${#broken[@]})) failed"
[ "${#survived[@]}" -eq 0 ] && [ "${#broken[@]}" -eq 0 ]
