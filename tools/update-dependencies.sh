#!/usr/bin/env bash
# Renews tools/dependencies.lock to the newest source packages that this machine's Debian archive serves. The next
# tools/setup.sh builds them into build/deps.
#
#   tools/update-dependencies.sh --check    changes nothing and compares the lock with the archive's lists. Exit code: 0 it
#                                           is up to date; 1 they name a newer version of a library that is shipped, which
#                                           may be a security fix; 3 not known: the archive cannot be reached
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

source tools/tool.sh
answer_options --check "$@"
verb=renew
[[ $# -eq 0 ]] || verb=check
PYTHONPATH=tools exec python3 -B -m shipping.dependencies "$verb"
