// A host and a writer that run a scripted job with the module while one of its imported functions
// fails, and judge what the module does.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "faults.hpp"
#include "non_blocking_writer.hpp"
#include "support/host.hpp"
#include "support/surroundings.hpp"

namespace tallow::test {

class JobRun;

enum class PipeRole { kServer, kClient };  // the module's

struct JobPlan {
  std::string name;
  PipeRole role = PipeRole::kServer;
  std::string options = {};        // in addition to the block size; {dir} is the run's folder
  std::string charset = {};        // CHARSET_NAME unless empty
  std::wstring pipeStem = L"job";  // of the pipe's name
  std::size_t chunk = 0;           // bytes that the writer gives at a time; 0: everything at once
  std::size_t size = 480;          // bytes of the job's data
  void (*script)(JobRun&) = nullptr;
  // How the job ends if nothing fails.
  enum class Outcome { kAllData, kPartOfTheData, kRefusal } outcome = Outcome::kAllData;
};

constexpr std::size_t kJobBlock = 64;  // Block_size of all jobs

class JobRun {
 public:
  // The jobs of a run share a folder, which must be the current directory.
  JobRun(const JobPlan& plan, const Fault* fault, std::string folder);
  ~JobRun();
  JobRun(const JobRun&) = delete;
  JobRun& operator=(const JobRun&) = delete;

  // The steps of a script. A step does nothing if the module refused a step that it needs.
  void load();
  void unload();
  void init();
  void id();
  void attribute(std::string_view name, std::string_view value);
  void open();
  void read(int blocks = 1);
  void readToEnd();
  void getPos();
  void setPos(std::uint64_t position);
  void close(std::uint32_t request = pmiPIDMOptClose);
  // Begins a new process of the same job, whose writer sends the data again.
  void startAgain();
  void changeResentData() { data_[0] = static_cast<char>(data_[0] ^ 1); }

  // Runs the job again when nothing fails any more, from the noted checkpoint or, if that is
  // refused, from the start. It must reach its end.
  void finishInPeace();

  // What broke the rules, one line for each problem.
  const std::vector<std::string>& problems() const { return problems_; }
  // True if the job went as planned, as it must if nothing fails.
  bool wentAsPlanned() const;

 private:
  void judge(const char* request, std::uint32_t code, std::initializer_list<std::uint32_t> allowed);
  void problem(const std::string& text);
  void readOne();
  bool fallbackFileExists() const;
  void connectWriter();

  const JobPlan& plan_;
  const Fault* fault_;
  std::string folder_;
  std::wstring pipeName_;
  std::string pipeNameUtf8_;
  std::string data_;

  std::optional<Module> module_;
  std::optional<Host> host_;
  NonBlockingWriter writer_;
  bool initialised_ = false;
  bool open_ = false;
  bool askedToGoBack_ = false;  // a SetPos was sent to this instance
  bool inStep_ = true;          // it is known which data comes next
  bool hasLostBytes_ = false;   // a Read was refused after a part of its block was read
  bool sawEnd_ = false;
  bool wentWell_ = true;
  int refusedReads_ = 0;
  std::size_t position_ = 0;                     // in data_, of the next block
  std::uint64_t blockNo_ = 0;                    // of the block delivered last
  std::uint64_t streamAt_ = 0;                   // the position that GetPos must return
  std::map<std::uint64_t, std::size_t> starts_;  // of the blocks delivered
  std::optional<std::uint64_t> noted_;           // the host's own record of its checkpoint
  std::map<std::uint64_t, std::size_t> notedStarts_;
  std::vector<std::string> problems_;
};

}  // namespace tallow::test
