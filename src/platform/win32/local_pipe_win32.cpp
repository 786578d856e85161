// Local pipes as two one-way Win32 named pipes in the machine's local
// namespace. Only the reading end of each side is overlapped, so that a read
// can be bounded in time and cancelled; writes block until the pipe has
// taken the bytes.
#include <windows.h>

#include "platform/local_pipe.h"

namespace vxbus {
namespace platform {

struct PipeReadEvent {
  HANDLE event = nullptr;  // manual reset, set by the system when a read ends
  OVERLAPPED overlapped{};
};

namespace {

constexpr DWORD kPipeBufferBytes = 16284;
constexpr DWORD kUnlimitedInstances = PIPE_UNLIMITED_INSTANCES;  // 255
// How long a client waits for an instance while another client is taken.
constexpr DWORD kConnectWaitMs = 10000;

HANDLE Native(PipeHandle pipe) {
  return reinterpret_cast<HANDLE>(pipe);
}

PipeHandle FromNative(HANDLE handle) {
  return reinterpret_cast<PipeHandle>(handle);
}

std::string PipePath(const std::string& name) {
  return "\\\\.\\pipe\\" + name;
}

// Byte stream, blocking, default time-out left at its maximum.
HANDLE CreateListeningEnd(const std::string& name, DWORD openMode) {
  return ::CreateNamedPipeA(PipePath(name).c_str(), openMode, PIPE_TYPE_BYTE | PIPE_WAIT,
                            kUnlimitedInstances, kPipeBufferBytes, kPipeBufferBytes, 0xFFFFFFFF,
                            nullptr);
}

void CloseIfOpen(HANDLE handle) {
  if (handle != INVALID_HANDLE_VALUE && handle != nullptr) ::CloseHandle(handle);
}

// Waits up to `waitMs` for a client on the overlapped "in" end.
bool AwaitFirstClient(HANDLE in, std::uint32_t waitMs) {
  HANDLE event = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
  if (event == nullptr) return false;
  OVERLAPPED overlapped{};
  overlapped.hEvent = event;
  bool connected = false;
  if (::ConnectNamedPipe(in, &overlapped)) {
    connected = true;
  } else {
    DWORD error = ::GetLastError();
    if (error == ERROR_PIPE_CONNECTED) {
      connected = true;
    } else if (error == ERROR_IO_PENDING) {
      connected = ::WaitForSingleObject(event, waitMs) == WAIT_OBJECT_0;
      if (!connected) {
        ::CancelIo(in);
        DWORD ignored = 0;  // the record must outlive the cancelled wait
        ::GetOverlappedResult(in, &overlapped, &ignored, TRUE);
      }
    }
  }
  ::CloseHandle(event);
  return connected;
}

HANDLE OpenClientEnd(const std::string& name, DWORD access, DWORD flags) {
  const std::string path = PipePath(name);
  if (!::WaitNamedPipeA(path.c_str(), kConnectWaitMs)) return INVALID_HANDLE_VALUE;
  return ::CreateFileA(path.c_str(), access, 0, nullptr, OPEN_EXISTING, flags, nullptr);
}

}  // namespace

bool AcceptPipePair(const std::string& inName, const std::string& outName, std::uint32_t inWaitMs,
                    PipeEnds* ends) {
  HANDLE in = CreateListeningEnd(inName, PIPE_ACCESS_INBOUND | FILE_FLAG_OVERLAPPED);
  HANDLE out = CreateListeningEnd(outName, PIPE_ACCESS_OUTBOUND);
  bool connected =
      in != INVALID_HANDLE_VALUE && out != INVALID_HANDLE_VALUE && AwaitFirstClient(in, inWaitMs);
  // The same client opens "out" right after "in"; no limit applies here.
  if (connected && !::ConnectNamedPipe(out, nullptr))
    connected = ::GetLastError() == ERROR_PIPE_CONNECTED;
  if (!connected) {
    CloseIfOpen(in);
    CloseIfOpen(out);
    return false;
  }
  ends->read = FromNative(in);
  ends->write = FromNative(out);
  return true;
}

bool ConnectPipePair(const std::string& inName, const std::string& outName, PipeEnds* ends) {
  HANDLE in = OpenClientEnd(inName, GENERIC_WRITE, 0);
  if (in == INVALID_HANDLE_VALUE) return false;
  HANDLE out = OpenClientEnd(outName, GENERIC_READ, FILE_FLAG_OVERLAPPED);
  if (out == INVALID_HANDLE_VALUE) {
    ::CloseHandle(in);
    return false;
  }
  ends->write = FromNative(in);
  ends->read = FromNative(out);
  return true;
}

void ClosePipe(PipeHandle pipe) {
  if (pipe != kInvalidPipe) ::CloseHandle(Native(pipe));
}

PipeReadEvent* CreatePipeReadEvent() {
  HANDLE event = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
  if (event == nullptr) return nullptr;
  PipeReadEvent* read = new PipeReadEvent();
  read->event = event;
  return read;
}

void ClosePipeReadEvent(PipeReadEvent* event) {
  if (event == nullptr) return;
  ::CloseHandle(event->event);
  delete event;
}

int BeginPipeRead(PipeHandle pipe, PipeReadEvent* event, void* buffer, std::uint32_t length) {
  if (event == nullptr || pipe == kInvalidPipe) return -1;
  event->overlapped = OVERLAPPED{};
  event->overlapped.hEvent = event->event;
  if (::ReadFile(Native(pipe), buffer, length, nullptr, &event->overlapped)) return 1;
  return ::GetLastError() == ERROR_IO_PENDING ? 0 : -1;
}

int WaitPipeRead(PipeHandle pipe, PipeReadEvent* event, std::uint32_t timeoutMs) {
  if (event == nullptr || pipe == kInvalidPipe) return -1;
  switch (::WaitForSingleObject(event->event, timeoutMs)) {
    case WAIT_OBJECT_0:
      return 1;
    case WAIT_TIMEOUT:
      return 0;
    default:
      return -1;
  }
}

// Waits until the cancelled read has let go of its buffer.
void CancelPipeRead(PipeHandle pipe, PipeReadEvent* event) {
  if (event == nullptr || pipe == kInvalidPipe) return;
  ::CancelIo(Native(pipe));
  DWORD ignored = 0;
  ::GetOverlappedResult(Native(pipe), &event->overlapped, &ignored, TRUE);
}

std::int64_t FinishPipeRead(PipeHandle pipe, PipeReadEvent* event, void*, std::uint32_t) {
  if (event == nullptr || pipe == kInvalidPipe) return -1;
  DWORD count = 0;
  if (!::GetOverlappedResult(Native(pipe), &event->overlapped, &count, TRUE)) return -1;
  return count;
}

std::int64_t WritePipe(PipeHandle pipe, const void* bytes, std::uint32_t length) {
  if (pipe == kInvalidPipe) return -1;
  DWORD written = 0;
  if (!::WriteFile(Native(pipe), bytes, length, &written, nullptr)) return -1;
  return written;
}

}  // namespace platform
}  // namespace vxbus
