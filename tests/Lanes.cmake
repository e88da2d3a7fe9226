# Entries of ctest that run tests of the real command, and in which lane they are. The label `full` keeps an entry out of the
# fast lane, `short` out of the full one, which has the same tests whole (CMakePresets.json).
find_program(SYSTEM_PYTHON NAMES python3 PATHS /usr/bin NO_DEFAULT_PATH REQUIRED)

# kemvi_run_test(NAME SECONDS LABELS label... RUN argument... [COST cost]): what tests/run.py is given. SECONDS is the limit,
# several times what it takes on a busy machine of two cores, and also the cost if there is no other: ctest starts first
# what costs most.
function(kemvi_run_test name seconds)
  cmake_parse_arguments(PARSE_ARGV 2 TEST "" "COST" "LABELS;RUN")
  if(NOT TEST_COST)
    set(TEST_COST ${seconds})
  endif()
  set(slowness 1)
  if(KEMVI_SANITIZE)
    set(slowness 4)
  endif()
  math(EXPR limit "${seconds} * ${slowness}")
  add_test(NAME ${name} COMMAND ${SYSTEM_PYTHON} ${CMAKE_SOURCE_DIR}/tests/run.py --binary $<TARGET_FILE:kemvi>
                                --sdk ${CMAKE_SOURCE_DIR}/sdk/node ${TEST_RUN})
  set_tests_properties(${name} PROPERTIES LABELS "${TEST_LABELS}" TIMEOUT ${limit} SKIP_RETURN_CODE 77 COST ${TEST_COST})
  if(KEMVI_SANITIZE)
    set_tests_properties(${name} PROPERTIES ENVIRONMENT "KEMVI_TEST_SLOWNESS=${slowness};KEMVI_TEST_SANITIZED=1")
  endif()
endfunction()
