#!/usr/bin/env bash
# Installs the Debian packages listed in debian-packages.txt that are missing.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
missing=()
while read -r package; do
  [[ -z "$package" || "$package" == \#* ]] && continue
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$package")
  fi
done < "$here/debian-packages.txt"
if ((${#missing[@]} == 0)); then
  exit 0
fi
echo "installing: ${missing[*]}"
as_root=()
if [[ $(id -u) -ne 0 ]]; then
  as_root=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update -q
"${as_root[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
