#!/usr/bin/env bash
# Boots an emulated AArch64 machine whose root is the sample device and whose PID 1 is the host, and
# compares what it prints with what the tool prints for the same tree on this machine.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/setup.sh

tree=examples/device/root
boot=(--props examples/device/device.prop
  --call service=check_mount --post boot_mount --post module_bind_single_boot
  --post boot_mount_bind_complete --call media=/my_carrier/media)
sysroot=$PWD/build/aarch64-sysroot
out=$PWD/build/aarch64/device
root=$out/root

# Prints the files that the dynamic loader would load for a program or library, itself included.
libraries_of() {
  local path
  qemu-aarch64-static -L "$sysroot" -E LD_TRACE_LOADED_OBJECTS=1 "$1" |
    sed -nE 's/^.* => ([^ ]+) .*|^\s*(\/[^ ]+) .*/\1\2/p' | while read -r path; do
    if [[ -e $sysroot$path ]]; then path=$sysroot$path; fi
    echo "$path"
  done
}

pack_machine() {
  local build=build/aarch64 path
  local init=$build/host/device/device_init
  local library=$build/system/core_common/extproperty/libextproperty.so
  rm -rf "$root"
  mkdir -p "$root/lib/aarch64-linux-gnu" "$root/tmp" "$root/usr/lib/locale"
  cp -rL "$sysroot/usr/lib/locale/C.utf8" "$root/usr/lib/locale/"
  cp "$init" "$root/init"
  cp "$library" "$root/lib/aarch64-linux-gnu/"
  libraries_of "$init" | while read -r path; do cp -L "$path" "$root/lib/aarch64-linux-gnu/"; done
  mv "$root"/lib/aarch64-linux-gnu/ld-linux-aarch64.so.1 "$root/lib/"
  cp -a "$tree/." "$root/"
  cp -a --parents examples/device/*.prop "$root/"
  (cd "$root" && find . | sort | cpio --quiet -o -H newc -R 0:0) > "$out/initramfs.cpio"
}

run_machine() {
  # A kernel that panics ends the emulator: "panic=-1" reboots and "-no-reboot" takes that as the end.
  timeout 120 qemu-system-aarch64 -M virt -cpu cortex-a57 -m 512 -nic none -nographic -no-reboot \
    -kernel "$sysroot/boot/vmlinuz" -initrd "$out/initramfs.cpio" \
    -append "console=ttyAMA0 quiet loglevel=1 panic=-1 -- / ${boot[*]}" < /dev/null |
    tee "$out/console.txt" | grep -a '^PID 1 ' || true
}

fail() {
  echo "device: FAILED: $1" >&2
  exit 1
}

host/device/setup_aarch64.sh --kernel
build_preset release extproperty extprop
build_preset aarch64 extproperty device_init

# Ordinary users cannot give files to the system user, which the device's init does.
mkdir -p "$out"
"${as_root[@]}" timeout 120 build/release/host/extprop/extprop boot "$tree" --all "${boot[@]}" \
  > "$out/expected.txt" || fail "the tool could not boot the sample device"

pack_machine
run_machine
sed -n '/^===== boot$/,/^=====/{/^=====/!p}' "$out/console.txt" > "$out/printed.txt"
if ! grep -qx '===== done' "$out/console.txt"; then
  tail -n 20 "$out/console.txt"
  fail "the machine did not come to the end of the boot"
fi
diff -u "$out/expected.txt" "$out/printed.txt" || fail "the machine printed something else"
echo "device: the machine printed the same $(wc -l < "$out/printed.txt") lines as the tool"
