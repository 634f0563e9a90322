#!/usr/bin/env bash
# The whole test suite: installs what is missing, builds, runs every test.
# With --sanitize the suite runs on the AddressSanitizer/UBSan build instead.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
preset=host
if [[ "${1:-}" == "--sanitize" ]]; then
  preset=asan
fi
scripts/install-deps.sh
scripts/build.sh "$preset"
ctest --preset "$preset" -j "$(nproc)"
