#include "common/writer_process.hpp"

#include <array>
#include <filesystem>
#include <memory>
#include <utility>
#include <vector>

#include "common/beside_program.hpp"
#include "common/formatting.hpp"
#include "common/printable.hpp"
#include "common/program.hpp"
#include "common/quoting.hpp"
#include "common/text.hpp"
#include "common/tool_error.hpp"

namespace tallow::tools {
namespace {

// A writer that says more than this floods the terminal and the log. Its last line is kept.
constexpr std::uint64_t kMostLines = 1000;
constexpr std::size_t kLongestLine = 2000;  // bytes; a longer one is cut into several
// How long a process that the writer has left behind may keep its standard error open.
constexpr DWORD kLastLinesPatience = 2000;  // milliseconds

constexpr const char* kPipePlace = "{pipe}";

std::string withPipe(std::string command, const std::string& pipe) {
  const std::string place = kPipePlace;
  for (std::size_t at = 0; (at = command.find(place, at)) != std::string::npos; at += pipe.size()) {
    command.replace(at, place.size(), pipe);
  }
  return command;
}

// "feed" for "C:\tools\feed.exe" --in x.
std::string nameOf(const std::string& command) {
  const bool isQuoted = command.starts_with('"');
  const std::size_t begin = isQuoted ? 1 : 0;
  const std::size_t end = command.find(isQuoted ? '"' : ' ', begin);
  const std::filesystem::path path = toWide(command.substr(begin, end - begin));
  return printable(toUtf8(path.stem().wstring()));
}

struct PipeEnds {
  UniqueHandle read;
  UniqueHandle write;
};

PipeEnds makePipe() {
  HANDLE read = nullptr;
  HANDLE write = nullptr;
  if (!CreatePipe(&read, &write, nullptr, 0)) {
    throw ToolError("cannot make a pipe: " + systemErrorText(GetLastError()));
  }
  return {UniqueHandle(read), UniqueHandle(write)};
}

UniqueHandle inheritable(HANDLE handle) {
  HANDLE copy = nullptr;
  const HANDLE self = GetCurrentProcess();
  if (!DuplicateHandle(self, handle, self, &copy, 0, TRUE, DUPLICATE_SAME_ACCESS)) return {};
  return UniqueHandle(copy);
}

// Our standard input for the writer; an empty one if we have none.
UniqueHandle standardInput() {
  if (UniqueHandle input = inheritable(GetStdHandle(STD_INPUT_HANDLE))) return input;
  const UniqueFileHandle nothing(
      CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
  return inheritable(nothing.get());
}

// Ends all of its processes when its last handle is closed, which is ours. Null if there is none.
UniqueHandle makeJob() {
  UniqueHandle job(CreateJobObjectW(nullptr, nullptr));
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
  limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
  if (job) {
    SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation, &limits, sizeof limits);
  }
  return job;
}

// The list of the handles that a new process inherits. All others stay ours.
class InheritedHandles {
 public:
  explicit InheritedHandles(std::vector<HANDLE> handles) : handles_(std::move(handles)) {
    SIZE_T size = 0;
    InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
    memory_.resize(size);
    if (!InitializeProcThreadAttributeList(get(), 1, 0, &size)) return;
    isMade_ = true;
    UpdateProcThreadAttribute(get(), 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST,
                              static_cast<void*>(handles_.data()), handles_.size() * sizeof(HANDLE),
                              nullptr, nullptr);
  }
  ~InheritedHandles() {
    if (isMade_) DeleteProcThreadAttributeList(get());
  }
  InheritedHandles(const InheritedHandles&) = delete;
  InheritedHandles& operator=(const InheritedHandles&) = delete;

  LPPROC_THREAD_ATTRIBUTE_LIST get() noexcept {
    return reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(memory_.data());
  }

 private:
  std::vector<HANDLE> handles_;
  std::vector<std::byte> memory_;
  bool isMade_ = false;
};

}  // namespace

void addWriterOptions(CLI::App& app, std::string& command, std::string& inputFile) {
  CLI::Option* const writer =
      app.add_option("--writer", command,
                     "Start this command as the writer when the pipe, {pipe}, is ready; the data "
                     "is whole only if it ends with 0, for example \"export --to {pipe}\"")
          ->option_text("COMMAND");
  app.add_option("--in", inputFile,
                 "Send this file into the pipe, for example orders.csv; - for standard input")
      ->option_text("FILE")
      ->excludes(writer);
}

std::string feedCommand(const std::string& inputFile, const std::string& pipe) {
  const std::string program = toUtf8(besideProgram(L"tallow-feed.exe").wstring());
  return inDoubleQuotes(program) + " --pipe " + inDoubleQuotes(pipe) +
         " --in=" + inDoubleQuotes(inputFile);
}

bool releaseModule(const std::string& pipe) {
  const std::wstring name = toWide(pipe);
  if (!WaitNamedPipeW(name.c_str(), 1)) return false;
  const UniqueFileHandle ourEnd(
      CreateFileW(name.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  return ourEnd.get() != INVALID_HANDLE_VALUE;
}

WriterProcess::WriterProcess(const std::string& command, std::string pipe)
    : pipe_(std::move(pipe)),
      name_(nameOf(command)),
      job_(makeJob()),
      allSaid_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
  start(withPipe(command, pipe_));
  listener_ = std::thread([this] { passOn(); });
}

WriterProcess::~WriterProcess() {
  end();
  hasEnded(std::chrono::milliseconds(kLastLinesPatience));
  while (WaitForSingleObject(allSaid_.get(), 5) == WAIT_TIMEOUT) {
    CancelIoEx(said_.get(), nullptr);
  }
  listener_.join();
}

void WriterProcess::start(const std::string& command) {
  PipeEnds ends = makePipe();
  const UniqueHandle output = inheritable(ends.write.get());
  const UniqueHandle input = standardInput();
  InheritedHandles inherited({input.get(), output.get()});
  STARTUPINFOEXW startup{};
  startup.StartupInfo.cb = sizeof startup;
  startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
  startup.StartupInfo.hStdInput = input.get();
  startup.StartupInfo.hStdOutput = output.get();
  startup.StartupInfo.hStdError = output.get();
  startup.lpAttributeList = inherited.get();

  SetEnvironmentVariableW(L"TALLOW_PIPE", toWide(pipe_).c_str());
  std::wstring line = toWide(command);
  PROCESS_INFORMATION made{};
  // Suspended, so that it starts nothing before it is in the job object.
  constexpr DWORD kFlags =
      CREATE_SUSPENDED | CREATE_NEW_PROCESS_GROUP | EXTENDED_STARTUPINFO_PRESENT;
  if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, kFlags, nullptr, nullptr,
                      &startup.StartupInfo, &made)) {
    throw ToolError(
        "cannot start " + title() + ": " + systemErrorText(GetLastError()) + "; check the command",
        ExitStatus::kMendFirst);
  }
  process_ = UniqueHandle(made.hProcess);
  const UniqueHandle thread(made.hThread);
  if (job_ && !AssignProcessToJobObject(job_.get(), process_.get())) job_ = UniqueHandle();
  ResumeThread(thread.get());
  said_ = std::move(ends.read);
}

// The listening thread.
void WriterProcess::passOn() {
  std::string line;
  std::array<char, 4096> buffer{};
  DWORD length = 0;
  while (ReadFile(said_.get(), buffer.data(), buffer.size(), &length, nullptr)) {
    for (const char c : std::string_view(buffer.data(), length)) {
      if (c != '\n' && c != '\r') line += c;
      if (c == '\n' || line.size() == kLongestLine) passOnLine(std::exchange(line, {}));
    }
  }
  passOnLine(line);
  if (linesLeftOut_ > 0) {
    printError(title() + " said more: " + formatCount(linesLeftOut_, "line") +
               " left out; the last: " + lastLine_);
  }
  SetEvent(allSaid_.get());
}

void WriterProcess::passOnLine(std::string line) {
  if (line.empty()) return;
  const std::string ownFront = name_ + ": ";
  if (line.starts_with(ownFront)) line.erase(0, ownFront.size());
  if (linesPassedOn_ < kMostLines) {
    ++linesPassedOn_;
    writeToStandardError(ownFront + printable(line) + "\n");
  } else {
    ++linesLeftOut_;
  }
  const std::lock_guard lock(mutex_);
  lastLine_ = std::move(line);
}

bool WriterProcess::hasEnded(std::chrono::milliseconds patience) {
  const auto milliseconds = static_cast<DWORD>(patience.count());
  if (WaitForSingleObject(process_.get(), milliseconds) == WAIT_TIMEOUT) return false;
  // What it has left behind would keep its standard error open.
  if (job_) TerminateJobObject(job_.get(), 1);
  WaitForSingleObject(allSaid_.get(), kLastLinesPatience);
  return true;
}

void WriterProcess::end() noexcept {
  if (job_) {
    TerminateJobObject(job_.get(), 1);
  } else {
    TerminateProcess(process_.get(), 1);
  }
}

std::string WriterProcess::fault(bool neverCame) const {
  DWORD status = 0;
  GetExitCodeProcess(process_.get(), &status);
  if (status == 0 && !neverCame) return {};
  std::string text = title() + " ended with status " + std::to_string(status);
  if (neverCame) text += " and has not opened " + pipe_;
  const std::lock_guard lock(mutex_);
  if (!lastLine_.empty()) text += ", having said \"" + lastLine_ + "\"";
  return text + "; its data is not whole";
}

}  // namespace tallow::tools
