#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# spdx.sh - every source file of the repository names its license.
#   tools/spdx.sh           adds "SPDX-License-Identifier: MIT" to the files
#                           lacking it, as a comment of the file's language,
#                           on the first line (after a #! line); running it
#                           again changes nothing
#   tools/spdx.sh --check   lists the files lacking it; fails if there are any
# Sources: the tracked C and C++ files, CMake files, linker scripts, shell
# scripts and .ci/run. Data (scenarios, the ABI baseline) and documents are
# not sources.
set -euo pipefail
cd "$(dirname "$0")/.."
tag="SPDX-License-Identifier: MIT"
check=0
[[ "${1:-}" == "--check" ]] && check=1

comment_for() {  # the line that carries the tag in file $1
  local f="$1" first
  first="$(head -n1 "$f")"
  case "$f" in
    *.c | *.map) echo "/* $tag */" ;;
    *.h) if [[ "$first" == //* ]]; then echo "// $tag"; else echo "/* $tag */"; fi ;;
    *.cpp | *.cc | *.hpp) echo "// $tag" ;;
    *) echo "# $tag" ;;
  esac
}

missing=()
while IFS= read -r f; do
  [[ -f "$f" ]] || continue
  head -n5 "$f" | grep -q "SPDX-License-Identifier:" && continue
  missing+=("$f")
  ((check)) && continue
  line="$(comment_for "$f")"
  if [[ "$(head -c2 "$f")" == "#!" ]]; then
    sed -i "1a\\$line" "$f"
  else
    sed -i "1i\\$line" "$f"
  fi
done < <(git ls-files -- '*.c' '*.h' '*.cpp' '*.cc' '*.hpp' '*.cmake' '*.cmake.in' '*.pc.in' \
           '*.map' '*.sh' '*CMakeLists.txt' '.ci/run' ':!abi/*')

if ((check)); then
  if ((${#missing[@]})); then
    printf '%s\n' "${missing[@]}"
    echo "spdx.sh: ${#missing[@]} source file(s) lack \"$tag\"; run tools/spdx.sh" >&2
    exit 1
  fi
  echo "spdx.sh: every source file carries \"$tag\""
elif ((${#missing[@]})); then
  echo "spdx.sh: added \"$tag\" to ${#missing[@]} file(s)"
fi
