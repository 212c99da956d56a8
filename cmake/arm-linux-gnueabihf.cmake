# Cross-building for 32-bit ARM (armv7, hard float). Two environment variables take another SDK in:
#   TARV_CROSS    prefix of the compiler's programs (default "arm-linux-gnueabihf-")
#   TARV_SYSROOT  folder with the module's headers and libraries (default: the compiler's own)
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)

if(DEFINED ENV{TARV_CROSS})
  set(cross $ENV{TARV_CROSS})
else()
  set(cross arm-linux-gnueabihf-)
endif()
set(CMAKE_C_COMPILER ${cross}gcc)
set(CMAKE_CXX_COMPILER ${cross}g++)
# The compiler's notes about an ABI that changed with GCC 7 help nobody here.
set(CMAKE_CXX_FLAGS_INIT "-march=armv7-a+fp -mfloat-abi=hard -Wno-psabi")

if(DEFINED ENV{TARV_SYSROOT})
  set(CMAKE_SYSROOT $ENV{TARV_SYSROOT})
endif()
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
