/*
 * The TOML reader's own code, once, so that who links the board needs no library of it: Debian has no static one.
 */
#define TOML_IMPLEMENTATION
#include <toml++/toml.h>
