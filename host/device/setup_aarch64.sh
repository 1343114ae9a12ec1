#!/usr/bin/env bash
# Prepares what the AArch64 stages need:
#   the cross compiler and the emulators, installed with apt (through sudo where not root);
#   build/aarch64-sysroot, the device's libraries and headers, unpacked from Debian's arm64 packages.
# With --kernel also the emulated machine and a kernel for it in the sysroot's boot/vmlinuz.
#
# The arm64 packages are fetched with an apt state of their own, so that neither the machine's list
# of architectures nor its installed packages change.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/setup.sh

host_packages=(g++-aarch64-linux-gnu qemu-user-static)
device_packages=("${library_packages[@]}" libstdc++6 libc-bin)
if [[ ${1:-} == --kernel ]]; then
  host_packages+=(qemu-system-arm cpio)
fi

sysroot=$PWD/build/aarch64-sysroot
apt=$PWD/build/aarch64-apt

# Makes apt-get see a machine that is arm64 and has nothing installed.
enter_device_apt() {
  local sources=/etc/apt/sources.list
  if [[ -f /etc/apt/sources.list.d/debian.sources ]]; then
    sources=/etc/apt/sources.list.d/debian.sources
  fi
  mkdir -p "$apt"/state/lists/partial "$apt"/cache/archives/partial
  : > "$apt/status"
  cat > "$apt/apt.conf" <<EOF
APT::Architecture "arm64";
#clear APT::Architectures;
APT::Architectures:: "arm64";
APT::Sandbox::User "root";
APT::Install-Recommends "false";
Dir::State "$apt/state";
Dir::State::status "$apt/status";
Dir::Cache "$apt/cache";
Dir::Etc::sourcelist "$sources";
Dir::Etc::sourceparts "-";
EOF
  export APT_CONFIG=$apt/apt.conf
}

unpack_libraries() {
  local stamp="$sysroot/packages" wanted="${device_packages[*]}"
  if [[ -f $stamp && $(< "$stamp") == "$wanted" ]]; then return; fi
  enter_device_apt
  apt-get update -qq
  rm -rf "$sysroot" "$apt"/cache/archives/*.deb
  mkdir -p "$sysroot"
  apt-get install -qq -y --download-only "${device_packages[@]}" >/dev/null
  local package
  for package in "$apt"/cache/archives/*.deb; do dpkg -x "$package" "$sysroot"; done
  # An absolute link would leave the sysroot.
  local link
  find "$sysroot" -type l -lname '/*' | while read -r link; do
    ln -sfnr "$sysroot$(readlink "$link")" "$link"
  done
  echo "$wanted" > "$stamp"
}

unpack_kernel() {
  if [[ -f $sysroot/boot/vmlinuz ]]; then return; fi
  enter_device_apt
  apt-get update -qq
  local name
  name=$(apt-cache depends linux-image-cloud-arm64 | awk '$1 == "Depends:" {print $2; exit}')
  (cd "$apt/cache" && rm -f linux-image-*.deb && apt-get download -qq "$name")
  mkdir -p "$sysroot/boot"
  dpkg --fsys-tarfile "$apt"/cache/linux-image-*.deb |
    tar -x -C "$sysroot/boot" --strip-components=2 --wildcards './boot/vmlinuz-*'
  mv "$sysroot"/boot/vmlinuz-* "$sysroot/boot/vmlinuz"
}

install_packages "${host_packages[@]}"
unpack_libraries
if [[ ${1:-} == --kernel ]]; then unpack_kernel; fi
echo "AArch64 set-up ready: $sysroot"
