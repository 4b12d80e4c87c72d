#include <clipworks/media/geometry/CGSize.h>

#include <clipworks/media/base/PrintedText.h>

namespace clipworks {

std::string printedText(const CGSize& size) {
  return "(" + printedNumber(size.width) + ", " + printedNumber(size.height) + ")";
}

}  // namespace clipworks
