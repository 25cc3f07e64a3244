#!/bin/bash
# Installs the packages in a fresh minimal system and runs their tests there, then upgrades and purges them.
#
#     [MIRROR=URL] test_packages.sh FOLDER ROOT
#
# FOLDER has the packages; ROOT is made, and removed when all is well. Runs as root, in a mount namespace of its own,
# so that nothing stays mounted.
set -euo pipefail
if [ -z "${BRISOLT_OWN_MOUNTS:-}" ]; then
    test "$(id -u)" = 0 || { echo "This needs root: it installs packages in a system of its own." >&2; exit 1; }
    BRISOLT_OWN_MOUNTS=1 exec unshare --mount --propagation private "$0" "$@"
fi
sources=$(cd "$(dirname "$0")/.." && pwd)
packages=$(cd "$1" && pwd)
root=$2
mirror=${MIRROR:-http://deb.debian.org/debian}
release=$(. /etc/os-release && echo "$VERSION_CODENAME")
names=$(for package in "$packages"/*.deb; do dpkg-deb -f "$package" Package; done | grep -v -- -dbgsym | tr '\n' ' ')

say() { printf '\n== %s\n' "$*"; }
inside() {
    env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive \
        chroot "$root" "$@"
}
install_from() { inside sh -c "apt-get -q -y --no-install-recommends install $1/*.deb"; }
# Every file and what it says, but for what the packaging system itself writes.
picture() {
    find "$root" -xdev \( -path "$root/var/lib/dpkg" -o -path "$root/var/lib/apt" -o -path "$root/var/cache" \
        -o -path "$root/var/log" -o -path "$root/tmp" -o -path "$root/packages" -o -name __pycache__ \) -prune -o \
        \( -printf '%P %y %m %l\n' , -type f -exec sha256sum {} + \) | sort
}

say "A minimal $release"
rm -rf "$root"
mmdebstrap --variant=minbase --include=ca-certificates "$release" "$root" "$mirror"
cp /etc/resolv.conf "$root/etc/resolv.conf"
mount -t proc proc "$root/proc"
mount -t devtmpfs dev "$root/dev" 2>/dev/null || mount --bind /dev "$root/dev"
mount -t devpts -o newinstance,ptmxmode=0666,mode=620,gid=5 devpts "$root/dev/pts"
mount --bind "$root/dev/pts/ptmx" "$root/dev/ptmx"
mkdir "$root/packages" "$root/packages/new" "$root/packages/old"
for package in "$packages"/*.deb; do
    case $package in *-dbgsym_*) continue ;; esac
    cp "$package" "$root/packages/new/"
    # The same one, as an earlier version.
    unpacked=$(mktemp -d)
    dpkg-deb -R "$package" "$unpacked"
    version=$(dpkg-deb -f "$package" Version)
    sed -i "s/$version/$version~0/g" "$unpacked/DEBIAN/control"
    dpkg-deb -Znone -b "$unpacked" "$root/packages/old/" >/dev/null
    rm -r "$unpacked"
done

inside apt-get -q -o Acquire::Retries=3 update
say "What they need comes and stays, so that what they leave behind can be told"
install_from /packages/new
inside dpkg --purge $names
picture >"$packages/before"

say "An upgrade keeps what an administrator has written"
install_from /packages/old
printf '[Mine]\ndevice = /dev/ttyS0\n' >"$root/etc/brisolt/telephony.ini"
install_from /packages/new
inside dpkg --audit
grep -q Mine "$root/etc/brisolt/telephony.ini"
for name in $names; do
    test "$(inside dpkg-query -W -f '${Status} ${Version}' "$name")" = \
        "install ok installed $(dpkg-deb -f "$packages/${name}"_*.deb Version)"
done

say "Removed and purged they leave nothing"
inside apt-get -q -y remove $names
test -e "$root/etc/brisolt/telephony.ini"
inside dpkg --purge $names
picture | diff "$packages/before" -
rm "$packages/before"

say "The tests of the packages"
autopkgtest --no-built-binaries "$root"/packages/new/*.deb "$sources" -- chroot "$root"

umount -R "$root/dev" "$root/proc"
rm -rf "$root"
say "The packages are well"
