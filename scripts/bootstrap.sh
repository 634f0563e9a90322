#!/usr/bin/env bash
# First run on a fresh machine: installs what is missing, builds everything
# and boots the driver on the built-in board. Outputs go to ./out.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
scripts/install-deps.sh
scripts/build.sh host
build/host/qor-emu --out out "$@"
