/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The one file that is compiled with the tree's place.
 */
#include "source_dir.h"

std::string source_path(const std::string &file) {
  return LYN_SOURCE_DIR "/" + file;
}
