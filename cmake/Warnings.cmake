# Warnings are errors for our own targets only: kemvi_warnings is linked by each of them, never by a dependency.
add_library(kemvi_warnings INTERFACE)
target_compile_options(kemvi_warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast
                                                -Wcast-qual -Wconversion -Wno-sign-conversion -Werror)
# GCC 12 warns of overlapping copies inside std::string's own operator+ once it is inlined (its bug 105651).
add_compile_options($<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-restrict>)
