/* SPDX-License-Identifier: Apache-2.0 */
// The executable's entry. Alone in its file, so that tests can link the rest of the demo client.
#include "lyn_demo.h"

int main() {
  return lyn_demo_main();
}
