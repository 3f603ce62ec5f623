# For scripts that try programs on throwaway machines, sourced from the project's folder. Nothing is built when
# BREVANT_BIN names a folder with programs; the whole output is in build/programs.log. tools/tool.sh comes first.

# prepare_programs: sets up, builds the shipped programs and the stand-ins, and names their folders. Returns 64 for a
# BREVANT_BIN without programs, 70 when something cannot be built, so that neither looks like the outcome of a trial.
prepare_programs() {
    local start=$SECONDS log="$PWD/build/programs.log" build=tools/build.sh
    mkdir -p build
    if [[ -n "${BREVANT_BIN:-}" ]]; then
        build=tools/setup.sh
        BREVANT_BIN="$(cd "${caller:-.}" && realpath -m -- "$BREVANT_BIN")"
        for name in Brevant.exe BrevantCheck.exe; do
            [[ -f "$BREVANT_BIN/$name" ]] || { echo "[programs] FAILED: no $name in $BREVANT_BIN" >&2; return 64; }
        done
    fi
    export BREVANT_BIN="${BREVANT_BIN:-$PWD/build/release/bin}" BREVANT_STANDINS="$PWD/build/test/bin/standins"
    export PYTHONPATH="$PWD/tools"
    {
        # Before "||" no command ends the shell by itself.
        "$build" && cmake --preset test -Wno-dev &&
            cmake --build --preset test --target standin_wtsapi32 standin_KzDbgFault
    } 2>&1 | tee "$log" | show_progress || { tail -n 40 "$log" >&2; return 70; }
    echo "[programs] ready after $((SECONDS - start)) s"
}
