// Runs a fuzz target over files without a fuzzing engine, for compilers that have none: each
// argument is a file or a directory whose regular files are run in name order. The target aborts
// on a fault; a file that cannot be read fails the run.
//
// usage: fuzz_TARGET FILE_OR_DIRECTORY...

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

// The files `arg` names: itself, or the regular files of the directory, in name order.
std::vector<std::filesystem::path> inputFiles(const std::filesystem::path& arg) {
  if (!std::filesystem::is_directory(arg)) return {arg};
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(arg)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s FILE_OR_DIRECTORY...\n", argv[0]);
    return 2;
  }
  std::size_t runs = 0;
  for (int i = 1; i < argc; ++i) {
    std::error_code error;
    if (!std::filesystem::exists(argv[i], error)) {
      std::fprintf(stderr, "%s: no such file or directory: %s\n", argv[0], argv[i]);
      return 1;
    }
    for (const std::filesystem::path& file : inputFiles(argv[i])) {
      std::ifstream in(file, std::ios::binary);
      if (!in) {
        std::fprintf(stderr, "%s: cannot read %s\n", argv[0], file.c_str());
        return 1;
      }
      const std::string data{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
      std::fprintf(stderr, "running %s\n", file.c_str());
      LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(data.data()), data.size());
      ++runs;
    }
  }
  std::fprintf(stderr, "%s: ran %zu inputs\n", argv[0], runs);
  return 0;
}
