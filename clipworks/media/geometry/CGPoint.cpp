#include <clipworks/media/geometry/CGPoint.h>

#include <clipworks/media/base/PrintedText.h>

namespace clipworks {

std::string printedText(const CGPoint& point) {
  return "(" + printedNumber(point.x) + ", " + printedNumber(point.y) + ")";
}

}  // namespace clipworks
