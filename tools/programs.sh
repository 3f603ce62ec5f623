# For scripts that try programs on throwaway machines, sourced from the project's folder. Nothing is built when
# BREVANT_BIN names a folder with programs; the whole output is in build/programs.log. tools/tool.sh comes first.

# programs_folder: the folder of the programs to try: BREVANT_BIN, else the folder of this build; for tools unpacked
# from a release, the release beside them.
programs_folder() {
    if [[ -n "${BREVANT_BIN:-}" ]]; then
        (cd "${caller:-.}" && realpath -m -- "$BREVANT_BIN")
    elif [[ -f CMakeLists.txt ]]; then
        echo "$PWD/build/release/bin"
    else
        realpath -m -- "../brevant-$(<VERSION)"
    fi
}

# take_programs_option ARGUMENT...: --programs DIR sets BREVANT_BIN.
take_programs_option() {
    local previous="" argument
    for argument in "$@"; do
        [[ "$previous" != --programs ]] || BREVANT_BIN="$argument"
        [[ "$argument" != --programs=* ]] || BREVANT_BIN="${argument#*=}"
        previous="$argument"
    done
}

# need_programs FOLDER: returns 64 when it lacks a program.
need_programs() {
    local name
    for name in Brevant.exe BrevantCheck.exe; do
        [[ -f "$1/$name" ]] || { echo "[programs] FAILED: no $name in $1" >&2; return 64; }
    done
}

# need_wine: returns 70 if packages are missing that unpacked tools need.
need_wine() {
    local name
    for name in wine wineserver python3; do
        command -v "$name" >/dev/null && continue
        echo "[programs] FAILED: $name is missing; on Debian: apt-get install wine wine64 python3" >&2
        return 70
    done
}

# forget_copied_builds: removes the build folders whose paths are those of another place. They were copied together with
# the project, and CMake refuses them.
forget_copied_builds() {
    local cache home
    for cache in build/*/CMakeCache.txt; do
        [[ -f "$cache" ]] || continue
        home="$(sed -n 's/^CMAKE_HOME_DIRECTORY:INTERNAL=//p' "$cache")"
        [[ "$(realpath -m -- "$home")" != "$(realpath -- "$PWD")" ]] || continue
        echo "[programs] ${cache%/*} was made in $home and is built again"
        rm -rf "${cache%/*}"
    done
}

# make_standins FOLDER: compiles the stand-ins of a trial there if they are missing or older than their sources. They need
# a compiler, but none of the libraries that the programs are built with.
make_standins() {
    local name home sources
    source tools/toolchain.sh
    source tools/packages.sh
    # shellcheck disable=SC2046
    need_packages wine wine64 python3 $(awk '{ print $1 }' <<<"$kToolchainPackages") || return
    mkdir -p "$1"
    for name in wtsapi32 KzDbgFault; do
        home="tools/standins/$name"
        sources=("$home/$name.cpp")
        [[ ! -f "$home/$name.def" ]] || sources+=("$home/$name.def")
        [[ ! -f "$1/$name.dll" || -n "$(find tools/standins src/common -newer "$1/$name.dll")" ]] || continue
        "$kTarget-g++$kThreads" -std=c++20 -O2 -DUNICODE -D_UNICODE -DNOMINMAX -DWIN32_LEAN_AND_MEAN -DSTRICT \
            -D_WIN32_WINNT=0x0A00 -Isrc -shared -static -s "${sources[@]}" -o "$1/$name.dll" || return
    done
}

# prepare_programs ARGUMENT...: sets up, builds the shipped programs and the stand-ins, and names their folders; the
# arguments are the tool's own. With given programs it only compiles the stand-ins. Returns 64 for a folder without
# programs, 70 when something cannot be built, so that neither looks like the outcome of a trial.
prepare_programs() {
    local start=$SECONDS log="$PWD/build/programs.log" given=""
    mkdir -p build
    take_programs_option "$@"
    [[ -z "${BREVANT_BIN:-}" ]] || given=yes
    BREVANT_BIN="$(programs_folder)"
    export BREVANT_BIN BREVANT_STANDINS="$PWD/build/test/bin/standins" PYTHONPATH="$PWD/tools"
    if [[ ! -f CMakeLists.txt ]]; then
        BREVANT_STANDINS="$PWD/standins"
        need_wine && need_programs "$BREVANT_BIN"
        return
    fi
    if [[ -n "$given" ]]; then
        need_programs "$BREVANT_BIN" || return
        BREVANT_STANDINS="$PWD/build/standins"
        make_standins "$BREVANT_STANDINS" >"$log" 2>&1 || { tail -n 40 "$log" >&2; return 70; }
        return
    fi
    forget_copied_builds
    {
        # Before "||" no command ends the shell by itself.
        tools/build.sh && cmake --preset test -Wno-dev &&
            cmake --build --preset test --target standin_wtsapi32 standin_KzDbgFault
    } 2>&1 | tee "$log" | show_progress || { tail -n 40 "$log" >&2; return 70; }
    echo "[programs] ready after $((SECONDS - start)) s"
}
