/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The TOML reader's own code, once, so that who links the board needs no library of it: Debian has no static one. What
 * it asserts does not hold for all the bytes that it refuses a little later, so here it neither ends the process nor,
 * as with NDEBUG, may be taken for granted by the compiler.
 */
#undef NDEBUG
#define TOML_ASSERT(expr) static_cast<void>(0)
#define TOML_IMPLEMENTATION
#include <toml++/toml.h>
