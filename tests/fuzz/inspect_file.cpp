// The fallback-file inspector, with any bytes as the file and as the original data.
#include <sstream>
#include <string>

#include "fuzz_target.hpp"
#include "inspect/fallback_reader.hpp"
#include "inspect/picture.hpp"
#include "inspect/verification.hpp"

TALLOW_FUZZ_TARGET(inspect_file) {
  using namespace tallow;
  using fuzz::require;
  fuzz::Input input(data, size);
  inspect::Hints hints;
  const std::uint8_t choice = input.byte();
  if ((choice & 1) != 0) hints.fullBlocks = (choice & 2) != 0;
  if ((choice & 4) != 0) hints.firstBlock = input.number(8);
  const std::string original(input.text(input.number(2)));
  std::istringstream file{std::string(input.rest())};
  const std::uint64_t length = file.str().size();

  const inspect::FileImage image = inspect::readFallbackFile(file, hints);
  require(image.size == length, "the size is the file's");
  if (image.state == inspect::FileState::kValid) {
    require(image.header && image.syncPoints, "a valid file has a header and sync points");
    require(fallback::kDataStartOffset + image.slotCount * image.layout().recordSize() +
                    image.tailBytes ==
                length,
            "slots and tail make up the data area");
    // Also the slot after the last one, which does not exist.
    for (std::uint64_t slot = 0; slot <= image.slotCount && slot < 8; ++slot) {
      if (!image.shape.fullBlocks) inspect::readRecordLength(file, image, slot);
      require(inspect::readRecordData(file, image, slot).size() <= image.header->blockSize,
              "a record has a block's bytes at most");
    }
    std::istringstream originalFile(original);
    const inspect::Verification verification = inspect::verify(file, image, originalFile);
    require(verification.slots.size() <= image.slotCount, "no more slots judged than there are");
    require(verification.freshSlots <= verification.provedSlots &&
                verification.provedSlots <= verification.slots.size(),
            "fresh slots are proved, proved slots are there");
    require(verification.damagedSlots <= verification.slots.size(), "damaged slots are there");
    for (std::uint64_t slot = 0; slot < verification.slots.size(); ++slot) {
      require(!verification.isDamaged(slot) || verification.damagedSlots > 0, "damage is counted");
    }
    require(!inspect::drawLine(image, verification, inspect::Colour::kNo).empty(), "a picture");
    require(!inspect::drawLine(image, {}, inspect::Colour::kYes).empty(), "a coloured picture");
  }
  return 0;
}
