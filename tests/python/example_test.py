# SPDX-License-Identifier: MIT
"""Runs a Python example of two processes and checks its whole
conversation, in order, and that both processes ended cleanly.

    python3 example_test.py EXAMPLE [--python PY] [--path DIR] [--library LIB]
                            [--sanitizer NAME]

--python is the interpreter that runs the example (a venv's, say); --path and
--library say where vxbus and libvxbus are when they are not installed.
"""

import argparse
import os
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tools"))
from process_helpers import LIMIT, free_tcp_port  # noqa: E402

CONVERSATIONS = {
    "two_processes.py": [
        "[till] Connected to ",
        "[till] Order 4711 costs 5700 cents.",
        "[till] The shop filed the note as number 1.",
        "[till] Slot 100 ran: signal 'shipped' says order 4711 left with Parcel Post.",
        "[till] Stopped.",
        "[shop] Pricing order 4711 for ",
        "[shop] Stopped.",
    ],
    "async_till.py": [
        "[till] Connected to ",
        "[till] Order 1 costs 450 cents.",
        "[till] Order 2 costs 900 cents.",
        "[till] Order 3 costs 1350 cents.",
        "[till] The stocktake took longer than 0.2 s; the till goes on.",
        "[till] The shop filed the note as number 1.",
        "[till] Stopped.",
        "[shop] Pricing order 1 for ",
        "[shop] Pricing order 2 for ",
        "[shop] Pricing order 3 for ",
        "[shop] Stock taken.",
        "[shop] Stopped.",
    ],
}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("example")
    parser.add_argument("--python", default=sys.executable)
    parser.add_argument("--path")
    parser.add_argument("--library")
    parser.add_argument("--sanitizer", default="")
    args = parser.parse_args()
    if args.sanitizer:
        print("skipped: a %s build of libvxbus cannot be loaded into python3" % args.sanitizer)
        return 77
    env = dict(os.environ)
    if args.path:
        env["PYTHONPATH"] = args.path
    if args.library:
        env["VXBUS_LIBRARY"] = args.library
    run = subprocess.run([args.python, args.example, str(free_tcp_port())], env=env,
                         stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                         timeout=3 * LIMIT)
    conversation = CONVERSATIONS[os.path.basename(args.example)]
    at = 0
    for line in run.stdout.splitlines():  # every expected line, in this order, and nothing lost
        if at < len(conversation) and line.startswith(conversation[at]):
            at += 1
    if run.returncode != 0 or at < len(conversation):
        print("exit %d; missing %r\nout:\n%s\nerr:\n%s" % (
            run.returncode, conversation[at:at + 1], run.stdout, run.stderr), file=sys.stderr)
        return 1
    print(run.stdout, end="")
    return 0


if __name__ == "__main__":
    sys.exit(main())
