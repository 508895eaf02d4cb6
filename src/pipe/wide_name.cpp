#include "pipe/wide_name.hpp"

#include <unicode/uclean.h>
#include <unicode/ucnv.h>

#include <cstring>

#include "pipe/pipe_name.hpp"

namespace tallow::pipe {
namespace {

constexpr std::size_t kLongestConverted = 65534;  // bytes

}  // namespace

std::optional<std::u16string> widenName(const std::string& name) {
  std::string converted(kLongestConverted, '\0');
  UErrorCode status = U_ZERO_ERROR;
  const std::int32_t length = ucnv_convert("UTF-16LE", "UTF-8", converted.data(),
                                           static_cast<std::int32_t>(converted.size()), name.data(),
                                           static_cast<std::int32_t>(name.size()), &status);
  if (status != U_ZERO_ERROR) return std::nullopt;
  converted.resize(static_cast<std::size_t>(length));
  if (isAsciiUtf16(converted, name.size())) return std::u16string();
  std::u16string wide(converted.size() / sizeof(char16_t), u'\0');
  std::memcpy(wide.data(), converted.data(), wide.size() * sizeof(char16_t));
  return wide;
}

void releaseConverter() noexcept {
  u_cleanup();
}

}  // namespace tallow::pipe
