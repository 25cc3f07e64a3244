#!/bin/sh
# Builds the Debian packages a second time, elsewhere, later and in other circumstances, and compares every byte.
#
#     same_bytes.sh FOLDER AGAIN
#
# FOLDER has the packages as deb.sh makes them. AGAIN is made, and removed when they are the same; else both stay to
# be looked into, with diffoscope for one.
set -eu
packages=$(cd "$1" && pwd)
again=$2

umask 0002
env TZ=Pacific/Kiritimati LC_ALL=C JOBS=$((${JOBS:-$(nproc)} + 1)) "$(dirname "$0")/deb.sh" "$again/a/longer/path"
again=$(cd "$again" && pwd)
cd "$again/a/longer/path"
(cd "$packages" && ls -- *.deb) >"$again/first"
ls -- *.deb | diff "$again/first" -
same=yes
for package in *.deb; do
    cmp "$packages/$package" "$package" || same=no
done
test $same = yes
echo "$(wc -l <"$again/first") packages, built twice: the same bytes"
rm -r "$again"
