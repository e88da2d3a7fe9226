if(KEMVI_SANITIZE)
  add_compile_options(-fsanitize=${KEMVI_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${KEMVI_SANITIZE})
  # The checks that a sanitizer weaves in hide from GCC where a value was set; its guess is wrong then, as its manual says.
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    add_compile_options(-Wno-maybe-uninitialized)
  endif()
endif()
