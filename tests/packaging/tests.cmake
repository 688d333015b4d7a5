# Manual page, bash completion and (on the test server) the schema and backup
# scripts.
set(HIVECTL_PKG_TESTS ${CMAKE_SOURCE_DIR}/tests/packaging)
add_test(NAME packaging.man_page COMMAND ${HIVECTL_PKG_TESTS}/man_page_test.sh
  $<TARGET_FILE:qv_hivectl> ${CMAKE_SOURCE_DIR}/packaging/qv_hivectl.8)
add_test(NAME packaging.completion COMMAND ${HIVECTL_PKG_TESTS}/completion_test.sh
  ${CMAKE_SOURCE_DIR}/packaging/qv_hivectl.bash)
if(HIVECTL_PG_TESTS)
  foreach(name schema backup)
    add_test(NAME packaging.${name} COMMAND ${HIVECTL_PKG_TESTS}/${name}_test.sh
      $<TARGET_FILE:qv_hivectl> ${CMAKE_SOURCE_DIR})
  endforeach()
  set_tests_properties(packaging.schema packaging.backup PROPERTIES LABELS "postgres" TIMEOUT 120)
endif()
