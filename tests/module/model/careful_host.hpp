// A host that does all it should: it keeps what it gets, cuts that back when it goes back, and goes
// back only to a position that it has noted since. What it holds must then be exactly what the
// writer has sent in this life of the job, whatever was sent in the lives before. There is one
// exception: if an empty write has ended a block early, the data of a later life is cut into other
// blocks, and if that data too ends with an empty write, no signature shows the difference.
#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace tallow::test {

class CarefulHost {
 public:
  // A new process, or another job in the same process.
  void startLife(std::size_t blockSize) {
    blockSize_ = blockSize;
    hasBegun_ = false;
  }

  // Requests that succeeded. `checked`: data that differs is refused.
  void read(const std::string& block);
  void getPos(std::uint64_t position);
  void setPos(std::uint64_t position, bool checked);
  // A request failed and a careful host would stop.
  void doubt() { isSure_ = false; }

  // True if what it holds is the beginning of `sent`. A host that has not been careful may hold
  // anything.
  bool holds(const std::string& sent) const;

 private:
  void startOver();
  bool hasShortBlocks() const;

  std::size_t blockSize_ = 0;
  std::vector<std::string> blocks_;
  std::set<std::uint64_t> noted_;
  bool hasBegun_ = false;  // a request of this life has decided whether the job starts over
  bool isSure_ = true;
};

}  // namespace tallow::test
