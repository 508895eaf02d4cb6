// The reference host is ended at a random moment and restarted, over and over, until its job is
// done. Sometimes the writer then sends other data after the host's position. A failure names the
// seed of its job. TALLOW_SEED runs that job again; TALLOW_JOBS sets how many there are.
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "support/fallback_layout.hpp"
#include "support/files.hpp"
#include "support/pipe_ends.hpp"
#include "support/surroundings.hpp"
#include "support/system_md5.hpp"
#include "system/feeding_pipe.hpp"

namespace tallow::test {
namespace {

constexpr std::uint64_t kQuickJobs = 50;
constexpr int kMostDeaths = 8;

struct Totals {
  int jobs = 0;
  int deaths = 0;
  int restarts = 0;
  int changes = 0;
  int filesChecked = 0;
  int signaturesChecked = 0;
};

class CrashingJob {
 public:
  CrashingJob(std::uint64_t seed, Totals& totals) : random_(seed), totals_(totals) {
    blockSize_ = between(200, 4096);
    data_ = sampleData(between(0, blockSize_ * 40), seed);
    checkpointEvery_ = between(1, 6);
    signatureCheck_ = between(0, 2);
  }

  void run() {
    for (int deaths = 0; !testing::Test::HasFailure(); ++deaths) {
      if (attempt(deaths < kMostDeaths && between(1, 100) <= 90)) break;
      checkFile();
      ++totals_.deaths;
      if (between(1, 4) == 1) changeData();
    }
    EXPECT_TRUE(contentOf(output()) == data_) << "the output differs";
    EXPECT_FALSE(exists(file())) << "the fallback file of a finished job";
    ++totals_.jobs;
  }

 private:
  std::size_t between(std::size_t low, std::size_t high) {
    return low + static_cast<std::size_t>(random_() % (high - low + 1));
  }
  std::string output() const { return folder_.file("out.bin"); }
  std::string state() const { return folder_.file("job.json"); }
  std::string file() const { return state() + ".fbf"; }

  std::vector<std::string> commandLine() {
    std::vector<std::string> words{programDirectory() + "\\tallow-host.exe", "--state", state()};
    if (exists(state())) {
      words.emplace_back("--restart");
      ++totals_.restarts;
    } else {
      words.insert(words.end(), {"--pipe", pipeName_, "--out", output(), "--checkpoint-every",
                                 std::to_string(checkpointEvery_), "--init",
                                 "Block_size=" + std::to_string(blockSize_) +
                                     " Signature_check=" + std::to_string(signatureCheck_)});
    }
    if (between(1, 3) == 1) words.insert(words.end(), {"--rewind", "2"});
    return words;
  }

  // True if the job was done, false if the host was ended.
  bool attempt(bool kill) {
    FeedingPipe pipe(pipeName_, static_cast<std::uint32_t>(blockSize_));
    const std::string said = folder_.file(uniqueName("said"));
    const std::vector<std::string> words = commandLine();
    std::string line;
    for (const std::string& word : words) line += word + ' ';
    SCOPED_TRACE(line + "for " + std::to_string(data_.size()) + " bytes");
    Process host(words, said);
    const std::size_t at = between(0, data_.size() + data_.size() / 5);
    const bool onTheWay = kill && at <= data_.size();
    const auto pause = static_cast<DWORD>(between(0, 3));
    pipe.feed(data_, between(1, blockSize_ * 3), onTheWay ? std::optional(at) : std::nullopt,
              [&host, pause] {
                if (pause != 0) Sleep(pause);
                host.end();
              });
    if (kill && !onTheWay) {
      pipe.waitUntilGivenTo(host);
      if (!host.waitFor(static_cast<DWORD>(between(0, 15)))) host.end();
    }
    const unsigned code = host.exitCode();
    pipe.join();  // its thread may not yet have noted that it ended the host
    EXPECT_TRUE(code == 0 || host.wasEnded()) << code << ": " << contentOf(said);
    return code == 0;
  }

  // From now on the writer sends other data after the position that the host has noted.
  void changeData() {
    const std::string state = contentOf(this->state());
    constexpr std::string_view kKey = "\"position\":";
    const std::size_t key = state.find(kKey);
    if (key == std::string::npos) return;
    const std::size_t kept = std::stoull(state.substr(key + kKey.size())) * blockSize_;
    if (kept >= data_.size()) return;
    sentBefore_.push_back(data_);
    data_[between(kept, data_.size() - 1)] ^= '\1';
    ++totals_.changes;
  }

  // Every signature in the file must be that of the data up to its block, as it was sent in this
  // life or an earlier one.
  void checkFile() {
    const std::string bytes = contentOf(file());
    if (bytes.size() < kDataStart) return;
    ++totals_.filesChecked;
    const bool hasSignatures = bytes[kSignatureFlagOffset] != '\0';
    EXPECT_EQ(hasSignatures, signatureCheck_ != 0);
    for (const std::size_t at : {kOlderSyncPoint, kNewerSyncPoint}) {
      const auto [block, signature] = syncPointAt(bytes, at);
      if (!hasSignatures || block == kNoBlock) {
        EXPECT_EQ(signature, SyncPoint().signature) << "sync point of block " << block;
        continue;
      }
      const bool isRight =
          signature == systemMd5(hashedUpTo(data_, block)) ||
          std::any_of(sentBefore_.begin(), sentBefore_.end(), [&](const std::string& data) {
            return signature == systemMd5(hashedUpTo(data, block));
          });
      EXPECT_TRUE(isRight) << "sync point of block " << block;
      ++totals_.signaturesChecked;
    }
  }
  // If the end of the pipe cuts the last block short, it is not hashed.
  std::string_view hashedUpTo(std::string_view data, std::uint64_t block) const {
    const std::size_t end = static_cast<std::size_t>(block) * blockSize_;
    const std::size_t whole = data.size() / blockSize_ * blockSize_;
    return data.substr(0, std::min(end, whole));
  }

  std::mt19937_64 random_;
  Totals& totals_;
  ScratchDirectory folder_;
  std::string pipeName_ = uniquePipeName();
  std::size_t blockSize_;
  std::size_t checkpointEvery_;
  std::size_t signatureCheck_;
  std::string data_;
  std::vector<std::string> sentBefore_;
};

TEST(CrashingHost, EndsWithEveryByteInItsPlace) {
  const auto given = numberFromEnvironment("TALLOW_SEED");
  const std::uint64_t first = given ? *given : std::random_device()() * std::uint64_t{1000000};
  const std::uint64_t count = numberFromEnvironment("TALLOW_JOBS").value_or(given ? 1 : kQuickJobs);
  std::cout << count << " jobs from TALLOW_SEED=" << first << '\n';
  Totals totals;
  for (std::uint64_t seed = first; seed < first + count && !HasFailure(); ++seed) {
    SCOPED_TRACE("TALLOW_SEED=" + std::to_string(seed));
    CrashingJob(seed, totals).run();
  }
  std::cout << totals.jobs << " jobs, " << totals.deaths << " deaths, " << totals.restarts
            << " restarts, " << totals.changes << " with other data; " << totals.signaturesChecked
            << " signatures right in " << totals.filesChecked << " files that were left\n";
}

}  // namespace
}  // namespace tallow::test
