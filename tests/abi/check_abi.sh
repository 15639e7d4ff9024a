#!/usr/bin/env bash
# The library's binary interface against the committed baseline libalarmsdk.abi.gz (abidw's description of every
# export and every type reachable from include/).
#   tests/abi/check_abi.sh LIBRARY            compare (LIBRARY built with -g)
#   tests/abi/check_abi.sh --update LIBRARY   write the baseline from LIBRARY
# Any difference fails: an incompatible one unless the SONAME changed with it, an addition until the baseline is
# written in the same commit.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
baseline=$here/libalarmsdk.abi.gz
headers=$here/../../include

if [ "${1:-}" = "--update" ]; then
  abidw --no-show-locs --no-corpus-path --headers-dir "$headers" --drop-private-types "$2" | gzip -9n > "$baseline"
  echo "wrote $baseline from $2"
  exit 0
fi
library=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
gzip -dc "$baseline" > "$work/baseline.abi"
rc=0
abidiff "$work/baseline.abi" "$library" > "$work/report" 2>&1 || rc=$?
if [ "$rc" -eq 0 ]; then
  echo "$library has the ABI of $(basename "$baseline")"
  exit 0
fi
cat "$work/report"
# abidiff's exit bits: 1 error, 2 usage, 4 change, 8 incompatible; to us anything but additions is incompatible.
if [ $((rc & 3)) -ne 0 ]; then
  echo "abidiff failed (exit $rc)"
  exit 1
fi
if grep -E 'changes summary:' "$work/report" | grep -qE '(^|[^0-9])[1-9][0-9]* (Removed|Changed)'; then
  rc=$((rc | 8))
fi
old=$(sed -n "1s/.*soname='\([^']*\)'.*/\1/p" "$work/baseline.abi")
new=$(readelf -d "$library" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
if [ $((rc & 8)) -ne 0 ]; then
  if [ "$old" != "$new" ]; then
    echo "incompatible with $old, allowed: the SONAME is now $new (write its baseline: $0 --update LIBRARY)"
    exit 0
  fi
  echo "INCOMPATIBLE ABI change while the SONAME stays $new: services linked against it would break."
  echo "Undo the change, or raise ALARMSDK_VERSION_MAJOR in include/AlarmSdkVersion.h."
  exit 1
fi
echo "The ABI changed compatibly (an addition?): write the baseline in the same commit: $0 --update LIBRARY"
exit 1
