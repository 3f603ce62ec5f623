#!/usr/bin/env bash
# Prepares a bare Debian 12 for building and testing Brevant: installs the packages and cross-builds
# Expat (libexpat.dll), JsonCpp and GoogleTest once into build/deps. Does nothing when all is there.
# Needs root, or a user with sudo, only while packages are missing.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# Raise when what stands in build/deps must be made anew.
readonly kRecipe=1
readonly kDeps="$PWD/build/deps"
readonly kStamp="$kDeps/.recipe-$kRecipe"

# package | file that shows that it is installed
readonly kPackages='
clang-format                    /usr/bin/clang-format
cmake                           /usr/bin/cmake
dpkg-dev                        /usr/bin/dpkg-source
g++-mingw-w64-x86-64-posix      /usr/bin/x86_64-w64-mingw32-g++-posix
googletest                      /usr/src/googletest/CMakeLists.txt
libboost-dev                    /usr/include/boost/lexical_cast.hpp
mingw-w64-x86-64-dev            /usr/x86_64-w64-mingw32/include/windows.h
ninja-build                     /usr/bin/ninja
python3                         /usr/bin/python3
wine                            /usr/bin/wine
wine64                          /usr/lib/wine/wine64
'

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

# Writes the machine's own Debian sources as source-package entries to the file $1.
write_source_entries() {
    local codename file
    codename="$(. /etc/os-release && echo "$VERSION_CODENAME")"
    for file in /etc/apt/sources.list.d/*.sources; do
        [[ -r "$file" ]] || continue
        # Paragraphs of this release only; the entry's kind is the one thing that changes.
        awk -v RS= -v code="$codename" '
            $0 ~ ("(^|\n)Suites:[^\n]*" code) && $0 !~ /(^|\n)Enabled: *no/ {
                gsub(/(^|\n)Types:[^\n]*/, "\nTypes: deb-src"); print $0 "\n" }' "$file"
    done >"$1.sources"
    for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
        [[ -r "$file" ]] || continue
        awk -v code="$codename" '$1 == "deb" && $0 ~ ("[ /]" code) { $1 = "deb-src"; print }' "$file"
    done | sort -u >"$1.list"
}

# Downloads and unpacks the Debian source packages named in the arguments into the current folder, with a
# configuration of apt that is private to this folder: the machine's own stays as it is.
fetch_debian_sources() {
    local log="$PWD/apt.log" codename package
    codename="$(. /etc/os-release && echo "$VERSION_CODENAME")"
    mkdir -p apt/parts apt/lists/partial apt/cache/archives/partial
    write_source_entries "$PWD/apt/parts/debian"
    local apt=(apt-get
        -o "Dir::Etc::sourcelist=/dev/null" -o "Dir::Etc::sourceparts=$PWD/apt/parts"
        -o "Dir::State::lists=$PWD/apt/lists" -o "Dir::Cache=$PWD/apt/cache"
        -o "APT::Sandbox::User=$(id -un)" -o "APT::Get::List-Cleanup=0" -o "Acquire::Languages=none")
    # A source archive that is not served is no failure yet: the packages may come from another one.
    "${apt[@]}" update >>"$log" 2>&1 </dev/null || true
    for package in "$@"; do
        # The newest version is wanted (security fixes); the release's own is the fall-back.
        "${apt[@]}" source --download-only "$package" >>"$log" 2>&1 </dev/null ||
            quietly "$log" "${apt[@]}" source --download-only "$package/$codename"
        local dsc
        dsc="$(ls -t "${package}"_*.dsc | head -n 1)"
        quietly "$log" dpkg-source --no-check -x "$dsc" "$package"
        say "source of $package: ${dsc%.dsc}"
    done
}

# cross_build NAME SOURCE_DIR CMAKE_OPTIONS...: builds with the cross compiler and installs into $kDeps.new
cross_build() {
    local name="$1" source="$2" log="$PWD/$1.log" start=$SECONDS
    shift 2
    quietly "$log" cmake -S "$source" -B "$name-build" -G Ninja \
        -DCMAKE_SYSTEM_NAME=Windows -DCMAKE_SYSTEM_PROCESSOR=x86_64 \
        -DCMAKE_C_COMPILER=x86_64-w64-mingw32-gcc-posix -DCMAKE_CXX_COMPILER=x86_64-w64-mingw32-g++-posix \
        -DCMAKE_RC_COMPILER=x86_64-w64-mingw32-windres \
        -DCMAKE_FIND_ROOT_PATH=/usr/x86_64-w64-mingw32 -DCMAKE_FIND_ROOT_PATH_MODE_PROGRAM=NEVER \
        -DCMAKE_FIND_ROOT_PATH_MODE_LIBRARY=ONLY -DCMAKE_FIND_ROOT_PATH_MODE_INCLUDE=ONLY \
        -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$kDeps.new" -DCMAKE_INSTALL_LIBDIR=lib \
        -DCMAKE_C_FLAGS="-fstack-protector-strong -D_WIN32_WINNT=0x0A00" \
        -DCMAKE_CXX_FLAGS="-fstack-protector-strong -D_WIN32_WINNT=0x0A00" "$@"
    quietly "$log" cmake --build "$name-build"
    quietly "$log" cmake --install "$name-build"
    say "$name built in $((SECONDS - start)) s"
}

build_dependencies() {
    local work="$PWD/build/deps-work"
    say "building Expat, JsonCpp and GoogleTest into build/deps"
    rm -rf "$work" "$kDeps.new"
    mkdir -p "$work" "$kDeps.new/bin" "$kDeps.new/include"
    (
        cd "$work"
        fetch_debian_sources expat libjsoncpp
        # Security updates of Expat test the value of this switch, which its CMake build leaves empty.
        sed -i 's/^#cmakedefine XML_DTD$/#cmakedefine XML_DTD 1/' expat/expat/expat_config.h.cmake
        # The product loads the library by its plain name, without the interface version.
        sed -i 's/"-${LIBCURRENT_MINUS_AGE}\.dll"/".dll"/' expat/expat/CMakeLists.txt
        cross_build expat expat/expat -DEXPAT_SHARED_LIBS=ON -DEXPAT_BUILD_TOOLS=OFF -DEXPAT_BUILD_EXAMPLES=OFF \
            -DEXPAT_BUILD_TESTS=OFF -DEXPAT_BUILD_DOCS=OFF -DEXPAT_BUILD_PKGCONFIG=OFF \
            "-DCMAKE_SHARED_LINKER_FLAGS=-static -s -Wl,--dynamicbase,--nxcompat,--high-entropy-va"
        cross_build jsoncpp libjsoncpp -DBUILD_SHARED_LIBS=OFF -DBUILD_STATIC_LIBS=ON -DBUILD_OBJECT_LIBS=OFF \
            -DJSONCPP_WITH_TESTS=OFF -DJSONCPP_WITH_POST_BUILD_UNITTEST=OFF -DJSONCPP_WITH_PKGCONFIG_SUPPORT=OFF
        cross_build googletest /usr/src/googletest -DBUILD_SHARED_LIBS=OFF -DBUILD_GMOCK=ON
    )
    # The headers alone, reachable without the host's other headers.
    ln -s /usr/include/boost "$kDeps.new/include/boost"
    [[ -f "$kDeps.new/bin/libexpat.dll" ]] || fail "Expat did not come out as libexpat.dll"
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
    [[ -e "$kStamp" ]] || build_dependencies
    say "ready after $((SECONDS - start)) s"
}

main "$@"
