#!/usr/bin/env bash
# Checks the dynamic symbol table of a built or installed libopcvkservices.so (or of another
# library of the project, given its lists and namespace):
#  - every symbol listed in EXPECTED_LIST is defined, so nothing promised is missing;
#  - every other defined symbol belongs to NAMESPACE (outside its detail namespace), or
#    matches a pattern of ALLOWED_LIST (foreign symbols that must stay visible, each with its
#    reason), so nothing internal leaks.
#
#   check_exports.sh LIBRARY [EXPECTED_LIST [ALLOWED_LIST [NAMESPACE]]]
#
# The lists default to expected_exports.txt and allowed_foreign_symbols.txt beside this
# script, the namespace to opc::vkservices.  Exit status 0 if the library passes, 1 if not,
# 2 on a usage error.
set -euo pipefail
export LC_ALL=C

here=$(cd "$(dirname "$0")" && pwd)
if (($# < 1 || $# > 4)); then
  echo "usage: $0 LIBRARY [EXPECTED_LIST [ALLOWED_LIST [NAMESPACE]]]" >&2
  exit 2
fi
library=$1
expected_list=${2:-$here/expected_exports.txt}
allowed_list=${3:-$here/allowed_foreign_symbols.txt}
namespace=${4:-opc::vkservices}
for f in "$library" "$expected_list" "$allowed_list"; do
  if [[ ! -r $f ]]; then
    echo "check_exports: no such file: $f" >&2
    exit 2
  fi
done

# "ADDRESS TYPE NAME", where NAME may hold blanks ("typeinfo for ...").  A symbol version,
# if the linker gave one, is not part of the name.
defined=$(nm -DC --defined-only "$library" | cut -d' ' -f3- | sed -E 's/@@?[A-Za-z0-9_.]+$//' |
  sort -u)
entries() { grep -v -e '^[[:space:]]*#' -e '^[[:space:]]*$' "$1" || true; }
expected=$(entries "$expected_list" | sort -u)
allowed=$(entries "$allowed_list")

missing=$(comm -13 <(printf '%s\n' "$defined") <(printf '%s\n' "$expected"))

# Every defined symbol that is not promised must belong to the namespace outside its
# detail namespace, or be allowed by a pattern.  Names that the compiler derives from a class
# or function ("typeinfo for X", "guard variable for f()::v"), and the ODR markers that
# AddressSanitizer adds beside exported data, are judged by the entity they stand for; the
# symbols that the static linker puts in every shared object are ignored.
leaked=$(comm -23 <(printf '%s\n' "$defined") <(printf '%s\n' "$expected") |
  awk -v allowed="$allowed" -v expected="$expected" -v ns="$namespace::" '
    BEGIN {
      n = split(allowed, patterns, "\n")
      split(expected, names, "\n")
      for (i in names) promised[names[i]] = 1
    }
    /^(_init|_fini|_edata|_end|__bss_start)$/ { next }
    {
      entity = $0
      sub(/^(typeinfo name for |typeinfo for |vtable for |VTT for |construction vtable for |non-virtual thunk to |virtual thunk to |covariant return thunk to |guard variable for |__odr_asan[._])/, "", entity)
      if (entity in promised) next
      if (index(entity, ns) == 1 && index(entity, ns "detail::") != 1) next
      for (i = 1; i <= n; i++) if (patterns[i] != "" && entity ~ patterns[i]) next
      print
    }')

indent() { while IFS= read -r line; do printf '  %s\n' "$line"; done; }

status=0
if [[ -n $missing ]]; then
  echo "check_exports: $library does not define these promised symbols:" >&2
  indent <<<"$missing" >&2
  status=1
fi
if [[ -n $leaked ]]; then
  echo "check_exports: $library exports these symbols that are not part of its interface:" >&2
  indent <<<"$leaked" >&2
  status=1
fi
if ((status == 0)); then
  echo "check_exports: $library: $(wc -l <<<"$defined") symbols, all promised ones present," \
    "none leaked"
fi
exit $status
