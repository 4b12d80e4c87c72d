#include <clipworks/engine/output/OutputFile.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <clipworks/engine/output/DirectNewFiles.h>

namespace clipworks::engine {
namespace {

tl::unexpected<Error> unwritable(const std::string& what, int code) {
  // A limit of the process (RLIMIT_FSIZE) is like one that was asked for.
  const ErrorKind kind = code == EFBIG ? ErrorKind::lengthLimit : ErrorKind::unwritable;
  return failed(kind, what + ": " + std::strerror(code), code);
}

}  // namespace

Expected<std::unique_ptr<OutputFile>> OutputFile::create(const std::filesystem::path& path, std::int64_t lengthLimit,
                                                         ExistingName existing,
                                                         const std::shared_ptr<NewFiles>& files) {
  // Found again when the file gets its name; said here, it costs nobody an export.
  struct stat facts {};
  if (::lstat(path.c_str(), &facts) == 0 &&
      (existing == ExistingName::kept || (existing == ExistingName::replaced && S_ISDIR(facts.st_mode)))) {
    return unwritable(path.filename().string() + " cannot be put in place", EEXIST);
  }
  auto file = orDirect(files).create(path);
  if (!file) {
    const auto directory = path.has_parent_path() ? path.parent_path().string() : std::string(".");
    return unwritable("nothing can be written to " + directory, file.error());
  }
  return std::unique_ptr<OutputFile>(new OutputFile(path, std::move(*file), lengthLimit, existing));
}

Expected<void> OutputFile::writeAt(std::int64_t offset, const std::uint8_t* bytes, std::int64_t length) {
  if (cancelled_.load(std::memory_order_relaxed)) return failed(ErrorKind::cancelled, "cancelled");
  if (lengthLimit_ > 0 && offset + length > lengthLimit_) {
    return failed(ErrorKind::lengthLimit,
                  name() + " would be longer than the limit of " + std::to_string(lengthLimit_) + " bytes");
  }
  while (length > 0) {
    const ssize_t count = ::pwrite(handle().descriptor(), bytes, static_cast<std::size_t>(length), offset);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return unwritable(name() + " cannot be written", errno);
    bytes += count;
    offset += count;
    length -= count;
  }
  return {};
}

Expected<void> OutputFile::commit() {
  auto named = file_->commit(existing_);
  if (!named) return unwritable(name() + " cannot be put in place", named.error());
  path_ = std::move(*named);
  return {};
}

}  // namespace clipworks::engine
