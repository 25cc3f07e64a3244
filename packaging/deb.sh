#!/bin/sh
# Builds the Debian packages of this machine's architecture in a copy of the sources, and has lintian look at them.
#
#     deb.sh FOLDER
#
# The packages are then in FOLDER, and nothing is written beside the sources. The tests are not run: "make test" does.
set -eu
sources=$(cd "$(dirname "$0")/.." && pwd)
folder=$1

if ! dpkg-checkbuilddeps -P nocheck "$sources/debian/control" 2>/dev/null; then
    test "$(id -u)" = 0 || { echo "Please install what is missing: apt-get build-dep -P nocheck $sources" >&2; exit 1; }
    DEBIAN_FRONTEND=noninteractive apt-get -q -y -o Acquire::Retries=3 -o DPkg::Lock::Timeout=300 \
        build-dep -P nocheck "$sources" </dev/null
fi

rm -rf "$folder"
mkdir -p "$folder/brisolt"
tar -C "$sources" --exclude-vcs -cf - . | tar -C "$folder/brisolt" -xf -
cd "$folder/brisolt"
DEB_BUILD_OPTIONS="${DEB_BUILD_OPTIONS:+$DEB_BUILD_OPTIONS }nocheck parallel=${JOBS:-$(nproc)}" dpkg-buildpackage -b -uc -us -Pnocheck
cd ..
lintian --fail-on error,warning ./*.changes
rm -rf brisolt
ls -- *.deb
