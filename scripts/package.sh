#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the four Debian packages into build-package/, each from the install
# component of the same content (cmake/VxbusInstall.cmake):
#   libvxbus0      the shared library
#   libvxbus-dev   the header, the CMake package, vxbus.pc, the unversioned link
#   vxbus-tools    vxctl and the other programs under tools/, with their manuals
#   python3-vxbus  the Python binding
# then runs lintian on each (errors fail the script, warnings are listed) and
# tests/install/packages_test.sh, which builds the consumer against them.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/ensure-deps.sh dpkg-dev lintian file python3
out=build-package
maintainer="vxbus developers <vxbus@lists.invalid>"

# Debian's compiler flags (hardening included) and no rpath: the library lies
# in the system's own directory. Passed on each run, so that a tree configured
# earlier takes them too.
cxxflags="$(dpkg-buildflags --get CXXFLAGS) $(dpkg-buildflags --get CPPFLAGS)"
ldflags=$(dpkg-buildflags --get LDFLAGS)
cmake -S . -B "$out" -DCMAKE_BUILD_TYPE=None -DCMAKE_INSTALL_PREFIX=/usr \
      -DCMAKE_CXX_FLAGS="$cxxflags" -DCMAKE_EXE_LINKER_FLAGS="$ldflags" \
      -DCMAKE_SHARED_LINKER_FLAGS="$ldflags" \
      -DCMAKE_SKIP_INSTALL_RPATH=ON -DPython3_EXECUTABLE=/usr/bin/python3 \
      -DVXBUS_BUILD_TESTS=OFF -DVXBUS_BUILD_EXAMPLES=OFF >/dev/null
cmake --build "$out" -j"$(nproc)"

version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$out/CMakeCache.txt")
deb_version="$version-1"
arch=$(dpkg --print-architecture)
if ! head -n1 packaging/debian/changelog | grep -qF "($deb_version)"; then
  echo "packaging/debian/changelog has no entry for $deb_version at its top" >&2
  exit 1
fi

rm -rf "$out/debian" "$out"/*.deb
mkdir -p "$out/debian"
# dpkg-shlibdeps works in a source tree's layout: debian/control, and each
# package's files in debian/PACKAGE.
printf 'Source: vxbus\nMaintainer: %s\n\nPackage: libvxbus0\nArchitecture: any\n\nPackage: vxbus-tools\nArchitecture: any\n' \
       "$maintainer" >"$out/debian/control"

# stage PACKAGE COMPONENT: the component's files and the package's documents.
stage() {
  local root="$out/debian/$1"
  DESTDIR="$PWD/$root" cmake --install "$out" --component "$2" --strip >/dev/null
  mkdir -p "$root/DEBIAN" "$root/usr/share/doc/$1"
  install -m 644 packaging/debian/copyright "$root/usr/share/doc/$1/copyright"
  gzip -9n <packaging/debian/changelog >"$root/usr/share/doc/$1/changelog.Debian.gz"
  chmod 644 "$root/usr/share/doc/$1/changelog.Debian.gz"
  if [ -d "$root/usr/share/man" ]; then
    find "$root/usr/share/man" -type f ! -name '*.gz' -exec gzip -9n {} +
  fi
  find "$root" -path "$root/DEBIAN" -prune -o -type d -exec chmod 755 {} +
  find "$root/usr/share" "$root/usr/include" "$root/usr/lib" -type f -exec chmod 644 {} + 2>/dev/null || true
}
stage libvxbus0 runtime
stage libvxbus-dev dev
stage vxbus-tools tools
stage python3-vxbus python
rm -rf "$out/debian/python3-vxbus/usr/lib/python3/dist-packages/vxbus/__pycache__"

fill() {  # fill TEMPLATE DEPENDS: a control file with this build's values
  sed -e "s/@DEB_VERSION@/$deb_version/g" -e "s/@VERSION@/$version/g" -e "s/@ARCH@/$arch/g" \
      -e "s/@MAINTAINER@/$maintainer/g" -e "s/@DEPENDS@/$2/g" "$1"
}
lib=libvxbus0
fill packaging/debian/shlibs.$lib "" >"$out/debian/$lib/DEBIAN/shlibs"
install -m 644 packaging/debian/triggers.$lib "$out/debian/$lib/DEBIAN/triggers"
chmod 644 "$out/debian/$lib/DEBIAN/shlibs"

# The Depends of a package's ELF files, from dpkg-shlibdeps with the
# library's own shlibs for libvxbus, and the system's for the rest (libnats
# for vxbridge when it is built, for instance).
multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
shlibdeps() {  # shlibdeps PACKAGE
  local elf=()
  while IFS= read -r -d '' f; do
    file -b "$f" | grep -q '^ELF' && elf+=("${f#"$out"/}")
  done < <(find "$out/debian/$1" -path "$out/debian/$1/DEBIAN" -prune -o -type f -print0)
  [ "${#elf[@]}" -gt 0 ] || return 0
  (cd "$out" && dpkg-shlibdeps -O -x"$1" -S"debian/$lib" -l"debian/$lib/usr/lib/$multiarch" \
     "${elf[@]}" | sed -n 's/^shlibs:Depends=//p')
}

build_deb() {  # build_deb PACKAGE DEPENDS
  local root="$out/debian/$1" size
  size=$(du -sk --exclude=DEBIAN "$root" | cut -f1)
  fill "packaging/debian/control.$1" "$2" | sed "s/@SIZE@/$size/" >"$root/DEBIAN/control"
  (cd "$root" && find . -path ./DEBIAN -prune -o -type f -printf '%P\0' | LC_ALL=C sort -z |
     xargs -0r md5sum >DEBIAN/md5sums)
  chmod 644 "$root/DEBIAN/control" "$root/DEBIAN/md5sums"
  dpkg-deb --root-owner-group --build "$root" "$out" >/dev/null
}
build_deb libvxbus0 "$(shlibdeps libvxbus0)"
build_deb libvxbus-dev ""
build_deb vxbus-tools "$(shlibdeps vxbus-tools)"
build_deb python3-vxbus ""

for deb in "$out"/*.deb; do
  echo "== $deb"
  dpkg-deb --field "$deb" Package Version Architecture Depends
  dpkg-deb --contents "$deb" | awk '{print "   " $6 ($7 ? " " $7 " " $8 : "")}'
done

# lintian: errors fail the script; warnings and the rest are listed.
echo "== lintian"
lintian --fail-on error --display-level ">=warning" "$out"/*.deb || {
  echo "lintian found errors" >&2
  exit 1
}
echo "lintian: no errors"

bash tests/install/packages_test.sh "$out"
