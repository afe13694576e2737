# What every target of this tree is compiled with.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON) # a build folder that is moved still runs
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()

# 64-bit file offsets and time on 32-bit targets too.
add_compile_definitions(_GNU_SOURCE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow)
set(CMAKE_COMPILE_WARNING_AS_ERROR ON CACHE BOOL "Warnings are errors")

# What is built to be installed: hardened, and free of what nothing refers to.
if(CMAKE_BUILD_TYPE MATCHES "^(Release|MinSizeRel)$" AND NOT FW_SANITIZE)
  include(CheckPIESupported)
  check_pie_supported()
  add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -fstack-protector-strong -ffunction-sections -fdata-sections)
  # Names and lines for the -dbgsym packages, the same wherever the tree lies.
  set(FW_SHIPPED_OPTIONS -g1 -fdebug-prefix-map=${CMAKE_SOURCE_DIR}=.)
  if(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64")
    list(APPEND FW_SHIPPED_OPTIONS -fcf-protection=full -fstack-clash-protection)
  endif()
  # No link-time optimization: it would save a fifth of a small program's size, but finds functions that throw nothing, which
  # on ARM cannot be unwound, and a thread that is cancelled in one ends the process.
  add_link_options(LINKER:--build-id=sha1 LINKER:-z,relro LINKER:-z,now LINKER:--gc-sections LINKER:--as-needed)
endif()

set(FW_SANITIZE "" CACHE STRING "Sanitizers, for example address,undefined")
if(FW_SANITIZE)
  add_compile_options(-fsanitize=${FW_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${FW_SANITIZE})
  if(FW_SANITIZE MATCHES undefined)
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
endif()
