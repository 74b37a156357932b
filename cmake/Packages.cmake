# Header-only libraries come from the system's include folder. The cross build must not see that
# folder as a whole, so it gets one that holds links to just these libraries.
set(ZRFS_HEADERS ${CMAKE_BINARY_DIR}/headers)
file(MAKE_DIRECTORY ${ZRFS_HEADERS})
foreach(library fmt CLI nlohmann)
  if(NOT EXISTS /usr/include/${library})
    message(FATAL_ERROR "/usr/include/${library} is missing: run scripts/setup")
  endif()
  file(CREATE_LINK /usr/include/${library} ${ZRFS_HEADERS}/${library} SYMBOLIC)
endforeach()

add_library(zrfs_headers INTERFACE)
target_include_directories(zrfs_headers SYSTEM INTERFACE ${ZRFS_HEADERS})

# fmt as one object file: header-only it would cost seconds in every file that formats.
add_library(zrfs_fmt STATIC cmake/fmt.cpp)
target_link_libraries(zrfs_fmt PUBLIC zrfs_headers)

# GoogleTest is built from its sources, so that both builds and the sanitizers use the same one.
set(CMAKE_POLICY_DEFAULT_CMP0077 NEW)
set(INSTALL_GTEST OFF)
set(gtest_force_shared_crt ON)
add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
