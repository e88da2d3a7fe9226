# Compiles files for Apple's target without a Mac: clang-19 with libc++'s headers, musl's C headers in place of Apple's,
# GNUstep's Foundation and the stand-in FSKit. Nothing is linked. Needs ObjCOnLinux.cmake first, for its headers.
#
# Sets KEMVI_TARGET_MISSING to the packages that are not there, and makes the function kemvi_check_macos_targets.
set(KEMVI_TARGET_MISSING ${KEMVI_OBJC_MISSING})
set(_macos ${CMAKE_CURRENT_LIST_DIR}/..)

find_program(KEMVI_TARGET_CLANGXX NAMES clang++-19)
find_path(KEMVI_LIBCXX_INCLUDE __config PATHS /usr/lib/llvm-19/include/c++/v1 NO_DEFAULT_PATH)
find_path(KEMVI_MUSL_INCLUDE stdio.h PATHS /usr/include/x86_64-linux-musl /usr/include/aarch64-linux-musl
                                           NO_DEFAULT_PATH)
if(NOT KEMVI_TARGET_CLANGXX)
  list(APPEND KEMVI_TARGET_MISSING clang-19)
endif()
if(NOT KEMVI_LIBCXX_INCLUDE)
  list(APPEND KEMVI_TARGET_MISSING libc++-19-dev)
endif()
if(NOT KEMVI_MUSL_INCLUDE)
  list(APPEND KEMVI_TARGET_MISSING musl-dev)
endif()
list(REMOVE_DUPLICATES KEMVI_TARGET_MISSING)
if(KEMVI_TARGET_MISSING)
  return()
endif()

# The headers of libraries that the Mac has too, without the rest of this system's.
set(_libraries ${CMAKE_CURRENT_BINARY_DIR}/target-include)
file(MAKE_DIRECTORY ${_libraries}/uuid)
find_path(KEMVI_SIMDJSON_INCLUDE simdjson.h)
find_path(KEMVI_UUID_INCLUDE uuid/uuid.h)
file(CREATE_LINK ${KEMVI_SIMDJSON_INCLUDE}/simdjson.h ${_libraries}/simdjson.h SYMBOLIC)
find_path(KEMVI_CLI11_INCLUDE CLI/CLI.hpp)
file(CREATE_LINK ${KEMVI_CLI11_INCLUDE}/CLI ${_libraries}/CLI SYMBOLIC)
file(CREATE_LINK ${KEMVI_UUID_INCLUDE}/uuid/uuid.h ${_libraries}/uuid/uuid.h SYMBOLIC)

get_target_property(_warnings kemvi_warnings INTERFACE_COMPILE_OPTIONS)
list(TRANSFORM KEMVI_GNUSTEP_DEFINES PREPEND -D OUTPUT_VARIABLE _defines)
set(KEMVI_TARGET_COMPILE
    ${KEMVI_TARGET_CLANGXX} --target=arm64-apple-macos15.4 -std=c++20 -fsyntax-only ${_warnings}
    -Wunguarded-availability -nostdinc++ -nostdlibinc
    # What musl and libc++ need to know of each other.
    -D_XOPEN_SOURCE=700 -D_BSD_SOURCE -D_LIBCPP_PROVIDES_DEFAULT_RUNE_TABLE
    -isystem ${KEMVI_LIBCXX_INCLUDE} -isystem ${_macos}/target/include -isystem ${_libraries}
    -idirafter ${KEMVI_MUSL_INCLUDE} -include not_on_macos.h -I${CMAKE_SOURCE_DIR})
list(TRANSFORM KEMVI_APPLE_COMMAND_DEFINITIONS PREPEND -D OUTPUT_VARIABLE _command_definitions)
list(APPEND KEMVI_TARGET_COMPILE ${_command_definitions})
set(KEMVI_TARGET_OBJCXX
    -fobjc-arc -fblocks ${_defines} -isystem ${_macos}/objc/include -isystem ${KEMVI_OBJC_HEADERS}
    -isystem ${KEMVI_GNUSTEP_INCLUDE} -isystem ${_macos}/standin/include)

# kemvi_check_macos_targets(TARGET file...): makes TARGET, part of every build, which compiles each file without writing an
# object, anew when it or a header that it includes has changed.
function(kemvi_check_macos_targets target)
  set(stamps)
  foreach(file IN LISTS ARGN)
    cmake_path(RELATIVE_PATH file BASE_DIRECTORY ${CMAKE_SOURCE_DIR} OUTPUT_VARIABLE name)
    set(stamp ${CMAKE_CURRENT_BINARY_DIR}/target/${name}.checked)
    cmake_path(GET stamp PARENT_PATH folder)
    file(MAKE_DIRECTORY ${folder})
    set(compile ${KEMVI_TARGET_COMPILE} -MD -MF ${stamp}.d -MT ${stamp})
    if(file MATCHES "\\.mm$")
      list(APPEND compile ${KEMVI_TARGET_OBJCXX})
    endif()
    add_custom_command(
      OUTPUT ${stamp}
      COMMAND ${compile} ${file}
      COMMAND ${CMAKE_COMMAND} -E touch ${stamp}
      DEPENDS ${file}
      DEPFILE ${stamp}.d
      COMMENT "Checking ${name} for Apple's target"
      VERBATIM)
    list(APPEND stamps ${stamp})
  endforeach()
  add_custom_target(${target} ALL DEPENDS ${stamps})
endfunction()
