// The process dies in each call, in turn, that changes the fallback file: before it, after it and,
// if bytes are written, after half of them. The restart must then either continue correctly or be
// refused, even if the writer sends other data.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "support/child_process.hpp"
#include "support/fallback_layout.hpp"
#include "support/files.hpp"
#include "support/host.hpp"
#include "support/pipe_ends.hpp"
#include "support/scripted_pipe.hpp"
#include "support/stream_faults.hpp"
#include "support/surroundings.hpp"

namespace tallow::test {
namespace {

constexpr unsigned kDied = 0x51;
constexpr int kRefused = 20;
constexpr int kFailed = 21;
constexpr std::size_t kBlockSize = 64;

// What the writer sends. If `changedAt` is given, everything from that byte on is different.
std::string jobData(std::size_t changedAt = std::string::npos) {
  std::string data = sampleData(kBlockSize * 10 + 11);
  for (std::size_t at = changedAt; at < data.size(); ++at) data[at] ^= '\1';
  return data;
}

enum class Moment { kBefore, kHalf, kAfter };

// Ends the process in the N-th call that changes one of the module's files.
class Death {
 public:
  Death(HMODULE module, int call, Moment moment)
      : left_(call),
        moment_(moment),
        calls_(module, [this](StreamCall kind) { return isCutInHalf(kind); }) {
    calls_.onDone = [this] {
      if (isLast_) die();
    };
  }

 private:
  static bool changesAFile(StreamCall call) {
    return call != StreamCall::kRead && call != StreamCall::kSeek && call != StreamCall::kTell;
  }
  bool isCutInHalf(StreamCall call) {
    if (!changesAFile(call)) return false;
    isLast_ = left_ > 0 && --left_ == 0;
    if (isLast_ && moment_ == Moment::kBefore) die();
    return isLast_ && moment_ == Moment::kHalf && call == StreamCall::kWrite;
  }
  [[noreturn]] static void die() {
    TerminateProcess(GetCurrentProcess(), kDied);
    std::abort();
  }

  int left_;
  Moment moment_;
  bool isLast_ = false;
  StreamFaults calls_;
};

void replaceContent(const std::string& name, const std::string& content) {
  putFile(name + ".new", content);
  MoveFileExA((name + ".new").c_str(), name.c_str(), MOVEFILE_REPLACE_EXISTING);
}

// A host that keeps its position and the length of its output in a file, as a host should.
class SmallHost {
 public:
  explicit SmallHost(const std::vector<std::string>& arguments)
      : folder_(arguments[0]),
        options_(arguments[1]),
        death_(module_.handle(), std::stoi(arguments[2]),
               static_cast<Moment>(std::stoi(arguments[3]))),
        data_(jobData(std::stoull(arguments[4]))),
        diesAfter_(std::stoi(arguments[5])) {}

  int run() {
    pipe_.script.data(data_);
    if (host_
            .init("Block_size=64 Fallback_Directory='" + folder_ + "' Fallback_file=job.fbf " +
                  options_)
            .code != 0) {
      return kFailed;
    }
    if (host_.open(R"(\\.\pipe\)" + folder_.substr(folder_.rfind('\\') + 1)).code != 0)
      return kFailed;
    const std::string state = contentOf(folder_ + "\\state");
    if (!state.empty()) {
      const std::size_t blank = state.find(' ');
      saved_ = std::stoull(state);
      savedLength_ = std::stoull(state.substr(blank));
      if (host_.setPos(saved_).code != 0) return kRefused;
      cutBack();
      isRepeat_ = saved_ != 0;
    }
    return deliver();
  }

 private:
  int deliver() {
    for (;;) {
      const ReadAnswer answer = host_.read();
      if (answer.code == pmrcEOF) break;
      if (answer.code != 0) return kFailed;
      output_ += answer.data;
      replaceContent(folder_ + "\\out", output_);
      if (isRepeat_) {
        isRepeat_ = false;
        if (diesAfter_ == 0) host_.getPos();
      } else if (++blocks_ % 3 == 0) {
        checkpoint(answer.data.size());
      } else if (blocks_ == 8) {
        if (host_.setPos(saved_).code != 0) return kFailed;
        cutBack();
      }
      if (diesAfter_ > 0 && blocks_ == diesAfter_) TerminateProcess(GetCurrentProcess(), kDied);
    }
    DeleteFileA((folder_ + "\\state").c_str());
    return host_.close().code == 0 ? 0 : kFailed;
  }
  void checkpoint(std::size_t blockLength) {
    saved_ = host_.getPos().position;
    savedLength_ = output_.size() - blockLength;
    replaceContent(folder_ + "\\state",
                   std::to_string(saved_) + ' ' + std::to_string(savedLength_));
  }
  void cutBack() { output_ = contentOf(folder_ + "\\out").substr(0, savedLength_); }

  std::string folder_;
  std::string options_;
  Module module_;
  Host host_{module_};
  ScriptedPipe pipe_{module_.handle()};
  Death death_;
  std::string data_;
  int diesAfter_;  // after this many new blocks of this life; 0: at the end of the job
  std::string output_;
  std::uint64_t saved_ = 0;
  std::size_t savedLength_ = 0;
  bool isRepeat_ = false;  // the block of the position comes again
  int blocks_ = 0;
};

const ChildWork kSmallHost("small host", [](const std::vector<std::string>& arguments) {
  return SmallHost(arguments).run();
});

class TornCall : public testing::TestWithParam<const char*> {
 protected:
  unsigned runHost(const ScratchDirectory& folder, int call, Moment moment,
                   std::size_t changedAt = std::string::npos, int diesAfter = 0) {
    return runChild("small host", {folder.path(), GetParam(), std::to_string(call),
                                   std::to_string(static_cast<int>(moment)),
                                   std::to_string(changedAt), std::to_string(diesAfter)});
  }

  // A restart or, if that is refused, a new start, which must reach the end.
  void finish(const ScratchDirectory& folder, std::size_t changedAt = std::string::npos) {
    unsigned code = runHost(folder, 0, Moment::kBefore, changedAt);
    if (code == kRefused) {
      ++refused_;
      DeleteFileA(folder.file("state").c_str());
      code = runHost(folder, 0, Moment::kBefore, changedAt);
    }
    ASSERT_EQ(code, 0u);
    ASSERT_TRUE(contentOf(folder.file("out")) == jobData(changedAt)) << "the output differs";
    EXPECT_FALSE(exists(folder.file("job.fbf")));
  }

  // The block of the newer sync point in the file that a host has left.
  static std::uint64_t newestBlock(const ScratchDirectory& folder) {
    const std::string bytes = contentOf(folder.file("job.fbf"));
    return bytes.size() < kDataStart ? 0 : syncPointAt(bytes, kNewerSyncPoint).block;
  }

  int refused_ = 0;
};

TEST_P(TornCall, NeverBringsWrongData) {
  int deaths = 0;
  for (const Moment moment : {Moment::kBefore, Moment::kHalf, Moment::kAfter}) {
    for (int call = 1;; ++call) {
      SCOPED_TRACE("death in call " + std::to_string(call) + ", moment " +
                   std::to_string(static_cast<int>(moment)));
      const ScratchDirectory folder;
      const unsigned code = runHost(folder, call, moment);
      if (code == 0) break;  // the job has fewer calls
      ASSERT_EQ(code, kDied);
      ++deaths;
      ASSERT_NO_FATAL_FAILURE(finish(folder));
    }
  }
  std::cout << deaths << " deaths, " << refused_ << " restarts refused\n";
  EXPECT_GT(deaths, 30);
  // Full blocks can be counted again, so a job with them need not start over.
  if (std::string_view(GetParam()).find("Need_Full_Block=no") == std::string_view::npos) {
    EXPECT_EQ(refused_, 0);
  }
}

// In the second life the writer sends data that differs after the restart position. This life dies
// after a checkpoint at a block where the first life may have had one too; its host does not send
// GetPos again for the restart position. The third life is sent the same data as the second.
TEST_P(TornCall, NeverMixesTheDataOfTwoLives) {
  constexpr int kDiesAfter = 4;  // by then the second life has reached its own checkpoint
  int restarts = 0;
  for (int call = 1;; ++call) {
    SCOPED_TRACE("death after call " + std::to_string(call));
    const ScratchDirectory folder;
    if (runHost(folder, call, Moment::kAfter) == 0) break;
    const std::string state = contentOf(folder.file("state"));
    // Otherwise the file has no checkpoint that the second life could also reach.
    if (state.empty() || newestBlock(folder) == std::stoull(state)) continue;
    const std::size_t changedAt = std::stoull(state) * kBlockSize;
    const unsigned code = runHost(folder, 0, Moment::kBefore, changedAt, kDiesAfter);
    if (code == kRefused) {
      ++refused_;
      continue;
    }
    ASSERT_TRUE(code == kDied || code == 0) << code;
    if (code == 0) continue;  // the data ended first
    ++restarts;
    ASSERT_NO_FATAL_FAILURE(finish(folder, changedAt));
  }
  std::cout << restarts << " restarts with other data, " << refused_ << " restarts refused\n";
  if (std::string_view(GetParam()).find("Need_Full_Block=no") == std::string_view::npos) {
    EXPECT_GT(restarts, 2);
    EXPECT_EQ(refused_, 0);
  }
}

INSTANTIATE_TEST_SUITE_P(All, TornCall,
                         testing::Values("", "Signature_check=0",
                                         "Need_Full_Block=no Signature_check=2"));

}  // namespace
}  // namespace tallow::test
