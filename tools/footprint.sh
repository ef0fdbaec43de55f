#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# footprint.sh - text, data and bss of the core library (MinSizeRel, static
# archive: what a firmware image links) for x86-64, 32-bit little-endian ARM
# and 32-bit big-endian MIPS, as the README's Markdown table.
#   tools/footprint.sh [BUILD_PREFIX]   (default build-footprint)
set -euo pipefail
cd "$(dirname "$0")/.."
prefix="${1:-build-footprint}"

rows=()
for target in "x86-64::" "ARM (armhf):arm-linux-gnueabihf-:cmake/toolchains/arm-linux-gnueabihf.cmake" \
              "MIPS (32-bit BE):mips-linux-gnu-:cmake/toolchains/mips-linux-gnu.cmake"; do
  IFS=: read -r name cross toolchain <<<"$target"
  dir="$prefix-${cross:-native}"
  dir="${dir%-}"
  args=(-DCMAKE_BUILD_TYPE=MinSizeRel -DBUILD_SHARED_LIBS=OFF -DBUILD_TESTING=OFF
        -DQOSDB_BUILD_PLATFORM=OFF -DQOSDB_BUILD_TOOLS=OFF -DQOSDB_BUILD_EXAMPLES=OFF)
  [[ -n "$toolchain" ]] && args+=(-DCMAKE_TOOLCHAIN_FILE="$toolchain")
  cmake -S . -B "$dir" "${args[@]}" >/dev/null
  cmake --build "$dir" -j"$(nproc)" --target qosintdb >/dev/null
  # The archive's totals: "text data bss dec hex (TOTALS)".
  read -r text data bss _ < <("${cross}size" -t "$dir/libqosintdb.a" | tail -n1)
  rows+=("| $name | $text | $data | $bss | $((text + data + bss)) |")
done

echo "| target | text | data | bss | total (bytes) |"
echo "|---|---:|---:|---:|---:|"
printf '%s\n' "${rows[@]}"
