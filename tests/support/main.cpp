// The entry of the test programs that have none of their own.
#include "support/child_process.hpp"

int main(int argc, char** argv) {
  return tallow::test::runTests(argc, argv);
}
