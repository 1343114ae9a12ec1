#!/usr/bin/env bash
# Builds the Debian package, installs it with its dependencies on a clean Debian in a directory, and
# runs the installed tool there: as root and as an ordinary user, with man page and completion.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/setup.sh

install_packages dpkg-dev debootstrap mandoc

build=build/release
build_preset release
rm -f "$build"/*.deb
(cd "$build" && cpack -G DEB >/dev/null)
mandoc -T lint -W warning host/extprop/extprop.1

suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
system=$(mktemp -d)
remove_system() { "${as_root[@]}" umount -l "$system" 2>/dev/null || true; "${as_root[@]}" rm -rf "$system"; }
trap remove_system EXIT
chmod 755 "$system"
"${as_root[@]}" debootstrap --variant=minbase "$suite" "$system" >"$build/debootstrap.log" 2>&1 ||
  { tail "$build/debootstrap.log" >&2; exit 1; }
cp "$build"/*.deb "$system/tmp/extproperty.deb"
cp -r examples/device "$system/tmp/device"

# The private root needs "/" to be a mount point. A namespace of its own keeps the mounts away from
# this machine.
"${as_root[@]}" unshare --mount --propagation private bash -euo pipefail -s "$system" <<'OUTER'
mount --bind "$1" "$1"
mount -t proc proc "$1/proc"
cp -L /etc/resolv.conf "$1/etc/resolv.conf"
chroot "$1" bash -euo pipefail -s <<'INNER'
export DEBIAN_FRONTEND=noninteractive
apt-get install -qq --no-install-recommends /tmp/extproperty.deb >/tmp/install.log 2>&1 ||
  { cat /tmp/install.log >&2; exit 1; }
cd /tmp/device
boot=(extprop boot root --props device.prop)
"${boot[@]}" --all >/tmp/as_root.txt
grep -qxF '[ro.vemra.market.name]: [Vemra Quokka 5 EEA]' /tmp/as_root.txt
extprop check root --props device.prop >/tmp/check.txt
"${boot[@]}" --html /tmp/boot.html
test -s /tmp/boot.html
dpkg -L extproperty | grep -E '/(man1/extprop.1|include/extproperty/.*\.h|libextproperty.so)' >/tmp/listed.txt
[ "$(wc -l </tmp/listed.txt)" -eq 4 ]  # two headers

# Files of an ordinary user, and of another one.
useradd --create-home user
cp -r /tmp/device /home/user/device
chown -R user: /home/user/device
for tree in /home/user/device /tmp/device; do
  su user -c "cd $tree && ${boot[*]} --json" >/tmp/as_user.json 2>/tmp/as_user.err ||
    grep -q 'allow user namespaces' /tmp/as_user.err
done

. /usr/share/bash-completion/completions/extprop
complete_line() { COMP_LINE=$1 COMP_POINT=${#1}; _extprop 2>/dev/null; echo "${COMPREPLY[@]}"; }
[ "$(complete_line 'extprop expl')" = explain ]
[ "$(complete_line 'extprop boot --save')" = --save-props ]
[ "$(complete_line 'extprop boot root --call pers')" = persist ]
[ "$(complete_line 'extprop boot root --call service=check')" = check_mount ]
apt-get install -qq --no-install-recommends fish zsh >/tmp/install.log 2>&1 ||
  { cat /tmp/install.log >&2; exit 1; }
[ "$(fish -c 'complete -C "extprop boot root --call service=check"' | cut -f1)" = service=check_mount ]
[ "$(fish -c 'complete -C "extprop boot ro"')" = root/ ]
zsh -fc 'autoload -Uz compinit; compinit -u; [[ $_comps[extprop] == _extprop ]]'
dpkg --remove extproperty >/dev/null
[ -z "$(find /usr -name '*extprop*' -not -path '*/doc/*')" ]
INNER
OUTER
echo "package: $(basename "$build"/*.deb) installs and works on a clean $suite"
