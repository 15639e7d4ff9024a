#!/usr/bin/env bash
# Installs, packages and consumes the SDK the way a service outside this tree
# does, and checks the result. Run by `scripts/test.sh package` (in CI).
#   scripts/package-check.sh [native] [arm]     (default: both)
# native (build/package, prefix /usr):
#   - configuring without a required library fails with a line naming its package
#   - cmake --install into a temporary prefix, then again over files another
#     version left: exactly the files of the install manifest remain
#   - examples/consumer builds against that prefix with find_package and with
#     pkg-config, runs, and both alarms reach the installed nodeward-sim
#   - cpack -G DEB: the three packages, their contents, dependencies, the
#     library's SONAME, RUNPATH and exported symbols
# arm (build/package-arm, cross toolchain): the arm64 packages, same checks.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
targets="${*:-native arm}"
jobs=$(nproc)
work=$root/build/package-check
rm -rf "$work"
mkdir -p "$work"

passed=0
failed=0
pass() { passed=$((passed + 1)); echo "ok: $*"; }
fail() { failed=$((failed + 1)); echo "FAILED: $*"; }
# check DESCRIPTION COMMAND...: one counted check; the command prints why it failed.
check() {
  local what=$1
  shift
  if "$@"; then pass "$what"; else fail "$what"; fi
}

# Configures and builds what is installed, for the prefix packages use.
build_tree() {
  local dir=$1
  shift
  cmake -S . -B "$dir" -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DALARMSDK_BUILD_TESTS=OFF -DALARMSDK_BUILD_BENCH=OFF "$@" > "$dir.configure.log" 2>&1 ||
    { cat "$dir.configure.log"; return 1; }
  cmake --build "$dir" -j"$jobs" > "$dir.build.log" 2>&1 || { tail -50 "$dir.build.log"; return 1; }
}

version_of() { sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$1/CMakeCache.txt"; }

# ---- configure without a required library
fails_naming_package() {
  local out=$work/missing-$1
  shift
  local expected=$1
  shift
  if cmake -S . -B "$out" -DALARMSDK_BUILD_TESTS=OFF -DALARMSDK_BUILD_BENCH=OFF "$@" > "$out.log" 2>&1; then
    echo "configure succeeded without the library"
    return 1
  fi
  grep -q "install the Debian packages $expected\$" "$out.log" || { cat "$out.log"; return 1; }
  grep "install the Debian packages" "$out.log"
}

# ---- install into a prefix, twice, over another version's leftovers
install_twice() {
  local build=$1 prefix=$2 libdir=$3 version=$4
  cmake --install "$build" --prefix "$prefix" > "$work/install1.log" || return 1
  # What another version of the same major would have left behind.
  touch "$prefix/$libdir/libalarmsdk.so.1.0.99" "$prefix/$libdir/libalarmsdk-runlog.so.1.0.99" \
    "$prefix/include/alarmsdk/RetiredHeader.h"
  echo 'set_property(TARGET AlarmSdk::alarmsdk APPEND PROPERTY IMPORTED_CONFIGURATIONS DEBUG)
set_target_properties(AlarmSdk::alarmsdk PROPERTIES IMPORTED_LOCATION_DEBUG "${_IMPORT_PREFIX}/lib/libalarmsdk.so.0.9.0")' \
    > "$prefix/$libdir/cmake/AlarmSdk/AlarmSdkTargets-debug.cmake"
  cmake --install "$build" --prefix "$prefix" > "$work/install2.log" || return 1
  local left
  left=$(diff <(LC_ALL=C sort "$build/install_manifest.txt") \
    <(find "$prefix" \( -type f -o -type l \) | LC_ALL=C sort)) || {
    echo "the prefix holds other files than the install manifest:"
    echo "$left"
    return 1
  }
  local pc=$prefix/$libdir/pkgconfig/alarmsdk.pc
  grep -qx "prefix=$prefix" "$pc" && grep -qx "Version: $version" "$pc" || { cat "$pc"; return 1; }
}

# Installed files must not point into the source or build tree (the
# temporary prefix itself lives in build/package-check).
no_build_paths() {
  local hits
  hits=$(grep -rlE "$root/(build/package(/|-arm/)|include/|src/|platform/|tools/|cmake/)" "$@" 2>/dev/null || true)
  [ -z "$hits" ] || { echo "build paths in: $hits"; return 1; }
}

# ---- the consumer, both ways, against the prefix and the installed agent stand-in
build_consumers() {
  local prefix=$1 libdir=$2
  cmake -S examples/consumer -B "$work/consumer-cmake" -DCMAKE_PREFIX_PATH="$prefix" \
    > "$work/consumer-cmake.log" 2>&1 && cmake --build "$work/consumer-cmake" >> "$work/consumer-cmake.log" 2>&1 ||
    { cat "$work/consumer-cmake.log"; return 1; }
  local pcpath=$prefix/$libdir/pkgconfig
  # The line a developer types, plus a run path because the prefix is not a system directory.
  # shellcheck disable=SC2046
  cc -std=c99 -Wall -Wextra -Werror -o "$work/consumer-pkgconfig" examples/consumer/consumer.c \
    $(PKG_CONFIG_PATH=$pcpath pkg-config --cflags --libs alarmsdk) \
    -Wl,-rpath,"$(PKG_CONFIG_PATH=$pcpath pkg-config --variable=libdir alarmsdk)"
}

consumer_pids=""
sim_pid=""
stop_started() {
  local pid
  for pid in $consumer_pids $sim_pid; do
    kill "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  done
  consumer_pids=""
  sim_pid=""
}
trap stop_started EXIT

alarms_reach_agent() {
  local prefix=$1 version=$2
  local ready=$work/agent.endpoint
  "$prefix/bin/nodeward-sim" --listen 127.0.0.1:0 --ready-file "$ready" --exit-after-alarms 2 \
    --exit-after-seconds 120 > "$work/agent.out" 2>&1 &
  sim_pid=$!
  local i
  for i in $(seq 1 200); do
    [ -s "$ready" ] && break
    sleep 0.05
  done
  [ -s "$ready" ] || { echo "nodeward-sim did not start"; cat "$work/agent.out"; return 1; }
  local agent
  agent=$(cat "$ready")
  # Services run until stopped; the agent stand-in ends once both alarms arrived.
  APPID=consumer-cmake APPNAME=consumer NODEWARD_ENDPOINT=$agent \
    "$work/consumer-cmake/alarm-consumer" 300101 120 > "$work/consumer-cmake.out" 2>&1 &
  consumer_pids="$!"
  APPID=consumer-pkgconfig APPNAME=consumer NODEWARD_ENDPOINT=$agent \
    "$work/consumer-pkgconfig" 300102 120 > "$work/consumer-pkgconfig.out" 2>&1 &
  consumer_pids="$consumer_pids $!"
  wait "$sim_pid" || true
  sim_pid=""
  stop_started
  echo "--- the agent stand-in printed:"
  cat "$work/agent.out"
  local ok=0
  grep -q "^alarm 300101 generate .* app=consumer-cmake .*params: disk=sda" "$work/agent.out" || ok=1
  grep -q "^alarm 300102 generate .* app=consumer-pkgconfig .*params: disk=sda" "$work/agent.out" || ok=1
  local out
  for out in consumer-cmake consumer-pkgconfig; do
    grep -qx "alarm-consumer: built with Alarm SDK $version, running with $version" "$work/$out.out" ||
      { echo "--- $out printed:"; cat "$work/$out.out"; ok=1; }
  done
  return $ok
}

# ---- Debian packages
# Extracts the three packages of build dir into $work/deb-<arch>/<package>/.
make_debs() {
  local build=$1 arch=$2
  (cd "$build" && cpack -G DEB > cpack.log 2>&1) || { cat "$build/cpack.log"; return 1; }
  local deb
  for deb in "$build"/*.deb; do
    local name
    name=$(dpkg-deb -f "$deb" Package)
    rm -rf "$work/deb-$arch/$name"
    mkdir -p "$work/deb-$arch/$name"
    dpkg-deb -x "$deb" "$work/deb-$arch/$name"
  done
}

# The package's files as dpkg lists them (links with their targets).
contents() { dpkg-deb -c "$1" | awk '{ $1 = $2 = $3 = $4 = $5 = ""; sub(/^ +/, ""); print }'; }

has_entries() {
  local deb=$1
  shift
  local listing missing="" entry
  listing=$(contents "$deb")
  for entry in "$@"; do
    grep -qxF "$entry" <<< "$listing" || missing="$missing $entry"
  done
  [ -z "$missing" ] || { echo "$(basename "$deb") lacks:$missing"; return 1; }
}

lacks_entries() {
  local deb=$1 pattern=$2
  local found
  found=$(contents "$deb" | grep -E "$pattern" || true)
  [ -z "$found" ] || { echo "$(basename "$deb") should not hold: $found"; return 1; }
}

# Every library an ELF file of the package needs is in the package itself, in
# one of our packages it depends on, or in a Debian package its Depends names
# (those come from dpkg-shlibdeps).
depends_cover_needed() {
  local deb=$1 tree=$2 ma=$3
  local depends needed lib path owner missing="" ours=("$tree") dep
  depends=$(dpkg-deb -f "$deb" Depends | sed 's/ *([^)]*)//g; s/, /\n/g')
  for dep in $depends; do
    [ -d "$(dirname "$tree")/$dep" ] && ours+=("$(dirname "$tree")/$dep")
  done
  needed=$(find "$tree" -type f -exec sh -c 'readelf -d "$1" 2>/dev/null' _ {} \; |
    sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | sort -u)
  for lib in $needed; do
    [ -n "$(find "${ours[@]}" -name "$lib")" ] && continue
    owner=""
    for path in "/lib/$ma/$lib" "/usr/lib/$ma/$lib" "/lib64/$lib" "/usr/lib64/$lib"; do
      owner=$(dpkg -S "$path" 2>/dev/null | head -1 | cut -d: -f1) && [ -n "$owner" ] && break
    done
    grep -qxF "${owner:-?}" <<< "$depends" || missing="$missing $lib(${owner:-no package})"
  done
  [ -z "$missing" ] || { echo "$(basename "$deb") Depends: $(dpkg-deb -f "$deb" Depends); not covered:$missing"; return 1; }
}

check_debs() {
  local build=$1 arch=$2 ma=$3
  local version
  version=$(version_of "$build")
  local runtime=$build/libalarmsdk1_${version}_${arch}.deb
  local dev=$build/libalarmsdk-dev_${version}_${arch}.deb
  local tools=$build/alarmsdk-tools_${version}_${arch}.deb
  local lib=./usr/lib/$ma
  check "$arch: cpack -G DEB makes the three packages" make_debs "$build" "$arch"
  [ -f "$runtime" ] && [ -f "$dev" ] && [ -f "$tools" ] || { fail "$arch: packages named as expected"; ls "$build"/*.deb; return; }

  local deb
  for deb in "$runtime" "$dev" "$tools"; do
    echo "--- $(basename "$deb"): $(dpkg-deb -f "$deb" Architecture), Depends: $(dpkg-deb -f "$deb" Depends)"
    contents "$deb" | grep -v '/$'
  done

  local platform_entries=() name
  for name in runlog boundedstr restclient transportsdk; do
    platform_entries+=("$lib/libalarmsdk-$name.so.$version" "$lib/libalarmsdk-$name.so.1 -> libalarmsdk-$name.so.$version")
  done
  check "$arch: runtime package holds the library under its SONAME and the platform libraries" \
    has_entries "$runtime" "$lib/libalarmsdk.so.$version" "$lib/libalarmsdk.so.1 -> libalarmsdk.so.$version" \
    "${platform_entries[@]}"
  check "$arch: runtime package holds no development files" lacks_entries "$runtime" '\.so$|/include/|\.pc$|\.cmake$'

  local headers=() header
  for header in include/*.h; do headers+=("./usr/include/alarmsdk/$(basename "$header")"); done
  check "$arch: dev package holds every header, the link-time name, alarmsdk.pc and the CMake package" \
    has_entries "$dev" "${headers[@]}" "$lib/libalarmsdk.so -> libalarmsdk.so.1" "$lib/pkgconfig/alarmsdk.pc" \
    "$lib/cmake/AlarmSdk/AlarmSdkConfig.cmake" "$lib/cmake/AlarmSdk/AlarmSdkConfigVersion.cmake" \
    "$lib/cmake/AlarmSdk/AlarmSdkTargets.cmake" "$lib/cmake/AlarmSdk/AlarmSdkTargets-relwithdebinfo.cmake"
  check "$arch: dev package holds no libraries of its own" lacks_entries "$dev" '^[^ ]*\.so\.[0-9]'
  check "$arch: dev package's alarmsdk.pc names the /usr prefix" \
    grep -qx "prefix=/usr" "$work/deb-$arch/libalarmsdk-dev/usr/lib/$ma/pkgconfig/alarmsdk.pc"

  # Every folder of tools/ is a program.
  local programs=() dir
  for dir in tools/*/; do programs+=("./usr/bin/$(basename "$dir")"); done
  check "$arch: tools package holds every program" has_entries "$tools" "${programs[@]}"

  local pkg
  for pkg in libalarmsdk-dev alarmsdk-tools; do
    check "$arch: $pkg depends on exactly this libalarmsdk1" \
      grep -q "libalarmsdk1 (= $version)" <<< "$(dpkg-deb -f "$build/${pkg}_${version}_${arch}.deb" Depends)"
  done
  check "$arch: runtime package's dependencies cover every library it needs" \
    depends_cover_needed "$runtime" "$work/deb-$arch/libalarmsdk1" "$ma"
  check "$arch: tools package's dependencies cover every library it needs" \
    depends_cover_needed "$tools" "$work/deb-$arch/alarmsdk-tools" "$ma"
  check "$arch: every package is for $arch" \
    test "$(for deb in "$runtime" "$dev" "$tools"; do dpkg-deb -f "$deb" Architecture; done | sort -u)" = "$arch"

  local so=$work/deb-$arch/libalarmsdk1/usr/lib/$ma/libalarmsdk.so.$version
  check "$arch: the library's SONAME is libalarmsdk.so.1 and it finds its platform libraries beside itself" \
    test "$(readelf -d "$so" | sed -n 's/.*(\(SONAME\|RUNPATH\)).*\[\(.*\)\]/\1=\2/p' | tr '\n' ' ')" \
    = 'SONAME=libalarmsdk.so.1 RUNPATH=$ORIGIN '
  check "$arch: the packaged library exports exactly the listed symbols" bash tests/abi/check_exports.sh "$so"
  check "$arch: no package refers to the build tree" no_build_paths "$work/deb-$arch"
}

status=0
for target in $targets; do
  case "$target" in
    native)
      echo "=== package native: build"
      build_tree build/package || exit 1
      version=$(version_of build/package)
      ma=$(gcc -print-multiarch)
      check "configure without cJSON fails naming libcjson-dev" \
        fails_naming_package native libcjson-dev -DCMAKE_DISABLE_FIND_PACKAGE_cJSON=ON
      prefix=$work/prefix
      check "install twice into a prefix, over another version's files, leaves exactly the manifest" \
        install_twice build/package "$prefix" "lib/$ma" "$version"
      check "the installed CMake and pkg-config files do not refer to the build tree" \
        no_build_paths "$prefix/lib/$ma/cmake" "$prefix/lib/$ma/pkgconfig"
      if check "the consumer builds with find_package(AlarmSdk) and with pkg-config" build_consumers "$prefix" "lib/$ma"; then
        check "both consumers' alarms reach the installed nodeward-sim" alarms_reach_agent "$prefix" "$version"
      fi
      check_debs build/package "$(dpkg --print-architecture)" "$ma"
      ;;
    arm)
      echo "=== package arm: build"
      build_tree build/package-arm -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-aarch64.cmake || exit 1
      check "arm: configure without cJSON fails naming libcjson-dev:arm64" \
        fails_naming_package arm libcjson-dev:arm64 -DCMAKE_DISABLE_FIND_PACKAGE_cJSON=ON \
        -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-aarch64.cmake
      check_debs build/package-arm arm64 aarch64-linux-gnu
      ;;
    *) echo "unknown target: $target (native, arm)" >&2; exit 2 ;;
  esac
done
echo "=== package checks: $passed passed, $failed failed"
[ "$failed" -eq 0 ] || status=1
exit $status
