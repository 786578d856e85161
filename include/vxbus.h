// SPDX-License-Identifier: MIT
/// \file
/// vxbus: a small brokerless message bus between the processes of one installation.
///
/// This header is the whole exported interface: functions, records, callback
/// types and the two classes. Functions with plain names have C linkage; the
/// two registration functions that take arrays, the stream printer and the
/// classes have C++ linkage.
#ifndef VXBUS_H_
#define VXBUS_H_

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iosfwd>

#include "vxbus_version.h"

#if defined(_WIN32)
#if defined(VXBUS_BUILDING)
#define VXBUS_API __declspec(dllexport)
#else
#define VXBUS_API __declspec(dllimport)
#endif
#else
#define VXBUS_API __attribute__((visibility("default")))
#endif

// ---------------------------------------------------------------------------
// Return codes and parameter types
// ---------------------------------------------------------------------------

/// -2 and -6 are not assigned.
enum _tag_VX_ERROR : std::int32_t {
  VX_SUCCESS = 0,
  VX_ERROR_FAILED = -1,
  VX_ERROR_NO_SLOT = -3,
  VX_ERROR_NO_SIGNAL = -4,
  VX_ERROR_NO_APPLICATION = -5,
  VX_ERROR_NAME_IN_USE = -7,
  /// A notification found the peer's send queue full for limits.IO_TIMEOUT_MS
  /// and was not sent. The session stands; trying again later may succeed.
  VX_ERROR_QUEUE_FULL = -8,
};
typedef _tag_VX_ERROR VX_ERROR;

enum _tag_PARAM_TYPES : int {
  PT_UNKNOWN = 0,
  PT_STRING = 1,
  PT_INT32 = 2,
  PT_INT64 = 3,
  PT_PARAMHANDLE = 4,
  PT_BINARY = 5,
  PT_ARRAY = 0x80,
};
typedef _tag_PARAM_TYPES PARAM_TYPES;

/// The built-in slots through which peers subscribe to signals.
enum : std::uint32_t {
  VX_SLOT_CONNECT_SIGNAL = 0xFFFFFFFFu,     ///< -1
  VX_SLOT_DISCONNECT_SIGNAL = 0xFFFFFFFEu,  ///< -2
};

// ---------------------------------------------------------------------------
// List handles
// ---------------------------------------------------------------------------

/// A handle is the address of the list object itself, passed by value.
typedef struct _tag_HVXPARAMLIST {
  void* value;
} HVXPARAMLIST;

inline bool operator==(HVXPARAMLIST a, HVXPARAMLIST b) {
  return a.value == b.value;
}
inline bool operator!=(HVXPARAMLIST a, HVXPARAMLIST b) {
  return a.value != b.value;
}

extern "C" VXBUS_API const HVXPARAMLIST VX_INVALID_PARAMLIST;

/// Thrown by walks over a damaged list image. Both carry no data.
struct VXBUS_API NoDataExeption {};

// ---------------------------------------------------------------------------
// Records that cross the boundary by layout
// ---------------------------------------------------------------------------

/// A binary value as it lies in a list: the length word, then the bytes.
struct _tag_BINARYVALUE {
  std::uint32_t length;
  unsigned char data[4];
};
typedef _tag_BINARYVALUE BINARYVALUE;

#pragma pack(push, 1)
/// A binary value handed in by a caller.
struct _tag_BINARYITEM {
  std::uint32_t length;
  const void* data;
};
struct _tag_VXDWORDARRAY {
  std::uint32_t count;
  const std::uint32_t* data;
};
struct _tag_VXQWORDARRAY {
  std::uint32_t count;
  const std::uint64_t* data;
};
#pragma pack(pop)
typedef _tag_BINARYITEM BINARYITEM;
typedef _tag_VXDWORDARRAY VXDWORDARRAY;
typedef _tag_VXQWORDARRAY VXQWORDARRAY;

extern "C" VXBUS_API HVXPARAMLIST VXGetHandleById(HVXPARAMLIST list, std::uint32_t id);

namespace vxbus_detail {
/// The record accessors accept a null object. The compiler may assume that
/// `this` is never null, so the address is passed through a barrier that it
/// cannot see into before it is tested.
inline bool IsNullObject(const void* p) {
#if defined(__GNUC__)
  __asm__("" : "+r"(p));
#endif
  return p == nullptr;
}
/// The bytes of a value run on past the one-byte member that starts them. The
/// same barrier keeps an optimising compiler from bounding reads by that member.
inline const unsigned char* Unbounded(const unsigned char* p) {
#if defined(__GNUC__)
  __asm__("" : "+r"(p));
#endif
  return p;
}
inline std::uint32_t LoadU32(const unsigned char* p) {
  std::uint32_t v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
inline std::size_t Round4(std::size_t n) {
  return (n + 3) & ~static_cast<std::size_t>(3);
}
}  // namespace vxbus_detail

/// The value part of a parameter record: the type byte and what follows it.
/// Pointers to it point into a list's image and die with the list's next change.
struct _tag_VXPARAMVALUE {
  unsigned char type;

  /// Thrown by GetSize for a type byte that no stored value can have.
  struct VXBUS_API DataDamaged {};

  const unsigned char* Bytes() const { return vxbus_detail::Unbounded(&type); }
  std::uint32_t Count() const { return vxbus_detail::LoadU32(Bytes() + 1); }

  int GetType() const { return vxbus_detail::IsNullObject(this) ? 0 : type; }
  int IsArray() const { return GetType() & PT_ARRAY ? 1 : 0; }
  std::uint32_t GetArraySize() const { return IsArray() ? Count() : 0; }
  int GetArrayType() const { return IsArray() ? (type & ~PT_ARRAY) : 0; }

  /// Bytes from the type byte to the end of the value.
  std::uint32_t GetSize() const {
    using vxbus_detail::LoadU32;
    using vxbus_detail::Round4;
    if (vxbus_detail::IsNullObject(this)) return 0;
    const unsigned char* t = Bytes();
    switch (type) {
      case PT_STRING:
        return static_cast<std::uint32_t>(
            1 + Round4(std::strlen(reinterpret_cast<const char*>(t + 1)) + 1));
      case PT_INT32:
      case PT_PARAMHANDLE:
        return 5;
      case PT_INT64:
        return 9;
      case PT_BINARY:
        return static_cast<std::uint32_t>(5 + Round4(LoadU32(t + 1)));
      case PT_ARRAY | PT_STRING: {
        std::uint32_t c = Count();
        if (c == 0) return 5;
        std::uint32_t last = LoadU32(t + 5 + 4 * (c - 1));
        const char* s = reinterpret_cast<const char*>(t + 5 + 4 * c + last);
        return static_cast<std::uint32_t>(5 + 4 * c + last + Round4(std::strlen(s) + 1));
      }
      case PT_ARRAY | PT_INT32:
      case PT_ARRAY | PT_PARAMHANDLE:
        return 5 + 4 * Count();
      case PT_ARRAY | PT_INT64:
        return 5 + 8 * Count();
      case PT_ARRAY | PT_BINARY: {
        std::uint32_t c = Count();
        if (c == 0) return 5;
        std::uint32_t last = LoadU32(t + 5 + 4 * (c - 1));
        std::uint32_t n = LoadU32(t + 5 + 4 * c + last);
        return static_cast<std::uint32_t>(5 + 4 * c + last + 4 + Round4(n));
      }
      default:
        throw DataDamaged();
    }
  }

  /// Element `index` of a string or binary array, whichever it is.
  const unsigned char* GetItem(std::uint32_t index) const {
    if (vxbus_detail::IsNullObject(this) || index >= Count()) return nullptr;
    std::uint32_t c = Count();
    return Bytes() + 5 + 4 * c + vxbus_detail::LoadU32(Bytes() + 5 + 4 * index);
  }
  const char* GetString(std::uint32_t index) const {
    if (GetType() != (PT_ARRAY | PT_STRING)) return nullptr;
    return reinterpret_cast<const char*>(GetItem(index));
  }
  const _tag_BINARYVALUE* GetBinary(std::uint32_t index) const {
    if (GetType() != (PT_ARRAY | PT_BINARY)) return nullptr;
    return reinterpret_cast<const _tag_BINARYVALUE*>(GetItem(index));
  }
  std::uint32_t GetInt32(std::uint32_t index) const {
    if (GetType() != (PT_ARRAY | PT_INT32) || index >= Count()) return 0;
    return vxbus_detail::LoadU32(Bytes() + 5 + 4 * index);
  }
  /// Reads the 32-bit word at 4 * index of a 64-bit array, zero-extended: index
  /// 1 is the high half of element 0. Applications rely on this as it stands.
  std::uint64_t GetInt64(std::uint32_t index) const {
    if (GetType() != (PT_ARRAY | PT_INT64) || index >= Count()) return 0;
    return vxbus_detail::LoadU32(Bytes() + 5 + 4 * index);
  }
  /// A handle array element resolved in `list`, with no reference added.
  HVXPARAMLIST GetHandle(HVXPARAMLIST list, std::uint32_t index) const {
    HVXPARAMLIST none = {nullptr};
    if (GetType() != (PT_ARRAY | PT_PARAMHANDLE) || index >= Count()) return none;
    if (list.value == nullptr) return none;
    return VXGetHandleById(list, vxbus_detail::LoadU32(Bytes() + 5 + 4 * index));
  }
};
typedef _tag_VXPARAMVALUE VXPARAMVALUE;

/// One parameter record: offset byte, name, zero padding, then the value.
struct _tag_VXPARAMINFO {
  unsigned char valueOffset;
  char name[3];  ///< the name runs on; the padding terminates it

  const _tag_VXPARAMVALUE* GetValue() const {
    if (vxbus_detail::IsNullObject(this)) return nullptr;
    return reinterpret_cast<const _tag_VXPARAMVALUE*>(&valueOffset + valueOffset);
  }
  const char* GetName() const { return vxbus_detail::IsNullObject(this) ? nullptr : name; }
  std::uint32_t GetSize() const {
    if (vxbus_detail::IsNullObject(this)) return 0;
    return valueOffset + GetValue()->GetSize();
  }
  int GetType() const { return GetValue()->GetType(); }
  int IsArray() const { return GetValue()->IsArray(); }
  std::uint32_t GetArraySize() const { return GetValue()->GetArraySize(); }
  int GetArrayType() const { return GetValue()->GetArrayType(); }
  const char* GetString(std::uint32_t i) const { return GetValue()->GetString(i); }
  const _tag_BINARYVALUE* GetBinary(std::uint32_t i) const { return GetValue()->GetBinary(i); }
  std::uint32_t GetInt32(std::uint32_t i) const { return GetValue()->GetInt32(i); }
  std::uint64_t GetInt64(std::uint32_t i) const { return GetValue()->GetInt64(i); }
  HVXPARAMLIST GetHandle(HVXPARAMLIST list, std::uint32_t i) const {
    return GetValue()->GetHandle(list, i);
  }
};
typedef _tag_VXPARAMINFO VXPARAMINFO;

/// The limits record. A caller's record whose `size` differs from the default
/// is ignored whole; zero words keep the default. The first initialise call
/// takes it; later ones don't change what is in force.
/// - RESERVED_D: bytes that the dispatch queue (requests waiting for this
///   process's slots, from all peers) may hold; 64 MiB by default. Each
///   session may hold an eighth of it (RESERVED_D / 8, 8 MiB by default), and
///   the slots serve the sessions in turn, one request each, so a greedy peer
///   fills only its own share. Past its share, or past the whole bound, a
///   session stops reading its peer, whose notifications then wait; a session
///   that holds nothing may always queue one request. A peer that ends its
///   stream meanwhile ends its session within about 200 ms (not on Windows,
///   where that shows only once its frames are read).
/// - RESERVED_E: bytes that each session's send queue may hold; 1 MiB by
///   default. Past it VXNotify, VXNotifyWithFlow and VXEmit wait (see there).
/// - RESERVED_A, RESERVED_B, RESERVED_C: carried; nothing reads them.
/// A message counts the memory it really holds: its own block, its queue node
/// and each list it carries with the list's object, image and nested lists,
/// with the heap's own bytes for each block (about 350 bytes for a small
/// request). One larger than a limit still goes once its queue (or share) is
/// empty. Calls and replies are never held back, so these bound the one-way
/// traffic, not every byte.
struct VXLimits {
  std::uint32_t size;
  struct Values {
    std::uint32_t MAX_CONNECTIONS;
    std::uint32_t RESERVED_A;
    std::uint32_t MAX_READ_SIZE;
    std::uint32_t RESERVED_B;
    std::uint32_t RESERVED_C;
    std::uint32_t RESERVED_D;
    std::uint32_t RESERVED_E;
    std::int32_t IO_TIMEOUT_MS;
    unsigned char authBlock[256];
  } limits;
};

/// Deepest nesting of lists that a received stream may hold: the root is
/// level 0, its children level 1. A deeper stream fails to read and ends the
/// session, as any damaged stream does.
constexpr std::uint32_t VX_MAX_LIST_NESTING = 256;

/// Process-wide counters, for leak hunts.
struct VXObjectCounters {
  std::uint32_t applications;  ///< live sessions
  std::uint32_t messages;      ///< live messages
  std::uint32_t pendingCalls;  ///< size of the pending-call table touched last
  std::uint32_t unused4;
  std::uint32_t unused5;
  std::uint32_t paramLists;    ///< live parameter lists
  std::uint32_t sendCalls;     ///< transport send calls
  std::uint32_t receiveCalls;  ///< transport receive calls
  std::uint64_t unused9;
  std::uint64_t unused10;
};

// ---------------------------------------------------------------------------
// Callbacks
// ---------------------------------------------------------------------------

struct VXSlotContext {
  const char* senderName;  ///< appID of the caller; empty once its session is gone
  void* userData;
};

typedef _tag_VX_ERROR (*VXSlotFunction)(HVXPARAMLIST input, HVXPARAMLIST output,
                                        VXSlotContext* context);
typedef _tag_VX_ERROR (*VXNotifyCallback)(const char* application, std::uint32_t slot,
                                          HVXPARAMLIST input, HVXPARAMLIST output, void* userData);
typedef void (*VXLogSink)(std::uint32_t level, std::uint32_t reserved, const char* text);
typedef void (*VXConnectListener)(const char* localAddress, const char* remoteAddress,
                                  const char* appId, const char* host, std::int32_t port,
                                  const char* appName);
typedef void (*VXDisconnectListener)(const char* appId, const char* host, std::int32_t port,
                                     const char* appName);
typedef void (*VXAuthFailedListener)(const char* localAddress, const char* remoteAddress,
                                     const char* appId);
typedef void (*VXUnknownConnectListener)(const char* localAddress, const char* remoteAddress);

#pragma pack(push, 1)
struct _tag_SLOT_DESCRIPTION {
  std::uint32_t slotId;
  VXSlotFunction slotFunction;
  void* userData;
};
#pragma pack(pop)
typedef _tag_SLOT_DESCRIPTION SLOT_DESCRIPTION;

struct _tag_SIGNAL_DESCRIPTION {
  const char* signalName;
};
typedef _tag_SIGNAL_DESCRIPTION SIGNAL_DESCRIPTION;

static_assert(sizeof(HVXPARAMLIST) == sizeof(void*), "a handle is one pointer");
static_assert(sizeof(_tag_BINARYITEM) == 12 && offsetof(_tag_BINARYITEM, data) == 4, "packed");
static_assert(sizeof(_tag_VXDWORDARRAY) == 12 && offsetof(_tag_VXDWORDARRAY, data) == 4, "packed");
static_assert(sizeof(_tag_VXQWORDARRAY) == 12 && offsetof(_tag_VXQWORDARRAY, data) == 4, "packed");
static_assert(offsetof(_tag_BINARYVALUE, data) == 4, "length word, then bytes");
static_assert(offsetof(_tag_VXPARAMINFO, name) == 1, "offset byte, then name");
static_assert(sizeof(VXLimits) == 292, "nine words and the 256-byte block");
static_assert(offsetof(VXLimits, limits.MAX_CONNECTIONS) == 4 &&
                  offsetof(VXLimits, limits.MAX_READ_SIZE) == 12 &&
                  offsetof(VXLimits, limits.IO_TIMEOUT_MS) == 32 &&
                  offsetof(VXLimits, limits.authBlock) == 36,
              "limits layout");
static_assert(sizeof(VXObjectCounters) == 48 && offsetof(VXObjectCounters, paramLists) == 20 &&
                  offsetof(VXObjectCounters, unused9) == 32,
              "counters layout");
static_assert(sizeof(_tag_SLOT_DESCRIPTION) == 4 + 2 * sizeof(void*) &&
                  offsetof(_tag_SLOT_DESCRIPTION, slotFunction) == 4,
              "slot records are packed");

// ---------------------------------------------------------------------------
// Functions with C linkage
// ---------------------------------------------------------------------------
/// Conventions for every function below, unless its own lines say otherwise:
/// - Errors are the return code (0 VX_SUCCESS, else a negative _tag_VX_ERROR);
///   a function returning a handle returns VX_INVALID_PARAMLIST instead. A
///   missing parameter is never an error: getters give 0, null or empty.
/// - A handle that a function returns belongs to the caller, who closes it
///   with VXCloseHandle. Handles passed in are borrowed for the call; handles
///   given to a slot function or a callback are borrowed for that call.
/// - Pointers into a list (strings, binaries, records) die with the list's
///   next change or close. Texts passed in are copied before the call returns.
/// - Nothing blocks except where it says so; no call has a time limit of its
///   own, only the channels under a session have.
/// - All functions may be called from any thread; lists have no lock, so one
///   list is changed by one thread at a time.
extern "C" {

/// Lifecycle. Initialise calls are counted: the first starts the library's
/// threads under the name host:port/appName, later ones return VX_SUCCESS for
/// the same name and VX_ERROR_NAME_IN_USE for another; each needs its
/// VXShutdown. A null `limits`, or one of the wrong size, keeps the defaults.
/// VX_ERROR_FAILED when the host name cannot be learned. Listeners stay shut
/// until VXConnectionReady or VXStartListeners; port 0 means no TCP listener.
VXBUS_API _tag_VX_ERROR VXInitialize(const char* appName, std::int32_t port,
                                     const VXLimits* limits);
VXBUS_API _tag_VX_ERROR VXInitializeEx(const char* bindAddress, const char* appName,
                                       std::int32_t port, const VXLimits* limits);
/// Also listens on the local pipes "<pipeName>_in" and "<pipeName>_out".
VXBUS_API _tag_VX_ERROR VXInitializeWithPipeChannel(const char* pipeName, const char* bindAddress,
                                                    const char* appName, std::int32_t port,
                                                    const VXLimits* limits);
/// Sets where the listeners listen, then opens them as VXConnectionReady does.
VXBUS_API _tag_VX_ERROR VXStartListeners(const char* pipeName, const char* bindAddress,
                                         std::uint16_t port);
/// Only the call matching the first initialise does anything: it blocks until
/// the listener threads, every session and the dispatch thread have ended;
/// handshakes still pending, over TCP or pipes, are cut off. What was still
/// queued then (to be sent, or to run in
/// a slot) is let go and counted in one log line at level 4,
/// "Shutdown dropped N queued messages (B bytes)"; queued calls and
/// notifications with a callback are completed as failed. VX_SUCCESS, but for
/// one case: the call that would end the library, made on a thread that it
/// must join (in a slot or a callback on the dispatch thread, or in a listener
/// on a connection thread), does nothing but log one error line and returns
/// VX_ERROR_FAILED, where the design lets the system's deadlock error escape
/// and end the process. Call it again from another thread.
VXBUS_API _tag_VX_ERROR VXShutdown(void);
/// Opens both listeners; does not block. Always VX_SUCCESS.
VXBUS_API _tag_VX_ERROR VXConnectionReady(void);
/// Copies the shared secret (at most 256 bytes, else VX_ERROR_FAILED).
VXBUS_API _tag_VX_ERROR VXSetAuthenticationInfo(const void* data, std::int32_t length);

/// Connections and listeners. VXConnect and VXConnectEx block through the
/// whole handshake. On success the peer's appID is copied into `appIdBuffer`
/// when it fits (the buffer is zeroed first); the session then lives until
/// either side ends it. VX_ERROR_NAME_IN_USE when the peer is connected
/// already or refuses us, VX_ERROR_FAILED for every other failure. The secret
/// is borrowed for the call; more than 256 bytes fails before anything is sent.
VXBUS_API _tag_VX_ERROR VXConnect(const char* host, std::int32_t port, char* appIdBuffer,
                                  std::uint32_t appIdBufferSize, const unsigned char* secret,
                                  std::int32_t secretLength);
/// A non-empty pipe name wins over host and port.
VXBUS_API _tag_VX_ERROR VXConnectEx(const char* pipeName, const char* host, std::int32_t port,
                                    char* appIdBuffer, std::uint32_t appIdBufferSize,
                                    const unsigned char* secret, std::int32_t secretLength);
/// Ends the session to `applicationName`, if any, and blocks until its
/// disconnect listener has run. Always VX_SUCCESS.
VXBUS_API _tag_VX_ERROR VXDisconnect(const char* applicationName);
/// The four listeners run on library threads; null removes one. The texts
/// they get are borrowed for the call. Always VX_SUCCESS.
VXBUS_API _tag_VX_ERROR VXSetConnectListener(VXConnectListener listener);
VXBUS_API _tag_VX_ERROR VXSetDisconnectListener(VXDisconnectListener listener);
VXBUS_API _tag_VX_ERROR VXSetAuthFailedListener(VXAuthFailedListener listener);
VXBUS_API _tag_VX_ERROR VXSetUnknownConnectListener(VXUnknownConnectListener listener);

/// Calls, notifications, slots and signals. `list` is borrowed: it is written
/// to the wire by the session's writer, so it must not change until a call
/// returns or a notification's callback has run.
/// VXCall blocks without a time limit until the reply comes or the session
/// ends; it waits for that anyway, so it never waits for room in a queue. It
/// returns the output list, owned by the caller, or VX_INVALID_PARAMLIST when
/// the peer is unknown or the session ended.
VXBUS_API HVXPARAMLIST VXCall(const char* applicationName, std::uint32_t slotId, HVXPARAMLIST list);
/// Queues the notification and returns: VX_SUCCESS, or
/// VX_ERROR_NO_APPLICATION for an unknown peer. While the peer's send queue
/// is full (limits.RESERVED_E) it blocks until there is room, at most
/// limits.IO_TIMEOUT_MS, and then returns VX_ERROR_QUEUE_FULL; a session that
/// ends or a library that shuts down meanwhile makes it return
/// VX_ERROR_NO_APPLICATION at once. On either error nothing was sent and the
/// callback never runs. `callback` (may be null) runs on a library thread
/// with the reply's output list (borrowed), or with VX_INVALID_PARAMLIST when
/// the session ended; a session that ends just as the message is queued may
/// drop it without a call.
VXBUS_API _tag_VX_ERROR VXNotify(const char* applicationName, std::uint32_t slotId,
                                 HVXPARAMLIST list, VXNotifyCallback callback, void* userData);
/// As VXCall and VXNotify, with `flowId` stored in `list` first.
VXBUS_API HVXPARAMLIST VXCallWithFlow(std::uint32_t flowId, const char* applicationName,
                                      std::uint32_t slotId, HVXPARAMLIST list);
VXBUS_API _tag_VX_ERROR VXNotifyWithFlow(std::uint32_t flowId, const char* applicationName,
                                         std::uint32_t slotId, HVXPARAMLIST list,
                                         VXNotifyCallback callback, void* userData);
/// Slot functions run one at a time on the dispatch thread; a later
/// registration of an id replaces the earlier one. VXUnregisterSlot gives
/// VX_ERROR_NO_SLOT for an id that is not registered.
VXBUS_API _tag_VX_ERROR VXRegisterSlot(std::uint32_t slotId, VXSlotFunction slotFunction,
                                       void* userData);
VXBUS_API _tag_VX_ERROR VXUnregisterSlot(std::uint32_t slotId);
/// VXUnregisterSignal gives VX_ERROR_NO_SIGNAL for an unknown name.
VXBUS_API _tag_VX_ERROR VXRegisterSignal(const char* signalName);
VXBUS_API _tag_VX_ERROR VXUnregisterSignal(const char* signalName);
/// Subscribe slot `slotId` of this process to a peer's signal. Connect does
/// not wait for the peer; disconnect blocks until the peer has answered.
/// Both return VX_SUCCESS whatever happened.
VXBUS_API _tag_VX_ERROR VXConnectSignal(const char* applicationName, const char* signalName,
                                        std::uint32_t slotId);
VXBUS_API _tag_VX_ERROR VXDisconnectSignal(const char* applicationName, const char* signalName,
                                           std::uint32_t slotId);
/// Notifies every subscriber of a registered signal, as VXNotify does, one
/// after the other; VX_ERROR_NO_SIGNAL for a name that is not registered.
/// A subscriber whose send queue stays full is skipped after the wait of
/// VXNotify and the others still get theirs; the result is then
/// VX_ERROR_QUEUE_FULL. With no subscriber the callback runs once at once, on
/// the calling thread.
VXBUS_API _tag_VX_ERROR VXEmit(const char* signalName, HVXPARAMLIST list, VXNotifyCallback callback,
                               void* userData);
VXBUS_API _tag_VX_ERROR VXEmitWithFlow(std::uint32_t flowId, const char* signalName,
                                       HVXPARAMLIST list, VXNotifyCallback callback,
                                       void* userData);

/// Lists as a whole. Lists are reference counted; every handle a function
/// returns holds one reference, which VXCloseHandle gives back.
/// A new, empty list, owned by the caller.
VXBUS_API HVXPARAMLIST VXCreateParamList(void);
/// Adds a reference and returns the same handle, now also owned by the caller.
VXBUS_API HVXPARAMLIST VXReferenceHandle(HVXPARAMLIST list);
/// Gives back one reference; the last one frees the list and lets go of its
/// children. Null is allowed. Always 0.
VXBUS_API std::int32_t VXCloseHandle(HVXPARAMLIST list);
/// A new list with the same records, owned by the caller; nested lists are
/// shared with the source, not copied.
VXBUS_API HVXPARAMLIST VXCloneHandle(HVXPARAMLIST list);
/// Sets every record of `source` on `destination` (both borrowed); a null or
/// identical destination is left alone. Always 0.
VXBUS_API std::int32_t VXCopyHandle(HVXPARAMLIST source, HVXPARAMLIST destination);
VXBUS_API std::uint32_t VXGetHandleSize(HVXPARAMLIST list);
VXBUS_API std::uint32_t VXGetParamCount(HVXPARAMLIST list);

/// Getters. Nothing is owned by the caller: pointers and arrays point into the
/// list's image, and a handle value is borrowed from the list (take a
/// reference with VXReferenceHandle to keep it). Missing or mistyped: 0/null.
VXBUS_API const char* VXGetStringValue(HVXPARAMLIST list, const char* name);
VXBUS_API std::uint32_t VXGetInt32Value(HVXPARAMLIST list, const char* name);
VXBUS_API std::uint64_t VXGetInt64Value(HVXPARAMLIST list, const char* name);
VXBUS_API const _tag_BINARYVALUE* VXGetBinaryValue(HVXPARAMLIST list, const char* name);
VXBUS_API HVXPARAMLIST VXGetHandleValue(HVXPARAMLIST list, const char* name);
VXBUS_API _tag_VXDWORDARRAY VXGetInt32Array(HVXPARAMLIST list, const char* name);
VXBUS_API _tag_VXQWORDARRAY VXGetInt64Array(HVXPARAMLIST list, const char* name);
VXBUS_API _tag_VXDWORDARRAY VXGetHandleArray(HVXPARAMLIST list, const char* name);
VXBUS_API std::uint32_t VXGetStringArray(HVXPARAMLIST list, const char* name, const char** out,
                                         std::uint32_t maxItems, std::uint32_t start);
VXBUS_API std::uint32_t VXGetBinaryArray(HVXPARAMLIST list, const char* name,
                                         const _tag_BINARYVALUE** out, std::uint32_t maxItems,
                                         std::uint32_t start);

/// Setters. A value of the same name is replaced; bytes and texts are copied.
/// A handle value adds a reference to the child, which the list then holds.
VXBUS_API _tag_VX_ERROR VXSetStringValue(HVXPARAMLIST list, const char* name, const char* value);
VXBUS_API _tag_VX_ERROR VXSetInt32Value(HVXPARAMLIST list, const char* name, std::uint32_t value);
VXBUS_API _tag_VX_ERROR VXSetInt64Value(HVXPARAMLIST list, const char* name, std::uint64_t value);
VXBUS_API _tag_VX_ERROR VXSetBinaryValue(HVXPARAMLIST list, const char* name, const void* data,
                                         std::uint32_t length);
VXBUS_API _tag_VX_ERROR VXSetBinaryItem(HVXPARAMLIST list, const char* name,
                                        const _tag_BINARYITEM* item);
VXBUS_API _tag_VX_ERROR VXSetHandleValue(HVXPARAMLIST list, const char* name, HVXPARAMLIST value);
VXBUS_API _tag_VX_ERROR VXSetStringArray(HVXPARAMLIST list, const char* name, std::uint32_t count,
                                         const char* const* values);
VXBUS_API _tag_VX_ERROR VXSetInt32Array(HVXPARAMLIST list, const char* name, std::uint32_t count,
                                        const std::uint32_t* values);
VXBUS_API _tag_VX_ERROR VXSetInt64Array(HVXPARAMLIST list, const char* name, std::uint32_t count,
                                        const std::uint64_t* values);
VXBUS_API _tag_VX_ERROR VXSetBinaryArray(HVXPARAMLIST list, const char* name, std::uint32_t count,
                                         const void* const* data, const std::uint32_t* lengths);
VXBUS_API _tag_VX_ERROR VXSetBinaryItemArray(HVXPARAMLIST list, const char* name,
                                             std::uint32_t count, const _tag_BINARYITEM* items);
VXBUS_API _tag_VX_ERROR VXSetHandleArray(HVXPARAMLIST list, const char* name, std::uint32_t count,
                                         const HVXPARAMLIST* values);

/// Walking and removing. Records point into the image and die with the
/// list's next change. VXRemoveParamByInfo takes only a record of this list's
/// current image and returns the record now at its place, or null.
VXBUS_API const _tag_VXPARAMINFO* VXGetFirstParam(HVXPARAMLIST list);
VXBUS_API const _tag_VXPARAMINFO* VXGetNextParam(HVXPARAMLIST list, const _tag_VXPARAMINFO* info);
VXBUS_API const _tag_VXPARAMINFO* VXParamInfo(HVXPARAMLIST list, const char* name);
/// Gives the second record whatever the index; kept as it always was.
VXBUS_API const _tag_VXPARAMINFO* VXParamByIndex(HVXPARAMLIST list, std::uint32_t index);
VXBUS_API const _tag_VXPARAMINFO* VXRemoveParamByInfo(HVXPARAMLIST list,
                                                      const _tag_VXPARAMINFO* info);
VXBUS_API _tag_VX_ERROR VXRemoveValue(HVXPARAMLIST list, const char* name);
VXBUS_API _tag_VX_ERROR VXRemoveAllValues(HVXPARAMLIST list);

/// Printing, for diagnostics. PrintHandleInfo writes to the standard error
/// stream; the buffer form writes at most `size` bytes including the zero
/// byte that ends them, cutting the text short.
VXBUS_API void PrintHandleInfo(HVXPARAMLIST list, bool printTypes);
VXBUS_API void PrintHandleInfoToBuffer(HVXPARAMLIST list, bool printTypes, char* destination,
                                       std::uint32_t size);

/// Memory and diagnostics. VXAllocate and VXRealloc use the library's private
/// heap and return null when it is exhausted; VXFree takes what they returned.
/// VXSetLogLevel installs the one log sink (null removes it); the sink runs on
/// whichever thread logs, and its text is borrowed for the call.
/// DEBUG_VXObjectCount never blocks; each count is one its object really had
/// at some moment of the call (exact at rest), and together they are not one
/// snapshot.
VXBUS_API void* VXAllocate(std::uint64_t size);
VXBUS_API void* VXRealloc(void* pointer, std::uint64_t size);
VXBUS_API void VXFree(void* pointer);
VXBUS_API void VXSetLogLevel(std::uint32_t mask, std::int32_t threshold, VXLogSink sink);
VXBUS_API void VXHandleUsageLog(void);
VXBUS_API VXObjectCounters DEBUG_VXObjectCount(void);

}  // extern "C"

// ---------------------------------------------------------------------------
// Functions with C++ linkage
// ---------------------------------------------------------------------------
VXBUS_API _tag_VX_ERROR VXRegisterSlots(const _tag_SLOT_DESCRIPTION* slots, int count);
VXBUS_API _tag_VX_ERROR VXRegisterSignals(const _tag_SIGNAL_DESCRIPTION* signals, int count);
VXBUS_API void PrintHandleInfoRecurse(std::ostream& out, _tag_HVXPARAMLIST list, bool printTypes,
                                      std::int32_t depth);

// ---------------------------------------------------------------------------
// Reference counting
// ---------------------------------------------------------------------------
namespace MTObjects {

template <class T>
class MTReferencedPtr;
struct ReferenceAccess;

/// Base of every reference counted object. The count starts at 0: a creator
/// owns nothing until it has added the first reference.
class VXBUS_API MTReferencedTypeBase {
 public:
  struct RefCounter {
    RefCounter() : value(0) {}
    std::atomic<std::int32_t> value;
  };

 protected:
  MTReferencedTypeBase();
  virtual ~MTReferencedTypeBase();
  virtual bool IsObjectValid() const = 0;

  void AddRef();
  void Release();
  bool IsValid();
  bool IsValid() const;

 private:
  template <class T>
  friend class MTReferencedPtr;
  friend struct ReferenceAccess;

  RefCounter refCounter_;
};

}  // namespace MTObjects

// ---------------------------------------------------------------------------
// Classes
// ---------------------------------------------------------------------------
namespace VX {

/// Owns one reference to a list and closes it on destruction.
class VXBUS_API ParamListHolder {
 public:
  struct param_iterator {
    const ParamListHolder* holder;
    const _tag_VXPARAMINFO* info;

    param_iterator(const ParamListHolder* h, const _tag_VXPARAMINFO* i) : holder(h), info(i) {}
    explicit param_iterator(const ParamListHolder* h) : holder(h), info(h->GetFirst()) {}

    explicit operator bool() const { return info != nullptr; }
    const _tag_VXPARAMINFO* operator*() const { return info; }
    const _tag_VXPARAMINFO* operator->() const { return info; }
    param_iterator& operator++() {
      info = holder->GetNext(info);
      return *this;
    }
    bool operator==(const param_iterator& other) const { return info == other.info; }
    bool operator!=(const param_iterator& other) const { return info != other.info; }
  };

  /// FromHandle adds a reference (the caller keeps its own: for a borrowed
  /// handle); FromRefHandle adopts the caller's reference (for a handle a call
  /// has just returned).
  static ParamListHolder FromHandle(_tag_HVXPARAMLIST handle);
  static ParamListHolder FromRefHandle(_tag_HVXPARAMLIST handle);

  /// Copies add a reference; a move leaves the source null, and a move
  /// assignment exchanges the two lists. Assignment is safe on itself.

  ParamListHolder();
  ParamListHolder(const ParamListHolder& other);
  ParamListHolder(ParamListHolder&& other);
  ~ParamListHolder();
  void operator=(const ParamListHolder& other);
  void operator=(ParamListHolder&& other);
  void swap(ParamListHolder& other);
  static void swap(ParamListHolder& a, ParamListHolder& b);
  bool operator!() const;

  /// From the library's private heap, as VXAllocate: null when the heap
  /// refuses, and then no holder is constructed.
  static void* operator new(std::size_t size) noexcept;
  static void operator delete(void* pointer);

  _tag_HVXPARAMLIST GetHandle() const { return handle_; }

  /// The list as a whole. NewList replaces the held list with a new empty one
  /// (false when none could be made); ClearList only lets go of it, leaving
  /// other owners' list as it is (RemoveAll empties it). Clone gives a deep
  /// copy; a null holder gives a null holder.
  bool NewList();
  bool ClearList();
  ParamListHolder Clone() const;
  bool CopyDataTo(ParamListHolder& other);
  bool CopyDataFrom(ParamListHolder& other);
  std::uint32_t GetCount() const;
  std::uint32_t GetSize() const;
  bool empty() const;

  /// Records and values: as the exported getters, which never fail loudly (0,
  /// null or an empty result). Pointers point into the list's image and die
  /// with its next change; a returned holder owns its own reference.
  const _tag_VXPARAMINFO* GetFirst() const;
  const _tag_VXPARAMINFO* GetNext(const _tag_VXPARAMINFO* info) const;
  const _tag_VXPARAMINFO* GetInfo(const char* name) const;
  bool Exists(const char* name) const;
  _tag_PARAM_TYPES GetType(const char* name) const;
  std::uint32_t GetArraySize(const char* name) const;
  _tag_PARAM_TYPES GetArrayType(const char* name) const;

  const char* GetString(const char* name) const;
  const char* GetString(const char* name, unsigned index) const;
  std::uint32_t GetInt32(const char* name) const;
  std::uint32_t GetInt32(const char* name, unsigned index) const;
  std::uint64_t GetInt64(const char* name) const;
  std::uint64_t GetInt64(const char* name, unsigned index) const;
  const _tag_BINARYVALUE* GetBinary(const char* name) const;
  const _tag_BINARYVALUE* GetBinary(const char* name, unsigned index) const;
  ParamListHolder GetHandle(const char* name) const;
  ParamListHolder GetHandle(const char* name, unsigned index) const;
  ParamListHolder GetHandle(int id) const;
  const _tag_VXDWORDARRAY GetInt32Array(const char* name) const;
  const _tag_VXQWORDARRAY GetInt64Array(const char* name) const;
  std::uint32_t GetStringArray(const char* name, const char** out, unsigned maxItems,
                               unsigned start) const;
  std::uint32_t GetBinaryArray(const char* name, const _tag_BINARYVALUE** out, unsigned maxItems,
                               unsigned start) const;
  std::uint32_t GetHandleArray(const char* name, ParamListHolder* out, unsigned maxItems,
                               unsigned start) const;
  std::uint32_t GetHandleArray(const char* name, _tag_HVXPARAMLIST* out, unsigned maxItems,
                               unsigned start) const;

  /// As the exported setters: a name that exists is replaced and moves to the
  /// end; a handle value takes its own reference to the child.
  _tag_VX_ERROR SetString(const char* name, const char* value);
  _tag_VX_ERROR SetInt32(const char* name, unsigned value);
  _tag_VX_ERROR SetInt64(const char* name, std::uint64_t value);
  _tag_VX_ERROR SetBinary(const char* name, const void* data, unsigned length);
  _tag_VX_ERROR SetHandle(const char* name, const ParamListHolder& value);
  _tag_VX_ERROR SetStringArray(const char* name, unsigned count, const char** values);
  _tag_VX_ERROR SetInt32Array(const char* name, unsigned count, const unsigned* values);
  _tag_VX_ERROR SetInt64Array(const char* name, unsigned count, const std::uint64_t* values);
  _tag_VX_ERROR SetBinaryArray(const char* name, unsigned count, const _tag_BINARYITEM* items);
  _tag_VX_ERROR SetBinaryArray(const char* name, unsigned count, const void** data,
                               unsigned* lengths);
  _tag_VX_ERROR SetHandleArray(const char* name, unsigned count, const ParamListHolder* values);
  _tag_VX_ERROR SetHandleArray(const char* name, unsigned count, const _tag_HVXPARAMLIST* values);
  _tag_VX_ERROR Remove(const char* name);
  _tag_VX_ERROR RemoveAll();

  /// Iteration in record order; erase returns the record behind the removed
  /// one (or end), erase by name the number of records removed.
  param_iterator begin() const;
  param_iterator end() const;
  param_iterator find(const char* name) const;
  param_iterator erase(param_iterator it);
  std::uint32_t erase(const char* name);

 private:
  explicit ParamListHolder(_tag_HVXPARAMLIST handle);
  void operator=(const _tag_HVXPARAMLIST& handle);

  _tag_HVXPARAMLIST handle_;
};

/// Names one peer and forwards to the exported functions. Destroying any copy
/// disconnects that peer for all of them, so keep one and pass it by
/// reference. No lock: Call and Notify only read the name; Connect,
/// Disconnect and assignment change it and are the caller's to keep apart.
class VXBUS_API VXApplicationHolder {
 public:
  /// Holds at most 255 bytes of `name` (a longer one is cut); connects nothing.
  VXApplicationHolder(const char* name = nullptr);
  VXApplicationHolder(const VXApplicationHolder& other);
  VXApplicationHolder& operator=(const VXApplicationHolder& other);
  virtual ~VXApplicationHolder();

  const char* getName() const;
  /// True for an empty name; says nothing about a connection.
  bool operator!() const;
  /// Each bool is true when the function below returned VX_SUCCESS; blocking
  /// and ownership are that function's. Connect stores the peer's appID on
  /// success; Disconnect empties the name whatever the result.
  bool Connect(const char* host, int port, const unsigned char* secret, int secretLength);
  bool Disconnect();
  HVXPARAMLIST Call(unsigned slotId, HVXPARAMLIST list);
  bool Notify(unsigned slotId, HVXPARAMLIST list, VXNotifyCallback callback, void* userData);
  bool ConnectSignal(const char* signalName, unsigned slotId);
  bool DisconnectSignal(const char* signalName, unsigned slotId);
  HVXPARAMLIST CallWithFlow(unsigned flowId, unsigned slotId, HVXPARAMLIST list);
  bool NotifyWithFlow(unsigned flowId, unsigned slotId, HVXPARAMLIST list,
                      VXNotifyCallback callback, void* userData);

 private:
  char name[256];
};

static_assert(sizeof(ParamListHolder) == sizeof(HVXPARAMLIST),
              "holder arrays and handle arrays share one layout");

}  // namespace VX

// ---------------------------------------------------------------------------
// Additions to the designed interface
// ---------------------------------------------------------------------------
/// Functions with C linkage beside the designed ones. They change nothing of
/// what is above: no wire byte, return code or log text. A peer that knows
/// none of them still talks to one that uses them.

/// Deadlines.
/// VXCallWithTimeout is VXCall with a limit on the wait: the reply (owned by
/// the caller), or VX_INVALID_PARAMLIST when the peer is unknown, the session
/// ended, or `timeoutMs` milliseconds passed first. A negative `timeoutMs`
/// waits without limit, as VXCall does; 0 sends the call and takes only a
/// reply that is there at once. A call given up on stays in the session's
/// table of waiting calls until its reply comes, which is then read and let
/// go without ending the session, or until the session ends. It also returns
/// where VXCall never does: when the peer dies inside a reply's body.
extern "C" VXBUS_API HVXPARAMLIST VXCallWithTimeout(const char* applicationName,
                                                    std::uint32_t slotId, HVXPARAMLIST list,
                                                    std::int32_t timeoutMs);
/// VXNotify with a limit on the wait for the reply, counted from the call:
/// the same results, and `callback` runs exactly once: with the reply's output
/// list, or with VX_INVALID_PARAMLIST when the session ended or `timeoutMs`
/// milliseconds passed first (then on the library's deadline thread, and a
/// reply that still comes is read and let go). Its input list is the one
/// given here, which must stay unchanged until then. A negative `timeoutMs`
/// or a null `callback` makes it VXNotify. On an error result the callback
/// never runs.
extern "C" VXBUS_API _tag_VX_ERROR VXNotifyWithTimeout(const char* applicationName,
                                                       std::uint32_t slotId, HVXPARAMLIST list,
                                                       VXNotifyCallback callback, void* userData,
                                                       std::int32_t timeoutMs);

/// A look inside. VXGetBusInfo returns a new list, owned by the caller, that
/// describes this process at the moment of the call. Its fields:
///   "appId"    string   this process's appID; empty before it is initialised
///   "version"  string   VXGetVersion()
///   "slots"    int32[]  the registered slot ids, ascending, as unsigned values
///                       (the built-in 4294967294 and 4294967295 included)
///   "signals"  list[]   one list per registered signal, in name order:
///       "name"        string    the signal's name
///       "subscribers" string[]  the appID of each subscription, in the order
///                               of subscription ("" for a session just ended)
///       "slots"       int32[]   each subscription's slot, in the same order
///   "sessions" list[]   one list per connected peer, in appID order:
///       "appId"          string  the peer's appID
///       "channel"        string  "tcp" or "pipe"
///       "address"        string  the peer's address as its channel tells it
///       "connectedMs"    int64   milliseconds since the handshake succeeded
///       "framesSent"     int64   frames written to the peer
///       "framesReceived" int64   frames read from the peer
///       "bytesSent"      int64   bytes of those frames, headers included
///       "bytesReceived"  int64   the same for the frames read
///       "queuedBytes"    int64   bytes waiting in the session's send queue
///       "pendingCalls"   int32   calls written and waiting for their replies,
///                                those given up on by a deadline included
///   "counters" list     DEBUG_VXObjectCount() as int32 values: "applications",
///                       "messages", "pendingCalls", "paramLists",
///                       "sendCalls", "receiveCalls"
/// The counts of one session are each exact at some moment of the call; the
/// whole is not one snapshot. It never waits for a running slot function.
extern "C" VXBUS_API HVXPARAMLIST VXGetBusInfo(void);
/// Registers slot `slotId` to answer every call with VXGetBusInfo's list, so
/// that a peer may ask; nothing answers unless the application calls this.
/// It replaces what the slot held, as VXRegisterSlot does. Always VX_SUCCESS.
extern "C" VXBUS_API _tag_VX_ERROR VXServeBusInfo(std::uint32_t slotId);

/// Version and error text. VXGetVersion gives the loaded library's version,
/// "MAJOR.MINOR.PATCH"; VXBUS_VERSION_STRING is the version of this header.
/// VXErrorText gives a short English text for a return code of this library,
/// and one that says the code is unknown for any other value. Both texts are
/// static and never null.
extern "C" VXBUS_API const char* VXGetVersion(void);
extern "C" VXBUS_API const char* VXErrorText(std::int32_t code);

/// Spinning. A thread that waits for a reply, or for the next message of a
/// queue, keeps looking for up to 50 microseconds before it sleeps, which
/// saves a wake-up per message at the price of some CPU time. The
/// environment variable VXBUS_SPIN_US, read once when the library first
/// waits, sets that time in whole microseconds (at most 10000); 0 switches
/// spinning off, for users who prefer low CPU to low latency. Any other text
/// keeps the default. Nothing on the wire changes.

#endif  // VXBUS_H_
