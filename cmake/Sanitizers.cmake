if(KEMVI_SANITIZE)
  add_compile_options(-fsanitize=${KEMVI_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${KEMVI_SANITIZE})
endif()
