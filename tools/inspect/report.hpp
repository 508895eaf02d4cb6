// What tallow-inspect prints.
#pragma once

#include <istream>
#include <optional>
#include <string>

#include "inspect/picture.hpp"
#include "inspect/verification.hpp"

namespace tallow::inspect {

struct Subject {
  std::string name;  // of the file, UTF-8
  FileImage file;
  std::optional<Verification> verification;
};

// Whether a run would accept the file, and nothing in it is damaged or disproved.
bool isSound(const Subject& subject);

// `stream` is the file itself, for the lengths of its records.
void printText(const Subject& subject, std::istream& stream, Colour colour);
void printJson(const Subject& subject, std::istream& stream);

}  // namespace tallow::inspect
