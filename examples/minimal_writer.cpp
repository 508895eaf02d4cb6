// A complete writer: sends a file into the pipe that the module opens.
//
//   minimal_writer PIPE FILE
#include <windows.h>

#include <cstdio>
#include <vector>

namespace {

constexpr DWORD kBytesPerWrite = 1 << 20;
constexpr int kWaitSeconds = 60;
constexpr DWORD kPollMilliseconds = 100;

// Whoever made the pipe may learn which account this is, but can do nothing in its name.
constexpr DWORD kOpening = SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION;

// The pipe exists from the moment when the host opens it; until then the system does not know its
// name.
HANDLE waitForPipe(const char* name) {
  for (int i = 0; i < kWaitSeconds * 1000 / static_cast<int>(kPollMilliseconds); ++i) {
    const HANDLE pipe =
        CreateFileA(name, GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, kOpening, nullptr);
    if (pipe != INVALID_HANDLE_VALUE) return pipe;
    Sleep(kPollMilliseconds);
  }
  return INVALID_HANDLE_VALUE;
}

int sendFile(const char* pipeName, std::FILE* file) {
  const HANDLE pipe = waitForPipe(pipeName);
  if (pipe == INVALID_HANDLE_VALUE) {
    std::fprintf(stderr, "minimal_writer: %s did not appear\n", pipeName);
    return 1;
  }
  std::vector<char> buffer(kBytesPerWrite);
  bool sent = true;
  DWORD length = 0;
  while (sent &&
         (length = static_cast<DWORD>(std::fread(buffer.data(), 1, buffer.size(), file))) != 0) {
    DWORD written = 0;  // a write of no bytes would end the data; this loop makes none
    sent = WriteFile(pipe, buffer.data(), length, &written, nullptr) != 0 && written == length;
  }
  sent = sent && std::ferror(file) == 0;
  if (!sent) std::fprintf(stderr, "minimal_writer: stopped before the end; stop the host too\n");
  CloseHandle(pipe);  // the end of the data; never DisconnectNamedPipe
  return sent ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  std::FILE* file = std::fopen(argv[2], "rb");
  if (file == nullptr) {
    std::fprintf(stderr, "minimal_writer: cannot open %s\n", argv[2]);
    return 1;
  }
  const int status = sendFile(argv[1], file);
  std::fclose(file);
  return status;
}
