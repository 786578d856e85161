#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# `pip install ./python` into a fresh virtual environment of Debian's python3,
# offline (Debian's packaged wheels, no index), then the two-process example
# with that environment's interpreter: once with VXBUS_LIBRARY, once with the
# library beside the installed module, as a wheel may carry it.
#   bash tests/python/venv_test.sh [BUILD_DIR]     (default build/)
set -euo pipefail
cd "$(dirname "$0")/../.."
bash scripts/ensure-deps.sh python3-venv python3-pip-whl python3-setuptools-whl python3-wheel-whl
build=${1:-build}
if [ ! -f "$build/CMakeCache.txt" ]; then cmake -S . -B "$build" >/dev/null; fi
cmake --build "$build" -j2 --target vxbus >/dev/null
library=$(readlink -f "$(find "$build/src" -maxdepth 1 -name 'libvxbus.so.0' | head -n1)")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# pip builds in the source folder; a copy keeps the tree clean.
cp -r python "$work/source"
rm -rf "$work/source/build" "$work/source"/*.egg-info
/usr/bin/python3 -m venv "$work/env"
env -u PIP_FIND_LINKS -u PIP_INDEX_URL "$work/env/bin/pip" install -q --no-index \
    --find-links /usr/share/python-wheels "$work/source"

module=$(cd "$work" && VXBUS_LIBRARY=$library "$work/env/bin/python" -c \
         'import vxbus, os; print(os.path.dirname(vxbus.__file__))')
case "$module" in
  "$work/env/"*) ;;
  *) echo "venv_test: vxbus was imported from $module, not from the environment" >&2; exit 1 ;;
esac

example=examples/python/two_processes.py
"$work/env/bin/python" tests/python/example_test.py "$example" --python "$work/env/bin/python" \
    --library "$library" >/dev/null
cp "$library" "$module/libvxbus.so.0"
env -u VXBUS_LIBRARY "$work/env/bin/python" tests/python/example_test.py "$example" \
    --python "$work/env/bin/python" >/dev/null
echo "venv_test: pip installed vxbus into a fresh venv, and it called a peer"
