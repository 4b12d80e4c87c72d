#include <app/serve/ClipFolder.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <system_error>

#include <fmt/format.h>

#include <app/ClipNames.h>

namespace clipworks::app {
namespace {

namespace fs = std::filesystem;

bool isName(const std::string& name) {
  const bool isPlain = std::none_of(name.begin(), name.end(), [](unsigned char c) { return c == '/' || c < ' '; });
  return isPlain && !name.empty() && name.size() <= NAME_MAX && name != "." && name != "..";
}

}  // namespace

bool ClipFolder::isClipName(const std::string& name) { return isName(name) && name[0] != '.' && app::isClipName(name); }

Result<ClipFolder, Failure> ClipFolder::open(const fs::path& directory) {
  std::error_code error;
  fs::path real = fs::canonical(directory, error);
  if (!error && fs::is_directory(real, error) && ::access(real.c_str(), R_OK | X_OK) == 0) return ClipFolder(real);
  return failure(Failure{ExitCode::failed, directory.string() + " is no directory that can be read", {}});
}

std::vector<ClipFolder::Entry> ClipFolder::list() const {
  std::vector<Entry> entries;
  std::error_code error;
  for (fs::directory_iterator i(path_, error); !error && i != fs::directory_iterator(); i.increment(error)) {
    const std::string name = i->path().filename().native();
    struct stat facts {};
    if (!isClipName(name) || !find(name) || ::stat(i->path().c_str(), &facts) != 0) continue;
    entries.push_back({name, static_cast<std::uint64_t>(facts.st_size),
                       facts.st_mtim.tv_sec * 1'000 + facts.st_mtim.tv_nsec / 1'000'000});
  }
  std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
  return entries;
}

std::optional<fs::path> ClipFolder::find(const std::string& name) const {
  if (!isName(name)) return std::nullopt;
  std::error_code error;
  fs::path real = fs::canonical(path_ / name, error);
  if (error || !fs::is_regular_file(real, error)) return std::nullopt;
  const auto [inside, rest] = std::mismatch(path_.begin(), path_.end(), real.begin(), real.end());
  return inside == path_.end() ? std::optional(real) : std::nullopt;
}

std::optional<fs::path> ClipFolder::placeFor(const std::string& name) const {
  if (!isName(name) || name[0] == '.') return std::nullopt;
  const fs::path wanted = path_ / name;
  std::error_code error;
  fs::path place = wanted;
  for (int i = 2; fs::exists(fs::symlink_status(place, error)); ++i)
    place = path_ / fmt::format("{}-{}{}", wanted.stem().native(), i, wanted.extension().native());
  return place;
}

std::optional<HttpFile> openedFile(const fs::path& path) {
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (descriptor < 0) return std::nullopt;
  const std::shared_ptr<const int> kept(new int(descriptor), [](const int* held) {
    ::close(*held);
    delete held;
  });
  struct stat facts {};
  if (::fstat(descriptor, &facts) != 0 || !S_ISREG(facts.st_mode)) return std::nullopt;
  return HttpFile{kept, static_cast<std::uint64_t>(facts.st_size)};
}

}  // namespace clipworks::app
