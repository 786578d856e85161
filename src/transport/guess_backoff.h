// SPDX-License-Identifier: MIT
// Wrong secrets, counted per source address, so that guessing the secret
// online is slow: after a few wrong answers in a row an address is refused
// for a while, for longer after each further wrong answer, while every other
// address goes on as before.
//
// The schedule: kFreeFailures wrong answers in a row cost nothing (a typing
// error, a peer restarted with an old secret); each one after them refuses
// the address for kFirstRefusalMs, doubled per further wrong answer up to
// kLongestRefusalMs. A right answer clears the count. During a refusal a
// connection from the address gets no challenge, and an answer that arrives
// is not compared, so a guesser learns nothing from it; and once an address
// has a wrong answer, its answers are compared one at a time, so parallel
// connections do not multiply the rate. In the long run a guesser gets one
// compared answer per kLongestRefusalMs from each address it owns.
#ifndef VXBUS_TRANSPORT_GUESS_BACKOFF_H_
#define VXBUS_TRANSPORT_GUESS_BACKOFF_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace vxbus {

// Thread-safe; each call takes the table's lock briefly and never blocks
// otherwise. Sources are texts as the transport names an address (a dotted
// IPv4 address, or a pipe's peer name); they are our own texts, not a peer's.
class GuessBackoff {
 public:
  static constexpr std::uint32_t kFreeFailures = 3;
  static constexpr std::int64_t kFirstRefusalMs = 2000;
  static constexpr std::int64_t kLongestRefusalMs = 60000;
  // The table forgets addresses quiet this long, and holds at most this many.
  static constexpr std::int64_t kForgetAfterMs = 3600 * 1000;
  static constexpr std::size_t kMostSources = 4096;

  // True while `source` is refused; the caller then closes the connection
  // without a challenge. Each true is counted for the next log line.
  bool Refusing(const std::string& source);

  // Before an answer from `source` is compared: false when it must be
  // treated as wrong without being compared. A true must be followed by
  // exactly one EndCheck for the same source.
  bool BeginCheck(const std::string& source);
  // The compared answer was right (the count is cleared) or wrong (counted;
  // a refusal that starts writes one warning line saying for how long, and
  // how many connections were refused since the last such line).
  void EndCheck(const std::string& source, bool matched);

 private:
  using Clock = std::chrono::steady_clock;
  struct Source {
    std::uint32_t failures = 0;  // wrong answers in a row
    std::uint32_t checking = 0;  // answers being compared now
    std::uint64_t refused = 0;   // since the last line
    Clock::time_point refusedUntil{};
    Clock::time_point lastFailure{};
  };
  // Makes room for one more source; with `mutex_` held.
  void MakeRoom(Clock::time_point now);

  std::mutex mutex_;
  std::map<std::string, Source> sources_;
};

// The process's one table; lives as long as the process.
GuessBackoff& SecretGuessBackoff();

}  // namespace vxbus

#endif  // VXBUS_TRANSPORT_GUESS_BACKOFF_H_
