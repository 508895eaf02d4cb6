// The wrapper of the requests, against a module that answers what a test wants.
#include <gtest/gtest.h>

#include <tallow/tallow.hpp>

#include <functional>
#include <string>
#include <vector>

namespace tallow::test {
namespace {

constexpr std::uint32_t kBlockSize = 16;

struct Request {
  std::uint32_t code;
  std::string text;  // what the request carried: options, a pipe's name, an attribute
};

std::vector<Request> sent;
// Answers a request in its blocks; one of a test may come before the usual one.
std::function<bool(TallowRequestBlock&, void*)> answer;
std::uint64_t positionOfModule = 0;
char handleOfModule = 0;
char handleOfInstance = 0;

void usualAnswer(std::uint32_t code, void* parameters) {
  if (code == pmiPIDMOptInit) {
    auto& block = *static_cast<TallowInitBlock*>(parameters);
    sent.back().text = std::string(block.initString, block.initStringLength);
    block.initString[block.initStringLength] = '\0';
    block.moduleHandle = &handleOfModule;
  } else if (code == pmiPIDMOptOpen) {
    auto& block = *static_cast<TallowOpenBlock*>(parameters);
    sent.back().text = std::string(block.pipeName, block.pipeNameLength);
    block.instanceHandle = &handleOfInstance;
    block.blockSize = kBlockSize;
  } else if (code == pmiPIDMOptRead) {
    auto& block = *static_cast<TallowReadBlock*>(parameters);
    std::memcpy(block.dataBuffer, "data", 4);
    block.dataLength = 4;
  } else if (code == pmiPIDMOptGetPos) {
    auto& block = *static_cast<TallowPositionBlock*>(parameters);
    block.positionLength = TALLOW_POSITION_SIZE;
    block.position = &positionOfModule;
  } else if (code == pmiPIDMOptPutA_A) {
    const auto& block = *static_cast<TallowAttributeBlock*>(parameters);
    sent.back().text = std::string(block.attributeName) + "=" + block.attributeValue;
  }
}

void fakeModule(TallowRequestBlock* request, void* parameters) {
  request->returnCode = pmrcSuccess;
  sent.push_back({request->requestCode, ""});
  if (answer && answer(*request, parameters)) return;
  usualAnswer(request->requestCode, parameters);
}

class Requests : public testing::Test {
 protected:
  Requests() {
    sent.clear();
    answer = nullptr;
  }
  // From now on this request gets that code.
  static void answerWith(std::uint32_t request, std::uint32_t code, const char* text = nullptr) {
    answer = [request, code, text](TallowRequestBlock& block, void*) {
      if (block.requestCode != request) return false;
      block.returnCode = code;
      block.messageText = const_cast<char*>(text);
      return true;
    };
  }
  static std::vector<std::string> texts() {
    std::vector<std::string> all;
    for (const Request& request : sent) {
      all.push_back(std::string(requestName(request.code)) +
                    (request.text.empty() ? "" : " " + request.text));
    }
    return all;
  }
};

using Texts = std::vector<std::string>;

TEST_F(Requests, AWholeJobSendsThemInTheirOrder) {
  {
    Module module(fakeModule, "Block_size=16", "test");
    module.setAttribute("CHARSET_NAME", "UTF8");
    Instance input = module.open("pipe");
    positionOfModule = 7;
    input.setPos(7);
    EXPECT_EQ(input.blockSize(), kBlockSize);
    EXPECT_EQ(input.read(), "data");
    EXPECT_EQ(input.getPos(), 7U);
    answerWith(pmiPIDMOptRead, pmrcEOF);
    EXPECT_EQ(input.read(), std::nullopt);
    input.close();
    input.close();
  }
  EXPECT_EQ(texts(), (Texts{"Init Block_size=16", "Attribute CHARSET_NAME=UTF8", "Open pipe",
                            "SetPos", "Read", "GetPos", "Read", "Close"}));
}

TEST_F(Requests, AnEmptyBlockIsNotTheEnd) {
  Module module(fakeModule, "", "test");
  Instance input = module.open("pipe");
  answer = [](TallowRequestBlock& request, void*) { return request.requestCode == pmiPIDMOptRead; };
  EXPECT_EQ(input.read(), "");
}

TEST_F(Requests, ABufferThatIsTooSmallIsRefused) {
  Module module(fakeModule, "", "test");
  Instance input = module.open("pipe");
  std::array<char, kBlockSize - 1> buffer{};
  EXPECT_THROW(input.read(buffer.data(), buffer.size()), std::length_error);
}

TEST_F(Requests, NamesThatDoNotFitAreRefused) {
  Module module(fakeModule, "", "test");
  EXPECT_THROW(module.open(std::string(TALLOW_PIPE_NAME_SIZE, 'p')), std::length_error);
  EXPECT_THROW(module.setAttribute(std::string(TALLOW_ATTRIBUTE_NAME_SIZE, 'n'), ""),
               std::length_error);
  EXPECT_THROW(module.setAttribute("n", std::string(TALLOW_ATTRIBUTE_VALUE_SIZE, 'v')),
               std::length_error);
  EXPECT_EQ(texts(), Texts{"Init"});
}

TEST_F(Requests, ALongHostNameIsCut) {
  answer = [](TallowRequestBlock& request, void* parameters) {
    if (request.requestCode == pmiPIDMOptInit) {
      const std::uint32_t length = static_cast<TallowInitBlock*>(parameters)->moduleNameLength;
      EXPECT_EQ(length, 768U);
    }
    return false;
  };
  const Module module(fakeModule, "", std::string(800, 'n'));
}

TEST_F(Requests, AMovedInstanceClosesOnce) {
  Module module(fakeModule, "", "test");
  {
    Instance first = module.open("pipe");
    const Instance second(std::move(first));
  }
  EXPECT_EQ(texts(), (Texts{"Init", "Open pipe", "CloseR"}));
}

// Behind the end of the data a Close deletes the fallback file.
class HostThatFails : public Requests {
 protected:
  static void readToTheEnd(Instance& input) {
    answerWith(pmiPIDMOptRead, pmrcEOF);
    EXPECT_EQ(input.read(), std::nullopt);
    sent.clear();
  }
};

TEST_F(HostThatFails, KeepsItsFallbackFileBehindTheEnd) {
  Module module(fakeModule, "", "test");
  {
    Instance input = module.open("pipe");
    readToTheEnd(input);
  }
  EXPECT_EQ(texts(), (Texts{"Attribute PRESERVE_RESTART_INFO=YES", "CloseR",
                            "Attribute PRESERVE_RESTART_INFO=NO"}));
}

TEST_F(HostThatFails, LeavesTheAttributeAsTheHostHadSetIt) {
  Module module(fakeModule, "", "test");
  module.setAttribute("PRESERVE_RESTART_INFO", "YES");
  {
    Instance input = module.open("pipe");
    readToTheEnd(input);
  }
  EXPECT_EQ(texts(), Texts{"CloseR"});
}

TEST_F(HostThatFails, LeavesTheInstanceToTheLibraryIfTheFileCannotBeKept) {
  Module module(fakeModule, "", "test");
  {
    Instance input = module.open("pipe");
    readToTheEnd(input);
    answerWith(pmiPIDMOptPutA_A, pmrcReportFailed);
  }
  EXPECT_EQ(texts(), Texts{"Attribute"});
}

TEST_F(HostThatFails, SetsTheAttributeBackEvenIfTheCloseFails) {
  Module module(fakeModule, "", "test");
  Instance input = module.open("pipe");
  readToTheEnd(input);
  answerWith(pmiPIDMOptCloseR, pmrcFailed, "no");
  EXPECT_THROW(input.closeAndKeep(), Error);
  EXPECT_EQ(texts().back(), "Attribute PRESERVE_RESTART_INFO=NO");
}

TEST_F(Requests, AFailureIsAnExceptionWithCodeNameAndText) {
  answerWith(pmiPIDMOptOpen, pmrcFailed, "The pipe is busy. Reason: in use.\r\n");
  Module module(fakeModule, "", "test");
  try {
    module.open("pipe");
    FAIL() << "no exception";
  } catch (const Error& error) {
    EXPECT_EQ(error.request(), static_cast<std::uint32_t>(pmiPIDMOptOpen));
    EXPECT_EQ(error.code(), static_cast<std::uint32_t>(pmrcFailed));
    EXPECT_STREQ(error.name(), "pmrcFailed");
    EXPECT_EQ(error.text(), "The pipe is busy. Reason: in use.");
    EXPECT_STREQ(error.what(),
                 "Open failed with pmrcFailed (34): The pipe is busy. Reason: in use.");
  }
}

TEST_F(Requests, ACodeWithoutATextGetsOneOfItsOwn) {
  // The module leaves the field as it is with any code but 34.
  answerWith(pmiPIDMOptInit, pmrcUnknownOption, "stale");
  try {
    const Module module(fakeModule, "Nonsense=1", "test");
    FAIL() << "no exception";
  } catch (const Error& error) {
    EXPECT_EQ(error.text(), tallow_code_text(pmrcUnknownOption));
  }
}

TEST(CodeTexts, EachCodeHasANameAndATextOfItsOwn) {
  std::vector<std::string> seen{tallow_code_name(1), tallow_code_text(1)};
  EXPECT_EQ(seen.front(), "unknown return code");
  for (const std::uint32_t code :
       {0U, 6U, 8U, 9U, 12U, 13U, 16U, 18U, 20U, 21U, 22U, 24U, 32U, 33U, 34U}) {
    for (const std::string text : {tallow_code_name(code), tallow_code_text(code)}) {
      EXPECT_EQ(std::find(seen.begin(), seen.end(), text), seen.end()) << code << ": " << text;
      seen.push_back(text);
    }
  }
}

TEST(CodeTexts, EachRequestHasAName) {
  for (std::uint32_t request = pmiPIDMOptInit; request <= pmiPIDMOptPutF_A; ++request) {
    EXPECT_STRNE(requestName(request), "unknown request") << request;
  }
  EXPECT_STREQ(requestName(0), "unknown request");
  EXPECT_STREQ(requestName(15), "unknown request");
}

}  // namespace
}  // namespace tallow::test
