#!/usr/bin/env bash
# Opens the page of `extprop boot --html` in a real browser: its timeline, search and histories have
# to show what the boot did, from typing and clicking and from a link, and it may fetch nothing. Leaves
# pictures of it in light and dark beside the page, for people to look at.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/setup.sh

install_packages chromium fonts-dejavu-core
build_preset release extprop extproperty

out=build/release/page
extprop=build/release/host/extprop/extprop
property=ro.vemra.image.my_carrier.version_name
profile=$(mktemp -d)
trap 'rm -rf "$profile"' EXIT
mkdir -p "$out"

browse() {
  timeout 120 chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run \
    --disable-background-networking --disable-component-update --disable-sync --hide-scrollbars \
    --user-data-dir="$profile" --window-size=1400,1500 --virtual-time-budget=2000 "$@" 2>"$out/log" ||
    { cat "$out/log" >&2; return 1; }
}

# expect DESCRIPTION FILE TEXT: the page has the text, tags left out.
expect() {
  sed 's/<script.*//; s/<[^>]*>/ /g' "$2" | tr -s ' \n' '  ' | grep -qF -- "$3" && return
  echo "page: $1: not found: $3" >&2
  return 1
}

"$extprop" boot examples/device/root --props examples/device/device.prop \
  --call service=mount_and_check_load --html "$out/boot.html"
page=file://$PWD/$out/boot.html
! grep -qE '(src|href)=|url\(|@import|fetch\(' host/extprop/render/page/template.html ||
  { echo "page: asks for something outside itself" >&2; exit 1; }

browse --dump-dom "$page" >"$out/plain.dom"
expect timeline "$out/plain.dom" "4. call service=mount_and_check_load"
expect mount "$out/plain.dom" "/data/cota/image on /my_carrier"
expect "company update" "$out/plain.dom" "mode 1 9 properties"

# A person's doing, played by a script at the end of a copy.
{
  sed '/^<\/body>/,$d' "$out/boot.html"
  cat <<SCRIPT
<script>
byId('search').value = 'version_name my_carrier';
byId('search').dispatchEvent(new Event('input'));
document.querySelector('#rows tr:not([hidden]) button').click();
for (const row of document.querySelectorAll('#rows tr[hidden]')) row.remove();
</script></body></html>
SCRIPT
} >"$out/played.html"
browse --dump-dom "file://$PWD/$out/played.html" >"$out/played.dom"
browse --dump-dom "$page#q=version_name+my_carrier&p=$property" >"$out/linked.dom"
rows=$(sed -n '/<tbody/,/<\/tbody/p' "$out/played.dom" | grep -o '<tr' | wc -l)
[ "$rows" -eq 1 ] || { echo "page: $rows rows are left of the search, not 1" >&2; exit 1; }
for dom in "$out/played.dom" "$out/linked.dom"; do
  expect history "$dom" "$property VQ1-EEA-14.0.3.120PM my_carrier /mnt/vendor/my_carrier/build.prop:4 VQ1-EEA-14.0.2.310PM"
  expect winner "$dom" "service=mount_and_check_load, mode 0 wins"
done

for scheme in 1:light 0:dark; do
  browse --blink-settings=preferredColorScheme="${scheme%%:*}" --screenshot="$out/${scheme##*:}.png" "$page#p=$property"
done
cmp -s "$out/light.png" "$out/dark.png" && { echo "page: dark is the same as light" >&2; exit 1; }
echo "page: shown in the browser, pictures in $out"
