#include "common/return_codes.hpp"

#include <tallow/tallow.h>

namespace tallow::client {

std::string_view returnCodeName(std::uint32_t code) {
  switch (code) {
    case pmrcSuccess:
      return "pmrcSuccess";
    case pmrcNotSupported:
      return "pmrcNotSupported";
    case pmrcAlreadyOpen:
      return "pmrcAlreadyOpen";
    case pmrcEOF:
      return "pmrcEOF";
    case pmrcReportFailed:
      return "pmrcReportFailed";
    case pmrcBadOpenMode:
      return "pmrcBadOpenMode";
    case pmrcDelivery:
      return "pmrcDelivery";
    case pmrcBadInterfaceLevel:
      return "pmrcBadInterfaceLevel";
    case pmrcEmptyOption:
      return "pmrcEmptyOption";
    case pmrcUnknownOption:
      return "pmrcUnknownOption";
    case pmrcBadOption:
      return "pmrcBadOption";
    case pmrcUnknownRequest:
      return "pmrcUnknownRequest";
    case pmrcBadPosition:
      return "pmrcBadPosition";
    case pmrcBadAttribute:
      return "pmrcBadAttribute";
    case pmrcFailed:
      return "pmrcFailed";
    default:
      return "unknown return code";
  }
}

std::string_view requestName(std::uint32_t code) {
  switch (code) {
    case pmiPIDMOptInit:
      return "Init";
    case pmiPIDMOptOpen:
      return "Open";
    case pmiPIDMOptClose:
      return "Close";
    case pmiPIDMOptRead:
      return "Read";
    case pmiPIDMOptWrite:
      return "Write";
    case pmiPIDMOptGetPos:
      return "GetPos";
    case pmiPIDMOptSetPos:
      return "SetPos";
    case pmiPIDMOptShut:
      return "Shut";
    case pmiPIDMOptID:
      return "ID";
    case pmiPIDMOptCloseR:
      return "CloseR";
    case pmiPIDMOptGetA_A:
    case pmiPIDMOptGetF_A:
    case pmiPIDMOptPutA_A:
    case pmiPIDMOptPutF_A:
      return "Attribute";
    default:
      return "unknown request";
  }
}

}  // namespace tallow::client
