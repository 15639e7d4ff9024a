#!/usr/bin/env bash
# Installs, packages and consumes the SDK the way a service outside this tree
# does. Run by `scripts/test.sh package` (in CI).
#   scripts/package-check.sh [native] [arm]     (default: both)
# native (build/package): configuring without a required library names its
#   package; installing twice into a prefix, over another version's files,
#   leaves exactly the manifest; examples/consumer builds against that prefix
#   with find_package and with pkg-config, and both alarms reach the installed
#   nodeward-sim; then the Debian packages.
# arm (build/package-arm, cross toolchain): the arm64 Debian packages.
# Debian packages: the three of them, their contents, their dependencies, the
# library's SONAME, RUNPATH and exported symbols, no build paths, a manual page
# for every public function and every program, lintian without a warning; the
# native library's ABI against tests/abi/libalarmsdk.abi.gz, and bash
# completion of the installed programs.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
work=$root/build/package-check
rm -rf "$work"
mkdir -p "$work"

passed=0
failed=0
last_ok=0
# check DESCRIPTION COMMAND...: one counted check; the command says why it failed.
check() {
  local what=$1
  shift
  last_ok=0
  if "$@"; then passed=$((passed + 1)); last_ok=1; echo "ok: $what"; else failed=$((failed + 1)); echo "FAILED: $what"; fi
}

# Builds what is installed, for the prefix packages use (the preset of that name, in build/<preset>).
build_tree() {
  { cmake --preset "$1" && cmake --build --preset "$1" -j"$(nproc)"; } > "build/$1.log" 2>&1 ||
    { tail -50 "build/$1.log"; return 1; }
}

fails_naming_package() {
  local expected=$1
  shift
  rm -rf "$work/missing"
  if cmake -S . -B "$work/missing" -DALARMSDK_BUILD_TESTS=OFF "$@" > "$work/missing.log" 2>&1; then
    echo "configure succeeded without the library"
    return 1
  fi
  grep "install the Debian packages $expected\$" "$work/missing.log" || { cat "$work/missing.log"; return 1; }
}

# Installed files must not point into the source or build tree.
no_build_paths() {
  local hits
  hits=$(grep -rlE "$root/(build/package(/|-arm/)|include/|src/|platform/|tools/|cmake/)" "$@" || true)
  [ -z "$hits" ] || { echo "build paths in: $hits"; return 1; }
}

install_twice() {
  local prefix=$1 lib=$2
  cmake --install build/package --prefix "$prefix" > "$work/install.log" || return 1
  # What another version of the same major would have left behind.
  touch "$prefix/$lib/libalarmsdk.so.1.0.99" "$prefix/$lib/libalarmsdk-runlog.so.1.0.99" \
    "$prefix/include/alarmsdk/Retired.h" "$prefix/$lib/cmake/AlarmSdk/AlarmSdkTargets-debug.cmake"
  cmake --install build/package --prefix "$prefix" >> "$work/install.log" || return 1
  diff <(LC_ALL=C sort build/package/install_manifest.txt) <(find "$prefix" ! -type d | LC_ALL=C sort) &&
    grep -qx "prefix=$prefix" "$prefix/$lib/pkgconfig/alarmsdk.pc" && no_build_paths "$prefix/$lib/cmake" "$prefix/$lib/pkgconfig"
}

build_consumers() {
  local prefix=$1 lib=$2
  { cmake -S examples/consumer -B "$work/consumer-cmake" -DCMAKE_PREFIX_PATH="$prefix" &&
    cmake --build "$work/consumer-cmake"; } > "$work/consumer-cmake.log" 2>&1 ||
    { cat "$work/consumer-cmake.log"; return 1; }
  # The line a developer types, plus a run path because the prefix is not a system directory.
  export PKG_CONFIG_PATH=$prefix/$lib/pkgconfig
  # shellcheck disable=SC2046
  cc -std=c99 -Wall -Wextra -Werror -o "$work/consumer-pkgconfig" examples/consumer/consumer.c \
    $(pkg-config --cflags --libs alarmsdk) -Wl,-rpath,"$(pkg-config --variable=libdir alarmsdk)"
}

started=""
stop_started() {
  local pid
  for pid in $started; do
    kill "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  done
  started=""
}
trap stop_started EXIT

# Services run until stopped; the agent stand-in ends once both alarms arrived.
alarms_reach_agent() {
  local prefix=$1 version=$2 agent i rc=0
  "$prefix/bin/nodeward-sim" --listen 127.0.0.1:0 --ready-file "$work/agent.endpoint" --exit-after-alarms 2 \
    --exit-after-seconds 120 > "$work/agent.out" 2>&1 &
  local sim=$!
  started=$sim
  for i in $(seq 1 200); do
    [ -s "$work/agent.endpoint" ] && break
    sleep 0.05
  done
  agent=$(cat "$work/agent.endpoint") || { cat "$work/agent.out"; return 1; }
  APPID=consumer-cmake APPNAME=consumer NODEWARD_ENDPOINT=$agent \
    "$work/consumer-cmake/alarm-consumer" 300101 120 > "$work/consumer-cmake.out" 2>&1 &
  started="$started $!"
  APPID=consumer-pkgconfig APPNAME=consumer NODEWARD_ENDPOINT=$agent \
    "$work/consumer-pkgconfig" 300102 120 > "$work/consumer-pkgconfig.out" 2>&1 &
  started="$started $!"
  wait "$sim" || true
  stop_started
  echo "--- the agent stand-in printed:"
  cat "$work/agent.out"
  for i in cmake pkgconfig; do
    grep -q "^alarm 30010[12] generate .* app=consumer-$i .*params: disk=sda" "$work/agent.out" || rc=1
    grep -qx "alarm-consumer: built with Alarm SDK $version, running with $version" "$work/consumer-$i.out" ||
      { cat "$work/consumer-$i.out"; rc=1; }
  done
  return $rc
}

# The package's files as dpkg lists them (links with their targets).
contents() { dpkg-deb -c "$1" | awk '{ $1 = $2 = $3 = $4 = $5 = ""; sub(/^ +/, ""); print }'; }

# holds DEB PATTERN_NOT_HELD ENTRY...: DEB has every ENTRY and no entry matching the pattern.
holds() {
  local deb=$1 unwanted=$2 listing entry missing=""
  shift 2
  listing=$(contents "$deb")
  for entry in "$@"; do
    grep -qxF "$entry" <<< "$listing" || missing="$missing $entry"
  done
  [ -z "$missing" ] || { echo "$(basename "$deb") lacks:$missing"; return 1; }
  ! grep -E "$unwanted" <<< "$listing"
}

# Every library an ELF file of the package needs is in the package, in one of
# our packages it depends on, or in a Debian package its Depends names.
depends_cover_needed() {
  local deb=$1 tree=$2 ma=$3
  local depends lib path owner missing="" ours=("$tree") dep
  depends=$(dpkg-deb -f "$deb" Depends | sed 's/ *([^)]*)//g; s/, /\n/g')
  for dep in $depends; do
    [ -d "$(dirname "$tree")/$dep" ] && ours+=("$(dirname "$tree")/$dep")
  done
  for lib in $(find "$tree" -type f -exec readelf -d {} + 2>/dev/null | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | sort -u); do
    [ -n "$(find "${ours[@]}" -name "$lib")" ] && continue
    owner=""
    for path in "/lib/$ma/$lib" "/usr/lib/$ma/$lib" "/lib64/$lib"; do
      owner=$(dpkg -S "$path" 2>/dev/null | sed -n 1p | cut -d: -f1) && [ -n "$owner" ] && break
    done
    grep -qxF "${owner:-?}" <<< "$depends" || missing="$missing $lib(${owner:-no package})"
  done
  [ -z "$missing" ] || { echo "$(basename "$deb"): $(dpkg-deb -f "$deb" Depends); not covered:$missing"; return 1; }
}

# Every function the library exports, by its C name or its C++ class, but the
# legacy loader's internals (ALM_*, CHECK_ALARMODEL, lltos: AlarmConfig.h, AlarmAdapter.h).
public_functions() {
  readelf --dyn-syms --wide "$1" |
    awk '$4 == "FUNC" && $7 != "UND" && ($5 == "GLOBAL" || $5 == "WEAK") { sub(/@.*/, "", $8); print $8 }' |
    c++filt | sed -E 's/\(.*//; s/::.*//' | grep -vE '^(ALM_|CHECK_ALARMODEL$|lltos$)' | LC_ALL=C sort -u
}

# has_pages DEB SECTION NAME...: DEB holds the manual page (or a link) of every NAME.
has_pages() {
  local deb=$1 section=$2 listing name missing=""
  shift 2
  listing=$(contents "$deb")
  for name in "$@"; do
    grep -qE "^\./usr/share/man/man$section/$name\.$section\.gz( -> .*)?$" <<< "$listing" || missing="$missing $name"
  done
  [ -z "$missing" ] || { echo "$(basename "$deb") has no manual page for:$missing"; return 1; }
}

# man finds the pages a user asks for by name, through the links too.
man_finds() {
  local root=$1 page
  shift
  for page in "$@"; do
    # shellcheck disable=SC2086
    MANPATH=$root/usr/share/man man -w $page > /dev/null || { echo "man $page finds nothing"; return 1; }
    MANPATH=$root/usr/share/man MANWIDTH=80 man $page 2>&1 > /dev/null | grep . && return 1
  done
  return 0
}

# Bash completes each program's options from the installed completion file.
completes_options() {
  local prefix=$1 program option
  for program in "${@:2}"; do
    option=$("$prefix/bin/$program" --help | grep -oE -- '--[a-z][-a-z]*' | sed -n 1p)
    PATH=$prefix/bin:$PATH bash -c 'source /usr/share/bash-completion/bash_completion; source "$1"
      COMP_WORDS=("$2" "${3:0:4}"); COMP_CWORD=1; COMP_LINE="$2 ${3:0:4}"; COMP_POINT=${#COMP_LINE}
      _longopt "$2" "${3:0:4}" "$2"; printf "%s\n" "${COMPREPLY[@]}"' _ \
      "$prefix/share/bash-completion/completions/$program" "$program" "$option" | grep -x -- "$option" >/dev/null ||
      { echo "$program: ${option:0:4}<TAB> does not complete to $option"; return 1; }
  done
}

check_debs() {
  local build=$1 arch=$2 ma=$3 version deb name
  version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
  local runtime=$build/libalarmsdk1_${version}_${arch}.deb dev=$build/libalarmsdk-dev_${version}_${arch}.deb
  local tools=$build/alarmsdk-tools_${version}_${arch}.deb lib=./usr/lib/$ma debs=$work/deb-$arch
  rm -f "$build"/*.deb
  (cd "$build" && cpack -G DEB > cpack.log 2>&1) || { cat "$build/cpack.log"; failed=$((failed + 1)); return; }
  check "$arch: cpack -G DEB makes the three packages" test -f "$runtime" -a -f "$dev" -a -f "$tools"
  for deb in "$build"/*.deb; do
    name=$(dpkg-deb -f "$deb" Package)
    mkdir -p "$debs/$name" && dpkg-deb -x "$deb" "$debs/$name"
    echo "--- $(basename "$deb"): Depends: $(dpkg-deb -f "$deb" Depends)"
    contents "$deb" | grep -v '/$'
  done

  local runtime_files=("$lib/libalarmsdk.so.$version" "$lib/libalarmsdk.so.1 -> libalarmsdk.so.$version")
  for name in runlog boundedstr restclient transportsdk; do
    runtime_files+=("$lib/libalarmsdk-$name.so.$version" "$lib/libalarmsdk-$name.so.1 -> libalarmsdk-$name.so.$version")
  done
  check "$arch: runtime package holds the library under its SONAME and the platform libraries, nothing for development" \
    holds "$runtime" '\.so$|/include/|\.pc$|\.cmake$' "${runtime_files[@]}"
  local dev_files=("$lib/libalarmsdk.so -> libalarmsdk.so.1" "$lib/pkgconfig/alarmsdk.pc")
  for name in include/*.h; do dev_files+=("./usr/include/alarmsdk/${name#include/}"); done
  for name in Config ConfigVersion Targets Targets-relwithdebinfo; do
    dev_files+=("$lib/cmake/AlarmSdk/AlarmSdk$name.cmake")
  done
  check "$arch: dev package holds every header, the link-time name, alarmsdk.pc and the CMake package, no library" \
    holds "$dev" '^[^ ]*\.so\.[0-9]' "${dev_files[@]}"
  check "$arch: dev package's alarmsdk.pc has the /usr prefix" grep -qx "prefix=/usr" "$debs/libalarmsdk-dev/$lib/pkgconfig/alarmsdk.pc"
  local programs=()  # every folder of tools/ with a main.cpp is a program
  for name in tools/*/; do if [ -f "$name/main.cpp" ]; then programs+=("./usr/bin/$(basename "$name")"); fi; done
  programs+=("./usr/lib/systemd/system/alarm-bridge.service" ./usr/share/alarm-bridge/ui/{index.html,script.js})
  check "$arch: tools package holds every program, the bridge's unit and its page, no library or header" \
    holds "$tools" '^\./usr/(lib/[^/]*(-linux-gnu/|\.so)|include/).' "${programs[@]}"

  for deb in "$dev" "$tools"; do
    check "$arch: $(basename "$deb") depends on this very libalarmsdk1" \
      grep -q "libalarmsdk1 (= $version)" <<< "$(dpkg-deb -f "$deb" Depends)"
  done
  for name in libalarmsdk1 alarmsdk-tools; do
    check "$arch: $name's dependencies cover every library it needs" \
      depends_cover_needed "$build/${name}_${version}_${arch}.deb" "$debs/$name" "$ma"
  done
  local so=$debs/libalarmsdk1/$lib/libalarmsdk.so.$version
  check "$arch: the library's SONAME is libalarmsdk.so.1 and it finds its platform libraries beside itself" \
    test "$(readelf -d "$so" | sed -n 's/.*(\(SONAME\|RUNPATH\)).*\[\(.*\)\]/\1=\2/p' | tr '\n' ' ')" \
    = 'SONAME=libalarmsdk.so.1 RUNPATH=$ORIGIN '
  check "$arch: the packaged library exports exactly the listed symbols" bash tests/abi/check_exports.sh "$so"
  check "$arch: no package refers to the build tree" no_build_paths "$debs"

  local functions programs_named=()
  mapfile -t functions < <(public_functions "$so")
  for name in tools/*/; do if [ -f "$name/main.cpp" ]; then programs_named+=("$(basename "$name")"); fi; done
  check "$arch: the dev package has a manual page for each of the ${#functions[@]} public functions and classes" \
    has_pages "$dev" 3 "${functions[@]}"
  check "$arch: the dev package has the overview and the file formats, the tools package a page for each program" \
    eval 'has_pages "$dev" 7 alarmsdk && has_pages "$dev" 5 alarmdef alarmdef-language && has_pages "$tools" 1 "${programs_named[@]}"'
  check "$arch: man finds ZEBSendAlarm, a linked name, 5 alarmdef and alarm-send, and formats them without a warning" \
    eval 'man_finds "$debs/libalarmsdk-dev" ZEBSendAlarm alarmsdk_flush_process "5 alarmdef" "7 alarmsdk" &&
      man_finds "$debs/alarmsdk-tools" alarm-send'
  local completions=()
  for name in "${programs_named[@]}"; do completions+=("./usr/share/bash-completion/completions/$name"); done
  check "$arch: the tools package holds a bash completion for each program" holds "$tools" '^$' "${completions[@]}"
  for name in libalarmsdk1 libalarmsdk-dev alarmsdk-tools; do
    check "$arch: $name has its copyright file and a changelog whose first entry is $version" \
      eval "test -f '$debs/$name/usr/share/doc/$name/copyright' &&
        zcat '$debs/$name/usr/share/doc/$name/changelog.gz' | sed -n 1p | grep -q '($version)'"
  done
  check "$arch: libalarmsdk1 has shlibs, symbols and the ldconfig trigger, and no maintainer script" \
    eval "dpkg-deb --ctrl-tarfile '$runtime' | tar -t | sort | tr '\n' ' ' | grep -qx './ ./control ./md5sums ./shlibs ./symbols ./triggers '"
  check "$arch: lintian finds no error and no warning in the three packages" \
    lintian --fail-on error,warning "$runtime" "$dev" "$tools"
}

for target in ${*:-native arm}; do
  case "$target" in
    native)
      echo "=== package native"
      build_tree package || exit 1
      ma=$(gcc -print-multiarch)
      version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' build/package/CMakeCache.txt)
      check "configure without cJSON fails naming libcjson-dev" \
        fails_naming_package libcjson-dev -DCMAKE_DISABLE_FIND_PACKAGE_cJSON=ON
      check "install twice into a prefix, over another version's files, leaves exactly the manifest" \
        install_twice "$work/prefix" "lib/$ma"
      check "the consumer builds with find_package(AlarmSdk) and with pkg-config" \
        build_consumers "$work/prefix" "lib/$ma"
      [ "$last_ok" = 1 ] &&
        check "both consumers' alarms reach the installed nodeward-sim" alarms_reach_agent "$work/prefix" "$version"
      check_debs build/package "$(dpkg --print-architecture)" "$ma"
      check "the library keeps the ABI of tests/abi/libalarmsdk.abi.gz" \
        bash tests/abi/check_abi.sh "build/package/src/libalarmsdk.so.$version"
      programs_named=()
      for name in tools/*/; do if [ -f "$name/main.cpp" ]; then programs_named+=("$(basename "$name")"); fi; done
      check "bash completes every installed program's options" completes_options "$work/prefix" "${programs_named[@]}"
      ;;
    arm)
      echo "=== package arm"
      build_tree package-arm || exit 1
      check "arm: configure without cJSON fails naming libcjson-dev:arm64" fails_naming_package libcjson-dev:arm64 \
        -DCMAKE_DISABLE_FIND_PACKAGE_cJSON=ON -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-aarch64.cmake
      check_debs build/package-arm arm64 aarch64-linux-gnu
      ;;
    *) echo "unknown target: $target (native, arm)" >&2; exit 2 ;;
  esac
done
echo "=== package checks: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
