// Which part of a command line names the program.
#include "diag/command_line.hpp"

#include <gtest/gtest.h>

#include <ostream>

namespace tallow::diag {
namespace {

struct Case {
  const char* commandLine;
  const char* word;
};
void PrintTo(const Case& value, std::ostream* out) {
  *out << '<' << value.commandLine << '>';
}

class FirstWord : public testing::TestWithParam<Case> {};

TEST_P(FirstWord, IsTheProgram) {
  EXPECT_EQ(firstWord(GetParam().commandLine), GetParam().word);
}

INSTANTIATE_TEST_SUITE_P(
    CommandLine, FirstWord,
    testing::Values(Case{"", ""}, Case{"   ", ""}, Case{"prog", "prog"}, Case{"prog a b", "prog"},
                    Case{" \t\n\r prog a", "prog"}, Case{"prog,a", "prog"}, Case{"prog\ta", "prog"},
                    Case{"prog\na", "prog"}, Case{"prog\ra", "prog\ra"}, Case{",prog", ""},
                    Case{"\"c:\\a b\\prog.exe\" x", "c:\\a b\\prog.exe"}, Case{"\"prog", "prog"},
                    Case{"\"\"\"prog\" x", "prog"}, Case{"\"\"", ""}, Case{"\"", ""},
                    Case{"  \"a,b\tc\" d", "a,b\tc"}, Case{"pr\"og x\"", "pr\"og"},
                    Case{"\"  prog\"", "  prog"}, Case{"c:\\a b", "c:\\a"}));

}  // namespace
}  // namespace tallow::diag
