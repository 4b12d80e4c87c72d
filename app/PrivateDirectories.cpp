#include <app/PrivateDirectories.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <system_error>

namespace clipworks::app {
namespace {

/// Makes a hidden directory of a new name in `parent`, which people know as `role`.
Result<std::filesystem::path, Failure> makeHiddenDirectory(const std::filesystem::path& parent,
                                                           const std::string& role) {
  std::string path = (parent / ".clipworks-XXXXXX").string();
  if (::mkdtemp(path.data()) != nullptr) return path;
  const int code = errno;
  if (code == ENOENT) return failed("the " + role + " directory " + parent.string() + " does not exist");
  if (code == ENOTDIR) return failed("the " + role + " directory " + parent.string() + " is not a directory");
  return failed("nothing can be written to the " + role + " directory " + parent.string() + ": " + std::strerror(code));
}

}  // namespace

Result<std::unique_ptr<PrivateDirectories>, Failure> PrivateDirectories::make(const Options& options) {
  std::unique_ptr<PrivateDirectories> directories(new PrivateDirectories(options.outputs));
  auto besideResults = makeHiddenDirectory(options.outputs, "outputs");
  if (!besideResults) return failure(besideResults.error());
  directories->besideResults_ = *besideResults;
  if (options.temp) {
    auto elsewhere = makeHiddenDirectory(*options.temp, "temp");
    if (!elsewhere) return failure(elsewhere.error());
    directories->elsewhere_ = *elsewhere;
  }
  for (const auto& directory : {directories->outputs(), directories->documents(), directories->temp()}) {
    std::error_code error;
    std::filesystem::create_directory(directory, error);
    if (error) return failed("nothing can be written to " + directory.string() + ": " + error.message());
  }
  return directories;
}

PrivateDirectories::~PrivateDirectories() {
  std::error_code ignored;  // what cannot be removed stays hidden
  if (!besideResults_.empty()) std::filesystem::remove_all(besideResults_, ignored);
  if (elsewhere_) std::filesystem::remove_all(*elsewhere_, ignored);
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
