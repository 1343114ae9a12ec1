#!/bin/sh
# Usage: exported_symbols_test.sh NM LIBRARY
# The shared object shows exactly the names of exported_symbols.txt, once per overload, and takes the
# platform from outside.
set -eu
nm=$1
library=$2

"$nm" -DC --defined-only "$library" | cut -d' ' -f3- | sed 's/[[(].*//' | LC_ALL=C sort |
  diff -u "$(dirname "$0")/exported_symbols.txt" -

imports=$("$nm" -DC --undefined-only "$library")
for name in property_get property_set android::base::GetProperty android::base::LogMessage::LogMessage \
  mount selinux_android_restorecon; do
  printf '%s\n' "$imports" | grep -qE "U $name([(@]|\$)" || { echo "not imported: $name"; exit 1; }
done
