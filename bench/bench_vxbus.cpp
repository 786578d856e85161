// SPDX-License-Identifier: MIT
// vxbus through its public interface only: a server application with four
// slots, and a client application that calls and notifies them, over TCP or,
// with BENCH_TRANSPORT=local, over the local pipes.
#include <unistd.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "harness.h"
#include "idle_sessions.h"
#include "vxbus.h"

namespace {

const unsigned char kSecret[] = {'b', 'e', 'n', 'c', 'h'};

enum Slot : std::uint32_t { kCallSlot = 1, kNotifySlot = 2, kFinishSlot = 3, kQuitSlot = 4 };

// A list with one binary value of `bytes` bytes; the caller closes it.
HVXPARAMLIST PayloadList(std::size_t bytes) {
  HVXPARAMLIST list = VXCreateParamList();
  const std::vector<char> payload(bytes, 'x');
  VXSetBinaryValue(list, "payload", payload.data(), static_cast<std::uint32_t>(bytes));
  return list;
}

// What the server's slots share with its main thread. Slots run one at a
// time on the library's dispatch thread, so the count needs no lock.
std::uint64_t g_notifies = 0;
std::mutex g_mutex;
std::condition_variable g_changed;
bool g_quitAsked = false;
bool g_clientGone = false;

_tag_VX_ERROR OnCall(HVXPARAMLIST, HVXPARAMLIST output, VXSlotContext*) {
  const char reply[bench::kSmallBytes] = {};
  VXSetBinaryValue(output, "payload", reply, sizeof reply);
  return VX_SUCCESS;
}

_tag_VX_ERROR OnNotify(HVXPARAMLIST, HVXPARAMLIST, VXSlotContext*) {
  ++g_notifies;
  return VX_SUCCESS;
}

_tag_VX_ERROR OnFinish(HVXPARAMLIST, HVXPARAMLIST output, VXSlotContext*) {
  VXSetInt64Value(output, "count", g_notifies);
  g_notifies = 0;
  return VX_SUCCESS;
}

_tag_VX_ERROR OnQuit(HVXPARAMLIST, HVXPARAMLIST, VXSlotContext*) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_quitAsked = true;
  g_clientGone = false;  // the disconnects of the connect rounds came before
  return VX_SUCCESS;
}

void OnDisconnect(const char*, const char*, std::int32_t, const char*) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_clientGone = true;
  g_changed.notify_all();
}

// Serves until the client has asked it to quit and then left, so that the
// client's own shutdown is timed with its session still up.
int Serve(bench::Ports ports) {
  VXSetAuthenticationInfo(kSecret, sizeof kSecret);
  VXSetDisconnectListener(OnDisconnect);
  const std::string pipe = bench::LocalName(ports.first);
  const _tag_VX_ERROR started =
      bench::OverLocalChannel()
          ? VXInitializeWithPipeChannel(pipe.c_str(), "127.0.0.1", "bench_server", 0, nullptr)
          : VXInitializeEx("127.0.0.1", "bench_server", ports.first, nullptr);
  if (started != VX_SUCCESS) return 1;
  const SLOT_DESCRIPTION slots[] = {{kCallSlot, OnCall, nullptr},
                                    {kNotifySlot, OnNotify, nullptr},
                                    {kFinishSlot, OnFinish, nullptr},
                                    {kQuitSlot, OnQuit, nullptr}};
  VXRegisterSlots(slots, 4);
  VXConnectionReady();
  bool quit = false;
  {
    std::unique_lock<std::mutex> lock(g_mutex);
    quit = g_changed.wait_for(lock, std::chrono::seconds(bench::kServerLifetimeSeconds),
                              [] { return g_quitAsked && g_clientGone; });
  }
  VXShutdown();
  return quit ? 0 : 1;
}

class VxbusPeer : public bench::Peer {
 public:
  explicit VxbusPeer(bench::Ports ports)
      : port_(ports.first), notify_(PayloadList(bench::kSmallBytes)) {
    VXInitialize("bench_client", 0, nullptr);
  }
  ~VxbusPeer() override {
    VXCloseHandle(notify_);
    if (request_ != VX_INVALID_PARAMLIST) VXCloseHandle(request_);
  }

  bool Connect() override {
    // Right after a disconnect the old session may still be registered for a
    // moment, and the peer's name then reads as in use: that moment counts.
    const bench::Clock::time_point giveUp = bench::Clock::now() + std::chrono::seconds(10);
    _tag_VX_ERROR connected = VX_ERROR_NAME_IN_USE;
    while (connected == VX_ERROR_NAME_IN_USE && bench::Clock::now() < giveUp)
      connected =
          bench::OverLocalChannel()
              ? VXConnectEx(bench::LocalName(port_).c_str(), nullptr, 0, server_, sizeof server_,
                            kSecret, sizeof kSecret)
              : VXConnect("127.0.0.1", port_, server_, sizeof server_, kSecret, sizeof kSecret);
    if (connected != VX_SUCCESS) return false;
    PrepareCall(bench::kSmallBytes);
    return Call();
  }

  void Disconnect() override { VXDisconnect(server_); }

  void PrepareCall(std::size_t bytes) override {
    if (request_ != VX_INVALID_PARAMLIST) VXCloseHandle(request_);
    request_ = PayloadList(bytes);
  }

  bool Call() override { return CallSlot(kCallSlot, request_) != 0; }

  bool Notify() override {
    return VXNotify(server_, kNotifySlot, notify_, nullptr, nullptr) == VX_SUCCESS;
  }

  std::uint64_t FinishNotifies() override { return CallSlot(kFinishSlot, notify_); }

  void Quit() override { CallSlot(kQuitSlot, notify_); }

  void Shutdown() override { VXShutdown(); }

  // A process whose pipe listener is idle, from start to shutdown.
  void MeasureMore() override {
    const std::string pipe = "vxbus_bench_" + std::to_string(getpid());
    if (VXInitializeWithPipeChannel(pipe.c_str(), "127.0.0.1", "bench_pipes", 0, nullptr) !=
        VX_SUCCESS)
      return;
    VXConnectionReady();
    // Lets the listener go idle, as it is in a process that has run a while.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const bench::Clock::time_point start = bench::Clock::now();
    VXShutdown();
    bench::Report("shutdown_pipe_ms", bench::MicrosecondsSince(start) / 1000);
  }

 private:
  // Calls `slot`; 0 if no reply came, else 1 or the count the reply holds.
  std::uint64_t CallSlot(std::uint32_t slot, HVXPARAMLIST list) {
    HVXPARAMLIST reply = VXCall(server_, slot, list);
    if (reply == VX_INVALID_PARAMLIST) return 0;
    const std::uint64_t count = slot == kFinishSlot ? VXGetInt64Value(reply, "count") : 1;
    VXCloseHandle(reply);
    return count;
  }

  int port_;
  char server_[256] = {};
  HVXPARAMLIST notify_;
  HVXPARAMLIST request_ = VX_INVALID_PARAMLIST;
};

std::unique_ptr<bench::Peer> MakePeer(bench::Ports ports) {
  return std::make_unique<VxbusPeer>(ports);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && std::string(argv[1]) == "idle") return bench::RunIdleSessions(argv[0]);
  if (argc >= 2 && std::string(argv[1]) == "idle-peer") return bench::RunIdlePeer(argc, argv);
  return bench::BenchMain(argc, argv, Serve, MakePeer);
}
