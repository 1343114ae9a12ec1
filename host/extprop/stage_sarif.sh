#!/usr/bin/env bash
# Validates what `extprop check --sarif` writes, of a sound device and of one with many faults, in
# directories whose names have to be escaped.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/setup.sh

command -v npm >/dev/null || install_packages nodejs npm
build_preset release extprop extproperty

out=$PWD/build/release/sarif
package=@microsoft/sarif-multitool-linux
mkdir -p "$out"
npm install --silent --no-audit --no-fund --prefix "$out" "$package@5.7.0" >/dev/null
validator=$out/node_modules/$package/Sarif.Multitool
chmod u+x "$validator"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp -r examples/device/root "$work/sound device"
cp -r examples/device/root "$work/100% broken ä"
(
  cd "$work/100% broken ä"
  printf '\xef\xbb\xbfro.a b=1\nno property\nro.x=1\nro.x=2\n' >odm/build.prop
  printf 'import /my_region/build.prop\nro.{0}="\xff"\n' >my_region/build.prop
  rm mnt/vendor/my_stock/build.prop
  mkdir -p "mnt/vendor/my_stock/properties/a b/ü"
)
for tree in "$work"/*; do
  log=$out/$(basename "$tree").sarif
  build/release/host/extprop/extprop check "$tree" --overrides --set ro..name=1 --sarif "$log" \
    >"$out/findings" 2>/dev/null || [ $? -eq 1 ]
  [ "$(grep -c '"ruleId"' "$log")" -eq "$(wc -l <"$out/findings")" ]
  said=$(DOTNET_SYSTEM_GLOBALIZATION_INVARIANT=1 "$validator" validate "$log")
  if grep -E ': (error|warning) ' <<<"$said" || ! grep -q 'completed successfully' <<<"$said"; then
    echo "sarif: $log is not valid: $said" >&2
    exit 1
  fi
  echo "sarif: $(wc -l <"$out/findings") findings, no error or warning of the validator"
done
