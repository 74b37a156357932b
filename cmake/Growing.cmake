# Leaves out of a library the sources that are not in the tree yet, so that one folder builds
# while another is still being written.
file(WRITE ${CMAKE_BINARY_DIR}/empty.cpp "")
function(add_library name)
  set(arguments "")
  set(dropped FALSE)
  foreach(argument ${ARGN})
    if(NOT argument MATCHES "\\.cpp$" OR IS_ABSOLUTE "${argument}"
       OR EXISTS "${CMAKE_CURRENT_SOURCE_DIR}/${argument}")
      list(APPEND arguments "${argument}")
    else()
      set(dropped TRUE)
    endif()
  endforeach()
  if(dropped)
    list(APPEND arguments ${CMAKE_BINARY_DIR}/empty.cpp)
  endif()
  _add_library(${name} ${arguments})
endfunction()
