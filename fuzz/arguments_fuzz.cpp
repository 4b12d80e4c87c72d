#include <string>
#include <vector>

#include <app/CommandLine.h>
#include <app/Failure.h>
#include <fuzz/FuzzInput.h>

// Arguments of the program, parted by zero bytes: they are understood, or refused in a sentence. Nothing is run.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<std::string> words{"clipworks"};
  const std::string all(reinterpret_cast<const char*>(data), size);
  for (std::size_t at = 0; at < all.size();) {
    const std::size_t end = std::min(all.find('\0', at), all.size());
    words.push_back(all.substr(at, end - at));
    at = end + 1;
  }
  std::vector<const char*> arguments;
  for (const auto& word : words) arguments.push_back(word.c_str());

  clipworks::app::CommandLine commandLine;
  const auto command = commandLine.parse(static_cast<int>(arguments.size()), arguments.data());
  if (!command) {
    clipworks::fuzz::require(command.error().code == clipworks::app::ExitCode::wrongUse, "wrong use is told as such");
    clipworks::fuzz::require(!command.error().sentence.empty(), "wrong use has a sentence");
  }
  return 0;
}
