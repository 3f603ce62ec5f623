# For scripts that need more of Debian than the build does, sourced.

# need_packages NAME...: installs missing packages; only then it needs root, or a user with sudo.
need_packages() {
    dpkg -s "$@" >/dev/null 2>&1 && return 0
    local sudo=()
    [[ "$(id -u)" -eq 0 ]] || sudo=(sudo)
    echo "[packages] installing $*"
    "${sudo[@]}" apt-get update -qq
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "$@" >/dev/null
}
