# Manual page and bash completion (the schema and backup scripts: tests/db/tests.cmake).
add_test(NAME packaging.man_page COMMAND ${CMAKE_SOURCE_DIR}/tests/packaging/man_page_test.sh
  $<TARGET_FILE:qv_hivectl> ${CMAKE_SOURCE_DIR}/packaging/qv_hivectl.8)
add_test(NAME packaging.completion COMMAND ${CMAKE_SOURCE_DIR}/tests/packaging/completion_test.sh
  ${CMAKE_SOURCE_DIR}/packaging/qv_hivectl.bash)
