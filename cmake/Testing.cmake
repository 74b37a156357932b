# zrfs_test(NAME area [THREADS] SOURCES a.cpp ... LIBS target ...): one GoogleTest program, one ctest
# entry. Its main function is that of zrfs_test_support, unless one of the sources has one. With
# THREADS it bears the label "threads": the thread sanitizer is for these.
add_custom_target(thread_tests)
function(zrfs_test)
  cmake_parse_arguments(T "THREADS" "NAME" "SOURCES;LIBS" ${ARGN})
  add_executable(test_${T_NAME} ${T_SOURCES})
  target_link_libraries(test_${T_NAME} PRIVATE zrfs_options zrfs_test_support ${T_LIBS} gtest)
  add_test(NAME ${T_NAME} COMMAND test_${T_NAME})
  set_tests_properties(${T_NAME} PROPERTIES TIMEOUT 600)
  if(WIN32)
    # A program whose Wine server dies hangs, or ends with 0 before it did anything. The one tells
    # where it stood, is ended and gets one more run (the preset's "repeat"); the other has failed,
    # for its report is missing.
    set_tests_properties(${T_NAME} PROPERTIES TIMEOUT 300
      ENVIRONMENT "ZRFS_WINE_PATIENCE=280;ZRFS_WINE_REPORT=${CMAKE_CURRENT_BINARY_DIR}/${T_NAME}.xml")
  endif()
  if(T_THREADS)
    set_tests_properties(${T_NAME} PROPERTIES LABELS threads)
    add_dependencies(thread_tests test_${T_NAME})
  endif()
endfunction()
