# Shared by the tools: where the tree is, what it needs of Debian and how that gets installed, and how its programs are
# run. Sourced by bash; on a machine that has every package it changes nothing and asks for no rights.

lyn_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)

# Who has no home keeps in the tree what compiler and linter remember.
[ -n "${XDG_CACHE_HOME-}" ] || [ -w ~ ] || export XDG_CACHE_HOME=$lyn_root/build/cache

lyn_packages_demo=(g++ make cmake pkg-config libtomlplusplus-dev nlohmann-json3-dev libedit-dev)
lyn_packages_watch=("${lyn_packages_demo[@]}" libcli11-dev libncurses-dev libcpp-httplib-dev prometheus-cpp-dev libjs-chart.js)
lyn_packages_fuzzer=(clang libclang-rt-14-dev)
lyn_packages_fuzz=("${lyn_packages_watch[@]}" "${lyn_packages_fuzzer[@]}" ccache)
lyn_packages_test=(
  "${lyn_packages_watch[@]}" bubblewrap
  git ccache libgtest-dev libgmock-dev libbenchmark-dev
  "${lyn_packages_fuzzer[@]}" clang-format clang-tidy cppcheck abigail-tools devscripts doxygen mandoc
  python3 python3-pytest python3-pytest-xdist python3-pexpect python3-pyte python3-jsonschema python3-dev python3-cffi jq curl
  chromium chromium-driver python3-selenium
)

# What builds for the board's processor and runs it here.
lyn_packages_cross=(g++-aarch64-linux-gnu googletest qemu-user)

# What builds packages and looks at them.
lyn_packages_package=("${lyn_packages_demo[@]}" ccache debhelper dh-python dpkg-dev lintian python3-cffi python3-dev)

# What counts lines and branches.
lyn_packages_coverage=(gcovr)

# What only the tests need that take minutes.
lyn_packages_long=("${lyn_packages_package[@]}" "${lyn_packages_cross[@]}" mmdebstrap "${lyn_packages_coverage[@]}")

# What the benchmarks compare with, and what counts instructions; the programs build without them.
lyn_packages_bench=(
  "${lyn_packages_watch[@]}" bubblewrap
  python3 valgrind binutils dbus-daemon libsystemd-dev libglib2.0-dev libboost-dev libuv1-dev libconcurrentqueue-dev
  libfmt-dev
)

# lyn_version: MAJOR.MINOR.PATCH, from the public header.
lyn_version() {
  sed -n 's/^#define OX_LYN_VERSION_\(MAJOR\|MINOR\|PATCH\) \([0-9]*\).*/\2/p' "$lyn_root/inc/ox_lyn.h" | paste -sd.
}

# say TEXT: progress goes to standard error, so that a program's own output can be piped.
say() {
  printf '%s: %s\n' "${0##*/}" "$*" >&2
}

die() {
  say "$@"
  exit 1
}

# usage: what the tool's opening comment says from `usage:` on.
usage() {
  sed -n '/^# usage:/,/^[^#]/s/^# \{0,1\}//p' "$0"
}

# missing_packages NAME...: those that are not installed, one a line.
missing_packages() {
  local name
  for name in "$@"; do
    [ "$(dpkg-query -W -f='${db:Status-Status}' "$name" 2>/dev/null)" = installed ] || printf '%s\n' "$name"
  done
}

# as_root COMMAND...: straight or through sudo.
as_root() {
  if [ "$(id -u)" = 0 ]; then
    "$@"
  else
    sudo "$@"
  fi
}

apt() {
  as_root env DEBIAN_FRONTEND=noninteractive apt-get -q -y -o DPkg::Lock::Timeout=300 "$@" </dev/null
}

# need_packages NAME...: install what is missing or end with one line that names it.
need_packages() {
  if ! command -v dpkg-query >/dev/null; then
    say "not a Debian system, nothing is installed; needed: $*"
    return
  fi
  local missing refused=() name log
  mapfile -t missing < <(missing_packages "$@")
  [ ${#missing[@]} = 0 ] && return
  if [ "$(id -u)" != 0 ] && ! command -v sudo >/dev/null; then
    die "missing packages, and neither root nor sudo to install them: ${missing[*]}"
  fi
  say "installing ${missing[*]}"
  log=$(mktemp)
  if ! { apt update && apt install --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
    tail -n 20 "$log" >&2
  fi
  rm -f "$log"
  mapfile -t missing < <(missing_packages "$@")
  [ ${#missing[@]} = 0 ] && return
  # One name that apt does not know makes it install none; name the culprits where they can be told apart.
  for name in "${missing[@]}"; do
    apt install -s --no-install-recommends "$name" >/dev/null 2>&1 || refused+=("$name")
  done
  [ ${#refused[@]} = 0 ] && refused=("${missing[@]}")
  die "these packages cannot be installed: ${refused[*]}"
}

# unpacked PACKAGE PROGRAM: where the program is, installed or by need_unpacked.
unpacked() {
  command -v "$2" || printf '%s\n' "$lyn_root/build/$1/usr/bin/$2"
}

# need_unpacked PACKAGE PROGRAM: a program out of a package whose installation would start a service: where it is not
# installed it lies in build/PACKAGE/usr/bin, or this ends with one line.
need_unpacked() {
  local name=$1 program=$2 work
  if [ -x "$(unpacked "$name" "$program")" ]; then
    return
  fi
  if ! command -v dpkg-query >/dev/null; then
    say "not a Debian system, nothing is installed; needed: $program"
    return
  fi
  say "unpacking $name"
  work=$(mktemp -d)
  if ! { (cd "$work" && apt-get -q download "$name") || { apt update && (cd "$work" && apt-get -q download "$name"); }; } \
    >"$work/log" 2>&1 || ! dpkg-deb -x "$work"/*.deb "$lyn_root/build/$name" 2>>"$work/log"; then
    tail -n 20 "$work/log" >&2
    rm -rf "$work"
    die "this package cannot be unpacked: $name"
  fi
  rm -rf "$work"
}

# need_build_folder: make it, or end with one line.
need_build_folder() {
  mkdir -p "$lyn_root/build" 2>/dev/null && [ -w "$lyn_root/build" ] || die "cannot write to $lyn_root/build"
}

# configure PRESET [OPTION...]: afresh where the build folder was made for another place, as in a copied tree.
configure() {
  local cache=build/$1/CMakeCache.txt fresh=()
  if [ -f "$cache" ] && ! grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$lyn_root" "$cache"; then
    fresh=(--fresh)
  fi
  cmake --preset "$@" "${fresh[@]}"
}

# build_client TARGET: the program build/release/TARGET, up to date, or end with what the compiler said.
build_client() {
  local log=$lyn_root/build/$1-build.log
  need_build_folder
  [ -x "$lyn_root/build/release/$1" ] || say "building; the first time takes a minute or two"
  if ! (cd "$lyn_root" && configure release && cmake --build --preset release --target "$1" -j "$(nproc)") >"$log" 2>&1; then
    tail -n 60 "$log" >&2
    die "the build failed; the whole log is $log"
  fi
}

# fuzz_targets: the names of the fuzz targets, one a line.
fuzz_targets() {
  find "$lyn_root/tests/fuzz" -maxdepth 1 -name '*.cpp' ! -name replay_main.cpp -printf '%f\n' | sed 's/\.cpp$//' | sort
}

# sanitizer_options: what programs of the presets asan and tsan are run with.
sanitizer_options() {
  export ASAN_OPTIONS=detect_leaks=1:halt_on_error=1:detect_stack_use_after_return=1:strict_string_checks=1
  export LSAN_OPTIONS=suppressions=$lyn_root/tests/lsan.supp:print_suppressions=0
  export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
  # Without the pause at exit, which costs every run of the demo client a second.
  export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:atexit_sleep_ms=0
}

# calm PRESET COMMAND...: the thread sanitizer's runtime cannot place its shadow memory where address space
# randomisation is at its widest.
calm() {
  local preset=$1
  shift
  if [ "$preset" = tsan ] && setarch -R true 2>/dev/null; then
    setarch -R "$@"
  else
    "$@"
  fi
}
