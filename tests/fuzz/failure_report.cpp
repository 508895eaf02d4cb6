// The failure report writes its two fields, the return code and 512 bytes, whatever the text.
#include <cstring>
#include <memory>
#include <string>

#include "diag/failure_report.hpp"
#include "fuzz_target.hpp"

TALLOW_FUZZ_TARGET(failure_report) {
  using namespace tallow;
  using fuzz::require;
  fuzz::Input input(data, size);
  const std::size_t repeat = 1 + input.byte() % 8;
  std::string text;
  const std::string_view rest = input.rest();
  for (std::size_t i = 0; i < repeat; ++i) text += rest;

  // On the heap, in its exact size, so that a byte too many is noticed.
  const auto area = std::make_unique<char[]>(sizeof(diag::MessageArea));
  std::memset(area.get(), '#', sizeof(diag::MessageArea));
  TallowRequestBlock request;
  std::memset(&request, '#', sizeof request);
  TallowRequestBlock expected = request;
  diag::reportFailure(request, reinterpret_cast<diag::MessageArea*>(area.get()), text);

  expected.returnCode = pmrcFailed;
  expected.messageLength = static_cast<std::uint32_t>(text.size());
  expected.messageText = area.get();
  require(std::memcmp(&request, &expected, sizeof request) == 0, "no other field is touched");
  std::string kept = text.substr(0, sizeof(diag::MessageArea) - 1);
  kept.resize(sizeof(diag::MessageArea), '\0');
  require(std::memcmp(area.get(), kept.data(), kept.size()) == 0, "the area holds text and zeros");
  return 0;
}
