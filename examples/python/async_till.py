#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The till of two_processes.py with asyncio: orders priced at once, a
deadline on a slow slot, and a note filed, while the event loop stays free.

    python3 examples/python/async_till.py [PORT]

The shop runs as a child process on PORT (47012 by default). It offers slot
1, which prices an order, slot 2, which files a note, and slot 4, which takes
stock and is slow at it. The till, this process, sends three orders at once
and awaits their prices, gives up on the stocktake after a short deadline
(the shop finishes it anyway, and its late answer is let go), then files a
note with the same shop.

Run it as two_processes.py is run; from a build tree:

    PYTHONPATH=python VXBUS_LIBRARY=build/src/libvxbus.so \\
        python3 examples/python/async_till.py
"""

import asyncio
import sys
import time

import vxbus

SECRET = b"s3cr3t"
WAIT = 10.0  # seconds the till waits for the shop to start
STOCKTAKE_SECONDS = 1.0  # how long the shop's slot 4 works
PATIENCE = 0.2  # how long the till waits for it


def shop(port: int) -> None:
    """The server: serves its slots until its standard input ends."""
    with vxbus.Bus("shop", port=port, secret=SECRET) as bus:
        notes = []

        def price(order, sender):  # slots run one at a time on a library thread
            cents = sum(line["cents"] * line["quantity"] for line in order["lines"])
            print("[shop] Pricing order %d for %s." % (order["id"], sender), flush=True)
            return {"id": order["id"], "totalCents": cents}

        def file_note(note, _sender):
            notes.append(note["text"])
            return {"number": len(notes)}

        def take_stock(_args, _sender):
            time.sleep(STOCKTAKE_SECONDS)  # the slow work; the next slot waits for it
            print("[shop] Stock taken.", flush=True)
            return {"items": 42}

        bus.register_slot(1, price)
        bus.register_slot(2, file_note)
        bus.register_slot(4, take_stock)
        bus.ready()
        print("[shop] Ready on port %d." % port, flush=True)
        sys.stdin.read()
    print("[shop] Stopped.", flush=True)


async def till(port: int) -> int:
    """The client: starts the shop, talks to it, then stops both."""
    server = await asyncio.create_subprocess_exec(
        sys.executable, __file__, "--shop", str(port),
        stdin=asyncio.subprocess.PIPE, stdout=asyncio.subprocess.PIPE)
    line = await asyncio.wait_for(server.stdout.readline(), WAIT)
    if not line.startswith(b"[shop] Ready"):
        print("[till] The shop did not start.", file=sys.stderr)
        return 1
    with vxbus.Bus("till") as bus, bus.connect("127.0.0.1:%d" % port, secret=SECRET) as shop_peer:
        print("[till] Connected to %s." % shop_peer.app_id)
        orders = [{"id": n, "lines": [{"item": "tea", "quantity": n, "cents": 450}]}
                  for n in (1, 2, 3)]
        # All three go out at once; the loop is free while the replies travel.
        replies = await asyncio.gather(*(shop_peer.call_async(1, order) for order in orders))
        for reply in replies:
            with reply:
                print("[till] Order %d costs %d cents." % (reply["id"], reply["totalCents"]))
        try:
            await shop_peer.call_async(4, timeout=PATIENCE)
        except vxbus.TimeoutError:
            print("[till] The stocktake took longer than %g s; the till goes on." % PATIENCE)
        # The same shop still answers, once its stocktake is done.
        filed = await shop_peer.notify_async(2, {"text": "fragile"})
        print("[till] The shop filed the note as number %s." % (filed["number"] if filed else None))
    print("[till] Stopped.")
    server.stdin.close()
    print((await server.stdout.read()).decode(), end="")
    return await server.wait()


if __name__ == "__main__":
    if sys.argv[1:2] == ["--shop"]:
        shop(int(sys.argv[2]))
    else:
        sys.exit(asyncio.run(till(int(sys.argv[1]) if len(sys.argv) > 1 else 47012)))
