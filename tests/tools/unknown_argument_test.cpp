// What is said about an argument that a program does not know.
#include "common/unknown_argument.hpp"

#include <gtest/gtest.h>

namespace tallow::tools {
namespace {

const std::vector<std::string> kOptions = {"--pipe", "--to", "--table", "--header", "--help"};

TEST(UnknownArgument, IsNamedWithTheNearestOption) {
  EXPECT_EQ(unknownArgumentText({"--pip", "x"}, "--pip", kOptions),
            "there is no option --pip (did you mean --pipe?)");
  EXPECT_EQ(unknownArgumentText({"--Heder"}, "--Heder", kOptions),
            "there is no option --Heder (did you mean --header?)");
}

TEST(UnknownArgument, GetsNoSuggestionWhenNoneIsNear) {
  EXPECT_EQ(unknownArgumentText({"--speed"}, "--speed", kOptions), "there is no option --speed");
}

TEST(UnknownArgument, IsShownWithoutItsValue) {
  EXPECT_EQ(unknownArgumentText({"--too=Pwd=x"}, "--too=Pwd=x", kOptions),
            "there is no option --too (did you mean --to?)");
}

TEST(UnknownArgument, IsNotShownWhenItIsAPieceOfAValue) {
  EXPECT_EQ(
      unknownArgumentText({"--table", "t", "--to", "Driver=a", "b;Pwd=x"}, "b;Pwd=x", kOptions),
      "after --to stands a word that belongs to no option; put quotes around a value that "
      "holds blanks");
  EXPECT_EQ(unknownArgumentText({"secret", "--to", "x"}, "secret", kOptions),
            "the command line begins with a word that belongs to no option; put quotes around a "
            "value that holds blanks");
}

}  // namespace
}  // namespace tallow::tools
