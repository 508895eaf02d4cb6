// What it would cost to bring the fallback file to the disk at each checkpoint. Compares the
// module's own calls at a sync point (seek, write, flush) with the same calls and a commit.
#include <io.h>
#include <share.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <vector>

namespace {

constexpr std::size_t kBlock = std::size_t{1} << 20;
constexpr long kSyncArea = 298;
constexpr long kDataStart = 346;
constexpr int kCheckpoints = 60;

struct Cost {
  double median;  // milliseconds
  double ninetieth;
};

Cost checkpointCost(int blocks, bool commit) {
  const char* name = "commit_cost.tmp";
  std::FILE* file = _fsopen(name, "w+b", _SH_DENYWR);
  if (file == nullptr) return {};
  std::setvbuf(file, nullptr, _IONBF, 0);
  std::vector<char> block(kBlock, 'x');
  std::vector<double> costs;
  for (int i = 0; i < kCheckpoints; ++i) {
    std::fseek(file, kDataStart, SEEK_SET);
    for (int k = 0; k < blocks; ++k) {
      block[0] = static_cast<char>(i + k);
      std::fwrite(block.data(), 1, block.size(), file);
    }
    const auto start = std::chrono::steady_clock::now();
    std::fseek(file, kSyncArea, SEEK_SET);
    std::fwrite(block.data(), 1, kDataStart - kSyncArea, file);
    std::fflush(file);
    if (commit) _commit(_fileno(file));
    const std::chrono::duration<double, std::milli> taken =
        std::chrono::steady_clock::now() - start;
    costs.push_back(taken.count());
  }
  std::fclose(file);
  std::remove(name);
  std::sort(costs.begin(), costs.end());
  return {costs[costs.size() / 2], costs[costs.size() * 9 / 10]};
}

}  // namespace

int main() {
  std::puts(
      "MiB since the last checkpoint, milliseconds flushed, committed (and its 90th centile)");
  for (const int blocks : {0, 1, 16, 64, 256}) {
    const Cost flushed = checkpointCost(blocks, false);
    const Cost committed = checkpointCost(blocks, true);
    std::printf("%4d  %8.3f  %8.3f (%.3f)\n", blocks, flushed.median, committed.median,
                committed.ninetieth);
  }
}
