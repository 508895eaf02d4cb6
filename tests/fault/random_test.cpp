// Requests in random order, sensible or not, with random options, names, positions and writers.
// Little must hold, but it must always hold: no crash, no endless wait, no change to a byte of the
// host that is not the module's to write (the host's blocks check that), and no return code that
// the request does not have.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <list>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "non_blocking_writer.hpp"
#include "support/host.hpp"
#include "support/import_hook.hpp"
#include "support/pipe_ends.hpp"
#include "support/scripted_pipe.hpp"
#include "support/surroundings.hpp"
#include "system_libraries.hpp"
#include "watchdog.hpp"

namespace tallow::test {
namespace {

constexpr std::uint64_t kNoPosition = ~std::uint64_t{0};

class Dice {
 public:
  explicit Dice(std::uint64_t seed) : engine_(seed) {}

  // 0 to sides - 1.
  std::size_t roll(std::size_t sides) { return engine_() % sides; }
  bool oneIn(std::size_t sides) { return roll(sides) == 0; }
  template <class Range>
  const auto& pick(const Range& range) {
    return range[roll(std::size(range))];
  }
  std::string bytes(std::size_t most) {
    std::string text(roll(most + 1), '\0');
    for (char& byte : text) byte = static_cast<char>(1 + roll(255));
    return text;
  }

 private:
  std::mt19937_64 engine_;
};

// The name as the narrow calls read it.
std::wstring wide(const std::string& name) {
  std::wstring text(name.size(), L'\0');
  text.resize(static_cast<std::size_t>(
      MultiByteToWideChar(CP_ACP, 0, name.data(), static_cast<int>(name.size()), text.data(),
                          static_cast<int>(text.size()))));
  return text;
}

// A pipe that a test has opened or has tried to open.
struct Stream {
  void* module = nullptr;
  void* instance = nullptr;
  std::uint32_t blockSize = 0;
  std::string pipe;
  // If several streams share a pipe's name, its reader may belong to another stream. So the writer
  // never waits.
  std::unique_ptr<NonBlockingWriter> writer = nullptr;
  bool mayConnect = true;                // the writer may connect to the module's end
  std::vector<std::uint64_t> positions;  // that GetPos returned
};

class Chaos {
 public:
  explicit Chaos(std::uint64_t seed) : dice_(seed), current_(folder_.path()) {
    for (int i = 0; i < 5; ++i) names_.push_back(uniquePipeName());
    names_.push_back(uniquePipeName() + "\xc3\xa4\xe2\x82\xac");
  }

  void run(std::size_t requests, std::uint64_t seed) {
    for (std::size_t number = 0; number < requests && !testing::Test::HasFailure(); ++number) {
      const std::string name =
          "seed " + std::to_string(seed) + ", request " + std::to_string(number);
      SCOPED_TRACE(name);
      watchRun(name);
      if (!loaded_ || dice_.oneIn(250)) reload();
      looks_ = 0;
      request();
    }
    unload();
  }

  const std::set<std::pair<int, std::uint32_t>>& seen() const { return seen_; }

 private:
  struct Loaded {
    Module module;
    Host host{module};
    Hook<struct SleepTag, void(DWORD)> sleep{module.handle(), "Sleep", [](DWORD) {}};
    Hook<struct TimeTag, std::int64_t(std::int64_t*)> time{
        module.handle(), "_time64",
        [now = std::int64_t{1'700'000'000}](auto) mutable { return ++now; }};
    std::optional<ReplacedReads> reads;
  };

  void unload() {
    streams_.clear();
    modules_.clear();
    loaded_.reset();
  }

  void reload() {
    unload();
    if (dice_.oneIn(2)) folder_.removeFiles();
    loaded_ = std::make_unique<Loaded>();
    loaded_->reads.emplace(loaded_->module.handle(),
                           [this](HANDLE pipe, void* data, DWORD size, DWORD* count) {
                             return readPipe(pipe, data, size, count);
                           });
  }

  // The writer acts when the module reads the pipe, so that no read waits.
  BOOL readPipe(HANDLE pipe, void* data, DWORD size, DWORD* count) {
    constexpr int kPatience = 30;
    *count = 0;
    if (++looks_ > kPatience) return TRUE;  // the writer sent nothing, which ends the data
    if (dice_.oneIn(40)) {
      static constexpr std::array kErrors{ERROR_BROKEN_PIPE,   ERROR_PIPE_LISTENING,
                                          ERROR_NO_DATA,       ERROR_PIPE_NOT_CONNECTED,
                                          ERROR_ACCESS_DENIED, ERROR_OPERATION_ABORTED};
      SetLastError(static_cast<DWORD>(dice_.pick(kErrors)));
      return FALSE;
    }
    write(pipe);
    DWORD waiting = 0;
    if (PeekNamedPipe(pipe, nullptr, 0, nullptr, &waiting, nullptr) && waiting == 0) {
      SetLastError(ERROR_NO_DATA);
      return dice_.oneIn(2) ? TRUE : FALSE;
    }
    if (dice_.oneIn(4)) size = 1 + static_cast<DWORD>(dice_.roll(size));
    return loaded_->reads->original(pipe, data, size, count);
  }

  void write(HANDLE pipe) {
    if (reading_ == nullptr) return;
    std::unique_ptr<NonBlockingWriter>& writer = reading_->writer;
    if (!writer && reading_->mayConnect) {
      auto connecting = std::make_unique<NonBlockingWriter>();
      if (!connecting->connect(wide(reading_->pipe))) return;  // not the server's end, or nobody's
      writer = std::move(connecting);
    }
    if (!writer) return;
    DWORD waiting = 0;
    // Not connected: what is written would go to another pipe.
    if (!PeekNamedPipe(pipe, nullptr, 0, nullptr, &waiting, nullptr)) return;
    const DWORD room = 2 * std::min<DWORD>(reading_->blockSize, 30'000);
    if (waiting < room && !dice_.oneIn(5)) {
      if (!writer->offer(sampleData(1 + dice_.roll(room - waiting)))) writer.reset();
    } else if (dice_.oneIn(4)) {
      writer->end();
    }
  }

  std::string randomOptions() {
    const std::string here = "'" + folder_.path() + "'";
    const std::vector<std::string> pieces{"Block_size=64",
                                          "b=1",
                                          "b 1000",
                                          "Block_size = 4096",
                                          "b=0",
                                          "Block_size=99999999",
                                          "Need_Full_Block=no",
                                          "nfb=no",
                                          "nfb=yes",
                                          "Pipe_Wait=0",
                                          "pw=601",
                                          "pw=-3",
                                          "Fallback_file=a.fbf",
                                          "Ff='b c.fbf'",
                                          "Ff=''",
                                          "Fallback_Directory=" + here,
                                          "FD=nowhere",
                                          "Signature_check=0",
                                          "Sc=1",
                                          "Sc=2",
                                          "Sc=9",
                                          "Log_directory=" + here,
                                          "Log_level=6",
                                          "Ll=0",
                                          "Ll=7",
                                          "No_FallBack=''",
                                          "nf",
                                          "Confirm_fallback_deletion=yes",
                                          "Cfd=x",
                                          "Bogus=1",
                                          "=",
                                          "'",
                                          "Ff=\"open",
                                          "%s%n%d=%s"};
    std::string options = "FD=" + here + (dice_.oneIn(3) ? "" : " b=64");
    for (std::size_t i = dice_.roll(6); i > 0; --i) {
      // Most strings should be accepted.
      const std::size_t good = 23;
      options += " " + pieces[dice_.oneIn(8) ? dice_.roll(pieces.size()) : dice_.roll(good)];
    }
    if (dice_.oneIn(15)) options += dice_.bytes(300);
    return options;
  }

  std::string randomPipeName() {
    switch (dice_.roll(14)) {
      case 0:
        return "";
      case 1:
        return R"(\\.\pipe\)";
      case 2:
        return dice_.bytes(3000);
      case 3:
        return R"(\\.\pipe\)" + dice_.bytes(400);
      case 4:
        return folder_.path();
      default:
        return dice_.pick(names_);
    }
  }

  void judge(int request, std::uint32_t code, std::initializer_list<std::uint32_t> allowed) {
    seen_.insert({request, code});
    EXPECT_TRUE(std::find(allowed.begin(), allowed.end(), code) != allowed.end())
        << "request " << request << " answered " << code;
  }

  void request() {
    using Action = void (Chaos::*)();
    static constexpr std::array<Action, 20> kActions{
        &Chaos::init,   &Chaos::open,   &Chaos::open,   &Chaos::read,      &Chaos::read,
        &Chaos::read,   &Chaos::read,   &Chaos::read,   &Chaos::read,      &Chaos::read,
        &Chaos::getPos, &Chaos::getPos, &Chaos::getPos, &Chaos::setPos,    &Chaos::setPos,
        &Chaos::setPos, &Chaos::close,  &Chaos::other,  &Chaos::attribute, &Chaos::attribute};
    (this->*dice_.pick(kActions))();
    reading_ = nullptr;
  }

  Host& host() { return loaded_->host; }

  void init() {
    InitInput input;
    if (dice_.oneIn(20)) input.level2 = 2000;
    if (dice_.oneIn(10)) input.moduleName = dice_.bytes(768);
    if (dice_.oneIn(30)) input.nullString = true;
    const std::string options = input.nullString ? "" : randomOptions();
    const std::uint32_t code = host().init(options, input).code;
    judge(pmiPIDMOptInit, code, {0, 18, 20, 21, 22, 34});
    if (code == pmrcSuccess) modules_.push_back(host().moduleHandle);
  }

  void open() {
    constexpr std::size_t kMostOpen = 6;
    host().moduleHandle = modules_.empty() || dice_.oneIn(30) ? nullptr : dice_.pick(modules_);
    Stream stream;
    stream.module = host().moduleHandle;
    stream.pipe = randomPipeName();
    if (stream.pipe.starts_with(R"(\\.\pipe\tallow)") && dice_.oneIn(2)) {
      try {
        auto serving = std::make_unique<NonBlockingWriter>();
        serving->serve(wide(stream.pipe));
        stream.writer = std::move(serving);
        stream.mayConnect = false;
      } catch (const std::runtime_error&) {
        // The name is in use.
      }
    }
    const auto mode = static_cast<std::int16_t>(dice_.oneIn(20) ? dice_.roll(6) - 1 : 1);
    const std::uint32_t code = host().open(stream.pipe, mode).code;
    judge(pmiPIDMOptOpen, code, {0, 13, 34});
    if (code != pmrcSuccess) return;
    stream.instance = host().instance;
    stream.blockSize = host().blockSize;
    // If several streams have the name, a writer could connect to the wrong one.
    for (Stream& other : streams_) {
      if (other.pipe == stream.pipe) stream.mayConnect = other.mayConnect = false;
    }
    streams_.push_back(std::move(stream));
    if (streams_.size() > kMostOpen) close();
  }

  // Chooses an open stream, or none, for the next request.
  Stream* choose() {
    static Stream nothing;
    nothing.blockSize = 64;
    if (streams_.empty() || dice_.oneIn(40)) {
      reading_ = nullptr;
      host().instance = nullptr;
      host().blockSize = nothing.blockSize;
      return &nothing;
    }
    reading_ =
        &*std::next(streams_.begin(),
                    static_cast<std::ptrdiff_t>(dice_.oneIn(3) ? dice_.roll(streams_.size()) : 0));
    host().instance = reading_->instance;
    host().blockSize = reading_->blockSize;
    return reading_;
  }

  void read() {
    choose();
    judge(pmiPIDMOptRead, host().read().code, {0, 9, 16, 34});
  }

  void getPos() {
    Stream* stream = choose();
    const PositionAnswer answer = host().getPos();
    judge(pmiPIDMOptGetPos, answer.code, {0, 16, 34});
    if (answer.code == pmrcSuccess) stream->positions.push_back(answer.position);
  }

  void setPos() {
    Stream* stream = choose();
    std::uint64_t position = dice_.roll(6);
    if (!stream->positions.empty() && !dice_.oneIn(4)) {
      position = dice_.oneIn(3) ? dice_.pick(stream->positions) : stream->positions.back();
    }
    if (dice_.oneIn(30)) position = kNoPosition - dice_.roll(2);
    std::uint32_t code = 0;
    if (dice_.oneIn(40)) {
      code = host().setPosToNull().code;
    } else {
      code = host().setPos(position, dice_.oneIn(30) ? 7 : 8).code;
    }
    judge(pmiPIDMOptSetPos, code, {0, 16, 32, 34});
  }

  void close() {
    Stream* stream = choose();
    const int request = dice_.oneIn(2) ? pmiPIDMOptClose : pmiPIDMOptCloseR;
    const std::uint32_t code = (request == pmiPIDMOptClose ? host().close() : host().closeR()).code;
    judge(request, code, {0, 34});
    if (stream == reading_) {
      streams_.remove_if([stream](const Stream& entry) { return &entry == stream; });
    }
  }

  void attribute() {
    static const std::vector<std::string> names{"CHARSET_NAME",    "CHARSET_NAME",
                                                "TIMEOUT_SECONDS", "PRESERVE_RESTART_INFO",
                                                "BYTE_ORDER",      "timeout_seconds"};
    static const std::vector<std::string> values{"UTF8", "UTF16", "", "YES", "NO", "1", "-5", "7x"};
    host().moduleHandle = modules_.empty() || dice_.oneIn(20) ? nullptr : dice_.pick(modules_);
    const auto code = static_cast<std::uint32_t>(pmiPIDMOptGetA_A + dice_.roll(4));
    const std::string name = dice_.oneIn(8) ? dice_.bytes(258) : dice_.pick(names);
    const std::string value = dice_.oneIn(8) ? dice_.bytes(255) : dice_.pick(values);
    judge(static_cast<int>(code), host().attribute(name, value, code).code, {0, 33});
  }

  void other() {
    switch (dice_.roll(4)) {
      case 0:
        judge(pmiPIDMOptID, host().id().code, {0});
        break;
      case 1:
        judge(pmiPIDMOptShut, host().request(pmiPIDMOptShut, nullptr).code, {0});
        break;
      case 2:
        judge(pmiPIDMOptWrite, host().request(pmiPIDMOptWrite, nullptr).code, {6});
        break;
      default:
        judge(0,
              host().request(static_cast<std::uint32_t>(15 + dice_.roll(1'000'000)), nullptr).code,
              {24});
    }
  }

  Dice dice_;
  ScratchDirectory folder_;
  ScopedCurrentDirectory current_;
  ScopedEnvironment noLogDirectory_{"NPLOGDIR", std::nullopt};
  ScopedEnvironment temp_{"TEMP", folder_.path()};
  std::vector<std::string> names_;
  std::unique_ptr<Loaded> loaded_;
  std::vector<void*> modules_;
  std::list<Stream> streams_;
  Stream* reading_ = nullptr;
  int looks_ = 0;
  std::set<std::pair<int, std::uint32_t>> seen_;
};

// If the writer waited here, the thread that has to read would wait.
TEST(Writer, NeverWaitsForRoom) {
  const std::wstring name = wide(uniquePipeName());
  NonBlockingWriter writer;
  writer.serve(name);
  EXPECT_FALSE(writer.offer("nobody reads"));
  const HANDLE reader =
      CreateFileW(name.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  for (int i = 0; i < 4; ++i) EXPECT_TRUE(writer.offer(std::string(50'000, 'x')));
  CloseHandle(reader);
  EXPECT_FALSE(writer.offer("nobody reads any more"));
}

TEST(Random, RequestsKeepTheRules) {
  keepSystemLibraries();
  constexpr unsigned kLongestRequest = 300;  // seconds
  startWatchdog(kLongestRequest);
  const std::uint64_t seed =
      numberFromEnvironment("TALLOW_SEED").value_or(GetTickCount64() * 4001 + 1);
  const std::size_t requests = std::getenv("TALLOW_FULL") != nullptr ? 120'000 : 4'000;
  std::printf("TALLOW_SEED=%llu repeats this run of %zu requests\n",
              static_cast<unsigned long long>(seed), requests);
  Chaos chaos(seed);
  chaos.run(requests, seed);
  // The dice are good enough if the requests returned most of their return codes.
  for (const auto& [request, code] :
       std::vector<std::pair<int, std::uint32_t>>{{pmiPIDMOptInit, 0},
                                                  {pmiPIDMOptInit, 34},
                                                  {pmiPIDMOptOpen, 0},
                                                  {pmiPIDMOptOpen, 34},
                                                  {pmiPIDMOptRead, 0},
                                                  {pmiPIDMOptRead, 9},
                                                  {pmiPIDMOptGetPos, 0},
                                                  {pmiPIDMOptSetPos, 0},
                                                  {pmiPIDMOptSetPos, 32},
                                                  {pmiPIDMOptSetPos, 34},
                                                  {pmiPIDMOptClose, 0}}) {
    EXPECT_TRUE(chaos.seen().contains({request, code}))
        << "request " << request << " never answered " << code;
  }
}

}  // namespace
}  // namespace tallow::test
