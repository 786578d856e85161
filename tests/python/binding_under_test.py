# SPDX-License-Identifier: MIT
"""What the binding's test programs share: their command line
(PYTHON_DIR LIBRARY TOOL [SANITIZER]) and loading the binding from the tree."""
import os
import sys


def arguments():
    """The three paths of the command line; exits with 77 (skipped) in a
    sanitizer build, whose library the interpreter cannot load: the
    sanitizer's runtime would have to be the first library of the process."""
    python_dir, library, tool = sys.argv[1:4]
    sanitizer = sys.argv[4] if len(sys.argv) > 4 else ""
    del sys.argv[1:]  # what is left is unittest's
    if sanitizer:
        print("skipped: a %s build of libvxbus cannot be loaded into python3" % sanitizer)
        sys.exit(77)
    return python_dir, library, tool


def load(python_dir, library):
    """The binding of the tree, loading `library`."""
    os.environ["VXBUS_LIBRARY"] = library
    sys.path.insert(0, python_dir)
    import vxbus
    return vxbus
