#include "transport/challenge.h"

#include <mutex>

#include "transport/md5.h"

namespace vxbus {
namespace {

struct ChallengeGenerator {
  // One 32-bit seed from the platform's random source, taken at load.
  ChallengeGenerator() : engine(std::random_device{}()) {}

  // The TCP and the pipe listener may run a handshake each at the same time;
  // the engine's state must not be stepped by both at once.
  std::mutex mutex;
  std::mt19937 engine;
};

ChallengeGenerator g_challengeGenerator;

}  // namespace

int ChallengeByteOfDraw(std::uint32_t v) {
  if (v / 257 >= 0xFF00FFu) return -1;
  return static_cast<int>((v % 257) & 0xFF);
}

unsigned char DrawChallengeByte(std::mt19937& generator) {
  int byte;
  do {
    byte = ChallengeByteOfDraw(static_cast<std::uint32_t>(generator()));
  } while (byte < 0);
  return static_cast<unsigned char>(byte);
}

void FillChallenge(std::mt19937& generator, unsigned char* out) {
  for (std::size_t i = 0; i < kChallengeBytes; ++i)
    out[i] = DrawChallengeByte(generator);
}

void FillChallenge(unsigned char* out) {
  std::lock_guard<std::mutex> lock(g_challengeGenerator.mutex);
  FillChallenge(g_challengeGenerator.engine, out);
}

void ComputeAnswer(const unsigned char authBlock[kAuthBlockBytes],
                   const unsigned char challenge[kChallengeBytes],
                   unsigned char digest[kAnswerBytes]) {
  Md5Context context;
  Md5Init(context);
  Md5Update(context, authBlock, kAuthBlockBytes);
  Md5Update(context, challenge, kChallengeBytes);
  Md5Final(context, digest);
}

}  // namespace vxbus
