#include <clipworks/media/base/Data.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include <clipworks/engine/output/OutputFile.h>
#include <clipworks/media/base/UUID.h>

namespace clipworks {
namespace {

/// A new whole file; fails with `EEXIST` when the name is taken.
engine::Expected<void> writeNew(const std::filesystem::path& path, std::span<const std::uint8_t> bytes) {
  const auto file = engine::OutputFile::create(path, 0);
  if (!file) return tl::make_unexpected(file.error());
  const auto written = (*file)->writeAt(0, bytes.data(), static_cast<std::int64_t>(bytes.size()));
  return written ? (*file)->commit() : written;
}

Result<void, NSError> posixFailure(const engine::Error& error) {
  return failure(NSError(NSPOSIXErrorDomain, error.posixCode, error.sentence));
}

}  // namespace

Result<void, NSError> Data::write(const URL& to) const {
  const std::filesystem::path& path = to.path();
  const auto written = writeNew(path, bytes_);
  if (written) return {};
  if (written.error().posixCode != EEXIST) return posixFailure(written.error());

  const std::filesystem::path beside = path.parent_path() / ("." + UUID::make().uuidString() + ".partial");
  if (const auto second = writeNew(beside, bytes_); !second) return posixFailure(second.error());
  std::error_code error;
  std::filesystem::rename(beside, path, error);
  if (!error) return {};
  std::error_code ignored;  // nothing better can be done about it
  std::filesystem::remove(beside, ignored);
  return failure(makePosixError(error.value(), path.filename().string() + " cannot be replaced"));
}

}  // namespace clipworks
