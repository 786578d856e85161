#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the API reference into build-docs/: the HTML reference of vxbus.h
# with Doxygen (build-docs/api/html/index.html), where any warning fails the
# script, and the Python binding's reference from its docstrings with pydoc
# (build-docs/python/vxbus.html), which loads the library built in build/.
#   bash scripts/docs.sh
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/ensure-deps.sh doxygen
out=build-docs
rm -rf "$out"
mkdir -p "$out/api" "$out/python"

VXBUS_VERSION=$(sed -n 's/^project(vxbus VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
VXBUS_DOCS_OUT=$out/api
export VXBUS_VERSION VXBUS_DOCS_OUT
doxygen docs/Doxyfile 2>"$out/doxygen-warnings.txt" || true
if [ -s "$out/doxygen-warnings.txt" ] || [ ! -f "$out/api/html/index.html" ]; then
  cat "$out/doxygen-warnings.txt" >&2
  echo "docs: doxygen warned; the reference is not built" >&2
  exit 1
fi

# pydoc imports the modules, and with them the library.
if [ ! -f build/CMakeCache.txt ]; then cmake -S . -B build >/dev/null; fi
cmake --build build -j2 --target vxbus >/dev/null
library=$(readlink -f build/src/libvxbus.so)
(cd "$out/python" && VXBUS_LIBRARY=$library PYTHONPATH=$PWD/../../python \
   /usr/bin/python3 -m pydoc -w vxbus vxbus.bus vxbus.paramlist vxbus.errors >/dev/null)
for page in vxbus vxbus.bus vxbus.paramlist vxbus.errors; do
  [ -s "$out/python/$page.html" ] || { echo "docs: pydoc wrote no $page.html" >&2; exit 1; }
done
echo "docs: $out/api/html/index.html and $out/python/vxbus.html"
