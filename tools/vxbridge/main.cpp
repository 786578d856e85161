// SPDX-License-Identifier: MIT
// vxbridge: a gateway between the local bus and NATS. See vxbridge(1).
#include <nats/nats.h>
#include <signal.h>

#include <cstdio>
#include <ctime>
#include <iostream>

#include "bridge.h"
#include "bridge_log.h"
#include "bridge_options.h"

namespace {

const char kHelp[] =
    "usage: vxbridge --nats nats://HOST:PORT[,nats://...] --name NAME [--port P] [--pipe NAME]\n"
    "                (--secret-file F | VXBUS_SECRET) [--nats-creds F] [--nats-tls-ca F]\n"
    "                [--export SUBJECT=TARGET,SLOT]... [--import SUBJECT=SLOT]...\n"
    "                [--signal SUBJECT=TARGET,SIGNAL]... [--emit SUBJECT=SIGNAL]...\n"
    "                [--json] [--request-timeout SECONDS] [--buffer-bytes N]\n"
    "                [--info-slot N] [--verbose]\n"
    "\n"
    "An application on the local bus and a NATS client at once (Linux only).\n"
    "\n"
    "  --nats URLS          NATS servers (nats:// or tls://), comma-separated or repeated;\n"
    "                       tried in order, reconnected for ever with a jittered wait\n"
    "  --name NAME          our application name on the bus\n"
    "  --port P, --pipe N   where local applications reach us (TCP port, local pipe)\n"
    "  --secret-file F      the local bus secret (one trailing newline dropped); else the\n"
    "                       VXBUS_SECRET variable. It never goes to NATS.\n"
    "  --nats-creds F       NATS user credentials (a .creds file)\n"
    "  --nats-tls-ca F      CA certificates for TLS to NATS (turns TLS on)\n"
    "  --export SUBJECT=TARGET,SLOT\n"
    "                       NATS requests on SUBJECT call SLOT of the local TARGET and are\n"
    "                       answered with its reply; plain messages notify it\n"
    "  --import SUBJECT=SLOT\n"
    "                       a local call to our SLOT becomes a NATS request on SUBJECT; a\n"
    "                       notify without a callback becomes a publish with no reply\n"
    "  --signal SUBJECT=TARGET,SIGNAL\n"
    "                       each emission of the local TARGET's SIGNAL is published on SUBJECT\n"
    "  --emit SUBJECT=SIGNAL\n"
    "                       each NATS message on SUBJECT is emitted as our SIGNAL\n"
    "  --json               lists travel as vxctl's JSON objects, not the bus's stream form\n"
    "  --request-timeout S  how long an imported call waits for its answer (default 5);\n"
    "                       after it the caller gets an empty list and one line is logged\n"
    "  --buffer-bytes N     what may be buffered while NATS is away (default 8388608);\n"
    "                       beyond it messages are dropped, counted and logged\n"
    "  --info-slot N        the slot that answers with our mappings and counters\n"
    "                       (default 65535)\n"
    "  --verbose            also log the library's own lines\n"
    "  --help, --version\n"
    "\n"
    "TARGET is host:port or pipe:NAME. Subjects of --export and --emit may hold NATS\n"
    "wildcards. Slots from 4026531840 up are the bridge's own.\n"
    "\n"
    "Exit codes: 0 stopped by SIGINT or SIGTERM after draining; 1 the library or the NATS\n"
    "client could not start (a port in use, an unusable TLS file); 2 a bad option; 4 a\n"
    "local target refused the bridge's secret at start. A NATS server or a local target\n"
    "that does not answer is not an error: it is logged and retried.\n";

}  // namespace

int main(int argc, char** argv) {
  using namespace vxbridge;
  Options options;
  std::string error;
  if (!ParseOptions(argc, argv, options, error)) {
    LogLine(error);
    return kExitUsage;
  }
  if (options.help) {
    std::cout << kHelp;
    return kExitOk;
  }
  if (options.version) {
    std::cout << "vxbridge " << VXBRIDGE_VERSION << " (NATS C client " << nats_GetVersion() << ")"
              << std::endl;
    return kExitOk;
  }
  std::string secret;
  if (!LoadSecret(options, secret, error)) {
    LogLine(error);
    return kExitUsage;
  }
  // Every thread started from here on inherits the mask, so only the wait
  // below takes SIGINT and SIGTERM.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
  signal(SIGPIPE, SIG_IGN);
  VXSetAuthenticationInfo(secret.data(), static_cast<std::int32_t>(secret.size()));

  // Never destroyed: a handler of the NATS client that outlived the drain
  // may still be running while the process exits.
  auto* bridge = new Bridge(std::move(options), std::move(secret));
  const ExitCode code = bridge->Start();
  if (code != kExitOk) {
    nats_Close();
    return code;
  }
  const timespec tick = {0, 500 * 1000 * 1000};
  for (;;) {
    const int taken = sigtimedwait(&stopSignals, nullptr, &tick);
    if (taken == SIGINT || taken == SIGTERM) break;
    bridge->Tick();
  }
  bridge->Stop();
  nats_CloseAndWait(2000);
  return kExitOk;
}
