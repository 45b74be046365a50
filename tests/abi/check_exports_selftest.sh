#!/usr/bin/env bash
# Shows that check_exports.sh can fail: on a library with a missing promised symbol and two
# leaked ones it must exit 1 and name exactly those three.
#
#   check_exports_selftest.sh SELFTEST_LIBRARY
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
output=$("$here/check_exports.sh" "$1" "$here/selftest_expected.txt" /dev/null 2>&1)
status=$?
expected="check_exports: $1 does not define these promised symbols:
  typeinfo for opc::vkservices::Absent
check_exports: $1 exports these symbols that are not part of its interface:
  opc::vkservices::detail::internalHelper()
  other::outsider()"
if ((status != 1)) || [[ $output != "$expected" ]]; then
  echo "check_exports_selftest: expected status 1 and:"
  echo "$expected"
  echo "got status $status and:"
  echo "$output"
  exit 1
fi
echo "check_exports_selftest: the faults were found"
