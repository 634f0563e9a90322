#!/usr/bin/env bash
# The whole test suite: installs what is missing, builds, runs every test.
# With --sanitize the suite runs on the AddressSanitizer/UBSan build instead.
# Either way it ends with a short run of the board fuzzer where clang has
# libFuzzer.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
preset=host
if [[ "${1:-}" == "--sanitize" ]]; then
  preset=asan
fi
scripts/install-deps.sh
scripts/build.sh "$preset"
ctest --preset "$preset" -j "$(nproc)"

# A short run of the board fuzzer (clang, libFuzzer): built in build/fuzz.
# QOR_SKIP_FUZZ=1 leaves it out.
fuzzer_toolchain() {
  local probe
  probe="$(mktemp -d)"
  echo 'extern "C" int LLVMFuzzerTestOneInput(const unsigned char *, unsigned long) { return 0; }' >"$probe/probe.cpp"
  clang++ -fsanitize=fuzzer,address "$probe/probe.cpp" -o "$probe/probe" >/dev/null 2>&1
  local status=$?
  rm -rf "$probe"
  return $status
}
if [[ "${QOR_SKIP_FUZZ:-0}" == 1 ]]; then
  echo "test.sh: QOR_SKIP_FUZZ=1: the board fuzzer's short run is left out" >&2
elif fuzzer_toolchain; then
  scripts/build.sh fuzz
  ctest --preset fuzz
else
  echo "test.sh: clang with libFuzzer is missing: the board fuzzer's short run is left out" >&2
fi
