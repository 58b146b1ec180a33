/* SPDX-License-Identifier: Apache-2.0 */
// The executable's entry and its command line. Alone in its file, so that tests can link the rest of the demo client.
#include <getopt.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "lyn_demo.h"

enum { LYN_DEMO_USAGE_ERROR = 2 };

static constexpr char LYN_DEMO_HELP[] =
    "usage: lyn_demo [--help | --version] [--] [FILE]\n"
    "\n"
    "Shows a menu and runs option lines from standard input; option 10 says which there are.\n"
    "With FILE, or where /data/data_oxmap/lyn_auto_test.cfg exists, its lines are run instead.\n";

static constexpr option lyn_demo_long_options[] = {
    {.name = "help", .has_arg = no_argument, .flag = nullptr, .val = 'h'},
    {.name = "version", .has_arg = no_argument, .flag = nullptr, .val = 'v'},
    {.name = nullptr, .has_arg = 0, .flag = nullptr, .val = 0},
};

// Null, with the reason in errno, where it cannot be read.
static FILE *lyn_demo_open_script(const char *path) {
  FILE *file = fopen(path, "r");
  struct stat status = {};
  if (file != nullptr && fstat(fileno(file), &status) == 0 && S_ISDIR(status.st_mode)) {
    fclose(file);
    file = nullptr;
    errno = EISDIR;
  }
  return file;
}

static int lyn_demo_run_script(const char *path) {
  FILE *file = lyn_demo_open_script(path);
  if (file == nullptr) {
    fprintf(stderr, "lyn_demo: %s: %s\n", path, strerror(errno));
    return LYN_DEMO_USAGE_ERROR;
  }
  return lyn_demo_main(file);
}

int main(int argc, char **argv) {
  switch (getopt_long(argc, argv, "", lyn_demo_long_options, nullptr)) {
    case -1:
      break;
    case 'h':
      fputs(LYN_DEMO_HELP, stdout);
      return EXIT_SUCCESS;
    case 'v':
      printf("lyn_demo %d.%d.%d\n", OX_LYN_VERSION_MAJOR, OX_LYN_VERSION_MINOR, OX_LYN_VERSION_PATCH);
      return EXIT_SUCCESS;
    default:  // getopt_long has said what is wrong
      return LYN_DEMO_USAGE_ERROR;
  }
  if (argc - optind > 1) {
    fprintf(stderr, "lyn_demo: one FILE at most, see --help: %s\n", argv[optind + 1]);
    return LYN_DEMO_USAGE_ERROR;
  }
  return optind < argc ? lyn_demo_run_script(argv[optind]) : lyn_demo_main(nullptr);
}
