// SPDX-License-Identifier: MIT
// vxbridge's mappings between the bus and NATS, and its life: start, the
// periodic reconnect of local targets, and a drained stop.
//
//   --export SUBJECT=TARGET,SLOT  a NATS request (or message) on SUBJECT calls
//                                 (notifies) SLOT of the local TARGET
//   --import SUBJECT=SLOT         a call to our SLOT is a NATS request on
//                                 SUBJECT; a notify without a callback a publish
//   --signal SUBJECT=TARGET,SIG   each emission of TARGET's SIG is published
//   --emit SUBJECT=SIG            each NATS message on SUBJECT is emitted as our SIG
#ifndef VXBRIDGE_BRIDGE_H_
#define VXBRIDGE_BRIDGE_H_

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "bridge_options.h"
#include "local_targets.h"
#include "nats_link.h"
#include "payload_codec.h"
#include "vxbus.h"

namespace vxbridge {

class Bridge {
 public:
  Bridge(Options options, std::string secret);
  Bridge(const Bridge&) = delete;
  Bridge& operator=(const Bridge&) = delete;

  // Starts the library and the NATS client, sets every mapping up, connects
  // the local targets and prints one line per mapping, then "ready ...".
  // NATS or a target that does not answer is retried later; a target that
  // refuses the secret ends the start with kExitRefused. Anything but
  // kExitOk leaves nothing running.
  ExitCode Start();

  // Reconnects the local targets that went away; for the main thread's loop.
  void Tick();

  // Drains NATS (handlers finish, buffered messages go out), then stops the
  // library. Blocks up to the drain's bound plus the library's stop.
  void Stop();

  // The session to `appId` ended (from the library's disconnect listener).
  void Lost(const std::string& appId) { targets_.Lost(appId); }

 private:
  struct Counters {
    std::atomic<std::uint64_t> forwarded{0};
    std::atomic<std::uint64_t> failed{0};
    std::atomic<std::uint64_t> buffered{0};
    std::atomic<std::uint64_t> dropped{0};
  };
  struct Route {
    Mapping mapping;
    Bridge* bridge = nullptr;
    std::uint32_t signalSlot = 0;  // kSignal: our slot that receives the emissions
    Counters counters;
  };

  static _tag_VX_ERROR ImportSlot(HVXPARAMLIST input, HVXPARAMLIST output, VXSlotContext* context);
  static _tag_VX_ERROR SignalSlot(HVXPARAMLIST input, HVXPARAMLIST output, VXSlotContext* context);
  static _tag_VX_ERROR InfoSlot(HVXPARAMLIST input, HVXPARAMLIST output, VXSlotContext* context);
  static void OnExportMessage(natsConnection*, natsSubscription*, natsMsg* message, void* closure);
  static void OnEmitMessage(natsConnection*, natsSubscription*, natsMsg* message, void* closure);

  // A NATS message with the payload of `list` and the form's headers; null
  // (counted as failed) when the list cannot be encoded.
  natsMsg* MakeMessage(Route& route, const char* subject, HVXPARAMLIST list);
  // Publishes and counts what became of it on `route`.
  void PublishCounted(Route& route, natsMsg* message);
  // The request of an imported call; fills `output` from the reply.
  void Request(Route& route, natsMsg* request, HVXPARAMLIST output);
  // Reads a message's list into `out`; false (logged) if not.
  bool DecodeMessage(Route& route, natsMsg* message, vxctl::List& out);
  void ReplyError(Route& route, natsMsg* request, const std::string& why);
  void FillInfo(HVXPARAMLIST output);
  std::string Describe(const Route& route) const;

  const Options options_;
  const PayloadCodec codec_;
  const std::string secret_;
  LocalTargets targets_;
  NatsLink nats_;
  std::vector<std::unique_ptr<Route>> routes_;
  std::string appId_;
};

}  // namespace vxbridge

#endif  // VXBRIDGE_BRIDGE_H_
