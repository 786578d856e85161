// SPDX-License-Identifier: MIT
// A plain NATS client for the bridge's tests, on the NATS C client alone (no
// vxbus), as a program in another language would talk to the bridge.
//
//   nats_probe URL request SUBJECT DATA TIMEOUT_MS
//       prints "reply format=F error=E DATA", or "status TEXT"
//   nats_probe URL publish SUBJECT DATA
//       prints "published" once the server has it
//   nats_probe URL listen SUBJECT COUNT
//       prints "listening" once subscribed, then for each of COUNT messages
//       "message reply=yes|no format=F version=V DATA", and never answers
#include <nats/nats.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr std::int64_t kWaitMs = 20000;

std::string Header(natsMsg* message, const char* key) {
  const char* value = nullptr;
  return natsMsgHeader_Get(message, key, &value) == NATS_OK ? value : "-";
}

std::string Data(natsMsg* message) {
  return std::string(natsMsg_GetData(message),
                     static_cast<std::size_t>(natsMsg_GetDataLength(message)));
}

int Fail(natsStatus status) {
  std::printf("status %s\n", natsStatus_GetText(status));
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) {
    std::fprintf(stderr, "usage: nats_probe URL request|publish|listen SUBJECT ARGS...\n");
    return 2;
  }
  const std::string command = argv[2];
  const char* subject = argv[3];
  natsConnection* connection = nullptr;
  natsStatus status = natsConnection_ConnectTo(&connection, argv[1]);
  if (status != NATS_OK) return Fail(status);
  int code = 0;
  if (command == "request" && argc == 6) {
    natsMsg* reply = nullptr;
    status =
        natsConnection_RequestString(&reply, connection, subject, argv[4], std::atoll(argv[5]));
    if (status != NATS_OK) {
      code = Fail(status);
    } else {
      std::printf("reply format=%s error=%s %s\n", Header(reply, "Vxbus-Format").c_str(),
                  Header(reply, "Vxbus-Error").c_str(), Data(reply).c_str());
      natsMsg_Destroy(reply);
    }
  } else if (command == "publish") {
    status = natsConnection_PublishString(connection, subject, argv[4]);
    if (status == NATS_OK) status = natsConnection_FlushTimeout(connection, kWaitMs);
    code = status == NATS_OK ? (std::printf("published\n"), 0) : Fail(status);
  } else if (command == "listen") {
    natsSubscription* subscription = nullptr;
    status = natsConnection_SubscribeSync(&subscription, connection, subject);
    if (status == NATS_OK) status = natsConnection_FlushTimeout(connection, kWaitMs);
    if (status == NATS_OK) std::printf("listening\n");
    std::fflush(stdout);
    for (int i = 0; status == NATS_OK && i < std::atoi(argv[4]); ++i) {
      natsMsg* message = nullptr;
      status = natsSubscription_NextMsg(&message, subscription, kWaitMs);
      if (status != NATS_OK) break;
      const char* reply = natsMsg_GetReply(message);
      std::printf("message reply=%s format=%s version=%s %s\n", reply && *reply ? "yes" : "no",
                  Header(message, "Vxbus-Format").c_str(), Header(message, "Vxbus-Version").c_str(),
                  Data(message).c_str());
      std::fflush(stdout);
      natsMsg_Destroy(message);
    }
    if (status != NATS_OK) code = Fail(status);
    natsSubscription_Destroy(subscription);
  } else {
    std::fprintf(stderr, "nats_probe: unknown command or arguments\n");
    code = 2;
  }
  natsConnection_Destroy(connection);
  nats_Close();
  return code;
}
