include(CMakeFindDependencyMacro)
find_dependency(simdjson)
find_dependency(Threads)
include(${CMAKE_CURRENT_LIST_DIR}/kemvi-helper-targets.cmake)
