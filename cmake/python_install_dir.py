# SPDX-License-Identifier: MIT
"""Prints where this Python looks for pure packages under PREFIX, relative to it.

    python3 python_install_dir.py PREFIX

Debian's python3 searches /usr/lib/python3/dist-packages for the system's
packages, and lib/python3.X/dist-packages (not site-packages) under /usr/local;
other builds of Python use their posix_prefix scheme.
"""

import os
import sys
import sysconfig

prefix = os.path.normpath(sys.argv[1])
debian = "deb_system" in sysconfig.get_scheme_names()
if debian and prefix == "/usr":
    path = sysconfig.get_path("purelib", "deb_system", vars={"base": prefix})
else:
    path = sysconfig.get_path("purelib", "posix_prefix", vars={"base": prefix})
    if debian:
        path = os.path.join(os.path.dirname(path), "dist-packages")
print(os.path.relpath(path, prefix))
