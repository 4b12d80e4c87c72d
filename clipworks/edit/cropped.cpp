#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

#include <clipworks/edit/EditErrors.h>
#include <clipworks/edit/EditState.h>
#include <clipworks/edit/Sentences.h>
#include <clipworks/edit/Steps.h>

namespace clipworks {
namespace {

std::string sizeText(double width, double height) { return wholeNumber(width) + " × " + wholeNumber(height); }

double evenBelow(double side) { return 2 * std::floor(side / 2); }

}  // namespace

Result<Edit, Error> cropped(const Edit& edit, const CGRect& rect) {
  const double left = std::round(rect.origin.x);
  const double top = std::round(rect.origin.y);
  const double width = std::round(rect.size.width);
  const double height = std::round(rect.size.height);
  if (!(width > 0) || !(height > 0) || !std::isfinite(left + top + width + height))
    return failed(ErrorCode::badArgument, "a rectangle needs a width and a height above 0");
  if (auto fit = needPictures(edit, "cropping it"); !fit) return failure(fit.error());
  const CGSize seen{std::round(edit.size().width), std::round(edit.size().height)};
  if (left < 0 || top < 0 || left + width > seen.width || top + height > seen.height) {
    return failed(ErrorCode::badArgument, "the rectangle reaches out of the picture: " + edit.name() + " shows " +
                                              sizeText(seen.width, seen.height) + " pixels, the rectangle is " +
                                              sizeText(width, height) + " of them from (" + wholeNumber(left) + ", " +
                                              wholeNumber(top) + ") on");
  }
  const CGSize size{std::max(evenBelow(width), 2.0), std::max(evenBelow(height), 2.0)};
  EditState state = edit.state();
  if (size.width != rect.size.width || size.height != rect.size.height || left != rect.origin.x ||
      top != rect.origin.y) {
    state.remarks.push_back("the rectangle becomes " + sizeText(size.width, size.height) + " pixels from (" +
                            wholeNumber(left) + ", " + wholeNumber(top) + ") on: its sides must be whole and even");
  }
  draw(state, {1, 0, 0, 1, -left, -top}, size);
  return edited(std::move(state));
}

}  // namespace clipworks
