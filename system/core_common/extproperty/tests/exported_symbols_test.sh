#!/bin/sh
# Usage: exported_symbols_test.sh NM LIBRARY
# The shared object shows the factory and names of android::init, and takes the platform from outside.
set -eu
nm=$1
library=$2

unexpected=$("$nm" -DC --defined-only "$library" | cut -d' ' -f3- |
  grep -vE '^(KSSI_FETCH_IInitExtensionProperty$|android::init::|vtable for android::init::)' || true)
if [ -n "$unexpected" ]; then
  printf 'exported, but neither the factory nor of android::init:\n%s\n' "$unexpected"
  exit 1
fi
"$nm" -D --defined-only "$library" | grep -q ' T KSSI_FETCH_IInitExtensionProperty$'

imports=$("$nm" -DC --undefined-only "$library")
for name in property_get property_set android::base::GetProperty android::base::LogMessage::LogMessage \
  android::base::ReadFileToString mount selinux_android_restorecon; do
  printf '%s\n' "$imports" | grep -qE "U $name([(@]|\$)" || { echo "not imported: $name"; exit 1; }
done
