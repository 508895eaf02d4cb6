// The fixture of jobs with a fallback file, which a test can load as often as it likes.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "support/fallback_layout.hpp"
#include "support/files.hpp"
#include "support/module_test.hpp"
#include "support/stream_faults.hpp"
#include "support/system_md5.hpp"

namespace tallow::test {

// A test says what the pipe brings (`data`, or a script of its own), sends the requests as the
// steps below, and then looks at what was delivered, at the file and at the log.
//
// In addition to JobTest it owns the folder of the fallback files, and the script in place of the
// module's pipe as long as the module is loaded. Script, module, folder: in this order they go.
class FallbackTest : public JobTest {
 protected:
  // Unloads the module before the folder of its files is deleted.
  ~FallbackTest() override;

  static constexpr std::size_t kBlockSize = 16;

  ScratchDirectory files;
  std::string data = sampleData(kBlockSize * 20);  // what the writer sends
  std::unique_ptr<ScriptedPipe> pipe = std::make_unique<ScriptedPipe>(module());

  PipeScript& script() { return pipe->script; }

  // The writer sends this, and then closes.
  void send(std::string_view bytes);

  // Only Init: blocks of kBlockSize, files in `files`, then `options`. The file has a fixed name
  // unless `name` is empty.
  void initialise(std::string_view options = {}, const std::string& name = "job.fbf");

  // Init and Open; the writer sends all of `data`.
  void openJob(std::string_view options = {}, const std::string& name = "job.fbf");

  // The process dies and another one continues. The writer has sent nothing to it yet.
  void reload();

  // A job that took a checkpoint at block `n` and died after another `more` blocks.
  void leaveFile(std::uint64_t n, std::uint64_t more = 1, std::string_view options = {});

  // Reads `count` blocks, which must be the next ones of `data`.
  void deliver(std::uint64_t count = 1);
  void expectEnd();
  void deliverRest();
  // The position that GetPos answers.
  std::uint64_t checkpoint();
  // A SetPos that must succeed.
  void goTo(std::uint64_t position);

  // What `data` consists of.
  std::uint64_t blocks() const { return (data.size() + kBlockSize - 1) / kBlockSize; }
  std::string block(std::uint64_t number) const {
    return data.substr((number - 1) * kBlockSize, kBlockSize);
  }
  // The signature of all data up to a block.
  std::string signature(std::uint64_t number) const {
    return systemMd5(std::string_view(data).substr(0, number * kBlockSize));
  }

  // The fallback file with the fixed name.
  std::string path() const { return files.file("job.fbf"); }
  std::string file() const { return contentOf(path()); }
  SyncPoint older() const { return syncPointAt(file(), kOlderSyncPoint); }
  SyncPoint newer() const { return syncPointAt(file(), kNewerSyncPoint); }

  // The header block that a job writes for this pipe.
  std::string header(bool signatures = true, std::uint32_t blockSize = kBlockSize) const;
  // A sync point as it is in a file; without a signature it has zeros.
  static std::string syncPoint(std::uint64_t block, std::string signature = {});

  // How often a message is in the log.
  static int count(const std::vector<LogEntry>& entries, const LogEntry& wanted);

 private:
  std::uint64_t position_ = 0;  // the block that was delivered last
};

}  // namespace tallow::test
