// SPDX-License-Identifier: MIT
// Two applications on one bus, each in its own process: a server with slots
// and a signal, and a client that uses them.
//
//   vxbus_demo [--pipes] [--port N]      starts both and waits for them
//   vxbus_demo server --port N | --pipe NAME
//   vxbus_demo client --port N | --pipe NAME
//
// The last two forms run one side each, e.g. in two terminals.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "demo_common.h"
#include "demo_process.h"

namespace {

using demo::Say;

const char* const kRole = "demo";

int Launch(const char* self, demo::Endpoint endpoint) {
  if (endpoint.UsesPipes()) {
    Say(kRole, "A server and a client, each in its own process, talk over a pair of local");
    Say(kRole, "pipes named '" + endpoint.pipe + "'.");
  } else {
    if (endpoint.port == 0) endpoint.port = demo::FindFreeTcpPort();
    if (endpoint.port == 0) {
      Say(kRole, "Found no free TCP port; pass one with --port.");
      return 1;
    }
    Say(kRole, "A server and a client, each in its own process, talk over TCP port " +
                   std::to_string(endpoint.port) + " on this machine.");
  }
  const std::vector<std::string> where =
      endpoint.UsesPipes() ? std::vector<std::string>{"--pipe", endpoint.pipe}
                           : std::vector<std::string>{"--port", std::to_string(endpoint.port)};
  std::vector<std::string> serverArguments = {"server"}, clientArguments = {"client"};
  serverArguments.insert(serverArguments.end(), where.begin(), where.end());
  clientArguments.insert(clientArguments.end(), where.begin(), where.end());

  long server = demo::StartProcess(self, serverArguments);
  if (server < 0) {
    Say(kRole, "Could not start the server process.");
    return 1;
  }
  // The client may come up before the server listens; it tries again until it does.
  long client = demo::StartProcess(self, clientArguments);
  int clientStatus = client < 0 ? -1 : demo::WaitForProcess(client);
  int serverStatus = demo::WaitForProcess(server);
  if (clientStatus == 0 && serverStatus == 0) {
    Say(kRole, "Both processes ended cleanly.");
    return 0;
  }
  Say(kRole, "Something went wrong: the server ended with status " + std::to_string(serverStatus) +
                 ", the client with " + std::to_string(clientStatus) + ".");
  return 1;
}

int Usage(const char* self) {
  std::fprintf(stderr,
               "usage: %s [--pipes] [--port N]\n"
               "       %s server|client --port N | --pipe NAME\n",
               self, self);
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  std::string role;
  demo::Endpoint endpoint;
  bool pipes = false;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (i == 1 && (argument == "server" || argument == "client")) {
      role = argument;
    } else if (argument == "--pipes") {
      pipes = true;
    } else if (argument == "--port" && i + 1 < argc) {
      endpoint.port = std::atoi(argv[++i]);
    } else if (argument == "--pipe" && i + 1 < argc) {
      endpoint.pipe = argv[++i];
    } else {
      return Usage(argv[0]);
    }
  }
  if (role.empty()) {
    // A name of its own for each run, so that two demos never share a pipe.
    if (pipes) endpoint.pipe = "vxbus_demo_" + std::to_string(std::random_device{}());
    return Launch(argv[0], endpoint);
  }
  if (endpoint.port <= 0 && !endpoint.UsesPipes()) return Usage(argv[0]);
  return role == "server" ? demo::RunServer(endpoint) : demo::RunClient(endpoint);
}
