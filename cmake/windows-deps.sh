#!/usr/bin/env bash
# Builds the third-party libraries of the Windows (mingw-w64) build once and caches them outside the
# repository, one install prefix per library, keyed by compiler and source versions:
#
#   ${XDG_CACHE_HOME:-$HOME/.cache}/korutilities/windows-gcc<version>/<name>-<version>/
#
# A later run finds the prefix and builds nothing; a new Debian version of a source gives a new folder and
# the old one is removed. cmake/mingw-w64.cmake searches every prefix under that folder.
#
# Sources are Debian's own source packages (apt-get source, with Debian's patches applied); a deb-src
# entry matching the machine's deb entries is added when none exists. zlib comes prebuilt from
# libz-mingw-w64-dev. Adding a library is one function below plus its name in DEPENDENCIES.
#
# Usage: cmake/windows-deps.sh        (prints the cache folder on its last line)
set -euo pipefail

HOST=x86_64-w64-mingw32
CC_WIN=${HOST}-gcc-posix
CXX_WIN=${HOST}-g++-posix
JOBS=${JOBS:-2}
TOOLCHAIN=$(cd "$(dirname "$0")" && pwd)/mingw-w64.cmake
CACHE_ROOT=${XDG_CACHE_HOME:-$HOME/.cache}/korutilities/windows-gcc$($CXX_WIN -dumpversion)
DEPENDENCIES=(googletest boost xerces minizip)

SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"

log() { echo "windows-deps: $*" >&2; }

# --- Debian sources -----------------------------------------------------------------------------------

has_deb_src() {
    grep -hsqE '^[[:space:]]*deb-src[[:space:]]' /etc/apt/sources.list /etc/apt/sources.list.d/*.list && return 0
    grep -hsqE '^[[:space:]]*Types:.*deb-src' /etc/apt/sources.list.d/*.sources && return 0
    return 1
}

# Mirrors every enabled binary entry as a source entry, in the format the machine already uses.
add_deb_src() {
    local added=0 f
    for f in /etc/apt/sources.list.d/*.sources; do
        [ -f "$f" ] || continue
        grep -qE '^[[:space:]]*Types:.*\bdeb\b' "$f" || continue
        sed -E 's/^([[:space:]]*Types:).*/\1 deb-src/' "$f" |
            $SUDO tee "/etc/apt/sources.list.d/korutilities-src-$(basename "$f")" >/dev/null
        added=1
    done
    for f in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
        [ -f "$f" ] || continue
        grep -qE '^[[:space:]]*deb[[:space:]]' "$f" || continue
        sed -nE 's/^[[:space:]]*deb([[:space:]])/deb-src\1/p' "$f" |
            $SUDO tee -a /etc/apt/sources.list.d/korutilities-src.list >/dev/null
        added=1
    done
    ((added)) || { log "no Debian package sources found to mirror as deb-src"; exit 1; }
    $SUDO apt-get update -qq
}

ensure_deb_src() {
    if ! has_deb_src; then
        log "adding deb-src entries"
        add_deb_src
    elif [ -z "$(apt-cache showsrc xerces-c 2>/dev/null)" ]; then
        $SUDO apt-get update -qq
    fi
}

# The version apt-get source would fetch for a source package.
source_version() {
    apt-cache showsrc "$1" | sed -n 's/^Version: //p' | sort -V | tail -1
}

# Unpacks a Debian source package into $WORK and prints the unpacked folder.
fetch_source() {
    local pkg=$1 dir
    (cd "$WORK" && apt-get source -qq "$pkg" >/dev/null 2>&1) || {
        log "apt-get source $pkg failed"
        exit 1
    }
    dir=$(find "$WORK" -mindepth 1 -maxdepth 1 -type d -name "${pkg}-*" | head -1)
    [ -n "$dir" ] || { log "no source folder for $pkg"; exit 1; }
    echo "$dir"
}

# --- one function per library ------------------------------------------------------------------------
# dep_<name> version       prints the version that keys the cache
# dep_<name> build PREFIX  builds the library for Windows and installs it into PREFIX

dep_googletest() {
    case $1 in
    version) dpkg-query -W -f='${Version}' googletest ;;
    build)
        cmake -S /usr/src/googletest -B "$WORK/gtest" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$TOOLCHAIN" \
            -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$2" -DBUILD_GMOCK=ON -DBUILD_SHARED_LIBS=OFF >/dev/null
        cmake --build "$WORK/gtest" -j "$JOBS" >/dev/null
        cmake --install "$WORK/gtest" >/dev/null
        ;;
    esac
}

# Boost.Filesystem and Boost.System as static libraries, with the headers of the same version.
dep_boost() {
    case $1 in
    version) echo "$(source_version boost1.74)" ;;
    build)
        local src
        src=$(fetch_source boost1.74)
        echo "using gcc : mingw : $CXX_WIN ;" >"$src/user-config.jam"
        # Debian's repacked source leaves out the generated grammar of the build engine.
        [ -f "$src/tools/build/src/engine/jamgram.cpp" ] ||
            (cd "$src/tools/build" && bison -y -d -o src/engine/jamgram.cpp src/engine/jamgram.y)
        (cd "$src" && ./bootstrap.sh --with-libraries=filesystem,system >/dev/null &&
            ./b2 -q -d0 -j "$JOBS" --user-config=user-config.jam toolset=gcc-mingw target-os=windows \
                address-model=64 architecture=x86 variant=release link=static runtime-link=shared \
                threading=multi --layout=system --with-filesystem --with-system stage)
        # "b2 install" copies the 15,000 headers one by one, which takes many minutes on a busy machine; a
        # plain copy takes seconds. CMake's FindBoost finds the result without Boost's own package files.
        mkdir -p "$2/include" "$2/lib"
        cp -r "$src/boost" "$2/include/"
        cp "$src"/stage/lib/*.a "$2/lib/"
        ;;
    esac
}

# Xerces-C as a DLL: the library hands DOM pointers to its callers, and every module must share one
# parser state.
dep_xerces() {
    case $1 in
    version) echo "$(source_version xerces-c)" ;;
    build)
        local src
        src=$(fetch_source xerces-c)
        # Only the library is needed: its samples and test programs double the build time, and Debian's
        # repacked source has no generated documentation to install.
        sed -i -E '/add_subdirectory\((samples|tests|doc)\)/d' "$src/CMakeLists.txt"
        cmake -S "$src" -B "$WORK/xerces" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$TOOLCHAIN" \
            -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$2" -DBUILD_SHARED_LIBS=ON \
            -Dnetwork=OFF -Dtranscoder=windows -Dmessage-loader=inmemory -Dxmlch-type=char16_t >/dev/null
        cmake --build "$WORK/xerces" -j "$JOBS" >/dev/null
        cmake --install "$WORK/xerces" >/dev/null
        ;;
    esac
}

# minizip (Debian's "minizip" source package) as a static library linked into korutilities.dll only; it
# reads and writes through the callbacks the library hands it, so its own file functions are not used.
# zlib comes from libz-mingw-w64-dev.
dep_minizip() {
    case $1 in
    version) echo "$(source_version minizip)" ;;
    build)
        local src f
        src=$(fetch_source minizip)
        mkdir -p "$2/include/minizip" "$2/lib" "$WORK/minizip"
        for f in ioapi unzip zip; do
            "$CC_WIN" -O2 -w -c "$src/$f.c" -o "$WORK/minizip/$f.o"
        done
        ${HOST}-ar rcs "$2/lib/libminizip.a" "$WORK"/minizip/*.o
        cp "$src"/{ioapi,unzip,zip,crypt}.h "$2/include/minizip/"
        ;;
    esac
}

# --- driver -------------------------------------------------------------------------------------------

main() {
    command -v "$CXX_WIN" >/dev/null || { log "$CXX_WIN is not installed"; exit 1; }
    mkdir -p "$CACHE_ROOT"
    local need_sources=0 name
    for name in "${DEPENDENCIES[@]}"; do
        [ "$name" = googletest ] || need_sources=1
    done
    ((need_sources)) && ensure_deb_src

    for name in "${DEPENDENCIES[@]}"; do
        local version prefix
        version=$("dep_$name" version)
        [ -n "$version" ] || { log "no version for $name"; exit 1; }
        prefix="$CACHE_ROOT/$name-${version//[^A-Za-z0-9.+_-]/_}"
        if [ -f "$prefix/.complete" ]; then
            continue
        fi
        log "building $name $version (once; cached in $prefix)"
        local start=$SECONDS
        WORK=$(mktemp -d "${TMPDIR:-/tmp}/kor-windeps.XXXXXX")
        find "$CACHE_ROOT" -mindepth 1 -maxdepth 1 -name "$name-*" -exec rm -rf {} +
        "dep_$name" build "$prefix"
        rm -rf "$WORK"
        touch "$prefix/.complete"
        log "built $name in $((SECONDS - start)) s"
    done
    echo "$CACHE_ROOT"
}

main "$@"
