# Builds Objective-C++ with ARC and blocks on Linux: clang with the headers of GCC's Objective-C runtime and GNUstep's
# Foundation, and the bridge between the two in ../objc.
#
# Sets KEMVI_OBJC_MISSING to the packages that are not there, and where nothing is missing makes the targets
#   objc_linux         compile and link options of Objective-C++ targets
#   objc_linux_bridge  object files that every executable has to contain
set(KEMVI_OBJC_MISSING "")
set(_objc ${CMAKE_CURRENT_LIST_DIR}/../objc)

find_program(KEMVI_OBJC_CLANGXX NAMES clang++-19 clang++-16 clang++-14)
file(GLOB _gcc_includes /usr/lib/gcc/*-linux-gnu/*/include)
find_path(KEMVI_OBJC_INCLUDE objc/runtime.h PATHS ${_gcc_includes} NO_DEFAULT_PATH)
find_path(KEMVI_GNUSTEP_INCLUDE Foundation/Foundation.h PATHS /usr/include/GNUstep NO_DEFAULT_PATH)
find_library(KEMVI_GNUSTEP_BASE gnustep-base)
if(NOT KEMVI_OBJC_CLANGXX)
  list(APPEND KEMVI_OBJC_MISSING clang-19)
endif()
if(NOT KEMVI_OBJC_INCLUDE)
  list(APPEND KEMVI_OBJC_MISSING libobjc-12-dev)
endif()
if(NOT (KEMVI_GNUSTEP_INCLUDE AND KEMVI_GNUSTEP_BASE))
  list(APPEND KEMVI_OBJC_MISSING libgnustep-base-dev)
endif()
if(KEMVI_OBJC_MISSING)
  return()
endif()

# A changed copy of GCC's headers. runtime.h reads a member of *id, which ARC rejects; (id)0 cannot be passed for an
# NSError **, while the platform's nil is nullptr in C++; the platform's BOOL is bool.
set(KEMVI_OBJC_HEADERS ${CMAKE_CURRENT_BINARY_DIR}/objc-include)
file(GLOB _headers ${KEMVI_OBJC_INCLUDE}/objc/*.h)
foreach(_header IN LISTS _headers)
  file(READ ${_header} _text)
  string(REPLACE "return object->class_pointer;" "return *(Class *)(__bridge void *)object;" _text "${_text}")
  string(REPLACE "#define nil (id)0" "#ifdef __cplusplus\n#define nil nullptr\n#else\n#define nil (id)0\n#endif" _text
                 "${_text}")
  string(REPLACE "typedef unsigned char  BOOL;"
                 "#ifdef __APPLE__\ntypedef bool BOOL;\n#else\ntypedef unsigned char BOOL;\n#endif" _text "${_text}")
  cmake_path(GET _header FILENAME _name)
  file(CONFIGURE OUTPUT ${KEMVI_OBJC_HEADERS}/objc/${_name} CONTENT "${_text}" @ONLY)
endforeach()
set(KEMVI_GNUSTEP_DEFINES GNUSTEP GNUSTEP_BASE_LIBRARY=1 GNU_RUNTIME=1 _NATIVE_OBJC_EXCEPTIONS)

string(REPLACE "clang++" "clang" CMAKE_OBJC_COMPILER ${KEMVI_OBJC_CLANGXX})
set(CMAKE_OBJCXX_COMPILER ${KEMVI_OBJC_CLANGXX})
set(CMAKE_OBJC_COMPILER_LAUNCHER ${CMAKE_CXX_COMPILER_LAUNCHER})
set(CMAKE_OBJCXX_COMPILER_LAUNCHER ${CMAKE_CXX_COMPILER_LAUNCHER})
enable_language(OBJC)
enable_language(OBJCXX)
set(CMAKE_OBJCXX_STANDARD 20)
set(CMAKE_OBJCXX_STANDARD_REQUIRED ON)
set(CMAKE_OBJCXX_EXTENSIONS OFF)

add_library(objc_linux_headers INTERFACE)
target_include_directories(objc_linux_headers SYSTEM INTERFACE ${_objc}/include ${KEMVI_OBJC_HEADERS}
                                                               ${KEMVI_GNUSTEP_INCLUDE})
target_compile_definitions(objc_linux_headers INTERFACE ${KEMVI_GNUSTEP_DEFINES})
target_compile_options(
  objc_linux_headers
  INTERFACE
    $<$<COMPILE_LANGUAGE:OBJC,OBJCXX>:-fblocks;-fexceptions;-fobjc-exceptions;-fconstant-string-class=NSConstantString>)

add_library(objc_linux INTERFACE)
target_link_libraries(objc_linux INTERFACE objc_linux_headers ${KEMVI_GNUSTEP_BASE} -lobjc ${CMAKE_DL_LIBS})
target_compile_options(
  objc_linux INTERFACE
  $<$<COMPILE_LANGUAGE:OBJCXX>:-fobjc-runtime=gnustep-1.9;-fobjc-legacy-dispatch;-fobjc-arc>)

add_library(objc_linux_bridge OBJECT ${_objc}/Arc.cpp ${_objc}/Blocks.m ${_objc}/Exceptions.cpp ${_objc}/ModuleLoader.cpp
                                     ${_objc}/WeakReferences.cpp)
target_link_libraries(objc_linux_bridge PRIVATE objc_linux_headers)
target_compile_options(
  objc_linux_bridge PRIVATE $<$<COMPILE_LANGUAGE:OBJC>:-fobjc-runtime=gcc;-Wno-deprecated-objc-pointer-introspection>
                            # The runtime's records are read through other types than they were written as.
                            $<$<COMPILE_LANGUAGE:CXX>:-fno-strict-aliasing;-Wall;-Wextra;-Werror>)
