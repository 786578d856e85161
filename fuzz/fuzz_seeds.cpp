// SPDX-License-Identifier: MIT
// Writes the seed corpus of every harness, made by the library itself so the
// seeds follow the current format and no binary files live in the tree:
//   vxbus_fuzz_seeds <dir>    writes <dir>/<harness>/<seed> files
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "byte_channel.h"
#include "paramlist/handle.h"
#include "paramlist/param_list.h"
#include "runtime/process_state.h"
#include "session/message.h"
#include "session/session.h"
#include "transport/app_id_block.h"
#include "transport/challenge.h"

using vxbus::ChannelRef;
using vxbus::ListFromHandle;
using vxbus::Message;
using vxbus::MessageRef;
using vxbus::SessionRef;
using vxbus::fuzz::ByteChannel;
using Bytes = std::vector<std::uint8_t>;

namespace {

bool WriteFile(const std::string& path, const Bytes& bytes) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) return false;
  const bool ok = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
  return std::fclose(f) == 0 && ok;
}

// Lists with every stored type, nested lists and arrays of them.
std::vector<HVXPARAMLIST> SampleLists() {
  static const char* const kTexts[] = {"ab", nullptr, "xyz1"};
  static const std::uint32_t kDwords[] = {1, 2, 0xFFFFFFFFu};
  static const std::uint64_t kQwords[] = {0x0102030405060708ull};
  static const unsigned char kBytes[] = {0xaa, 0xbb, 1, 2, 3, 4, 5};
  static const _tag_BINARYITEM kItems[] = {{2, kBytes}, {0, nullptr}, {5, kBytes + 2}};

  std::vector<HVXPARAMLIST> lists;
  HVXPARAMLIST scalars = VXCreateParamList();
  VXSetStringValue(scalars, "s", "hello");
  VXSetStringValue(scalars, "", nullptr);
  VXSetInt32Value(scalars, "i", 7);
  VXSetInt64Value(scalars, "q", 0x1122334455667788ull);
  VXSetBinaryValue(scalars, "b", kBytes, sizeof kBytes);
  lists.push_back(scalars);

  HVXPARAMLIST arrays = VXCreateParamList();
  VXSetStringArray(arrays, "sa", 3, kTexts);
  VXSetInt32Array(arrays, "ia", 3, kDwords);
  VXSetInt64Array(arrays, "qa", 1, kQwords);
  VXSetBinaryItemArray(arrays, "ba", 3, kItems);
  lists.push_back(arrays);

  HVXPARAMLIST tree = VXCreateParamList();
  HVXPARAMLIST leaf = VXCreateParamList();
  VXSetStringValue(leaf, "who", "leaf");
  HVXPARAMLIST middle = VXCreateParamList();
  VXSetHandleValue(middle, "leaf", leaf);
  VXSetInt32Value(tree, "id", 1);
  VXSetHandleValue(tree, "sub", middle);
  const HVXPARAMLIST members[] = {leaf, VX_INVALID_PARAMLIST, scalars};
  VXSetHandleArray(tree, "many", 3, members);
  VXSetHandleValue(tree, "none", VX_INVALID_PARAMLIST);
  VXCloseHandle(leaf);
  VXCloseHandle(middle);
  lists.push_back(tree);

  lists.push_back(VXCreateParamList());  // the empty list
  return lists;
}

// The root's pair, as a frame header carries it, then the stream.
Bytes StreamSeed(HVXPARAMLIST list) {
  auto* sink = new vxbus::fuzz::ByteChannel(nullptr, 0);
  ChannelRef channel(sink);
  ListFromHandle(list)->WriteList(channel.get(), false, 0, 0);
  const std::uint32_t pair[2] = {VXGetHandleSize(list), ListFromHandle(list)->ChildCount()};
  Bytes seed(reinterpret_cast<const std::uint8_t*>(pair),
             reinterpret_cast<const std::uint8_t*>(pair) + 8);
  seed.insert(seed.end(), sink->Written().begin(), sink->Written().end());
  return seed;
}

// The number of nested lists, then the root's image alone.
Bytes ImageSeed(HVXPARAMLIST list) {
  const auto* l = ListFromHandle(list);
  Bytes seed{static_cast<std::uint8_t>(l->ChildCount() % 4)};
  seed.insert(seed.end(), l->Data(), l->Data() + l->Used());
  return seed;
}

// A session whose frames land in `sink`.
SessionRef SinkSession(ByteChannel* sink) {
  SessionRef session(new vxbus::Session);
  session->AttachChannel(ChannelRef(sink));
  session->MarkEstablished("fuzz:1/peer");
  return session;
}

// One frame of each kind carrying the list: a one-way call, a call, and the
// reply to the call with id 1 that the frame harness keeps waiting.
Bytes FrameSeed(HVXPARAMLIST list) {
  auto* sink = new ByteChannel(nullptr, 0);
  SessionRef session = SinkSession(sink);
  MessageRef oneWay(new Message(vxbus::Message::EventRef(), session, 7, list, nullptr, nullptr));
  oneWay->Send();
  MessageRef call(new Message(vxbus::Message::EventRef(new MTObjects::Latch), session, 3, list,
                              nullptr, nullptr));
  call->Send();
  const unsigned char callHeader[16] = {1, 0, 0, 0, 1, 0, 0, 0, 3, 0, 0, 0, 0, 0, 0, 0};
  MessageRef received(new Message(session, callHeader));
  VXSetHandleValue(vxbus::HandleFromList(received->GetOutputList().get()), "list", list);
  received->Send();
  return sink->Written();
}

// A connecting side's bytes for a full handshake, from the library's own
// connecting code; the leading 1 asks the harness to answer its challenge.
Bytes HandshakeSeed(HVXPARAMLIST) {
  auto* acceptor = new ByteChannel(nullptr, 0);
  ChannelRef acceptorRef(acceptor);
  vxbus::WriteAppId(*acceptor, "fuzz:1/acceptor");
  const std::uint8_t challenge[vxbus::kChallengeBytes] = {};
  acceptor->Write(challenge, sizeof challenge);
  vxbus::WriteAppId(*acceptor, "fuzz:1/acceptor");
  const Bytes input = acceptor->Written();
  auto* channel = new ByteChannel(input.data(), input.size());
  SessionRef session(new vxbus::Session);
  ChannelRef channelRef(channel);
  session->AttachChannel(channelRef);
  vxbus::g_ownAppId = "seed:2/connector";
  session->RunConnectExchange(nullptr, 0, nullptr, 0);
  Bytes seed{1};
  seed.insert(seed.end(), channel->Written().begin(), channel->Written().end());
  return seed;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s <corpus dir>\n", argv[0]);
    return 2;
  }
  const std::string root = argv[1];
  struct Harness {
    const char* name;
    Bytes (*seed)(HVXPARAMLIST);
  } const harnesses[] = {{"list_stream", StreamSeed},
                         {"list_image", ImageSeed},
                         {"frame_reader", FrameSeed},
                         {"handshake", HandshakeSeed}};
  const std::vector<HVXPARAMLIST> lists = SampleLists();
  bool ok = true;
  for (const Harness& h : harnesses) {
    const std::string dir = root + "/" + h.name;
    std::filesystem::create_directories(dir);
    for (std::size_t i = 0; i < lists.size(); ++i)
      ok &= WriteFile(dir + "/seed" + std::to_string(i), h.seed(lists[i]));
  }
  for (HVXPARAMLIST list : lists)
    VXCloseHandle(list);
  return ok ? 0 : 1;
}
