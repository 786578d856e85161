// SPDX-License-Identifier: MIT
// The server of the demo: it offers three slots and one signal, serves one
// client, and shuts down once that client has gone.
#include <cstdio>
#include <string>

#include "demo_common.h"
#include "vxbus.h"

namespace demo {
namespace {

const char* const kRole = "server";

// The main thread waits here until its client has come and gone.
Latch g_clientGone;

void OnConnect(const char*, const char*, const char* appId, const char*, std::int32_t,
               const char*) {
  Say(kRole, std::string("'") + appId + "' has connected and proved that it knows the secret.");
}

void OnDisconnect(const char* appId, const char*, std::int32_t, const char*) {
  Say(kRole, std::string("'") + appId + "' has disconnected.");
  g_clientGone.Set();
}

std::uint32_t UnitPriceCents(const std::string& sku) {
  if (sku == "PEN-01") return 150;
  if (sku == "INK-07") return 899;
  return 0;
}

std::string Money(std::uint32_t cents) {
  char text[32];
  std::snprintf(text, sizeof text, "%u.%02u", cents / 100, cents % 100);
  return text;
}

// Slot 1: prices an order. Both lists are lent to us for this call only, so
// the holders take references of their own (FromHandle) and drop them again.
_tag_VX_ERROR PriceOrder(HVXPARAMLIST input, HVXPARAMLIST output, VXSlotContext*) {
  if (output == VX_INVALID_PARAMLIST) return VX_SUCCESS;  // sent one-way: nobody would read it
  VX::ParamListHolder order = VX::ParamListHolder::FromHandle(input);
  VX::ParamListHolder reply = VX::ParamListHolder::FromHandle(output);

  VX::ParamListHolder lines[8];
  std::uint32_t lineCount = order.GetHandleArray("lines", lines, 8, 0);
  std::uint32_t lineCents[8] = {};
  std::uint32_t total = 0;
  for (std::uint32_t i = 0; i < lineCount; ++i) {
    lineCents[i] = lines[i].GetInt32("quantity") * UnitPriceCents(lines[i].GetString("sku"));
    total += lineCents[i];
  }
  Say(kRole, "Pricing order " + std::to_string(order.GetInt32("orderId")) + " for " +
                 order.GetString("customer") + ": " + std::to_string(lineCount) + " lines, " +
                 Money(total) + " in total.");

  reply.SetInt32("orderId", order.GetInt32("orderId"));
  reply.SetInt32Array("lineCents", lineCount, lineCents);
  reply.SetInt32("totalCents", total);
  reply.SetHandle("deliverTo", order.GetHandle("shipTo"));  // a nested list goes back too
  return VX_SUCCESS;
}

// Slot 2: files a note. A notification with a callback gets this reply; one
// without a callback would come with a null output list.
_tag_VX_ERROR TakeNote(HVXPARAMLIST input, HVXPARAMLIST output, VXSlotContext* context) {
  static std::uint32_t notesFiled = 0;  // slots run one at a time, on the library's thread
  Say(kRole, std::string("Note from '") + context->senderName + "': \"" +
                 VXGetStringValue(input, "text") + "\"");
  if (output != VX_INVALID_PARAMLIST) VXSetInt32Value(output, "noteNumber", ++notesFiled);
  return VX_SUCCESS;
}

// Slot 3: ships an order and tells every subscriber of the signal.
_tag_VX_ERROR ShipOrder(HVXPARAMLIST input, HVXPARAMLIST output, VXSlotContext*) {
  std::uint32_t orderId = VXGetInt32Value(input, "orderId");
  Say(kRole, "Shipping order " + std::to_string(orderId) + "; emitting '" + kSignalOrderShipped +
                 "' to every subscriber.");
  VX::ParamListHolder shipment;
  shipment.NewList();
  shipment.SetInt32("orderId", orderId);
  shipment.SetString("carrier", "Parcel Post");
  VXEmit(kSignalOrderShipped, shipment.GetHandle(), nullptr, nullptr);
  if (output != VX_INVALID_PARAMLIST) VXSetStringValue(output, "status", "shipped");
  return VX_SUCCESS;
}

}  // namespace

int RunServer(const Endpoint& endpoint) {
  ShowLibraryProblems(kRole);
  VXSetConnectListener(OnConnect);
  VXSetDisconnectListener(OnDisconnect);
  VXSetAuthenticationInfo(kSecret, kSecretLength);

  // Only the loopback address: a demo has no business on the network. With a
  // pipe the TCP port is 0, which means no TCP listener at all.
  _tag_VX_ERROR started =
      endpoint.UsesPipes()
          ? VXInitializeWithPipeChannel(endpoint.pipe.c_str(), "127.0.0.1", "server", 0, nullptr)
          : VXInitializeEx("127.0.0.1", "server", endpoint.port, nullptr);
  if (started != VX_SUCCESS) {
    Say(kRole, "Could not start the library (code " + std::to_string(started) + ").");
    VXShutdown();
    return 1;
  }

  const _tag_SLOT_DESCRIPTION slots[] = {{kSlotPriceOrder, PriceOrder, nullptr},
                                         {kSlotTakeNote, TakeNote, nullptr},
                                         {kSlotShipOrder, ShipOrder, nullptr}};
  VXRegisterSlots(slots, 3);
  VXRegisterSignal(kSignalOrderShipped);
  VXConnectionReady();  // only now, with everything in place, may clients come in
  Say(kRole, std::string("Listening ") +
                 (endpoint.UsesPipes() ? "on the pipe '" + endpoint.pipe + "'"
                                       : "on TCP port " + std::to_string(endpoint.port)) +
                 ". Slots: 1 prices an order, 2 files a note, 3 ships an order. Signal: '" +
                 kSignalOrderShipped + "'.");

  bool served = g_clientGone.WaitFor(std::chrono::seconds(30));
  if (!served) Say(kRole, "No client came and went within 30 seconds; giving up.");
  Say(kRole, "Shutting down.");
  VXShutdown();
  Say(kRole, "Stopped.");
  return served ? 0 : 1;
}

}  // namespace demo
