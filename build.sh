#!/usr/bin/env bash
# Build driver.
#   ./build.sh test [preset]   install missing Debian packages, configure, build, run every test (CTest)
#   ./build.sh test windows    the same for 64-bit Windows: mingw-w64 cross build, tests under Wine
#   ./build.sh demo            build and run the demo host program
#   ./build.sh bench           build and run the benchmarks (default preset)
# Presets: default (RelWithDebInfo), debug, asan (address + undefined behaviour), tsan, windows.
set -euo pipefail
cd "$(dirname "$0")"

PACKAGES=(cmake ninja-build g++ pkg-config libboost-dev libboost-filesystem-dev libboost-system-dev
          libxerces-c-dev zlib1g-dev libssl-dev openssl libgtest-dev libgmock-dev libbenchmark-dev
          libminizip-dev libgsf-1-dev gzip pigz zip unzip python3-olefile
          libspdlog-dev procps libdeflate-dev)
# The Windows build adds the cross compiler, Wine, and what cmake/windows-deps.sh needs to build the
# Windows dependencies from Debian's sources.
WINDOWS_PACKAGES=(g++-mingw-w64-x86-64-posix wine wine64 libz-mingw-w64-dev dpkg-dev bison xz-utils)
JOBS=${JOBS:-2}

install_packages() {
    local missing=() wanted=("${PACKAGES[@]}")
    [ "${1:-}" = windows ] && wanted+=("${WINDOWS_PACKAGES[@]}")
    for p in "${wanted[@]}"; do
        dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
    done
    if ((${#missing[@]})); then
        echo "Installing: ${missing[*]}"
        local sudo=""
        [ "$(id -u)" -eq 0 ] || sudo="sudo"
        $sudo apt-get update -qq
        DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
    fi
}

configure_and_build() {
    local preset=$1
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" -j "$JOBS"
}

# ThreadSanitizer in this toolchain cannot map its shadow memory with the kernel's largest
# address-space randomisation; run the tests without randomisation in that case.
tsan_wrapper() {
    if [ "$1" = tsan ] && command -v setarch >/dev/null; then
        echo "setarch $(uname -m) -R"
    fi
}

# Runs a command with the Windows test programs' private Wine prefix under build/windows. The wineserver
# and Wine's services are started first, detached from our output: started from inside a test they would
# inherit CTest's output pipe and CTest would wait for them for ever. The prefix's wineserver is stopped
# afterwards.
with_wine() {
    export WINEPREFIX=$PWD/build/windows/wineprefix WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
    mkdir -p "$WINEPREFIX"
    wineserver -p </dev/null >/dev/null 2>&1
    wine cmd /c exit </dev/null >/dev/null 2>&1 || true
    local rc=0
    "$@" || rc=$?
    wineserver -k </dev/null >/dev/null 2>&1 || true
    return $rc
}

test_windows() {
    install_packages windows
    local start=$SECONDS
    cmake/windows-deps.sh >/dev/null
    echo "Windows dependencies ready after $((SECONDS - start)) s"
    configure_and_build windows
    with_wine ctest --preset windows -j "$JOBS"
}

cmd=${1:-test}
preset=${2:-default}
case "$cmd" in
test)
    if [ "$preset" = windows ]; then
        test_windows
        exit
    fi
    install_packages
    configure_and_build "$preset"
    $(tsan_wrapper "$preset") ctest --preset "$preset" -j "$JOBS"
    ;;
demo)
    install_packages
    configure_and_build default
    BTRACE_LEVEL=${BTRACE_LEVEL:-INF} ./build/default/examples/kordemo
    ;;
bench)
    install_packages
    configure_and_build default
    for b in build/default/bench/bench_*; do
        [ -x "$b" ] && "$b" "${@:3}"
    done
    ;;
*)
    echo "usage: $0 test [default|debug|asan|tsan|windows] | demo | bench" >&2
    exit 2
    ;;
esac
