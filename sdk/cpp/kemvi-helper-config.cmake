include(CMakeFindDependencyMacro)
find_dependency(simdjson)
include(${CMAKE_CURRENT_LIST_DIR}/kemvi-helper-targets.cmake)
