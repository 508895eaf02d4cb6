// How our writers open and create pipes: what they ask the system for, and what the pipe is then.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <aclapi.h>

#include <array>
#include <chrono>
#include <fstream>
#include <set>
#include <string>

#include "common/tool_error.hpp"
#include "feed/pipe_writer.hpp"
#include "support/import_hook.hpp"

// The main function of examples/minimal_writer.cpp.
int runMinimalWriter(int argc, char** argv);

namespace tallow::test {
namespace {

using feed::PipeWriter;
using testing::HasSubstr;

using CreateFileWide = HANDLE(LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE);
using CreateFileNarrow = HANDLE(LPCSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE);
using CreatePipe = HANDLE(LPCWSTR, DWORD, DWORD, DWORD, DWORD, DWORD, DWORD, LPSECURITY_ATTRIBUTES);

constexpr std::chrono::milliseconds kNoWait{0};

HMODULE thisProgram() {
  return GetModuleHandleW(nullptr);
}

std::string pipeName() {
  static int number = 0;
  return "\\\\.\\pipe\\tallow-writer-" + std::to_string(GetCurrentProcessId()) + "-" +
         std::to_string(++number);
}

HANDLE refuse(DWORD error) {
  SetLastError(error);
  return INVALID_HANDLE_VALUE;
}

bool letsTheServerIdentifyOnly(DWORD flags) {
  constexpr DWORD kLevels = SECURITY_DELEGATION;  // both bits
  return (flags & SECURITY_SQOS_PRESENT) != 0 && (flags & kLevels) == SECURITY_IDENTIFICATION;
}

using Sid = std::array<BYTE, SECURITY_MAX_SID_SIZE>;

Sid wellKnown(WELL_KNOWN_SID_TYPE type) {
  Sid sid{};
  auto length = static_cast<DWORD>(sid.size());
  EXPECT_TRUE(CreateWellKnownSid(type, nullptr, sid.data(), &length));
  return sid;
}

Sid ownAccount() {
  HANDLE token = nullptr;
  EXPECT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token));
  alignas(TOKEN_USER) std::array<BYTE, sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE> user{};
  DWORD length = 0;
  EXPECT_TRUE(GetTokenInformation(token, TokenUser, user.data(), user.size(), &length));
  CloseHandle(token);
  Sid sid{};
  CopySid(sid.size(), sid.data(), reinterpret_cast<TOKEN_USER*>(user.data())->User.Sid);
  return sid;
}

std::string nameOf(Sid sid) {
  std::array<char, 256> name{};
  std::array<char, 256> domain{};
  auto nameLength = static_cast<DWORD>(name.size());
  auto domainLength = static_cast<DWORD>(domain.size());
  SID_NAME_USE use{};
  EXPECT_TRUE(LookupAccountSidA(nullptr, sid.data(), name.data(), &nameLength, domain.data(),
                                &domainLength, &use));
  return std::string(domain.data()) + "\\" + name.data();
}

// Who may do what with the pipe, as the system reports it to a client.
struct Rights {
  bool isProtected = false;
  std::set<Sid> readers;
  int others = 0;  // entries that allow anything else, or forbid something
};

Rights rightsOf(HANDLE pipe) {
  Rights rights;
  PACL list = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  EXPECT_EQ(GetSecurityInfo(pipe, SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                            &list, nullptr, &descriptor),
            DWORD{ERROR_SUCCESS});
  SECURITY_DESCRIPTOR_CONTROL control = 0;
  DWORD revision = 0;
  EXPECT_TRUE(GetSecurityDescriptorControl(descriptor, &control, &revision));
  rights.isProtected = (control & SE_DACL_PROTECTED) != 0;
  GENERIC_MAPPING mapping = {FILE_GENERIC_READ, FILE_GENERIC_WRITE, FILE_GENERIC_EXECUTE,
                             FILE_ALL_ACCESS};
  for (DWORD i = 0; list != nullptr && i < list->AceCount; ++i) {
    ACCESS_ALLOWED_ACE* entry = nullptr;
    EXPECT_TRUE(GetAce(list, i, reinterpret_cast<void**>(&entry)));
    MapGenericMask(&entry->Mask, &mapping);
    if (entry->Header.AceType != ACCESS_ALLOWED_ACE_TYPE || entry->Mask != FILE_GENERIC_READ) {
      ++rights.others;
      continue;
    }
    Sid sid{};
    CopySid(sid.size(), sid.data(), &entry->SidStart);
    rights.readers.insert(sid);
  }
  LocalFree(descriptor);
  return rights;
}

// The rights of the pipe that `serve` makes, as seen by a client that comes at once.
Rights rightsWhenServing(const std::string& allowed) {
  const std::string name = pipeName();
  Rights rights;
  const Hook<struct ConnectTag, BOOL(HANDLE, LPOVERLAPPED)> connect(
      thisProgram(), "ConnectNamedPipe", [&](HANDLE, LPOVERLAPPED) {
        const HANDLE client =
            CreateFileA(name.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        EXPECT_NE(client, INVALID_HANDLE_VALUE);
        rights = rightsOf(client);
        CloseHandle(client);
        SetLastError(ERROR_PIPE_CONNECTED);
        return FALSE;
      });
  PipeWriter::serve(name, allowed, kNoWait);
  return rights;
}

TEST(ServedPipe, AdmitsItsOwnAccountAlone) {
  const Rights rights = rightsWhenServing("");
  EXPECT_TRUE(rights.isProtected);
  EXPECT_EQ(rights.readers, std::set<Sid>{ownAccount()});
  EXPECT_EQ(rights.others, 0);
}

TEST(ServedPipe, AdmitsTheAccountThatIsNamed) {
  const Sid service = wellKnown(WinLocalServiceSid);
  const Rights rights = rightsWhenServing(nameOf(service));
  EXPECT_EQ(rights.readers, (std::set<Sid>{ownAccount(), service}));
  EXPECT_EQ(rights.others, 0);
}

TEST(ServedPipe, IsNotMadeForAnAccountThatIsNotThere) {
  try {
    PipeWriter::serve(pipeName(), "nobody of this name", kNoWait);
    FAIL() << "served";
  } catch (const tools::ToolError& error) {
    EXPECT_EQ(error.status(), tools::ExitStatus::kMisused);
    EXPECT_THAT(error.what(), HasSubstr("\"nobody of this name\""));
    EXPECT_THAT(error.what(), HasSubstr("--allow"));
  }
}

TEST(ServedPipe, IsTheFirstOfItsNameAndForThisMachine) {
  DWORD openMode = 0;
  DWORD pipeMode = 0;
  DWORD instances = 0;
  const Hook<struct CreateTag, CreatePipe> create(
      thisProgram(), "CreateNamedPipeW",
      [&](LPCWSTR, DWORD open, DWORD mode, DWORD most, DWORD, DWORD, DWORD, LPSECURITY_ATTRIBUTES) {
        openMode = open;
        pipeMode = mode;
        instances = most;
        return refuse(ERROR_ACCESS_DENIED);
      });
  EXPECT_THROW(PipeWriter::serve(pipeName(), "", kNoWait), tools::MisuseError);
  EXPECT_NE(openMode & FILE_FLAG_FIRST_PIPE_INSTANCE, 0U);
  EXPECT_NE(pipeMode & PIPE_REJECT_REMOTE_CLIENTS, 0U);
  EXPECT_EQ(instances, 1U);
}

TEST(ConnectedPipe, LetsItsServerIdentifyTheWriterOnly) {
  DWORD flags = 0;
  const Hook<struct OpenTag, CreateFileWide> open(
      thisProgram(), "CreateFileW",
      [&](LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD asked, HANDLE) {
        flags = asked;
        return refuse(ERROR_FILE_NOT_FOUND);
      });
  EXPECT_THROW(PipeWriter::connect(pipeName(), kNoWait), tools::ToolError);
  EXPECT_TRUE(letsTheServerIdentifyOnly(flags));
}

TEST(ConnectedPipe, IsNotSaidToBeMissingWhenItWasBusy) {
  int looks = 0;
  const Hook<struct OpenTag, CreateFileWide> open(
      thisProgram(), "CreateFileW",
      [&](LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE) {
        return refuse(++looks == 1 ? ERROR_PIPE_BUSY : ERROR_FILE_NOT_FOUND);
      });
  try {
    PipeWriter::connect(pipeName(), std::chrono::milliseconds(1));
    FAIL() << "connected";
  } catch (const tools::ToolError& error) {
    EXPECT_EQ(error.status(), tools::ExitStatus::kRestartable);
    EXPECT_THAT(error.what(), HasSubstr("no room"));
  }
}

TEST(MinimalWriter, LetsTheServerIdentifyItOnly) {
  DWORD flags = 0;
  const Hook<struct NarrowTag, CreateFileNarrow> open(
      thisProgram(), "CreateFileA",
      [&](LPCSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD asked, HANDLE) {
        flags = asked;
        HANDLE readEnd = nullptr;
        HANDLE writeEnd = nullptr;
        EXPECT_TRUE(::CreatePipe(&readEnd, &writeEnd, nullptr, 0));
        CloseHandle(readEnd);
        return writeEnd;
      });
  std::ofstream("empty").close();
  std::array<std::string, 3> words = {"minimal_writer", "a pipe", "empty"};
  std::array<char*, 3> arguments = {words[0].data(), words[1].data(), words[2].data()};
  EXPECT_EQ(runMinimalWriter(3, arguments.data()), 0);
  EXPECT_TRUE(letsTheServerIdentifyOnly(flags));
}

}  // namespace
}  // namespace tallow::test
