# Warnings are errors for our own targets only: kemvi_warnings is linked by each of them, never by a dependency.
add_library(kemvi_warnings INTERFACE)
target_compile_options(kemvi_warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast
                                                -Wcast-qual -Wconversion -Wno-sign-conversion -Werror)
