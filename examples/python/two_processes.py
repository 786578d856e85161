#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Two applications on one bus, each in its own process: the Python
counterpart of the C++ demo (build/examples/vxbus_demo).

    python3 examples/python/two_processes.py [PORT]

The shop runs as a child process on PORT (47011 by default). It offers slot 1,
which prices an order, slot 2, which files a note, slot 3, which ships an
order, and the signal "shipped". The till, this process, connects with the
shared secret, calls slot 1, notifies slot 2 and gets the reply in a
callback, subscribes its own slot 100 to "shipped", and has slot 3 ship the
order, which the shop announces with the signal.

It needs the vxbus module and libvxbus: after `pip install ./python` or the
Debian packages it runs as it is; from a build tree, give their places:

    PYTHONPATH=python VXBUS_LIBRARY=build/src/libvxbus.so \\
        python3 examples/python/two_processes.py
"""

import subprocess
import sys
import threading

import vxbus

SECRET = b"s3cr3t"
WAIT = 10.0  # seconds the till waits for the shop's callbacks


def shop(port):
    """The server: serves its slots until its standard input ends."""
    with vxbus.Bus("shop", port=port, secret=SECRET) as bus:
        notes = []

        def price(order, sender):  # slots run one at a time on a library thread
            cents = sum(line["cents"] * line["quantity"] for line in order["lines"])
            print("[shop] Pricing order %d for %s: %d cents." % (order["id"], sender, cents),
                  flush=True)
            return {"id": order["id"], "totalCents": cents}

        def file_note(note, _sender):
            notes.append(note["text"])
            return {"number": len(notes)}  # the reply goes to the notifier's callback

        def ship(order, _sender):
            bus.emit("shipped", {"id": order["id"], "carrier": "Parcel Post"})
            return None

        bus.register_slot(1, price)
        bus.register_slot(2, file_note)
        bus.register_slot(3, ship)
        bus.register_signal("shipped")
        bus.ready()  # peers may come in now that the slots are there
        print("[shop] Ready on port %d." % port, flush=True)
        sys.stdin.read()
    print("[shop] Stopped.", flush=True)


def till(port):
    """The client: starts the shop, talks to it, then stops both."""
    server = subprocess.Popen([sys.executable, __file__, "--shop", str(port)],
                              stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
    line = server.stdout.readline()  # the shop's ready line, or "" if it died
    if not line.startswith("[shop] Ready"):
        print("[till] The shop did not start.", file=sys.stderr)
        return 1
    with vxbus.Bus("till") as bus:  # port 0: this process only connects out
        shipped, filed = threading.Event(), threading.Event()
        news = {}

        def on_shipped(signal, sender):
            news.update(signal, sender=sender)
            shipped.set()

        def on_filed(reply):  # runs on a library thread; None if the session ended
            news["note"] = reply["number"] if reply else None
            filed.set()

        bus.register_slot(100, on_shipped)
        with bus.connect("127.0.0.1:%d" % port, secret=SECRET) as shop_peer:
            print("[till] Connected to %s." % shop_peer.app_id)
            order = {"id": 4711, "customer": "Ada",
                     "lines": [{"item": "tea", "quantity": 2, "cents": 450},
                               {"item": "cups", "quantity": 4, "cents": 1200}]}
            with shop_peer.call(1, order) as reply:  # blocks until the reply
                print("[till] Order %d costs %d cents." % (reply["id"], reply["totalCents"]))
            shop_peer.notify(2, {"text": "fragile"}, on_filed)  # returns at once
            shop_peer.connect_signal("shipped", 100)
            shop_peer.notify(3, {"id": 4711})
            if not (filed.wait(WAIT) and shipped.wait(WAIT)):
                print("[till] The shop did not answer in time.", file=sys.stderr)
                return 1
            print("[till] The shop filed the note as number %s." % news["note"])
            print("[till] Slot 100 ran: signal 'shipped' says order %d left with %s." %
                  (news["id"], news["carrier"]))
    print("[till] Stopped.")
    server.stdin.close()
    print(server.stdout.read(), end="")
    return server.wait()


if __name__ == "__main__":
    if sys.argv[1:2] == ["--shop"]:
        shop(int(sys.argv[2]))
    else:
        sys.exit(till(int(sys.argv[1]) if len(sys.argv) > 1 else 47011))
