#include "support/module_test.hpp"

namespace tallow::test {

void ModuleTest::reload() {
  loaded.reset();
  loaded = std::make_unique<Module>();
  host = Host(*loaded);
}

void JobTest::initialiseWith(std::string_view options) {
  const Answer answer = host.init(logOptions() + std::string(options));
  ASSERT_EQ(answer.code, pmrcSuccess) << answer.text.value_or("");
  log.newLines();
}

void JobTest::initialise(std::string_view options) {
  initialiseWith("No_FallBack='' " + std::string(options));
}

void JobTest::openJob(std::string_view options) {
  ASSERT_NO_FATAL_FAILURE(initialise(options));
  const Answer answer = host.open(pipeName);
  ASSERT_EQ(answer.code, pmrcSuccess) << answer.text.value_or("");
  log.newLines();
}

}  // namespace tallow::test
