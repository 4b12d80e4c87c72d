#include <app/PrivateDirectories.h>

#include <system_error>

namespace clipworks::app {
Result<std::unique_ptr<PrivateDirectories>, Failure> PrivateDirectories::make(const Options& options) {
  std::unique_ptr<PrivateDirectories> directories(new PrivateDirectories(options.outputs));
  auto besideResults = HiddenDirectory::make(options.outputs, "outputs");
  if (!besideResults) return failure(besideResults.error());
  directories->besideResults_ = std::move(*besideResults);
  if (options.temp) {
    auto elsewhere = HiddenDirectory::make(*options.temp, "temp");
    if (!elsewhere) return failure(elsewhere.error());
    directories->elsewhere_ = std::move(*elsewhere);
  }
  for (const auto& directory : {directories->outputs(), directories->documents(), directories->temp()}) {
    std::error_code error;
    std::filesystem::create_directory(directory, error);
    if (error) return failed("nothing can be written to " + directory.string() + ": " + error.message());
  }
  return directories;
}

Result<std::filesystem::path, Failure> PrivateDirectories::moveIntoPlace(
    const std::filesystem::path& made, const std::vector<std::filesystem::path>& inputs) const {
  const std::filesystem::path place = this->place(made.filename());
  if (const Outcome allowed = refuseToOverwrite(place, inputs); !allowed) return failure(allowed.error());
  std::error_code error;
  std::filesystem::rename(made, place, error);
  if (error) return failed(place.string() + " cannot be put in place: " + error.message());
  return place;
}

Outcome refuseToOverwrite(const std::filesystem::path& result, const std::vector<std::filesystem::path>& inputs) {
  for (const auto& input : inputs) {
    std::error_code ignored;  // a file that is not there is nobody's input
    if (std::filesystem::equivalent(result, input, ignored)) {
      return failed(result.string() + " is the input itself; choose another name or another outputs directory");
    }
  }
  return {};
}

}  // namespace clipworks::app
