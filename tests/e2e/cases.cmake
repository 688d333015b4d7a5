# Each scenario file under tests/e2e/cases becomes one CTest test per backend
# it applies to. A case names its backends with a "backends:" line (default:
# memory and postgres); the postgres variants exist only with HIVECTL_PG_TESTS,
# which scripts/test.sh sets after starting its throwaway server.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
file(GLOB_RECURSE HIVECTL_E2E_CASES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/e2e/cases/*.case)
set(HIVECTL_E2E_BACKENDS memory)
if(HIVECTL_PG_TESTS)
  list(APPEND HIVECTL_E2E_BACKENDS postgres)
endif()
foreach(case_file ${HIVECTL_E2E_CASES})
  file(RELATIVE_PATH case_name ${CMAKE_SOURCE_DIR}/tests/e2e/cases ${case_file})
  string(REGEX REPLACE "\\.case$" "" case_name ${case_name})
  file(STRINGS ${case_file} backend_line REGEX "^backends:")
  file(STRINGS ${case_file} label_line REGEX "^labels:")
  string(REGEX REPLACE "^labels:[ \t]*" "" case_labels "${label_line}")
  string(REPLACE " " ";" case_labels "${case_labels}")
  # A "settings:" line runs the file once per setting, as $SETTING.
  file(STRINGS ${case_file} settings_line REGEX "^settings:")
  string(REGEX REPLACE "^settings:[ \t]*" "" case_settings "${settings_line}")
  string(REPLACE " " ";" case_settings "${case_settings}")
  if(NOT case_settings)
    set(case_settings "-")
  endif()
  foreach(backend ${HIVECTL_E2E_BACKENDS})
    if(backend_line AND NOT backend_line MATCHES "[ \t]${backend}([ \t]|$)")
      continue()
    endif()
    foreach(setting ${case_settings})
      set(test_name e2e.${backend}.${case_name})
      set(setting_args)
      if(NOT setting STREQUAL "-")
        set(test_name ${test_name}.${setting})
        set(setting_args --setting ${setting})
      endif()
      add_test(NAME ${test_name}
        COMMAND ${Python3_EXECUTABLE} ${CMAKE_SOURCE_DIR}/tests/e2e/run_case.py
                --binary $<TARGET_FILE:qv_hivectl> --backend ${backend} ${setting_args} ${case_file})
      set_tests_properties(${test_name} PROPERTIES
        LABELS "e2e;${backend};${case_labels}" TIMEOUT 120)
      if(backend STREQUAL "postgres")
        # Cases share one database; they reset it first, so they run one at a time.
        set_tests_properties(${test_name} PROPERTIES RESOURCE_LOCK registry_db)
      endif()
    endforeach()
  endforeach()
endforeach()
