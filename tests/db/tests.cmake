# Database tests that need more than one database or server (on the test server).
if(HIVECTL_PG_TESTS)
  set(HIVECTL_DB_TESTS ${CMAKE_SOURCE_DIR}/tests/db)
  add_test(NAME db.publication COMMAND ${HIVECTL_DB_TESTS}/publication_test.sh
    $<TARGET_FILE:qv_hivectl> ${CMAKE_SOURCE_DIR})
  add_test(NAME db.upgrade COMMAND ${HIVECTL_DB_TESTS}/upgrade_test.sh
    $<TARGET_FILE:qv_hivectl> ${CMAKE_SOURCE_DIR})
  set_tests_properties(db.publication db.upgrade PROPERTIES LABELS "postgres" TIMEOUT 120)
endif()
