#!/bin/bash
# Boots a machine that has serial devices of every kind and runs a test program in it, on Debian's kernel in
# an emulator. Each test is reported on a line of its own; the exit status is 0 when all have passed.
#
#   boot.sh PROGRAM FOLDER [FILTER [COMMAND...]]
#
# FOLDER keeps the kernel, so that only the first run downloads it. FILTER is GoogleTest's. The commands are those
# that the tests run; they stand in the machine's /bin.
set -euo pipefail

program=$(realpath "$1") folder=$2 filter=${3:-*}
commands=()
[ $# -lt 4 ] || readarray -t commands < <(realpath "${@:4}")
here=$(cd "$(dirname "$0")" && pwd)
limit=400 # seconds; a run takes a fraction of that on a machine that has nothing else to do
modules="uhci-hcd ftdi_sio dummy_hcd cdc-acm usb_f_acm usb_f_serial g_serial" # in the order in which they are loaded
PATH=$PATH:/usr/sbin:/sbin

emulator=qemu-system-x86_64

give_up() {
    echo "test-lines: ${*//$'\n'/ }" >&2
    exit 1
}
[ "$(uname -m)" = x86_64 ] || give_up "the emulated machine is an x86-64 one, and this is $(uname -m)"
for tool in $emulator busybox depmod dpkg-deb; do
    command -v "$tool" >/dev/null || give_up "$tool is missing (Debian: qemu-system-x86, busybox-static, kmod)"
done
problem=$($emulator -M none -accel tcg -nodefaults -display none -monitor stdio <<<quit 2>&1 >/dev/null) ||
    give_up "the emulator does not run here: ${problem:-it says nothing}"

mkdir -p "$folder"
cd "$folder"

# ---- The kernel: downloaded once, unpacked once --------------------------------------------------------

download() {
    package=$(apt-cache depends linux-image-amd64 2>/dev/null | sed -n 's/^ *Depends: *\(linux-image-[0-9].*\)/\1/p')
    [ -n "$package" ] && apt-get -q -o Acquire::Retries=3 download "$package"
}

fetch_kernel() {
    local package
    rm -rf ./*.deb kernel
    echo "Fetching Debian's kernel"
    # A second time with a fresh list of packages: an old one names packages that are no longer there.
    download >download.log 2>&1 || { apt-get -q update && download; } >download.log 2>&1 ||
        give_up "Debian's kernel package cannot be downloaded: $(tail -n 1 download.log)"
    mkdir kernel
    dpkg-deb --fsys-tarfile ./*.deb | tar -x -C kernel --wildcards ./boot/vmlinuz-\* ./lib/modules/\*/modules.\* \
        ./lib/modules/\*/kernel/fs/configfs/\* ./lib/modules/\*/kernel/drivers/usb/\*
    depmod -b kernel "$(ls kernel/lib/modules)"
    touch kernel/complete
    rm ./*.deb
}

[ -e kernel/complete ] || fetch_kernel
version=$(ls kernel/lib/modules)

# ---- The first and only file system ---------------------------------------------------------------------

add_modules() {
    local module file
    for module in $modules; do
        modprobe -d kernel -S "$version" --show-depends "$module"
    done | sed -n 's/^insmod \([^ ]*\).*/\1/p' | sort -u | while read -r file; do
        install -D -m 644 "$file" "root/lib/modules/$version/${file#*/"$version"/}"
    done
    cp kernel/lib/modules/"$version"/modules.{order,builtin,builtin.modinfo} "root/lib/modules/$version/"
    depmod -b root "$version"
}

add_program() { # FILE PLACE
    local library
    install -D "$1" "root/$2"
    ldd "$1" | sed -n 's/.*[[:space:]]\(\/[^ ]*\) (0x.*/\1/p' | while read -r library; do
        case $library in
        */ld-linux*) install -D "$library" "root/lib64/${library##*/}" ;;
        *) install -D "$library" "root/lib/${library##*/}" ;;
        esac
    done
}

rm -rf root && mkdir -p root/{bin,proc,sys,dev,tmp}
cp "$(command -v busybox)" root/bin/busybox
install "$here/init" root/init
echo "$filter" >root/filter
echo "$modules" >root/modules
add_modules
add_program "$program" program
for command in "${commands[@]}"; do
    add_program "$command" "bin/${command##*/}"
done
(cd root && find . | busybox cpio -o -H newc 2>/dev/null) >initrd

# ---- The machine ----------------------------------------------------------------------------------------

# ttyS1 and ttyS2 are wired to each other. So are ttyS4 and ttyS5, through a link that turns the two bytes
# 0xFF 0xF3 from ttyS5 into a break on ttyS4. The adapter, ttyUSB0, is wired to ttyS3; an equal one, ttyUSB1, to nothing.
wires=()
wire() { # NAME OPTIONS-OF-THE-FIRST-END
    wires+=(-chardev "socket,id=$1-a,path=$1.socket,server=on,wait=off$2" -chardev "socket,id=$1-b,path=$1.socket")
}
wire uarts ""
wire breaks ,telnet=on
wire adapter ""

boot() {
    timeout --foreground $limit $emulator -M pc -accel tcg,thread=multi -smp 2 -m 512 \
        -nodefaults -display none -no-reboot \
        -kernel "kernel/boot/vmlinuz-$version" -initrd initrd \
        -append "console=ttyS0 quiet panic=-1 8250.nr_uarts=8" \
        -chardev stdio,id=console,signal=off -device isa-serial,chardev=console,index=0 "${wires[@]}" \
        -device isa-serial,chardev=uarts-a,index=1 -device isa-serial,chardev=uarts-b,index=2 \
        -device pci-serial-2x,chardev1=breaks-a,chardev2=breaks-b \
        -device piix3-usb-uhci -device usb-serial,chardev=adapter-a,always-plugged=on \
        -chardev null,id=nobody -device usb-serial,chardev=nobody,always-plugged=on \
        -device isa-serial,chardev=adapter-b,index=3 </dev/null 2>&1
}

started=$SECONDS
boot | sed -u 's|\r||' | tee console.log || echo "(the machine ended with status $?)"
verdict=$(sed -n 's/^guest: \([0-9]* passed, [0-9]* failed\)$/\1/p' console.log)
[ -n "$verdict" ] || give_up "the machine did not come to an end in $limit s; see $folder/console.log"
echo "test-lines: $verdict in $((SECONDS - started)) s"
[[ $verdict =~ ^[1-9][0-9]*\ passed,\ 0\ failed$ ]]
