#!/usr/bin/env bash
# Renews tools/dependencies.lock to the newest source packages that this machine's Debian archive serves. The next
# tools/setup.sh builds them into build/deps.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

PYTHONPATH=tools exec python3 -B -m shipping.dependencies renew
