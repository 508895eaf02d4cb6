// A host's note of its checkpoint.
#include <gtest/gtest.h>

#include <tallow/note.hpp>

#include <string>

namespace tallow::test {
namespace {

TEST(Note, ComesBackAsItWasWritten) {
  constexpr std::uint64_t kLargest = 9'999'999'999'999'999'999U;
  for (const Note& note : {Note{}, Note{64, 12345, false}, Note{kLargest, kLargest, true}}) {
    ASSERT_TRUE(readNote(noteText(note)));
    const Note again = readNote(noteText(note)).value_or(Note{});
    EXPECT_EQ(again.position, note.position);
    EXPECT_EQ(again.progress, note.progress);
    EXPECT_EQ(again.done, note.done);
  }
}

TEST(Note, IsNotReadFromAnythingElse) {
  const std::string whole = noteText({64, 12345, true});
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_FALSE(readNote(whole.substr(0, length))) << length;
  }
  for (const char* text : {"tallow note 2\nposition 1\nprogress 1\ndone 0\n",
                           "tallow note 1\nposition -1\nprogress 1\ndone 0\n",
                           "tallow note 1\nposition 1\nprogress \ndone 0\n",
                           "tallow note 1\nposition 10000000000000000000\nprogress 1\ndone 0\n",
                           "tallow note 1\nposition 1\nprogress 1\ndone 2\n",
                           "tallow note 1\nposition 1\nprogress 1\ndone 0\nmore\n"}) {
    EXPECT_FALSE(readNote(text)) << text;
  }
}

}  // namespace
}  // namespace tallow::test
