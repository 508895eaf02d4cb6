#include <array>
#include <exception>

#include "delivery/requests.hpp"
#include "diag/error.hpp"
#include "diag/log.hpp"
#include "diag/messages.hpp"
#include "entry/application.hpp"
#include "entry/handlers.hpp"

namespace tallow::entry {
namespace {

using diag::LogLevel;
using fallback::CloseKind;

constexpr std::array kRequestNames = {
    "undefined!",       "pmiPIDMOptInit",   "pmiPIDMOptOpen",   "pmiPIDMOptClose",
    "pmiPIDMOptRead",   "pmiPIDMOptWrite",  "pmiPIDMOptGetPos", "pmiPIDMOptSetPos",
    "pmiPIDMOptShut",   "pmiPIDMOptID",     "pmiPIDMOptCloseR", "pmiPIDMOptGetA_A",
    "pmiPIDMOptGetF_A", "pmiPIDMOptPutA_A", "pmiPIDMOptPutF_A",
};

const char* requestName(std::uint32_t code) {
  return kRequestNames[code < kRequestNames.size() ? code : 0];
}

std::string moduleTitle() {
  return diag::message<MessageId::kModuleTitle>();
}

std::string failureWithoutText() {
  return diag::message<MessageId::kFailedWithoutText>(moduleTitle().c_str());
}

// One call of PIDMMain: its blocks, and the message area for the text of its failure.
class Request {
 public:
  Request(TallowRequestBlock& request, void* parameters)
      : request_(request), parameters_(parameters) {}

  void handle() {
    if (!application().isLoadingThread()) {
      diag::raise<MessageId::kForeignThread>(moduleTitle().c_str());
    }
    diag::log(LogLevel::kTrace, MessageId::kTrace, "Request Received: %s (%d)",
              requestName(request_.requestCode), static_cast<int>(request_.requestCode));
    dispatch();
  }

  // The three kinds of failure that can leave a request.
  void report(const diag::CErrMsgException& failure) {
    if (failure.returnCode() != pmrcSuccess) request_.returnCode = failure.returnCode();
    const char* what = failure.what();
    const bool hasText = *what != '\0';
    const std::string substitute = hasText ? std::string() : failureWithoutText();
    const char* text = hasText ? what : substitute.c_str();
    diag::logText(LogLevel::kError, hasText ? failure.id() : MessageId::kFailedWithoutText, text);
    if (request_.returnCode == pmrcSuccess) diag::reportFailure(request_, area_, text);
  }

  void report(const std::exception& failure) {
    if (request_.returnCode != pmrcSuccess) return;
    const char* what = failure.what();
    if (*what == '\0') {
      reportUnknown();
      return;
    }
    diag::logMessage<MessageId::kStandardException>(LogLevel::kError, what);
    // The bare description, not the message that was logged.
    diag::reportFailure(request_, area_, what);
  }

  void reportUnknown() {
    if (request_.returnCode != pmrcSuccess) return;
    const std::string text = failureWithoutText();
    diag::logText(LogLevel::kError, MessageId::kFailedWithoutText, text.c_str());
    diag::reportFailure(request_, area_, text);
  }

 private:
  template <class Block>
  Block& block() const {
    return *static_cast<Block*>(parameters_);
  }

  // The record that a handle points to. A null handle is refused; any other is trusted.
  template <class Record>
  Record& record(void* handle) {
    if (handle == nullptr) {
      diag::raise<MessageId::kFailedWithoutText>(moduleTitle().c_str());
    }
    return *static_cast<Record*>(handle);
  }

  template <class Block>
  ModuleInstance& instance() {
    auto& found = record<ModuleInstance>(block<Block>().instanceHandle);
    area_ = &found.messageArea;
    return found;
  }

  void dispatch() {
    switch (request_.requestCode) {
      case pmiPIDMOptInit:
        return init(request_, block<TallowInitBlock>());
      case pmiPIDMOptOpen:
        // Before anything can be refused, even a null module handle.
        block<TallowOpenBlock>().instanceHandle = nullptr;
        return open(record<ModuleRecord>(block<TallowOpenBlock>().moduleHandle), request_,
                    block<TallowOpenBlock>());
      case pmiPIDMOptClose:
        return close(instance<TallowCloseBlock>(), CloseKind::kMayAsk);
      case pmiPIDMOptCloseR:
        return close(instance<TallowCloseBlock>(), CloseKind::kNeverAsks);
      case pmiPIDMOptRead:
        // Before the handle is checked, as above.
        block<TallowReadBlock>().dataLength = 0;
        request_.returnCode =
            delivery::read(instance<TallowReadBlock>().job, block<TallowReadBlock>());
        return;
      case pmiPIDMOptGetPos:
        request_.returnCode =
            delivery::getPos(instance<TallowPositionBlock>().job, block<TallowPositionBlock>());
        return;
      case pmiPIDMOptSetPos:
        request_.returnCode =
            delivery::setPos(instance<TallowPositionBlock>().job, block<TallowPositionBlock>());
        return;
      case pmiPIDMOptWrite:
        return refuseWrite();
      case pmiPIDMOptShut:
        return;
      case pmiPIDMOptID:
        return identify(block<TallowIdBlock>());
      case pmiPIDMOptGetA_A:
      case pmiPIDMOptGetF_A:
      case pmiPIDMOptPutA_A:
      case pmiPIDMOptPutF_A:
        return attribute();
      default:
        return refuseUnknown();
    }
  }

  void attribute() {
    auto* module = static_cast<ModuleRecord*>(block<TallowAttributeBlock>().moduleHandle);
    if (module != nullptr) area_ = &module->messageArea;
    handleAttribute(module, request_, block<TallowAttributeBlock>());
  }

  void refuseWrite() {
    request_.returnCode = pmrcNotSupported;
    diag::logMessage<MessageId::kRequestNotSupported>(LogLevel::kError, moduleTitle().c_str());
  }

  void refuseUnknown() {
    request_.returnCode = pmrcUnknownRequest;
    const std::string host = diag::hostProgramName();
    diag::logMessage<MessageId::kUnknownRequest>(
        LogLevel::kError, moduleTitle().c_str(), requestName(request_.requestCode),
        static_cast<int>(request_.requestCode), host.c_str());
  }

  TallowRequestBlock& request_;
  void* parameters_;
  diag::MessageArea* area_ = nullptr;  // null: the module-wide one
};

// Reports a failure. If the report itself fails, the return code is 12.
template <class Report>
void guarded(TallowRequestBlock& request, Report&& report) noexcept {
  try {
    report();
  } catch (...) {
    request.returnCode = pmrcReportFailed;
    diag::logMessage<MessageId::kReportFailed>(LogLevel::kError);
  }
}

}  // namespace

extern "C" __declspec(dllexport) void PIDMMain(TallowRequestBlock* request, void* parameters) {
  request->returnCode = pmrcSuccess;
  Request call(*request, parameters);
  try {
    call.handle();
  } catch (const diag::CErrMsgException& failure) {
    guarded(*request, [&] { call.report(failure); });
  } catch (const std::exception& failure) {
    guarded(*request, [&] { call.report(failure); });
  } catch (...) {
    guarded(*request, [&] { call.reportUnknown(); });
  }
}

}  // namespace tallow::entry
