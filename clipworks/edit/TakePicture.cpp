#include <clipworks/edit/TakePicture.h>

#include <memory>
#include <string>
#include <utility>

#include <clipworks/edit/EditErrors.h>
#include <clipworks/edit/EditState.h>
#include <clipworks/edit/Files.h>
#include <clipworks/edit/Stills.h>
#include <clipworks/engine/output/DirectNewFiles.h>

namespace clipworks {
namespace {

Result<void, Error> takeAll(Stills& stills, const std::vector<WantedPicture>& pictures, const PictureOptions& options,
                            PictureReport& report) {
  for (std::size_t i = 0; i < stills.count(); ++i) {
    const auto still = stills.take(i, options.stop);
    if (!still) return failure(still.error());
    if (auto whole = checkDamage(stills, options); !whole) return whole;
    auto path = saveStill(**still, pictures[i].path, options);
    if (!path) return failure(path.error());
    report.paths.push_back(std::move(*path));
    if (options.onProgress) options.onProgress(static_cast<double>(i + 1) / static_cast<double>(stills.count()));
  }
  return {};
}

}  // namespace

Result<PictureReport, Error> takePictures(const Edit& edit, const std::vector<WantedPicture>& pictures,
                                          const PictureOptions& options) {
  if (auto fit = needPictures(edit, "taking a picture"); !fit) return failure(fit.error());
  std::vector<CMTime> times;
  for (const auto& picture : pictures) {
    if (auto fit = checkFiles(edit.state(), picture.path, options.existing); !fit) return failure(fit.error());
    times.push_back(picture.at);
  }
  auto stills = Stills::find(edit, std::move(times), options.threads);
  if (!stills) return failure(stills.error());
  PictureReport report;
  const auto taken = takeAll(*stills, pictures, options, report);
  report.damaged = damagedMediaIn(stills->damaged());
  if (taken) return report;
  // Those that replaced older files are whole, and all that is left of these.
  if (options.existing != ExistingFile::replaced) {
    for (const auto& path : report.paths) engine::orDirect(options.files).remove(path);
  }
  return failure(taken.error());
}

Result<std::vector<CMTime>, Error> pictureTimes(const Edit& edit) {
  if (auto fit = needPictures(edit, "listing its pictures"); !fit) return failure(fit.error());
  return Stills::times(edit);
}

}  // namespace clipworks
