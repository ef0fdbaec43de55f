#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# deps.sh - installs the Debian packages the project needs, when missing.
#   tools/deps.sh          what building and testing need
#   tools/deps.sh ci       also the cross compilers, emulator, fuzzer, coverage
set -euo pipefail

packages=(cmake make g++ libgtest-dev libgmock-dev libbenchmark-dev
          libcli11-dev nlohmann-json3-dev libsqlite3-dev liblmdb-dev util-linux procps
          pkg-config libsnmp-dev snmpd snmp smitools tshark)  # the real clients' tests run snmpd, smilint, tshark
if [[ "${1:-}" == "ci" ]]; then
  packages+=(g++-mips-linux-gnu qemu-user g++-arm-linux-gnueabihf
             clang libclang-rt-14-dev gcovr
             abigail-tools dpkg-dev pkgconf)  # ABI guard, Debian packages, consumer build
fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "installing: ${missing[*]}"
  sudo=""
  [[ $(id -u) -ne 0 ]] && sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
