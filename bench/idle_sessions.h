// SPDX-License-Identifier: MIT
// The idle measure: one process holds 100 sessions, each to a peer process of
// its own, and reads its own CPU time over 10 s in which nobody sends a byte.
//   bench_vxbus idle        over TCP, or over the local pipes with
//                           BENCH_TRANSPORT=local
// It reports how long the sessions took to come up (the last one, from the
// moment the peers were started) and the CPU time as a share of one core.
#ifndef VXBUS_BENCH_IDLE_SESSIONS_H_
#define VXBUS_BENCH_IDLE_SESSIONS_H_

namespace bench {

// The holder's side: starts `program` again as each peer, measures, reports
// and shuts down, which ends the peers. 0 when every session came up.
int RunIdleSessions(const char* program);

// A peer's side: "idle-peer <target> <index>", where target is a TCP port or
// a pipe name; connects, retrying while the holder's listener is busy, and
// stays until its session ends.
int RunIdlePeer(int argc, char** argv);

}  // namespace bench

#endif  // VXBUS_BENCH_IDLE_SESSIONS_H_
