#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Unpacks the Debian packages of scripts/package.sh into a throwaway root
# (dpkg -x, nothing is installed on the machine) and checks what a user of
# each gets: the consumer example builds against libvxbus-dev with
# find_package and with pkg-config and runs on libvxbus0, vxctl runs, and the
# Python binding imports and builds a list.
#   bash tests/install/packages_test.sh [DIR-WITH-DEBS]
set -euo pipefail
cd "$(dirname "$0")/../.."
debs=$(cd "${1:-build-package}" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
root=$work/root
multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
libdir=$root/usr/lib/$multiarch
fail() { echo "packages_test: $*" >&2; exit 1; }

version=$(dpkg-deb -f "$debs"/libvxbus0_*.deb Version)
upstream=${version%-*}
declare -A contents
for pkg in libvxbus0 libvxbus-dev vxbus-tools python3-vxbus; do
  deb=$(ls "$debs/${pkg}_${version}"_*.deb)
  dpkg-deb -x "$deb" "$root"
  contents[$pkg]=$(dpkg-deb -c "$deb")
  # Every package carries its copyright and Debian changelog.
  for doc in copyright changelog.Debian.gz; do
    grep -q "usr/share/doc/$pkg/$doc\$" <<<"${contents[$pkg]}" || fail "$pkg has no $doc"
  done
done

# The library package holds the versioned library only; the link to build
# against is the development package's. Programs built now need the version
# they were built against or later.
grep -q "libvxbus\.so\$" <<<"${contents[libvxbus0]}" && fail "libvxbus0 holds the unversioned link"
grep -q "libvxbus\.so -> libvxbus\.so\.0\$" <<<"${contents[libvxbus-dev]}" ||
  fail "libvxbus-dev has no unversioned link"
shlibs=$(dpkg-deb --ctrl-tarfile "$debs"/libvxbus0_*.deb | tar -xO ./shlibs)
[ "$shlibs" = "libvxbus 0 libvxbus0 (>= $upstream)" ] || fail "shlibs says: $shlibs"
dpkg-deb -f "$debs"/vxbus-tools_*.deb Depends | grep -qF "libvxbus0 (>= $upstream)" ||
  fail "vxbus-tools does not depend on libvxbus0 (>= $upstream)"
[ -f "$root/usr/share/man/man1/vxctl.1.gz" ] || fail "vxctl's manual page is not compressed"

# find_package, with the throwaway root as the prefix path.
cmake -S examples/consumer -B "$work/cmake-build" -DCMAKE_PREFIX_PATH="$root/usr" >/dev/null
cmake --build "$work/cmake-build" >/dev/null
out=$(LD_LIBRARY_PATH=$libdir "$work/cmake-build/vxbus_consumer")
[[ $out == "consumer: order 4711 with tea, 2 parameters" ]] || fail "find_package consumer: $out"

# pkg-config, with the root as the sysroot of the .pc file's /usr paths.
cflags_libs=$(PKG_CONFIG_LIBDIR=$libdir/pkgconfig PKG_CONFIG_SYSROOT_DIR=$root \
              PKG_CONFIG_ALLOW_SYSTEM_CFLAGS=1 PKG_CONFIG_ALLOW_SYSTEM_LIBS=1 \
              pkg-config --cflags --libs vxbus | sed "s/ *$//")
[[ $cflags_libs == "-I$root/usr/include -L$libdir -lvxbus" ]] || fail "pkg-config gives: $cflags_libs"
# shellcheck disable=SC2086
c++ -std=c++17 examples/consumer/main.cpp $cflags_libs -o "$work/pkg-config-consumer"
out=$(LD_LIBRARY_PATH=$libdir "$work/pkg-config-consumer")
[[ $out == "consumer: order 4711 with tea, 2 parameters" ]] || fail "pkg-config consumer: $out"

LD_LIBRARY_PATH=$libdir "$root/usr/bin/vxctl" --help >/dev/null || fail "vxctl does not run"

# The binding from the package's directory, finding libvxbus.so.0 by the
# system's search (here the root's library directory).
out=$(cd "$work" && LD_LIBRARY_PATH=$libdir PYTHONPATH=$root/usr/lib/python3/dist-packages \
      /usr/bin/python3 -c 'import vxbus
with vxbus.ParamList({"id": 7, "sub": {"s": "hi"}}) as p: print(vxbus.__file__, p.to_dict())')
[[ $out == "$root/usr/lib/python3/dist-packages/vxbus/__init__.py {'id': 7, 'sub': {'s': 'hi'}}" ]] ||
  fail "python3-vxbus: $out"
echo "packages_test: the four packages install and serve a consumer, vxctl and Python"
