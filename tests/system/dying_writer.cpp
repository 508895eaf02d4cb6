// A writer for the tests of --writer. Sends the first BYTES of a file into a pipe and then does
// what END says:
//   dying_writer PIPE FILE BYTES END
//   exit N     ends with that status
//   kill       is killed
//   hang       closes the pipe and does not end
//   stall      keeps the pipe open and does not end
//   absent     does not end, and has not even opened the pipe
//   twice      closes the pipe, opens it again, and ends with the error number of that
//   flood N    says so many lines, then ends with status 9
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

namespace {

HANDLE openPipe(const char* name) {
  return CreateFileA(name, GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
}

int sayMuch(int lines) {
  for (int i = 1; i <= lines; ++i) std::fprintf(stderr, "line %d\n", i);
  return 9;
}

int send(const char* name, std::string_view data, std::string_view end, int number) {
  HANDLE pipe = openPipe(name);
  DWORD written = 0;
  if (!WriteFile(pipe, data.data(), static_cast<DWORD>(data.size()), &written, nullptr)) return 99;
  if (end == "kill") TerminateProcess(GetCurrentProcess(), 77);
  if (end == "stall") Sleep(INFINITE);
  CloseHandle(pipe);
  if (end == "hang") Sleep(INFINITE);
  if (end == "flood") return sayMuch(number);
  if (end == "twice" && openPipe(name) == INVALID_HANDLE_VALUE) {
    return static_cast<int>(GetLastError());
  }
  return number;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) return 98;
  const std::string_view end = argv[4];
  if (end == "absent") Sleep(INFINITE);
  std::ifstream file(argv[2], std::ios::binary);
  const std::string data((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  return send(argv[1], std::string_view(data).substr(0, std::strtoull(argv[3], nullptr, 10)), end,
              argc > 5 ? std::atoi(argv[5]) : 0);
}
