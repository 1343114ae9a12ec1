#!/usr/bin/env bash
# Writes a device as large as real ones, the same on every run:
#   make_large_device.sh DIR CARRIERS PROPERTIES [CHANGED]
# DIR/root is the tree, DIR/device.prop what it boots with. A carrier has 5.2 keys: first, current, nv,
# operator and vmcarrier each, every tenth a channel, and every tenth a second NV key that
# nvmap.prop maps to the next carrier. CHANGED makes it the next build of the same device, in which
# so many carriers and one property of everybody's differ.
set -euo pipefail
[ $# -ge 3 ] || { sed -n 's/^#   //p' "$0" >&2; exit 2; }
mkdir -p "$1"
cd "$1"
awk -v carriers="$2" -v properties="$3" -v changed="${4:-0}" '
  # Appends lines to a file of the tree.
  function put(file, lines) { content["root" file] = content["root" file] lines "\n" }
  function name(c) { return sprintf("carrier%03d", c % carriers) }
  # Properties of properties that belong to one carrier and place.
  function block(file, c, what, count,   i) {
    for (i = 0; i < count; i++)
      put(file, "ro.vemra." what "." i "=" name(c) (c >= carriers - changed && i == 0 ? ".next" : ""))
  }
  BEGIN {
    vendor = "/mnt/vendor/my_"
    roots = split("/odm " vendor "preload " vendor "tavlen " vendor "stock " vendor "product " \
                  vendor "region " vendor "carrier " vendor "bigball " vendor "company " \
                  vendor "engineering " vendor "manifest", root, " ")
    for (r = 1; r <= roots; r++) {
      put(root[r] "/build.prop", "# " root[r] "\nimport " root[r] "/etc/more.prop ro.*\n" \
          "import " root[r] "/etc/${ro.boot.hw.sku:-none}.prop")
      put(root[r] "/etc/eea.prop", "ro.vemra.sku." r "=eea")
    }
    # Each has a partition of its own; two of five are overridden by a later one.
    for (p = 0; p < properties; p++) {
      r = p % roots + 1
      line = sprintf("%s.vemra.area%02d.property%05d=value of %d", p % 4 ? "ro" : "persist", p % 40, p, p)
      put(root[r] (p % 4 && p % 3 == 0 ? "/etc/more.prop" : "/build.prop"), line)
      if (p % 5 < 2 && r < roots) put(root[r + 1] "/build.prop", line " overridden")
      if (p % 50 == 0) put(root[r] "/build.prop", "\n# " p)
    }
    if (changed) put(root[5] "/build.prop", "ro.vemra.build.number=next")

    carrier = vendor "carrier"
    for (c = 0; c < carriers; c++) {
      nv = sprintf("NV%06d", c)
      put(carrier "/etc/flags.prop", nv "=nv-" name(c))
      put(carrier "/etc/nvmap.prop", nv "=" name(c) "\nVMCARRIER" c "=" name(c) "\neu-" name(c) "=" name(c))
      if (c % 10 == 5) {
        put(vendor "manifest/etc/flags.prop", sprintf("NW%06d=nv-%s", c, name(c)))
        put(vendor "region/etc/nvmap.prop", sprintf("NW%06d=%s", c, name(c + 1)))
      }
      block(carrier "/etc/build.nv-" name(c) ".prop", c, "nv", 6)
      block(carrier "/etc/build.eu-" name(c) ".prop", c, "operator", 5)
      block(carrier "/properties/" name(c) "/SimSwitchFirstTime/carrier.prop", c, "first", 8)
      block(carrier "/properties/" name(c) "/SimSwitchCurrentTime/carrier.prop", c, "current", 5)
      if (c % 3 == 0) block(vendor "region/properties/" name(c) "/SimSwitchFirstTime/region.prop", c, "region", 3)
      if (c % 4 == 0) block(vendor "stock/properties/" name(c) "/SimSwitchCurrentTime/icons.prop", c, "icons", 3)
      if (c % 10 == 0) block(vendor "company/properties/" name(c) "/switchCarrierChannel/company.prop", c, "channel", 4)
    }
    reserve = "/mnt/vendor/vemrareserve"
    put(reserve "/radio/exp_operator_switch.config", "NV000000;rev=2")
    put(reserve "/system/ssv/sim_switch_current_file", "sys.sim.switch.current=" name(1))
    put("/data/system/customize/data_common_prop_file.prop", "persist.sys.channel.info=" name(0))

    print "ro.boot.hw.sku=eea\nro.debuggable=0\nro.vemra.image.my_company.date=2\n" \
          "persist.sys.vemra.operator.opta=EU\npersist.sys.vemra.operator.optb=" name(2) > "device.prop"
    for (i = 0; i < 300; i++) print "ro.system.property" i "=" i > "device.prop"

    make = "xargs mkdir -p"
    for (file in content) { sub("/[^/]*$", "", file); print file | make }
    close(make)
    for (file in content) { printf "%s", content[file] > file; close(file) }
  }'
