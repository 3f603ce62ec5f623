#!/usr/bin/env bash
# Prepares a bare Debian 12, or 13, for building and testing Brevant: installs the packages and cross-builds the locked
# versions (tools/dependencies.lock) of Expat (libexpat.dll), JsonCpp and GoogleTest once into build/deps. Does nothing
# when all is there. Needs root, or a user with sudo, only while packages are missing.
#
# --exact: for a release, where no other version than the locked one will do and nothing is tested (no GoogleTest).
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

source tools/tool.sh
answer_options --exact "$@"
[[ $# -le 1 ]] || wrong_use "too many arguments"
readonly kRoot="$PWD"
readonly kDeps="$kRoot/build/deps"
source tools/toolchain.sh
# Whatever makes build/deps what it is: a change of any of these makes it anew.
readonly kRecipe=(tools/setup.sh tools/toolchain.sh tools/dependencies.lock
    cmake/Hardening.cmake cmake/DependencyOptions.cmake cmake/SplitSymbols.cmake)
kStamp="$kDeps/.recipe-$({ echo "$kTarget" && cat "${kRecipe[@]}"; } | sha256sum | cut -c 1-16)${1:-}"
readonly kStamp

# package | file that shows that it is installed
readonly kPackages="$kToolchainPackages
clang-format                    /usr/bin/clang-format
cmake                           /usr/bin/cmake
dpkg-dev                        /usr/bin/dpkg-source
libboost-dev                    /usr/include/boost/lexical_cast.hpp
ninja-build                     /usr/bin/ninja
openssl                         /usr/bin/openssl
osslsigncode                    /usr/bin/osslsigncode
python3                         /usr/bin/python3
wine                            /usr/bin/wine
wine64                          /usr/lib/wine/wine64
"

say() { printf '[setup] %s\n' "$*"; }
fail() { printf '[setup] FAILED: %s\n' "$*" >&2; exit 1; }

# Runs a command with its output in a log file that is shown only when the command fails.
quietly() {
    local log="$1"
    shift
    "$@" >>"$log" 2>&1 </dev/null && return 0
    tail -n 40 "$log" >&2
    fail "$* (whole log: $log)"
}

missing_packages() {
    local package file
    while read -r package file; do
        [[ -z "$package" || -e "$file" ]] || echo "$package"
    done <<<"$kPackages"
}

install_packages() {
    local missing sudo=()
    missing="$(missing_packages)"
    [[ -n "$missing" ]] || return 0
    # shellcheck disable=SC2086
    say "installing packages:" $missing
    if [[ "$(id -u)" -ne 0 ]]; then
        command -v sudo >/dev/null || fail "packages are missing and this user is neither root nor has sudo"
        sudo=(sudo)
    fi
    local log="build/setup-packages.log"
    : >"$log"
    quietly "$log" "${sudo[@]}" apt-get update
    # shellcheck disable=SC2086
    quietly "$log" "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y --no-install-recommends $missing
    [[ -z "$(missing_packages)" ]] || fail "still missing after the installation: $(missing_packages)"
}

# cross_build NAME SOURCE_DIR CMAKE_OPTIONS...: builds with the cross compiler and installs into $kDeps.new
cross_build() {
    local name="$1" source="$2" log="$PWD/$1.log" start=$SECONDS
    shift 2
    quietly "$log" cmake -S "$source" -B "$name-build" -G Ninja \
        -DCMAKE_SYSTEM_NAME=Windows -DCMAKE_SYSTEM_PROCESSOR=x86_64 \
        -DCMAKE_C_COMPILER="$kTarget-gcc$kThreads" -DCMAKE_CXX_COMPILER="$kTarget-g++$kThreads" \
        -DCMAKE_RC_COMPILER="$kTarget-windres" \
        -DCMAKE_FIND_ROOT_PATH="/usr/$kTarget" -DCMAKE_FIND_ROOT_PATH_MODE_PROGRAM=NEVER \
        -DCMAKE_FIND_ROOT_PATH_MODE_LIBRARY=ONLY -DCMAKE_FIND_ROOT_PATH_MODE_INCLUDE=ONLY \
        -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$kDeps.new" -DCMAKE_INSTALL_LIBDIR=lib \
        -DCMAKE_PROJECT_INCLUDE="$kRoot/cmake/DependencyOptions.cmake" "$@"
    quietly "$log" cmake --build "$name-build"
    quietly "$log" cmake --install "$name-build"
    say "$name built in $((SECONDS - start)) s"
}

# Notices of what becomes part of the shipped programs.
keep_licences() {
    mkdir -p "$kDeps.new/share/licenses"
    cp expat/expat/COPYING "$kDeps.new/share/licenses/Expat.txt"
    cp libjsoncpp/LICENSE "$kDeps.new/share/licenses/JsonCpp.txt"
}

build_dependencies() {
    local work="$kRoot/build/deps-work"
    say "building the locked dependencies into build/deps"
    rm -rf "$work" "$kDeps.new"
    mkdir -p "$work"
    PYTHONPATH=tools python3 -B -m shipping.dependencies fetch "$work" "$@" ||
        fail "the locked dependencies; build/deps is left as it was (log of apt: $work/apt.log)"
    mkdir -p "$kDeps.new/bin" "$kDeps.new/include"
    (
        cd "$work"
        # Security updates of Expat test the value of this switch, which its CMake build leaves empty.
        sed -i 's/^#cmakedefine XML_DTD$/#cmakedefine XML_DTD 1/' expat/expat/expat_config.h.cmake
        # The product loads the library by its plain name, without the interface version.
        sed -i 's/"-${LIBCURRENT_MINUS_AGE}\.dll"/".dll"/' expat/expat/CMakeLists.txt
        # windres replaces no macro in a text: the version is written into the resource.
        version="$(sed -n '/^project(expat$/,/^)/s/^ *\([0-9][0-9.]*\)$/\1/p' expat/expat/CMakeLists.txt)"
        [[ "$version" =~ ^[0-9]+\.[0-9]+\.[0-9]+$ ]] || fail "Expat's CMakeLists.txt names no version"
        sed -i "s/\"VER_FILEVERSION\"/\"$version.0\"/" expat/expat/win32/version.rc
        # At the same time: most of their time is that of configurations, which use one core.
        builds=()
        if [[ "${1:-}" != --exact ]]; then
            cross_build googletest googletest -DBUILD_SHARED_LIBS=OFF -DBUILD_GMOCK=ON &
            builds+=($!)
        fi
        cross_build expat expat/expat -DEXPAT_SHARED_LIBS=ON -DEXPAT_BUILD_TOOLS=OFF -DEXPAT_BUILD_EXAMPLES=OFF \
            -DEXPAT_BUILD_TESTS=OFF -DEXPAT_BUILD_DOCS=OFF -DEXPAT_BUILD_PKGCONFIG=OFF &
        builds+=($!)
        cross_build jsoncpp libjsoncpp -DBUILD_SHARED_LIBS=OFF -DBUILD_STATIC_LIBS=ON -DBUILD_OBJECT_LIBS=OFF \
            -DJSONCPP_WITH_TESTS=OFF -DJSONCPP_WITH_POST_BUILD_UNITTEST=OFF -DJSONCPP_WITH_PKGCONFIG_SUPPORT=OFF &
        builds+=($!)
        for build in "${builds[@]}"; do wait "$build"; done
        cp expat-build/libexpat.dll.debug "$kDeps.new/bin/"
        keep_licences
    )
    # The headers alone, reachable without the host's other headers.
    ln -s /usr/include/boost "$kDeps.new/include/boost"
    [[ -f "$kDeps.new/bin/libexpat.dll" ]] || fail "Expat did not come out as libexpat.dll"
    mv "$work/SOURCES.txt" "$kDeps.new/"
    touch "$kDeps.new/${kStamp##*/}"
    rm -rf "$kDeps"
    mv "$kDeps.new" "$kDeps"
    rm -rf "$work"
}

main() {
    local start=$SECONDS
    [[ -e "$kStamp" && -z "$(missing_packages)" ]] && return 0
    mkdir -p build
    # One at a time; whoever waited finds all of it done.
    exec 9>build/setup.lock
    flock 9
    install_packages
    [[ -e "$kStamp" ]] || build_dependencies "$@"
    say "ready after $((SECONDS - start)) s"
}

main "$@"
