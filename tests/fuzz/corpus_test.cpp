// Replays the saved inputs of every fuzz target. A finding ends the program.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "fuzz_target.hpp"

namespace tallow::fuzz {
namespace {

std::map<std::string, Target>& targets() {
  static std::map<std::string, Target> all;
  return all;
}

class Replay : public testing::Test {
 public:
  explicit Replay(std::string name) : name_(std::move(name)) {}

  void TestBody() override {
    const Target target = targets().at(name_);
    EXPECT_EQ(target(nullptr, 0), 0);
    int inputs = 0;
    for (const auto& entry :
         std::filesystem::directory_iterator(std::string(TALLOW_FUZZ_CORPUS) + '/' + name_)) {
      std::ifstream file(entry.path(), std::ios::binary);
      const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
      // A copy of exactly its size, so that a read past its end is noticed.
      const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
      EXPECT_EQ(target(input.data(), input.size()), 0) << entry.path();
      ++inputs;
    }
    EXPECT_GT(inputs, 0) << "no kept inputs";
  }

 private:
  std::string name_;
};

}  // namespace

Registration::Registration(const char* name, Target target) {
  targets().emplace(name, target);
}

}  // namespace tallow::fuzz

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  for (const auto& [name, target] : tallow::fuzz::targets()) {
    testing::RegisterTest("Corpus", name.c_str(), nullptr, nullptr, __FILE__, __LINE__,
                          [name = name] { return new tallow::fuzz::Replay(name); });
  }
  return RUN_ALL_TESTS();
}
