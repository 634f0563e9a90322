#!/usr/bin/env bash
# The driver in real firmware: boots QorUploadDataDxe.efi under OVMF in QEMU
# (q35, TCG) on a server-like PCIe topology, captures what it sent to the
# BMC and checks it. See docs/firmware-rig.md.
#
#   scripts/firmware-test.sh [--out DIR] [--build-dir DIR] [--no-build]
#                            [--scenario all|inventory|jd-nic]
#
# DIR (default build/firmware-rig) receives push_BiosBeforeBoot.json,
# push_FlashInfo.json, debug.log and boot.json of the inventory boot, and
# jd-nic/boot-N/ of the two-boot NIC slot scenario. Exit status: 0 passed,
# 1 failed, 77 skipped (QEMU cannot start on this machine).
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
root=$(pwd)

out=build/firmware-rig
build_dir=build/host
build=1
scenario=all
while (($# > 0)); do
  case "$1" in
    --out) out=$2; shift 2 ;;
    --build-dir) build_dir=$2; shift 2 ;;
    --no-build) build=0; shift ;;
    --scenario) scenario=$2; shift 2 ;;
    -h|--help) sed -n '2,12p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) echo "firmware-test.sh: unknown argument $1" >&2; exit 1 ;;
  esac
done
case "$scenario" in all|inventory|jd-nic) ;; *) echo "firmware-test.sh: unknown scenario $scenario" >&2; exit 1 ;; esac

if ((build)); then
  scripts/install-deps.sh
  scripts/build.sh host
fi

ovmf_code=/usr/share/OVMF/OVMF_CODE_4M.fd
ovmf_vars=/usr/share/OVMF/OVMF_VARS_4M.fd
qemu=qemu-system-x86_64
for file in "$build_dir/QorUploadDataDxe.efi" "$build_dir/QorRigLoader.efi" "$build_dir/qor-rig-capture" \
            "$build_dir/qor_rig_checks" "$ovmf_code" "$ovmf_vars"; do
  if [[ ! -f "$file" ]]; then
    echo "firmware-test.sh: $file is missing (build, or install ovmf: scripts/install-deps.sh)" >&2
    exit 1
  fi
done

# Skip only when QEMU cannot start at all (no binary, or no TCG machine): a
# paused machine that is still running when the timeout stops it started.
probe=0
if command -v "$qemu" >/dev/null; then
  timeout 5 "$qemu" -machine q35,accel=tcg -display none -nodefaults -no-user-config -S -monitor none \
    -serial none >/dev/null 2>&1 || probe=$?
fi
if ((probe != 124)); then
  echo "firmware-test.sh: SKIPPED: $qemu cannot start a q35 machine here"
  exit 77
fi
run_start=$(date +%s%N)

mkdir -p "$out"
out=$(cd "$out" && pwd)
build_dir=$(cd "$build_dir" && pwd)

# ---- the machine: 2 sockets of 2 cores, 2 GiB. Each root port sits on a
# root bus of its own (a PCI Express expander), as each IIO stack of a
# server has its own bus range: buses 0x10 and 0x20 for socket 0, 0x80 and
# 0xA0 for socket 1 (128 buses per socket). Below them: an NVMe drive in
# M.2 slot 251; a switch with a virtio NIC (slot 3) and an NVMe drive
# (slot 4); an e1000e NIC (slot 5); an empty slot (6). A SATA SSD on the
# chipset's AHCI port 0.
sockets=2
cores=2
memory_mib=2048
nvme0_serial=QORNVME0001
nvme1_serial=QORNVME0002
sata_model=QOR-RIG-SATA-SSD
sata_serial=QORSATA0001
virtio_mac=52:54:00:00:03:01
e1000e_mac=52:54:00:00:05:01

topology=(
  -device pxb-pcie,id=pcie.10,bus_nr=16,bus=pcie.0
  -device pxb-pcie,id=pcie.20,bus_nr=32,bus=pcie.0
  -device pxb-pcie,id=pcie.80,bus_nr=128,bus=pcie.0
  -device pxb-pcie,id=pcie.a0,bus_nr=160,bus=pcie.0
  -device pcie-root-port,id=rp1,bus=pcie.10,chassis=1,slot=251
  -blockdev driver=null-co,node-name=nvme0,size=1073741824
  -device "nvme,drive=nvme0,serial=$nvme0_serial,bus=rp1"
  -device pcie-root-port,id=rp2,bus=pcie.20,chassis=2,slot=2
  -device x3130-upstream,id=up2,bus=rp2
  -device xio3130-downstream,id=dn3,bus=up2,chassis=3,slot=3
  -device xio3130-downstream,id=dn4,bus=up2,chassis=4,slot=4
  -netdev user,id=net0,restrict=on
  -device "virtio-net-pci,netdev=net0,bus=dn3,disable-legacy=on,romfile=,mac=$virtio_mac"
  -blockdev driver=null-co,node-name=nvme1,size=2147483648
  -device "nvme,drive=nvme1,serial=$nvme1_serial,bus=dn4"
  -device pcie-root-port,id=rp5,bus=pcie.80,chassis=5,slot=5
  -netdev user,id=net1,restrict=on
  -device "e1000e,netdev=net1,bus=rp5,romfile=,mac=$e1000e_mac"
  -device pcie-root-port,id=rp6,bus=pcie.a0,chassis=6,slot=6
  -blockdev driver=null-co,node-name=sata0,size=4294967296
  -device "ide-hd,drive=sata0,bus=ide.0,model=$sata_model,serial=$sata_serial,rotation_rate=1"
)

# One boot. $1 run folder, $2 VARS file, then extra QEMU arguments.
# Leaves channel.bin, console.log and wall-seconds in the run folder.
boot_machine() {
  local run=$1 vars=$2
  shift 2
  local esp="$run/esp"
  rm -rf "$esp" && mkdir -p "$esp/EFI/BOOT"
  cp "$build_dir/QorRigLoader.efi" "$esp/EFI/BOOT/BOOTX64.EFI"
  cp "$build_dir/QorUploadDataDxe.efi" "$esp/"
  rm -f "$run/channel.bin" "$run/console.log"
  local start end status=0
  start=$(date +%s%N)
  # A crash stops the guest for good (the firmware's exception handler
  # loops with interrupts off): the timeout ends such a boot.
  timeout 300 "$qemu" -machine q35,accel=tcg -m "$memory_mib" -smp "sockets=$sockets,cores=$cores,threads=1" \
    -display none -no-user-config -nodefaults -no-reboot \
    -drive "if=pflash,format=raw,unit=0,readonly=on,file=$ovmf_code" \
    -drive "if=pflash,format=raw,unit=1,file=$vars" \
    -serial "file:$run/console.log" -serial "file:$run/channel.bin" \
    -drive "if=none,id=esp,format=raw,file=fat:rw:$esp" -device virtio-blk-pci,drive=esp,bootindex=0 \
    "${topology[@]}" \
    "$@" >"$run/qemu.log" 2>&1 || status=$?
  end=$(date +%s%N)
  awk "BEGIN { printf \"%.3f\", ($end - $start) / 1e9 }" >"$run/wall-seconds"
  rm -rf "$esp"
  if ((status == 124)); then echo "QEMU timed out" >>"$run/qemu.log"; fi
  return 0
}

# What the checks expect, from the same settings the command line uses.
write_machine() {
  cat >"$1/machine.json" <<EOF
{
  "sockets": $sockets,
  "coresPerSocket": $cores,
  "memoryMiB": $memory_mib,
  "customerId": $2,
  "devices": [
    {"id": "nvme0", "vendorId": 6966, "deviceId": 16, "slot": 251, "socket": 0, "rootPortBus": 16,
     "nvme": {"model": "QEMU NVMe Ctrl", "serial": "$nvme0_serial"}},
    {"id": "nvme1", "vendorId": 6966, "deviceId": 16, "slot": 4, "socket": 0, "rootPortBus": 32,
     "nvme": {"model": "QEMU NVMe Ctrl", "serial": "$nvme1_serial"}},
    {"id": "virtio-net", "vendorId": 6900, "deviceId": 4161, "slot": 3, "socket": 0, "rootPortBus": 32,
     "mac": "$virtio_mac"},
    {"id": "e1000e", "vendorId": 32902, "deviceId": 4307, "slot": 5, "socket": 1, "rootPortBus": 128,
     "mac": "$e1000e_mac"}
  ],
  "rootPorts": [
    {"bus": 16, "socket": 0, "slot": 251}, {"bus": 32, "socket": 0, "slot": 2},
    {"bus": 128, "socket": 1, "slot": 5}, {"bus": 160, "socket": 1, "slot": 6}
  ],
  "sata": [{"port": 0, "model": "$sata_model", "serial": "$sata_serial", "solidState": true}]
}
EOF
}

# Boots until a boot ends without a reset by the driver (at most $3 boots),
# the VARS file kept from one boot to the next like the machine's flash.
run_scenario() {
  local dir=$1 max_boots=$2
  shift 2
  rm -rf "$dir" && mkdir -p "$dir"
  cp "$ovmf_vars" "$dir/vars.fd"
  local boot=1 capture_status
  while ((boot <= max_boots)); do
    local run="$dir/boot-$boot"
    mkdir -p "$run"
    boot_machine "$run" "$dir/vars.fd" "$@"
    capture_status=0
    "$build_dir/qor-rig-capture" "$run/channel.bin" "$run" --wall-seconds "$(cat "$run/wall-seconds")" ||
      capture_status=$?
    echo "  boot $boot: $(cat "$run/wall-seconds") s wall time"
    if ((capture_status == 1)); then
      echo "  the firmware console's last lines ($run/console.log):"
      tail -c 2000 "$run/console.log" | tr -d '\033' | tail -n 15 | sed 's/^/    /'
    fi
    ((capture_status == 2)) || break
    boot=$((boot + 1))
  done
}

failed=0
if [[ $scenario == all || $scenario == inventory ]]; then
  echo "== inventory boot (customer 0)"
  run_scenario "$out/inventory" 1
  # The inventory boot's outputs at the top of DIR.
  cp -f "$out"/inventory/boot-1/*.json "$out"/inventory/boot-1/debug.log "$out/" 2>/dev/null || true
  write_machine "$out" 0
  cp "$out/machine.json" "$out/inventory/"
fi
if [[ $scenario == all || $scenario == jd-nic ]]; then
  echo "== JD NIC slot scenario (customer 3, boots with the VARS file kept)"
  run_scenario "$out/jd-nic" 3 -smbios "type=11,value=qor-rig:customer-id=3,value=qor-rig:jd-nic=1"
  write_machine "$out/jd-nic" 3
fi

echo "== checks"
filter='*'
[[ $scenario == inventory ]] && filter='Inventory*'
[[ $scenario == jd-nic ]] && filter='JdNic*'
QOR_RIG_OUT="$out" "$build_dir/qor_rig_checks" --gtest_filter="$filter" --gtest_brief=0 | tee "$out/checks.log" ||
  failed=1
if grep -q '^\[  SKIPPED \]' "$out/checks.log"; then
  echo "pending checks:"
  grep -A1 'Skipped$' "$out/checks.log" | grep 'pending' | sed 's/^/  /' | sort -u || true
fi
for report in "$out"/inventory/boot-*/boot.json "$out"/jd-nic/boot-*/boot.json; do
  [[ -f $report ]] || continue
  echo "measured ($report):"
  grep -E '"(ticksFirstTriggerToUpload|millisecondsFirstTriggerToUpload|wallSeconds|peakBytesHeld|bytesAllocated|allocations|bytesHeldAtEnd)"' \
    "$report" | sed 's/^ */  /'
done
awk "BEGIN { printf \"whole run: %.1f s wall time\\n\", ($(date +%s%N) - $run_start) / 1e9 }"
exit $failed
