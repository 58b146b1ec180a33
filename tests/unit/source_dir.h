/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Where the tree is, for tests that read its files wherever they are built and run. Compiled by itself, so that nothing
 * else depends on the place.
 */
#ifndef SOURCE_DIR_H
#define SOURCE_DIR_H

#include <string>

/** The path of a file of the tree. */
std::string source_path(const std::string &file);

#endif
