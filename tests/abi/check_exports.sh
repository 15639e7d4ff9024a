#!/usr/bin/env bash
# The library must export exactly the symbols listed in alarmsdk.symbols (demangled, one per line): a missing one breaks
# services linked against an earlier build, an extra one becomes interface by accident.
#   tests/abi/check_exports.sh LIBRARY [LIST]   compare (LIST: alarmsdk.symbols beside this script)
#   tests/abi/check_exports.sh --print LIBRARY  print what LIBRARY exports, in the list's form
set -euo pipefail

exported() {
  # Defined global and weak symbols; the version node (ABS) is not a symbol of the interface.
  readelf --dyn-syms --wide "$1" |
    awk '$7 != "UND" && $7 != "ABS" && ($5 == "GLOBAL" || $5 == "WEAK") { sub(/@.*/, "", $8); print $8 }' |
    c++filt | LC_ALL=C sort -u
}

if [ "${1:-}" = "--print" ]; then
  exported "$2"
  exit 0
fi
library=$1
list=${2:-$(dirname "$0")/alarmsdk.symbols}
expected=$(grep -v -e '^#' -e '^$' "$list" | LC_ALL=C sort -u)
actual=$(exported "$library")
missing=$(LC_ALL=C comm -23 <(echo "$expected") <(echo "$actual"))
extra=$(LC_ALL=C comm -13 <(echo "$expected") <(echo "$actual"))
if [ -n "$missing$extra" ]; then
  echo "$library does not export exactly the symbols of $list"
  [ -z "$missing" ] || echo "$missing" | sed 's/^/not exported: /'
  [ -z "$extra" ] || echo "$extra" | sed 's/^/not listed:   /'
  exit 1
fi
echo "$library exports the $(echo "$actual" | wc -l) symbols of $(basename "$list")"
