# Script tests on the test server, each in databases of its own: the schema and backup
# scripts, and what needs more than one database or server.
if(HIVECTL_PG_TESTS)
  foreach(test packaging/schema packaging/backup db/publication db/upgrade)
    string(REPLACE / . name ${test})
    add_test(NAME ${name} COMMAND ${CMAKE_SOURCE_DIR}/tests/${test}_test.sh
      $<TARGET_FILE:qv_hivectl> ${CMAKE_SOURCE_DIR})
    set_tests_properties(${name} PROPERTIES LABELS "postgres" TIMEOUT 120)
  endforeach()
endif()
