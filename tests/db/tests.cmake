# Database tests that need more than one database or server (on the test server).
if(HIVECTL_PG_TESTS)
  foreach(name publication upgrade)
    add_test(NAME db.${name} COMMAND ${CMAKE_SOURCE_DIR}/tests/db/${name}_test.sh
      $<TARGET_FILE:qv_hivectl> ${CMAKE_SOURCE_DIR})
  endforeach()
  set_tests_properties(db.publication db.upgrade PROPERTIES LABELS "postgres" TIMEOUT 120)
endif()
