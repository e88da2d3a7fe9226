# Headers are included as "folder/Header.h". To let a target see its own floor and the ones it links but no others, each
# floor's headers appear under an include root of its own: <build>/include/<folder>/<folder> -> <source>/<folder>.
# A target that is defined elsewhere names its folder (relative to the source tree) as second argument.
function(kemvi_floor target)
  if(ARGC GREATER 1)
    set(folder ${ARGV1})
  else()
    cmake_path(RELATIVE_PATH CMAKE_CURRENT_SOURCE_DIR BASE_DIRECTORY ${CMAKE_SOURCE_DIR} OUTPUT_VARIABLE folder)
  endif()
  set(root ${CMAKE_BINARY_DIR}/include/${folder})
  cmake_path(GET folder PARENT_PATH above)
  file(MAKE_DIRECTORY ${root}/${above})
  file(CREATE_LINK ${CMAKE_SOURCE_DIR}/${folder} ${root}/${folder} SYMBOLIC)
  target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${root}>)
endfunction()
