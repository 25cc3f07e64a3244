#!/bin/bash
# Builds for another machine and runs its tests, in a system of its own that has the compilers and libraries for that.
#
#     [MIRROR=URL] other_machine.sh i386|arm64|armhf FOLDER "PACKAGES" [CTEST OPTIONS]
#
# PACKAGES are those that the build and its tests need. i386 runs here and is a whole system; the others are cross
# compiled, and an emulator runs what needs neither terminals nor other programs. FOLDER keeps the system and the
# build for the next time. Runs as root, in a mount namespace of its own, so that nothing stays mounted.
set -euo pipefail
if [ -z "${BRISOLT_OWN_MOUNTS:-}" ]; then
    test "$(id -u)" = 0 || { echo "This needs root: it makes a system for the other machine." >&2; exit 1; }
    BRISOLT_OWN_MOUNTS=1 exec unshare --mount --propagation private "$0" "$@"
fi
machine=$1
folder=$2
packages=$3
shift 3
sources=$(cd "$(dirname "$0")/.." && pwd)
mirror=${MIRROR:-http://deb.debian.org/debian}
release=$(. /etc/os-release && echo "$VERSION_CODENAME")
root=$folder/root
# The emulator has no terminals of any rate (TCGETS2), and runs no programs of that machine that we start.
emulated='^(checked|cpp|device|exports|files|params|platform|util|virtual)\.'
emulated="$emulated|^transfer\.(Progress|TransferThread)\.|^stream\.(Receive|Transmit)Ring\."
unfit='AWriterThatHangs|installed_tree|PollAndLines|platform\.(Tty|Wake\.Without|Queue\.PostsReach)'
options=()
run=()
tests=()

case $machine in
i386)
    system=(--arch=i386)
    run=(linux32)
    ;;
arm64 | armhf)
    case $machine in
    arm64) gnu=aarch64-linux-gnu processor=aarch64 emulator=qemu-aarch64 ;;
    armhf) gnu=arm-linux-gnueabihf processor=armv7l emulator=qemu-arm ;;
    esac
    system=(--arch="$(dpkg --print-architecture),$machine")
    packages="$packages crossbuild-essential-$machine qemu-user libstdc++6:$machine"
    # The libraries that programs link, for that machine.
    packages=$(sed -E "s/\\b(libgtest-dev|libssl-dev)\\b/\\1:$machine/g; s/\\b(python3-dev|python3-cffi)\\b//g" <<<"$packages")
    options=(-DCMAKE_SYSTEM_NAME=Linux "-DCMAKE_SYSTEM_PROCESSOR=$processor" -DBRISOLT_PYTHON=OFF
        "-DCMAKE_C_COMPILER=$gnu-gcc" "-DCMAKE_CXX_COMPILER=$gnu-g++" "-DCMAKE_CROSSCOMPILING_EMULATOR=$emulator")
    tests=(-R "$emulated" -E "$unfit")
    ;;
*)
    echo "$machine is none of i386, arm64, armhf" >&2
    exit 2
    ;;
esac

if [ ! -e "$root/complete" ]; then
    rm -rf "$root"
    mkdir -p "$folder"
    mmdebstrap --variant=minbase "${system[@]}" --include="$(tr -s ' ' ',' <<<"$packages")" "$release" "$root" "$mirror"
    mkdir "$root/sources" "$root/build"
    printf '127.0.0.1 localhost\n::1 localhost\n' >"$root/etc/hosts" # nobody else writes it
    touch "$root/complete"
fi
mount -t proc proc "$root/proc"
mount -t sysfs -o ro sysfs "$root/sys"
mount --bind /dev "$root/dev"
mount -t devpts -o newinstance,ptmxmode=0666,mode=620,gid=5 devpts "$root/dev/pts"
mount --bind "$root/dev/pts/ptmx" "$root/dev/ptmx"
mount -t tmpfs tmpfs "$root/tmp"
mount --bind "$sources" "$root/sources"
mount -o remount,bind,ro "$root/sources"

inside() { env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 chroot "$root" "${run[@]}" "$@"; }
inside cmake -S /sources -B /build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_COMPILE_WARNING_AS_ERROR=ON \
    "${options[@]}"
inside cmake --build /build --parallel "${JOBS:-$(nproc)}"
inside ctest --test-dir /build --output-on-failure --no-tests=error -j "${JOBS:-$(nproc)}" --timeout 300 \
    "${tests[@]}" "$@"
