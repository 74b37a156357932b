# SPDX-License-Identifier: MIT
# zrfs_test(NAME area [THREADS] [LONG] [SHARDS n] SOURCES a.cpp ... LIBS target ...): one GoogleTest
# program, one ctest entry, or n of them that share its tests, where these take long. Its main
# function is that of zrfs_test_support, unless one of the sources has one. With THREADS it bears the
# label "threads": the thread sanitizer is for these. Those that are LONG or have SHARDS begin first,
# so that no processor waits for them at the end.
add_custom_target(thread_tests)
# The sanitizers are for what is tested; a test is compiled in half the time so. Linked last, for
# these options take back what others ask for.
add_library(zrfs_test_options INTERFACE)
if(ZRFS_SANITIZE)
  target_compile_options(zrfs_test_options INTERFACE -O0 -fno-sanitize=undefined)
endif()
function(zrfs_test)
  cmake_parse_arguments(T "THREADS;LONG" "NAME;SHARDS" "SOURCES;LIBS" ${ARGN})
  add_executable(test_${T_NAME} ${T_SOURCES})
  target_link_libraries(test_${T_NAME} PRIVATE zrfs_options zrfs_test_support ${T_LIBS} gtest
                                              zrfs_test_options)
  if(T_THREADS)
    add_dependencies(thread_tests test_${T_NAME})
  endif()
  if(T_SHARDS)
    set(T_LONG TRUE)
  else()
    set(T_SHARDS 1)
  endif()
  foreach(shard RANGE 1 ${T_SHARDS})
    set(entry ${T_NAME})
    set(environment)
    if(T_SHARDS GREATER 1)
      set(entry ${T_NAME}_${shard})
      math(EXPR index "${shard} - 1")
      list(APPEND environment GTEST_TOTAL_SHARDS=${T_SHARDS} GTEST_SHARD_INDEX=${index})
    endif()
    add_test(NAME ${entry} COMMAND test_${T_NAME})
    set_tests_properties(${entry} PROPERTIES TIMEOUT 600)
    if(WIN32)
      # A program whose Wine server dies hangs, or ends with 0 before it did anything. The one tells
      # where it stood, is ended and gets one more run (the preset's "repeat"); the other has failed,
      # for its report is missing.
      set_tests_properties(${entry} PROPERTIES TIMEOUT 300)
      list(APPEND environment ZRFS_WINE_PATIENCE=280
           ZRFS_WINE_REPORT=${CMAKE_CURRENT_BINARY_DIR}/${entry}.xml)
    endif()
    set_tests_properties(${entry} PROPERTIES ENVIRONMENT "${environment}")
    if(T_THREADS)
      set_tests_properties(${entry} PROPERTIES LABELS threads)
    endif()
    if(T_LONG)
      set_tests_properties(${entry} PROPERTIES COST 60)
    endif()
  endforeach()
endfunction()
