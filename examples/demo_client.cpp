// SPDX-License-Identifier: MIT
// The client of the demo: it connects to the server with the shared secret,
// calls a slot, sends a notification, follows a signal, and leaves.
#include <string>
#include <thread>

#include "demo_common.h"
#include "vxbus.h"

namespace demo {
namespace {

const char* const kRole = "client";

Latch g_noteAnswered;
Latch g_shipmentSeen;

// Runs on a library thread when the server's reply to the note arrives; the
// lists are lent for the call.
_tag_VX_ERROR OnNoteAnswered(const char*, std::uint32_t, HVXPARAMLIST, HVXPARAMLIST output, void*) {
  if (output == VX_INVALID_PARAMLIST)
    Say(kRole, "Callback: the session ended before the server answered the note.");
  else
    Say(kRole, "Callback: the server filed the note as number " +
                   std::to_string(VXGetInt32Value(output, "noteNumber")) + ".");
  g_noteAnswered.Set();
  return VX_SUCCESS;
}

// Our own slot, which the server's signal reaches.
_tag_VX_ERROR OnOrderShipped(HVXPARAMLIST input, HVXPARAMLIST, VXSlotContext*) {
  VX::ParamListHolder shipment = VX::ParamListHolder::FromHandle(input);
  Say(kRole, "Slot " + std::to_string(kSlotOrderShipped) + " ran: signal '" + kSignalOrderShipped +
                 "' says order " + std::to_string(shipment.GetInt32("orderId")) + " left with " +
                 shipment.GetString("carrier") + ".");
  g_shipmentSeen.Set();
  return VX_SUCCESS;
}

// The server's name on the bus, or "" if it could not be reached. The server
// may still be starting: a refused connection is tried again for a while.
std::string ConnectToServer(const Endpoint& endpoint) {
  bool saidWaiting = false;
  for (int attempt = 0; attempt < 100; ++attempt) {
    char appId[256] = {};
    _tag_VX_ERROR result =
        endpoint.UsesPipes()
            ? VXConnectEx(endpoint.pipe.c_str(), nullptr, 0, appId, sizeof appId, kSecret,
                          kSecretLength)
            : VXConnect("127.0.0.1", endpoint.port, appId, sizeof appId, kSecret, kSecretLength);
    if (result == VX_SUCCESS) return appId;
    if (result == VX_ERROR_NAME_IN_USE) {  // what a refused secret looks like from here
      Say(kRole, "The server turned us away: wrong secret, or we are connected already.");
      return "";
    }
    if (!saidWaiting) Say(kRole, "The server is not listening yet; trying again.");
    saidWaiting = true;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  Say(kRole, "Gave up: the server did not answer within 10 seconds.");
  return "";
}

VX::ParamListHolder OrderLine(const char* sku, std::uint32_t quantity) {
  VX::ParamListHolder line;
  line.NewList();
  line.SetString("sku", sku);
  line.SetInt32("quantity", quantity);
  return line;
}

bool PriceAnOrder(VX::VXApplicationHolder& server) {
  Say(kRole, "Calling slot 1 with an order. The list holds nested lists: an address and two");
  Say(kRole, "order lines. Call blocks until the reply is back.");
  VX::ParamListHolder order;
  order.NewList();
  order.SetInt32("orderId", 4711);
  order.SetString("customer", "Ada");
  VX::ParamListHolder shipTo;
  shipTo.NewList();
  shipTo.SetString("city", "Springfield");
  shipTo.SetInt32("zip", 12345);
  order.SetHandle("shipTo", shipTo);  // the order takes its own reference
  VX::ParamListHolder lines[] = {OrderLine("PEN-01", 10), OrderLine("INK-07", 2)};
  order.SetHandleArray("lines", 2, lines);

  // The reply belongs to us: FromRefHandle takes over that reference.
  VX::ParamListHolder reply =
      VX::ParamListHolder::FromRefHandle(server.Call(kSlotPriceOrder, order.GetHandle()));
  if (!reply) {
    Say(kRole, "The call failed: the session has ended.");
    return false;
  }
  Say(kRole, "The reply is a list too. PrintHandleInfo shows it (on standard error):");
  PrintHandleInfo(reply.GetHandle(), true);
  Say(kRole, "Total for order " + std::to_string(reply.GetInt32("orderId")) + ": " +
                 std::to_string(reply.GetInt32("totalCents")) + " cents, delivered to " +
                 reply.GetHandle("deliverTo").GetString("city") + ".");
  return true;
}

bool SendANote(VX::VXApplicationHolder& server) {
  Say(kRole, "Sending a note as a notification. Notify returns at once; our callback runs");
  Say(kRole, "when the server's answer arrives.");
  VX::ParamListHolder note;
  note.NewList();
  note.SetString("text", "Please gift-wrap it.");
  if (!server.Notify(kSlotTakeNote, note.GetHandle(), OnNoteAnswered, nullptr)) {
    Say(kRole, "The notification could not be sent: the session has ended.");
    return false;
  }
  if (g_noteAnswered.WaitFor(std::chrono::seconds(10))) return true;
  Say(kRole, "The callback did not run within 10 seconds.");
  return false;
}

bool FollowTheShipment(VX::VXApplicationHolder& server) {
  Say(kRole, "Subscribing to the server's signal '" + std::string(kSignalOrderShipped) +
                 "' with our slot " + std::to_string(kSlotOrderShipped) + ",");
  Say(kRole, "then calling slot 3 to have the order shipped.");
  server.ConnectSignal(kSignalOrderShipped, kSlotOrderShipped);
  VX::ParamListHolder request;
  request.NewList();
  request.SetInt32("orderId", 4711);
  VX::ParamListHolder answer =
      VX::ParamListHolder::FromRefHandle(server.Call(kSlotShipOrder, request.GetHandle()));
  if (!answer) {
    Say(kRole, "The call failed: the session has ended.");
    return false;
  }
  if (g_shipmentSeen.WaitFor(std::chrono::seconds(10))) return true;
  Say(kRole, "The signal did not arrive within 10 seconds.");
  return false;
}

bool Converse(const std::string& serverName, bool overPipes) {
  // The holder names the peer for every call. Its destructor disconnects that
  // peer, so there is exactly one of it, passed by reference.
  VX::VXApplicationHolder server(serverName.c_str());
  Say(kRole, "Connected. The server's name on the bus is '" + serverName + "'.");
  bool done = PriceAnOrder(server) && SendANote(server) && FollowTheShipment(server);
  if (overPipes)
    Say(kRole, "Disconnecting. Our pipe reads time out after 2 seconds; then the session ends.");
  else
    Say(kRole, "Disconnecting.");
  return done;
}

}  // namespace

int RunClient(const Endpoint& endpoint) {
  // A pipe session notices a request to end only when one of its reads times
  // out, after limits.IO_TIMEOUT_MS: a minute by default, two seconds here.
  // Zero words of the record keep their defaults.
  VXLimits limits{};
  limits.size = sizeof limits;
  limits.limits.IO_TIMEOUT_MS = 2000;
  // Port 0: this application connects out and listens for nobody.
  _tag_VX_ERROR started = VXInitialize("client", 0, endpoint.UsesPipes() ? &limits : nullptr);
  if (started != VX_SUCCESS) {
    Say(kRole, "Could not start the library (code " + std::to_string(started) + ").");
    VXShutdown();
    return 1;
  }
  VXRegisterSlot(kSlotOrderShipped, OnOrderShipped, nullptr);
  Say(kRole, std::string("Started. Connecting to the server over ") +
                 (endpoint.UsesPipes() ? "the pipe '" + endpoint.pipe + "'"
                                       : "TCP port " + std::to_string(endpoint.port)) +
                 " with the shared secret.");

  std::string serverName = ConnectToServer(endpoint);
  // From here on; while the server was still starting, every refused attempt
  // made the library report a session that never came up.
  ShowLibraryProblems(kRole);
  bool done = !serverName.empty() && Converse(serverName, endpoint.UsesPipes());
  Say(kRole, "Shutting down.");
  VXShutdown();
  Say(kRole, "Stopped.");
  return done ? 0 : 1;
}

}  // namespace demo
