#!/usr/bin/env bash
# Opens the pages of `extprop boot --html` and `extprop carriers --html` in a real browser, the sample
# device's and one of 60 carriers and 3,000 properties: they have to show what the boots did, from typing,
# clicking and keys and from a link, fetch nothing and leave the console empty. Leaves pictures of them in
# light and dark beside the pages, for people to look at.
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

# browse ARGUMENT...: runs the browser, which may log nothing to its console.
browse() {
  timeout 120 chromium --headless --enable-logging=stderr --no-sandbox --disable-gpu --disable-quic --no-first-run \
    --disable-background-networking --disable-component-update --disable-sync --hide-scrollbars \
    --user-data-dir="$profile" --window-size=1400,1500 --virtual-time-budget=2000 "$@" 2>"$out/log" ||
    { cat "$out/log" >&2; return 1; }
  ! grep CONSOLE "$out/log" >&2 || { echo "page: logs to the console" >&2; return 1; }
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
! grep -qE '(src|href)=|url\(|@import|fetch\(' host/extprop/render/page/*.html ||
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

# take_pictures NAME PAGE: of both colour schemes.
take_pictures() {
  local scheme
  for scheme in 1:light 0:dark; do
    browse --blink-settings=preferredColorScheme="${scheme%%:*}" \
      --screenshot="$out/$1${scheme##*:}.png" "$2"
  done
  ! cmp -s "$out/$1light.png" "$out/$1dark.png" ||
    { echo "page: dark is the same as light: $2" >&2; return 1; }
}
take_pictures "" "$page#p=$property"

host/extprop/benchmarks/make_large_device.sh "$profile/large" 60 3000
"$extprop" boot "$profile/large/root" --props "$profile/large/device.prop" --html "$out/large.html"
[ "$(stat -c %s "$out/large.html")" -lt 1000000 ] || { echo "page: a large device's is over 1 MB" >&2; exit 1; }
browse --dump-dom "file://$PWD/$out/large.html" >"$out/large.dom"
expect "large device" "$out/large.dom" "ro.vemra.first.0 carrier000"

"$extprop" carriers "$profile/large/root" --props "$profile/large/device.prop" --html "$out/carriers.html"
carriers=file://$PWD/$out/carriers.html
browse --dump-dom "$carriers" >"$out/plain.dom"
expect filters "$out/plain.dom" "Only what differs 40 properties, 312 keys"
browse --dump-dom "$carriers#all=1&q=property0 area39&c=nv" >"$out/linked.dom"
expect link "$out/linked.dom" "75 properties, 66 keys"

# Types a carrier, and goes by keys to the table's end and two pages and a column back.
{
  sed '/^<\/body>/,$d' "$out/carriers.html"
  cat <<SCRIPT
<script>
byId('differs').click();
byId('carrier').value = 'first';
byId('carrier').dispatchEvent(new Event('input'));
grid.focus();
const press = (key, more) => grid.dispatchEvent(new KeyboardEvent('keydown', {key, cancelable: true, ...more}));
press('End', {ctrlKey: true});
const drawn = document.querySelectorAll('[role=gridcell]').length;
byId('keys').textContent = drawn < 2000 && drawn > 100 ? 'drawn in part' : 'drawn: ' + drawn;
press('PageUp');
press('ArrowLeft');
const sight = byId('active').getBoundingClientRect();
const hit = document.elementFromPoint(sight.x + 9, sight.y + 9);
byId('keys').append(hit === byId('active') ? ', active in sight' : ', active hidden');
byId('property').value = 'ro.vemra.first.3';
byId('property').dispatchEvent(new Event('input'));
</script></body></html>
SCRIPT
} >"$out/played.html"
browse --dump-dom "file://$PWD/$out/played.html" >"$out/played.dom"
expect keys "$out/played.dom" "drawn in part, active in sight"
expect cell "$out/played.dom" "ro.vemra.first.3 first=carrier058 carrier058 set by /mnt/vendor/my_carrier/properties/carrier058/SimSwitchFirstTime/carrier.prop:4"
expect "default value" "$out/played.dom" "default carrier000 set by /mnt/vendor/my_carrier/properties/carrier000/SimSwitchFirstTime/carrier.prop:4"
take_pictures carriers- "$carriers"
echo "page: shown in the browser, pictures in $out"
