#include "feed/pipe_rights.hpp"

#include <sddl.h>

#include <array>
#include <cstddef>

#include "common/text.hpp"
#include "common/tool_error.hpp"
#include "common/unique_handle.hpp"

namespace tallow::feed {
namespace {

using tools::systemErrorText;
using tools::ToolError;

[[noreturn]] void failToLimitRights() {
  throw ToolError("cannot limit who may open the pipe: " + systemErrorText(GetLastError()));
}

// The identifier of an account or a group as the system writes it: "S-1-5-18".
std::wstring textOf(PSID sid) {
  wchar_t* text = nullptr;
  if (!ConvertSidToStringSidW(sid, &text)) failToLimitRights();
  std::wstring copy = text;
  LocalFree(text);
  return copy;
}

std::wstring ownAccount() {
  HANDLE opened = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened)) failToLimitRights();
  const tools::UniqueHandle token(opened);
  alignas(TOKEN_USER) std::array<std::byte, sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE> user{};
  DWORD length = 0;
  if (!GetTokenInformation(token.get(), TokenUser, user.data(), static_cast<DWORD>(user.size()),
                           &length)) {
    failToLimitRights();
  }
  return textOf(reinterpret_cast<const TOKEN_USER*>(user.data())->User.Sid);
}

std::wstring accountNamed(const std::string& name) {
  std::array<std::byte, SECURITY_MAX_SID_SIZE> sid{};
  std::array<wchar_t, 512> domain{};
  auto sidLength = static_cast<DWORD>(sid.size());
  auto domainLength = static_cast<DWORD>(domain.size());
  SID_NAME_USE use{};
  if (!LookupAccountNameW(nullptr, tools::toWide(name).c_str(), sid.data(), &sidLength,
                          domain.data(), &domainLength, &use)) {
    throw tools::MisuseError("cannot find the account \"" + name + "\": " +
                             systemErrorText(GetLastError()) + "; check the name given to --allow");
  }
  return textOf(sid.data());
}

std::wstring readingFor(const std::wstring& account) {
  return L"(A;;GR;;;" + account + L")";
}

}  // namespace

PipeRights::PipeRights(const std::string& other) {
  const std::wstring own = ownAccount();
  // The rights are protected, so that nothing is inherited. The account itself is the owner.
  // Otherwise an administrator's pipe would belong to all administrators.
  std::wstring rights = L"O:" + own + L"D:P" + readingFor(own);
  if (!other.empty()) rights += readingFor(accountNamed(other));
  PSECURITY_DESCRIPTOR made = nullptr;
  if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(rights.c_str(), SDDL_REVISION_1, &made,
                                                            nullptr)) {
    failToLimitRights();
  }
  descriptor_.reset(made);
  attributes_ = {sizeof attributes_, made, FALSE};
}

}  // namespace tallow::feed
