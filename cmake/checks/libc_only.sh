#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# libc_only.sh SHARED_LIB STATIC_LIB - the core library needs nothing but libc.
#   1. the shared object names only libc (and the dynamic loader) as NEEDED;
#   2. it leaves no C++ runtime symbol undefined (libstdc++, libgcc_s);
#   3. the whole static archive links into a C program with gcc alone
#      (cmake/checks/c_client.c, a platform in C), and that program runs.
set -euo pipefail
shared="$1" static="$2"
root="$(cd "$(dirname "$0")/../.." && pwd)"
cc="${CC:-gcc}"
fail=0

needed="$(readelf -d "$shared" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')"
echo "NEEDED of $(basename "$shared"): $(echo $needed)"
bad="$(grep -Ev '^(libc\.so\.[0-9]+|ld-linux.*\.so\.[0-9]+)$' <<<"$needed" || true)"
if [[ -n "$bad" ]]; then
  echo "FAIL: the core needs more than libc: $(echo $bad)"; fail=1
fi

cxx="$(nm -D --undefined-only "$shared" | awk '{print $NF}' |
       grep -E '^(_Z|__cxa_|__gxx_|_Unwind_)' | grep -v '^__cxa_finalize' || true)"
if [[ -n "$cxx" ]]; then
  echo "FAIL: the core leaves C++ runtime symbols undefined:"
  while read -r s; do echo "  $s ($(echo "$s" | c++filt))"; done <<<"$cxx"
  fail=1
fi

out="$(mktemp -d)"
trap 'rm -rf "$out"' EXIT
if ! "$cc" -std=c99 -Wall -Wextra -Werror -I"$root/include" "$root/cmake/checks/c_client.c" \
     -Wl,--whole-archive "$static" -Wl,--no-whole-archive -o "$out/c_client" 2>"$out/link.log"; then
  echo "FAIL: the static core does not link into a C program with $cc alone:"
  sed 's/^/  /' "$out/link.log" | head -20
  fail=1
else
  run=("$out/c_client")
  unshare -i true 2>/dev/null && run=(unshare -i "$out/c_client")
  "${run[@]}" || { echo "FAIL: the C program linked with the static core does not run"; fail=1; }
fi

if ((fail)); then
  objs="$(nm -A -C --undefined-only "$static" 2>/dev/null | grep -E 'std::|__cxa_|__gxx_' |
          cut -d: -f2 | sort -u || true)"
  if [[ -n "$objs" ]]; then
    echo "C++ runtime references come from: $(echo $objs) - those sources must do without the C++"
    echo "runtime (std::chrono, thread-safe statics, new/delete, exceptions)"
  fi
  exit 1
fi
echo "OK: the core library needs libc only"
