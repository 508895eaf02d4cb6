// Random jobs against the model. A failure names the seed of its sequence; TALLOW_SEED runs that
// one again, TALLOW_SEQUENCES says how many.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "module/model/job_model.hpp"
#include "support/host.hpp"
#include "support/import_hook.hpp"
#include "support/log_reader.hpp"
#include "support/pipe_ends.hpp"
#include "support/surroundings.hpp"

namespace tallow::test {
namespace {

constexpr int kQuickSequences = 2000;

std::optional<std::uint64_t> numberFromEnvironment(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr) return std::nullopt;
  return std::strtoull(value, nullptr, 10);
}

// The loaded module with a script in the place of the pipe.
class LoadedModule {
 public:
  LoadedModule()
      : read_(module_.handle(), "ReadFile",
              [this](HANDLE, void* buffer, DWORD size, DWORD* count, OVERLAPPED*) {
                const PipeScript::Outcome got = script.read(size);
                *count = static_cast<DWORD>(got.data.copy(static_cast<char*>(buffer), size));
                SetLastError(got.error);
                return got.error == 0 ? TRUE : FALSE;
              }),
        sleep_(module_.handle(), "Sleep", [](DWORD) {}) {}

  PipeScript script;
  LogModel log;

  Host& host() { return host_; }

 private:
  Module module_;
  Host host_{module_};
  Hook<struct ReadFileTag, BOOL(HANDLE, void*, DWORD, DWORD*, OVERLAPPED*)> read_;
  Hook<struct SleepTag, void(DWORD)> sleep_;
};

// What all sequences share.
struct Surroundings {
  ScratchDirectory logs;
  ScratchDirectory files;
  ScopedEnvironment logDirectory{"NPLOGDIR", logs.path()};
  std::optional<LoadedModule> module;
};

class Sequence {
 public:
  Sequence(std::uint64_t seed, Surroundings& around) : around_(around), random_(seed) {}
  ~Sequence();
  Sequence(const Sequence&) = delete;
  Sequence& operator=(const Sequence&) = delete;

  void run();

 private:
  int below(int limit) { return static_cast<int>(random_() % static_cast<unsigned>(limit)); }
  bool chance(int percent) { return below(100) < percent; }
  std::size_t between(std::size_t low, std::size_t high) {
    return low + static_cast<std::size_t>(random_() % (high - low + 1));
  }

  void chooseOptions();
  void changeOptions();
  void changeData();
  PipeScript makeScript();
  std::string initString() const;
  std::uint64_t choosePosition();

  void load();
  void open();
  void step();
  void read();
  void getPos();
  void setPos();
  void close(bool closeR);
  void finish();
  void restart();
  const std::string& directory() const {
    return options_.inDirectory ? around_.files.path() : around_.logs.path();
  }
  Host& host() { return around_.module->host(); }
  LogModel& log() { return around_.module->log; }

  void compare(const Answer& real, const JobModel::Answer& expected);
  void compareFiles();
  void compareLog();

  Surroundings& around_;
  std::mt19937_64 random_;
  ModelOptions options_;
  int logLevel_ = 0;
  bool fullPieces_ = true;  // with Need_Full_Block off: every block but the last is full
  std::string data_;
  DiskModel disk_;
  std::size_t logLinesBefore_ = 0;
  std::optional<JobModel> model_;
  std::vector<std::uint64_t> positions_;  // handed out so far
};

Sequence::~Sequence() {
  if (model_) around_.module.reset();
  DeleteFileA(around_.logs.file("namedpipes.log").c_str());
  WIN32_FIND_DATAA found{};
  const HANDLE search = FindFirstFileA(around_.files.file("*.fbf").c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return;
  do {
    EXPECT_TRUE(disk_.contains(found.cFileName)) << "stray file " << found.cFileName;
    DeleteFileA(around_.files.file(found.cFileName).c_str());
  } while (FindNextFileA(search, &found) != 0);
  FindClose(search);
}

void Sequence::chooseOptions() {
  options_.blockSize = between(1, 24);
  options_.fullBlocks = chance(50);
  options_.signatureCheck = chance(60) ? 2 : below(2);
  options_.noFallback = chance(4);
  options_.preserve = chance(10);
  options_.pipeName = uniquePipeName();
  options_.directory = around_.files.path();
  if (chance(75)) options_.file = "job.fbf";
  options_.inDirectory = chance(90);
  constexpr int kLevels[] = {6, 6, 4, 2, 0};
  logLevel_ = kLevels[below(5)];
  fullPieces_ = chance(60);
  data_ = sampleData(between(0, options_.blockSize * 14), random_());
}

void Sequence::changeOptions() {
  if (chance(10)) options_.signatureCheck = below(3);
  if (chance(4)) options_.fullBlocks = !options_.fullBlocks;
  if (chance(3)) options_.blockSize = between(1, 24);
  if (chance(3)) options_.pipeName = uniquePipeName();
  if (chance(3)) options_.noFallback = !options_.noFallback;
  if (chance(5)) options_.inDirectory = !options_.inDirectory;
  if (chance(5)) options_.preserve = !options_.preserve;
}

void Sequence::changeData() {
  const int kind = below(100);
  if (kind < 12 && !data_.empty()) {
    data_[between(0, data_.size() - 1)] ^= '\1';
  } else if (kind < 24) {
    data_.resize(between(0, data_.size()));
  } else if (kind < 34) {
    data_ += sampleData(between(1, options_.blockSize * 3), random_());
  }
}

PipeScript Sequence::makeScript() {
  constexpr unsigned kEmptyPipe = 232;
  constexpr unsigned kListening = 536;
  constexpr unsigned kNotConnected = 233;
  PipeScript script;
  if (chance(30)) script.error(kListening);
  std::string_view rest = data_;
  while (!rest.empty()) {
    std::size_t piece = between(1, options_.blockSize * 2);
    if (!options_.fullBlocks && fullPieces_) piece = options_.blockSize * between(1, 3);
    script.data(std::string(rest.substr(0, piece)));
    rest.remove_prefix(std::min(piece, rest.size()));
    if (!options_.fullBlocks && chance(10)) script.error(kEmptyPipe);
    if (!options_.fullBlocks && chance(3)) script.emptyWrite();
    if (chance(1)) script.error(kNotConnected);
  }
  if (chance(30)) script.emptyWrite();
  return script;
}

std::string Sequence::initString() const {
  std::string text = "Log_level=" + std::to_string(logLevel_) +
                     " Block_size=" + std::to_string(options_.blockSize) +
                     " Signature_check=" + std::to_string(options_.signatureCheck) +
                     " Fallback_Directory='" + options_.directory + "'";
  if (!options_.fullBlocks) text += " Need_Full_Block=no";
  if (options_.file) text += " Fallback_file=" + *options_.file;
  if (options_.noFallback) text += " No_FallBack";
  return text;
}

std::uint64_t Sequence::choosePosition() {
  const int kind = below(100);
  if (kind < 45 && !positions_.empty()) return positions_.back();
  if (kind < 60 && !positions_.empty()) return positions_[between(0, positions_.size() - 1)];
  if (kind < 75) return model_->syncPointBlocks()[between(0, 1)];
  if (kind < 85) return 0;
  if (kind < 87) return JobModel::kNone;
  return between(0, static_cast<std::size_t>(model_->lastBlockNo()) + 2);
}

void Sequence::load() {
  if (!around_.module) around_.module.emplace();
  ASSERT_EQ(host().init(initString()).code, 0u);
  ASSERT_EQ(host().attribute("PRESERVE_RESTART_INFO", options_.preserve ? "YES" : "NO").code, 0u);
  logLinesBefore_ = readLog(around_.logs.path()).size();
  log().initialised(logLevel_);
}

void Sequence::open() {
  around_.module->script = makeScript();
  const ScopedCurrentDirectory current(directory());
  model_.emplace(disk_, log(), options_, around_.module->script);
  const Answer answer = host().open(options_.pipeName);
  ASSERT_EQ(answer.code, 0u) << answer.text.value_or("");
  compareFiles();
}

void Sequence::read() {
  const ReadAnswer answer = host().read();
  const JobModel::Answer expected = model_->read();
  compare(answer, expected);
  EXPECT_EQ(answer.data, expected.data);
}

void Sequence::getPos() {
  const PositionAnswer answer = host().getPos();
  const JobModel::Answer expected = model_->getPos();
  compare(answer, expected);
  EXPECT_EQ(answer.position, expected.position);
  if (answer.code == 0) positions_.push_back(answer.position);
}

void Sequence::setPos() {
  const std::uint64_t position = choosePosition();
  const std::uint32_t length = chance(4) ? static_cast<std::uint32_t>(below(20)) : 8;
  SCOPED_TRACE("SetPos to " + std::to_string(position));
  compare(host().setPos(position, length), model_->setPos(position, length));
}

void Sequence::close(bool closeR) {
  compare(closeR ? host().closeR() : host().close(), model_->close(closeR));
  model_.reset();
}

// The job ends: with its process, or before another one in the same.
void Sequence::finish() {
  const ScopedCurrentDirectory current(directory());
  if (model_ && chance(60)) close(chance(50));
  compareLog();
  if (!model_) return;
  around_.module.reset();
  model_.reset();
  compareFiles();
}

void Sequence::restart() {
  finish();
  changeOptions();
  changeData();
  load();
  open();
}

void Sequence::step() {
  const ScopedCurrentDirectory current(directory());
  const int kind = below(100);
  if (kind < 50) return read();
  if (kind < 66) return getPos();
  if (kind < 84) return setPos();
  if (kind < 90) {
    close(chance(50));
    if (chance(50)) return open();
    return restart();
  }
  if (kind < 97) return restart();
  for (int i = below(8); i > 0; --i) read();
}

void Sequence::run() {
  chooseOptions();
  ASSERT_NO_FATAL_FAILURE(load());
  ASSERT_NO_FATAL_FAILURE(open());
  for (int i = static_cast<int>(between(5, 35)); i > 0 && !testing::Test::HasFailure(); --i) {
    ASSERT_NO_FATAL_FAILURE(step());
  }
  finish();
}

void Sequence::compare(const Answer& real, const JobModel::Answer& expected) {
  EXPECT_EQ(real.code, expected.code) << real.text.value_or("");
  if (model_) {
    EXPECT_EQ(around_.module->script.reads(), model_->pipe().reads()) << "reads of the pipe";
  }
  compareFiles();
  if (testing::Test::HasFailure()) compareLog();
}

void Sequence::compareFiles() {
  std::vector<std::string> names;
  for (const auto& [name, file] : disk_) names.push_back(name);
  if (options_.file && !disk_.contains(*options_.file)) names.push_back(*options_.file);
  for (const std::string& name : names) {
    std::ifstream real(around_.files.file(name), std::ios::binary);
    const auto expected = disk_.find(name);
    ASSERT_EQ(real.is_open(), expected != disk_.end()) << name;
    if (!real.is_open()) continue;
    const std::string bytes{std::istreambuf_iterator<char>(real), {}};
    EXPECT_EQ(expected->second.differenceTo(bytes), "") << name;
  }
}

void Sequence::compareLog() {
  std::vector<ModelLine> real;
  for (const LogLine& line : readLog(around_.logs.path())) {
    std::string text = line.id == kTraceId ? line.text : std::string();
    if (line.id == 78) {
      const std::size_t digits = line.text.find_first_of("0123456789");
      text = std::to_string(std::atoi(line.text.c_str() + digits));
    }
    real.push_back({line.level, line.id, text});
  }
  ASSERT_GE(real.size(), logLinesBefore_);
  real.erase(real.begin(), real.begin() + static_cast<std::ptrdiff_t>(logLinesBefore_));
  const std::vector<ModelLine>& expected = log().lines();
  for (std::size_t i = 0; i < std::max(real.size(), expected.size()); ++i) {
    if (i < real.size() && i < expected.size() && real[i] == expected[i]) continue;
    std::ostringstream text;
    for (std::size_t j = i > 12 ? i - 12 : 0; j < i; ++j) text << "  both " << real[j] << '\n';
    for (std::size_t j = i; j < std::min(i + 4, real.size()); ++j)
      text << "  log  " << real[j] << '\n';
    for (std::size_t j = i; j < std::min(i + 4, expected.size()); ++j) {
      text << "  rule " << expected[j] << '\n';
    }
    ADD_FAILURE() << "the log differs:\n" << text.str();
    return;
  }
}

TEST(RandomJob, BehavesAsTheModel) {
  const auto given = numberFromEnvironment("TALLOW_SEED");
  const std::uint64_t first = given ? *given : std::random_device()() * std::uint64_t{1000000};
  const std::uint64_t count =
      numberFromEnvironment("TALLOW_SEQUENCES").value_or(given ? 1 : kQuickSequences);
  std::cout << count << " sequences from TALLOW_SEED=" << first << '\n';
  Surroundings around;
  for (std::uint64_t seed = first; seed < first + count && !HasFailure(); ++seed) {
    SCOPED_TRACE("TALLOW_SEED=" + std::to_string(seed));
    Sequence(seed, around).run();
  }
}

}  // namespace
}  // namespace tallow::test
