#!/usr/bin/env bash
# Instructions per boot, counted by valgrind's callgrind: a cost of a boot
# that does not depend on the machine's load, so a regression shows as a
# number and not as noise. Beside build/host/qor_bench, which gives times.
#
# Usage: scripts/bench-instructions.sh [--build DIR] [--top N] [BOARD...]
#
# Counts one boot (everything inside the emulator's RunBoot: platform set-up,
# loading the driver, its entry and every trigger) per board and prints the
# N functions with the most instructions of their own (default 5). Without
# boards it boots the built-in board and a big one generated here: the
# built-in board with a memory map of 1,000 descriptors (the MemoryMap
# section grows its list one element per append). Any board file can be
# given instead ("built-in" names the built-in board). QOR_DRIVER_IMAGE=PATH
# counts another driver image, e.g. one built from an older commit.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

build=build/host
top=5
boards=()
while [[ $# -gt 0 ]]; do
  case "$1" in
    --build) build="$2"; shift 2 ;;
    --top) top="$2"; shift 2 ;;
    -h|--help) sed -n '2,15p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) boards+=("$1"); shift ;;
  esac
done

for tool in valgrind callgrind_annotate; do
  command -v "$tool" >/dev/null || { echo "bench-instructions: $tool not found (Debian package valgrind)" >&2; exit 1; }
done
emu="$build/qor-emu"
[[ -x "$emu" ]] || { echo "bench-instructions: $emu not built (cmake --build --preset host)" >&2; exit 1; }
for board in "${boards[@]}"; do
  [[ "$board" == built-in || -r "$board" ]] || { echo "bench-instructions: cannot read $board" >&2; exit 1; }
done

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

# The built-in board with 1,000 memory descriptors: ranges of 16 pages from
# 4 GiB up, alternating between conventional memory and boot-services data.
big_board() {
  local i
  printf '{ "name": "big memory map (1000 descriptors)", "memoryMap": { "descriptors": [\n'
  for ((i = 0; i < 1000; i++)); do
    local type=EfiConventionalMemory
    ((i % 2)) && type=EfiBootServicesData
    printf '  { "type": "%s", "start": "0x%X", "pages": "0x10", "attribute": "0xF" }%s\n' \
      "$type" $((0x100000000 + i * 0x10000)) "$([[ $i -lt 999 ]] && echo ,)"
  done
  printf '] } }\n'
}

if [[ ${#boards[@]} -eq 0 ]]; then
  big_board >"$work/big-memory-map.json"
  boards=(built-in "$work/big-memory-map.json")
fi

printf '%-40s %16s\n' board instructions/boot
for board in "${boards[@]}"; do
  args=()
  name="$board"
  if [[ "$board" != built-in ]]; then
    args=(--board "$board")
    name="$(basename "$board")"
  fi
  out="$work/callgrind.out"
  valgrind --tool=callgrind --callgrind-out-file="$out" --toggle-collect='qor::emu::RunBoot(*' \
    "$emu" "${args[@]}" --out "$work/out" >"$work/emu.log" 2>"$work/valgrind.log" ||
    { cat "$work/valgrind.log" "$work/emu.log" >&2; exit 1; }
  total="$(sed -n 's/^totals: *\([0-9]*\).*/\1/p' "$out")"
  printf '%-40s %16s\n' "$name" "$(echo "$total" | sed -e :a -e 's/\B[0-9]\{3\}\>/,&/; ta')"
  # Self cost per function, largest first.
  callgrind_annotate --threshold=100 "$out" >"$work/annotate.txt" 2>/dev/null
  sed -n '/^ *Ir *file:function/,$p' "$work/annotate.txt" | sed -n '3,$p' | awk -v n="$top" 'NF && n-- > 0 { sub(/ \[[^]]*\]$/, ""); print "    " $0 }'
  rm -f "$out"
done
