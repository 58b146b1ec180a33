/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Feeds files to a fuzz target once each, in place of libFuzzer: the corpus is then a normal test of every build, also
 * of compilers that have no libFuzzer. Arguments are files, or folders whose files are taken in the order of their
 * names.
 */
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

std::vector<std::filesystem::path> files_of(const std::filesystem::path &argument) {
  if (!std::filesystem::is_directory(argument)) {
    return {argument};
  }
  std::vector<std::filesystem::path> files;
  for (const auto &entry : std::filesystem::recursive_directory_iterator(argument)) {
    if (entry.is_regular_file()) {
      files.push_back(entry.path());
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

bool replay(const std::filesystem::path &path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    std::fprintf(stderr, "cannot read %s\n", path.c_str());
    return false;
  }
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  const std::vector<uint8_t> input(bytes.begin(), bytes.end());
  LLVMFuzzerTestOneInput(input.data(), input.size());
  return true;
}

}  // namespace

int main(int argc, char **argv) {
  size_t count = 0;
  for (int i = 1; i < argc; ++i) {
    for (const auto &path : files_of(argv[i])) {
      if (!replay(path)) {
        return 1;
      }
      ++count;
    }
  }
  std::fprintf(stderr, "%zu inputs replayed\n", count);  // a target may have closed standard output
  return count > 0 ? 0 : 1;
}
