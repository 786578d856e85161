#!/usr/bin/env bash
# Builds the Debian package of the library, its header, CMake and pkg-config
# files, and vxctl with its manual page, into build-package/.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/ensure-deps.sh dpkg-dev file
cmake -S . -B build-package -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
      -DVXBUS_BUILD_TESTS=OFF -DVXBUS_BUILD_EXAMPLES=OFF >/dev/null
cmake --build build-package -j"$(nproc)"
(cd build-package && cpack -G DEB)
for deb in build-package/*.deb; do
  dpkg-deb --field "$deb"
  dpkg-deb --contents "$deb"
done
