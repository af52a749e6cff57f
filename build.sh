#!/usr/bin/env bash
# Build driver.
#   ./build.sh test [preset]   install missing Debian packages, configure, build, run every test (CTest)
#   ./build.sh demo            build and run the demo host program
#   ./build.sh bench           build and run the benchmarks (default preset)
# Presets: default (RelWithDebInfo), debug, asan (address + undefined behaviour), tsan.
set -euo pipefail
cd "$(dirname "$0")"

PACKAGES=(cmake ninja-build g++ pkg-config libboost-dev libboost-filesystem-dev libboost-system-dev
          libxerces-c-dev zlib1g-dev libssl-dev openssl libgtest-dev libgmock-dev libbenchmark-dev
          libspdlog-dev)
JOBS=${JOBS:-2}

install_packages() {
    local missing=()
    for p in "${PACKAGES[@]}"; do
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

cmd=${1:-test}
preset=${2:-default}
case "$cmd" in
test)
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
    echo "usage: $0 test [default|debug|asan|tsan] | demo | bench" >&2
    exit 2
    ;;
esac
