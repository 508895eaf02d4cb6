// A host that does all it should: it keeps what it is given, cuts that back when it goes back, and
// goes back to no position but one that it has noted since. What it holds must then be, to the
// byte, what the writer has sent in this life of the job, whatever the lives before were sent. The
// exception: where an empty write has ended a block early, the data of a later life is cut into
// other blocks, and if its end is an empty write too, no signature shows it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace tallow::test {

class CarefulHost {
 public:
  // A new process, or another job in the same.
  void startLife(std::size_t blockSize) {
    blockSize_ = blockSize;
    hasBegun_ = false;
  }

  // Requests that went well. `checked`: data that differs is refused.
  void read(const std::string& block);
  void getPos(std::uint64_t position);
  void setPos(std::uint64_t position, bool checked);
  // A request that failed where a careful host would stop.
  void doubt() { isSure_ = false; }

  // Whether it holds what `sent` begins with. A host that has not been careful may hold anything.
  bool holds(const std::string& sent) const;

 private:
  void startOver();
  bool hasShortBlocks() const;

  std::size_t blockSize_ = 0;
  std::vector<std::string> blocks_;
  std::set<std::uint64_t> noted_;
  bool hasBegun_ = false;  // a request of this life has said whether the job starts over
  bool isSure_ = true;
};

}  // namespace tallow::test
