// What the module writes into the request block when a request fails.
#include "diag/failure_report.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace tallow::diag {
namespace {

struct Record {
  MessageArea area;
  char behind[16];
};

class Report : public testing::Test {
 protected:
  Report() {
    std::memset(&record, '#', sizeof record);
    std::memset(&request, '#', sizeof request);
  }

  void expectText(const std::string& kept, std::size_t length) {
    EXPECT_EQ(std::string(record.area), kept);
    EXPECT_TRUE(std::all_of(record.area + kept.size(), record.area + sizeof record.area,
                            [](char c) { return c == '\0'; }));
    EXPECT_EQ(std::string(record.behind, sizeof record.behind), std::string(16, '#'));
    EXPECT_EQ(request.messageLength + 0, length);
    EXPECT_EQ(request.messageText + 0, record.area);
  }

  Record record;
  TallowRequestBlock request;
};

TEST_F(Report, SetsTheReturnCodeAndTheTwoMessageFieldsAlone) {
  TallowRequestBlock before = request;
  reportFailure(request, &record.area, "text");
  EXPECT_EQ(request.returnCode + 0u, static_cast<unsigned>(pmrcFailed));
  before.returnCode = request.returnCode + 0;
  before.messageLength = request.messageLength + 0;
  before.messageText = request.messageText;
  EXPECT_EQ(std::memcmp(&before, &request, sizeof request), 0);
}

TEST_F(Report, FillsTheAreaBehindTheTextWithZeros) {
  reportFailure(request, &record.area, "text");
  expectText("text", 4);
}

TEST_F(Report, TakesAnEmptyText) {
  reportFailure(request, &record.area, "");
  expectText("", 0);
}

TEST_F(Report, CutsTheTextAndTellsItsWholeLength) {
  for (const std::size_t length : {510u, 511u, 512u, 513u, 5000u}) {
    const std::string text(length, 'x');
    reportFailure(request, &record.area, text);
    expectText(text.substr(0, 511), length);
  }
}

TEST_F(Report, UsesTheModulesOwnAreaWithoutARecord) {
  reportFailure(request, nullptr, "text");
  EXPECT_EQ(request.messageText + 0, moduleMessageArea());
  EXPECT_STREQ(moduleMessageArea(), "text");
  EXPECT_EQ(record.area[0], '#');
}

TEST_F(Report, LeavesNothingOfALongerTextBefore) {
  reportFailure(request, &record.area, std::string(600, 'x'));
  reportFailure(request, &record.area, "short");
  expectText("short", 5);
}

}  // namespace
}  // namespace tallow::diag
