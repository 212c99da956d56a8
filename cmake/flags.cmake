# Compiler and linker flags for everything that is built here.
add_library(tarvolin_flags INTERFACE)
target_include_directories(tarvolin_flags INTERFACE ${PROJECT_SOURCE_DIR})

# 64-bit file offsets and times on 32-bit modules too.
target_compile_definitions(tarvolin_flags INTERFACE _GNU_SOURCE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
target_compile_options(tarvolin_flags INTERFACE
  -Wall -Wextra -Wshadow -Wconversion -Wsign-conversion -Wformat=2 -Wold-style-cast -Wmissing-declarations)

option(TARVOLIN_WERROR "Treat warnings as errors" OFF)
if(TARVOLIN_WERROR)
  target_compile_options(tarvolin_flags INTERFACE -Werror)
endif()

option(TARVOLIN_HARDENED "Harden the executables against exploitation" OFF)
if(TARVOLIN_HARDENED)
  set(CMAKE_POSITION_INDEPENDENT_CODE ON)
  include(CheckPIESupported)
  check_pie_supported()
  target_compile_options(tarvolin_flags INTERFACE -fstack-protector-strong -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  target_link_options(tarvolin_flags INTERFACE -Wl,-z,relro,-z,now -Wl,-z,noexecstack)
endif()

option(TARVOLIN_SANITIZE "Build with the address and undefined-behaviour sanitizers" OFF)
if(TARVOLIN_SANITIZE)
  target_compile_options(tarvolin_flags INTERFACE
    -fsanitize=address,undefined -fno-sanitize=vptr -fno-sanitize-recover=all -fno-omit-frame-pointer) # vptr needs RTTI
  target_link_options(tarvolin_flags INTERFACE -fsanitize=address,undefined)
endif()

option(TARVOLIN_FUZZ "Build the fuzz targets, too; needs clang, the tools and the tests" OFF)
if(TARVOLIN_FUZZ)
  target_compile_options(tarvolin_flags INTERFACE
    -O2 -g -fno-omit-frame-pointer -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize=vptr
    -fno-sanitize-recover=all)
  target_link_options(tarvolin_flags INTERFACE -fsanitize=address,undefined)
endif()
