# SPDX-License-Identifier: Apache-2.0
# Guards against bytes that got where they do not belong, in all that is built: each where compiler and linker have it.
# docs/threats.md says what they are for. Sanitizers see more than they do, and what is not optimised has no checked
# copies.
include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)
include(CheckPIESupported)

check_pie_supported()
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

set(CMAKE_REQUIRED_FLAGS -Werror)  # some take what they do not have
foreach(flag IN ITEMS -fstack-protector-strong -fstack-clash-protection -fcf-protection -mbranch-protection=standard)
  string(MAKE_C_IDENTIFIER lyn_has${flag} has)
  check_cxx_compiler_flag(${flag} ${has})
  if(${has})
    add_compile_options(${flag})
  endif()
endforeach()
unset(CMAKE_REQUIRED_FLAGS)
add_compile_options(-U_FORTIFY_SOURCE $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=3>)

foreach(flag IN ITEMS -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
  string(MAKE_C_IDENTIFIER lyn_has${flag} has)
  check_linker_flag(CXX ${flag} ${has})
  if(${has})
    add_link_options(${flag})
  endif()
endforeach()
