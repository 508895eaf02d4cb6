// Random jobs compared with the model. A failure names the seed of its sequence. TALLOW_SEED runs
// that sequence again; TALLOW_SEQUENCES sets how many there are.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "module/model/aftermath.hpp"
#include "module/model/careful_host.hpp"
#include "module/model/job_model.hpp"
#include "module/model/watched_module.hpp"
#include "support/files.hpp"
#include "support/log_reader.hpp"
#include "support/pipe_ends.hpp"
#include "support/surroundings.hpp"

namespace tallow::test {
namespace {

constexpr int kQuickSequences = 2000;

// What all sequences share.
struct Surroundings {
  ScratchDirectory logs;
  ScratchDirectory files;
  ScopedEnvironment logDirectory{"NPLOGDIR", logs.path()};
  std::optional<WatchedModule> module;
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
  void cutFile(std::size_t size);
  void refusedLookUp();
  PipeScript makeScript();
  std::string initString() const;
  std::uint64_t choosePosition();

  void load();
  void open();
  void step();
  void read();
  void getPos();
  void setPos(std::uint64_t position);
  void close(bool closeR);
  void finish();
  void restart();
  // Around each request.
  void arm();
  void disarm();
  const std::string& directory() const {
    return options_.inDirectory ? around_.files.path() : around_.logs.path();
  }
  Host& host() { return around_.module->host(); }
  LogModel& log() { return around_.module->log; }

  void compare(const Answer& real, const JobModel::Answer& expected);
  void judge(const Answer& real, const std::string& problem);
  std::optional<std::string> realFile(const std::string& name) const;
  void compareFiles();
  void compareLog();

  Surroundings& around_;
  std::mt19937_64 random_;
  ModelOptions options_;
  int logLevel_ = 0;
  bool fullPieces_ = true;  // with Need_Full_Block off: every block but the last is full
  int emptyWrites_ = 0;     // percent of the writes
  int failedReads_ = 0;
  int failedCalls_ = 0;  // percent of the requests
  std::string data_;
  DiskModel disk_;
  std::size_t logLinesBefore_ = 0;
  std::optional<JobModel> model_;
  std::vector<std::uint64_t> positions_;  // returned so far
  CarefulHost output_;
  bool isOpen_ = false;
  FailingCalls::Plan plan_;  // for the next request
  bool struck_ = false;      // a call failed in the latest request
  std::optional<std::string> fileBefore_;
  std::optional<Aftermath> aftermath_;  // once a call has failed, until the process ends
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
  emptyWrites_ = chance(40) ? 8 : 0;
  failedReads_ = chance(30) ? 4 : 0;
  failedCalls_ = chance(35) ? 12 : 0;
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

// What the writer sends in the next life of the job: mostly the same; sometimes other data before
// or after the position of the latest checkpoint, or less or more data.
void Sequence::changeData() {
  const std::uint64_t position = positions_.empty() ? 0 : positions_.back();
  const std::size_t known = std::min<std::size_t>(position * options_.blockSize, data_.size());
  const int kind = below(100);
  if (kind < 20 && known < data_.size()) {
    data_[between(known, data_.size() - 1)] ^= '\1';
  } else if (kind < 28 && known > 0) {
    data_[between(0, known - 1)] ^= '\1';
  } else if (kind < 36) {
    data_.resize(between(known, data_.size()));
  } else if (kind < 44) {
    data_.resize(between(0, data_.size()));
  } else if (kind < 54) {
    data_ += sampleData(between(1, options_.blockSize * 3), random_());
  }
}

// Somebody cuts the file short between two lives of the job.
void Sequence::cutFile(std::size_t size) {
  if (disk_.empty()) return;
  auto& [name, file] = *disk_.begin();
  file.cut(std::min(size, file.size()));
  const HANDLE real = CreateFileA(around_.files.file(name).c_str(), GENERIC_WRITE, 0, nullptr,
                                  OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(real, INVALID_HANDLE_VALUE);
  SetFilePointer(real, static_cast<LONG>(file.size()), nullptr, FILE_BEGIN);
  SetEndOfFile(real);
  CloseHandle(real);
}

PipeScript Sequence::makeScript() {
  constexpr unsigned kEmptyPipe = 232;
  constexpr unsigned kListening = 536;
  constexpr unsigned kNotConnected = 233;
  constexpr unsigned kAborted = 995;
  PipeScript script;
  if (chance(30)) script.error(kListening);
  std::string_view rest = data_;
  while (!rest.empty()) {
    std::size_t piece = between(1, options_.blockSize * 2);
    if (!options_.fullBlocks && fullPieces_) piece = options_.blockSize * between(1, 3);
    script.data(std::string(rest.substr(0, piece)));
    rest.remove_prefix(std::min(piece, rest.size()));
    if (!options_.fullBlocks && chance(10)) script.error(kEmptyPipe);
    if (chance(emptyWrites_)) script.emptyWrite();
    if (chance(failedReads_)) script.error(chance(50) ? kAborted : kNotConnected);
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
  if (kind < 87) return kNoBlock;
  const std::uint64_t last = aftermath_ ? aftermath_->lastBlockNo() : model_->lastBlockNo();
  return between(0, static_cast<std::size_t>(last) + 2);
}

void Sequence::load() {
  if (!around_.module) around_.module.emplace();
  ASSERT_EQ(host().init(initString()).code, 0u);
  ASSERT_EQ(host().attribute("PRESERVE_RESTART_INFO", options_.preserve ? "YES" : "NO").code, 0u);
  logLinesBefore_ = readLog(around_.logs.path()).size();
  log().initialised(logLevel_);
}

void Sequence::open() {
  around_.module->script() = makeScript();
  around_.module->sent.clear();
  output_.startLife(options_.blockSize);
  const ScopedCurrentDirectory current(directory());
  model_.emplace(disk_, log(), options_, around_.module->script());
  const Answer answer = host().open(options_.pipeName);
  ASSERT_EQ(answer.code, 0u) << answer.text.value_or("");
  isOpen_ = true;
  compareFiles();
}

void Sequence::arm() {
  around_.module->take = {};
  struck_ = false;
  if (chance(failedCalls_)) {
    const int kind = below(3);
    if (kind != 0) plan_.streamCall = below(6) + 1;
    if (kind != 1) plan_.allocation = below(4) + 1;
  }
  if (plan_.streamCall == 0 && plan_.allocation == 0) return;
  if (!aftermath_) fileBefore_ = realFile(model_->fileName());
  around_.module->calls().arm(std::exchange(plan_, {}));
}

void Sequence::disarm() {
  struck_ = around_.module->calls().disarm();
  if (struck_ && !aftermath_) aftermath_.emplace(*model_, fileBefore_);
}

void Sequence::read() {
  arm();
  const ReadAnswer answer = host().read();
  disarm();
  if (aftermath_) {
    judge(answer, aftermath_->read(answer.code, answer.data, around_.module->take, struck_));
  } else {
    const JobModel::Answer expected = model_->read();
    compare(answer, expected);
    EXPECT_EQ(answer.data, expected.data);
  }
  if (answer.code != 0) return;
  output_.read(answer.data);
  EXPECT_TRUE(output_.holds(around_.module->sent)) << "a careful host holds wrong data";
}

void Sequence::getPos() {
  arm();
  const PositionAnswer answer = host().getPos();
  disarm();
  if (aftermath_) {
    judge(answer, aftermath_->getPos(answer.code, answer.position, struck_));
  } else {
    const JobModel::Answer expected = model_->getPos();
    compare(answer, expected);
    EXPECT_EQ(answer.position, expected.position);
  }
  if (answer.code != 0) return;
  positions_.push_back(answer.position);
  output_.getPos(answer.position);
}

void Sequence::setPos(std::uint64_t position) {
  const std::uint32_t length = chance(4) ? static_cast<std::uint32_t>(below(20)) : 8;
  SCOPED_TRACE("SetPos to " + std::to_string(position));
  arm();
  const Answer answer = host().setPos(position, length);
  disarm();
  if (aftermath_) {
    judge(answer, aftermath_->setPos(answer.code, position, around_.module->take, struck_));
  } else {
    compare(answer, model_->setPos(position, length));
  }
  if (answer.code == 0) output_.setPos(position, options_.signatureCheck == 2);
  if (aftermath_ && answer.code != 0) output_.doubt();
}

void Sequence::close(bool closeR) {
  arm();
  const Answer answer = closeR ? host().closeR() : host().close();
  disarm();
  isOpen_ = false;
  if (aftermath_) {
    judge(answer, aftermath_->close(answer.code, struck_));
  } else {
    compare(answer, model_->close(closeR));
    model_.reset();
  }
}

// The process ends, perhaps after a Close.
void Sequence::finish() {
  const ScopedCurrentDirectory current(directory());
  if (isOpen_ && chance(60)) close(chance(50));
  if (!aftermath_) compareLog();
  if (!model_) return;
  around_.module.reset();
  if (aftermath_) {
    // The file's content has been judged; the next job must find it.
    const std::string name = model_->fileName();
    if (const auto bytes = realFile(name)) {
      disk_.insert_or_assign(name, FileModel(*bytes));
    } else {
      disk_.erase(name);
    }
    aftermath_.reset();
  }
  model_.reset();
  isOpen_ = false;
  compareFiles();
}

void Sequence::restart() {
  finish();
  changeOptions();
  changeData();
  if (chance(6)) cutFile(between(0, kDataStart + options_.blockSize * 8));
  load();
  open();
  if (options_.noFallback || !chance(60)) return;
  const ScopedCurrentDirectory current(directory());
  setPos(choosePosition());
  if (model_->canRestart() && chance(60)) setPos(chance(60) ? 0 : choosePosition());
}

void Sequence::step() {
  const ScopedCurrentDirectory current(directory());
  const int kind = below(100);
  if (kind < 50) return read();
  if (kind < 66) return getPos();
  if (kind < 84) return setPos(choosePosition());
  if (kind < 90) {
    close(chance(50));
    if (!aftermath_ && chance(50)) return open();
    return restart();
  }
  if (kind < 97) return restart();
  for (int i = below(8); i > 0; --i) read();
}

// A job with checkpoints at 0 and after its first blocks dies. Its host goes back to the later
// checkpoint, where the length of a block cannot be looked up, and then to the earlier one.
void Sequence::refusedLookUp() {
  getPos();
  for (std::size_t i = between(1, 3); i > 0; --i) read();
  getPos();
  for (int i = 0; i < 2; ++i) read();
  const std::uint64_t position = positions_.back();
  finish();
  if (chance(50)) {
    cutFile(between(kDataStart, kDataStart + 4));
  } else {
    plan_.streamCall = static_cast<int>(between(1, 5));
  }
  load();
  open();
  setPos(position);
  setPos(0);
}

void Sequence::run() {
  chooseOptions();
  const bool isDirected = !options_.fullBlocks && !options_.noFallback && chance(8);
  ASSERT_NO_FATAL_FAILURE(load());
  ASSERT_NO_FATAL_FAILURE(open());
  if (isDirected) {
    refusedLookUp();
  } else if (chance(30)) {
    getPos();
  }
  for (int i = static_cast<int>(between(5, 35)); i > 0 && !testing::Test::HasFailure(); --i) {
    ASSERT_NO_FATAL_FAILURE(step());
  }
  finish();
}

void Sequence::compare(const Answer& real, const JobModel::Answer& expected) {
  EXPECT_EQ(real.code, expected.code) << real.text.value_or("");
  if (model_) {
    EXPECT_EQ(around_.module->script().reads(), model_->pipe().reads()) << "reads of the pipe";
  }
  compareFiles();
  if (testing::Test::HasFailure()) compareLog();
}

void Sequence::judge(const Answer& real, const std::string& problem) {
  EXPECT_EQ(problem, "") << real.text.value_or("");
  const std::string name = model_->fileName();
  if (name.empty()) return;
  EXPECT_EQ(aftermath_->file(realFile(name)), "") << name;
}

std::optional<std::string> Sequence::realFile(const std::string& name) const {
  if (name.empty() || !exists(around_.files.file(name))) return std::nullopt;
  return contentOf(around_.files.file(name));
}

void Sequence::compareFiles() {
  std::vector<std::string> names;
  for (const auto& [name, file] : disk_) names.push_back(name);
  if (options_.file && !disk_.contains(*options_.file)) names.push_back(*options_.file);
  for (const std::string& name : names) {
    const std::optional<std::string> real = realFile(name);
    const auto expected = disk_.find(name);
    ASSERT_EQ(real.has_value(), expected != disk_.end()) << name;
    if (!real) continue;
    EXPECT_EQ(expected->second.differenceTo(*real), "") << name;
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
