# SPDX-License-Identifier: MIT
# Header-only libraries, as find_package tells of them. The cross build takes them from the machine
# that builds, and must not see the folder that they are in as a whole: so everyone gets a folder with
# links to just these libraries.
set(ZRFS_HEADERS ${PROJECT_BINARY_DIR}/headers)

# zrfs_header_library(PACKAGE target folder debian-package)
function(zrfs_header_library package target folder debian)
  if(CMAKE_CROSSCOMPILING)
    set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
    set(CMAKE_LIBRARY_ARCHITECTURE ${CMAKE_HOST_SYSTEM_PROCESSOR}-linux-gnu)
  endif()
  find_package(${package} CONFIG QUIET PATHS /usr)
  if(NOT ${package}_FOUND)
    message(FATAL_ERROR "${package} is missing: install it (Debian: ${debian}; scripts/setup "
                        "installs all), or name its folder in ${package}_DIR")
  endif()
  get_target_property(includes ${target} INTERFACE_INCLUDE_DIRECTORIES)
  foreach(include IN LISTS includes ITEMS /usr/include)
    if(EXISTS ${include}/${folder})
      file(MAKE_DIRECTORY ${ZRFS_HEADERS})
      file(CREATE_LINK ${include}/${folder} ${ZRFS_HEADERS}/${folder} SYMBOLIC)
      return()
    endif()
  endforeach()
  message(FATAL_ERROR "${package} was found, its headers (${folder}/) were not")
endfunction()

# The store on a cluster is left out where what it is made with is missing.
set(can_have_cluster OFF)
if(NOT CMAKE_CROSSCOMPILING AND NOT WIN32)
  find_package(CURL QUIET)
  find_package(nlohmann_json CONFIG QUIET)
  if(CURL_FOUND AND nlohmann_json_FOUND)
    set(can_have_cluster ON)
  endif()
endif()
option(ZRFS_CLUSTER "Build the store on an etcd cluster" ${can_have_cluster})
if(ZRFS_CLUSTER)
  find_package(CURL REQUIRED)
endif()

zrfs_header_library(fmt fmt::fmt fmt libfmt-dev)
if(ZRFS_BUILD_TOOLS OR ZRFS_BUILD_TESTS OR ZRFS_BUILD_BENCHMARKS)
  zrfs_header_library(CLI11 CLI11::CLI11 CLI libcli11-dev)
  zrfs_header_library(nlohmann_json nlohmann_json::nlohmann_json nlohmann nlohmann-json3-dev)
elseif(ZRFS_CLUSTER)
  zrfs_header_library(nlohmann_json nlohmann_json::nlohmann_json nlohmann nlohmann-json3-dev)
endif()

add_library(zrfs_headers INTERFACE)
target_include_directories(zrfs_headers SYSTEM INTERFACE ${ZRFS_HEADERS})

# fmt as one object file: header-only it would cost seconds in every file that formats.
add_library(zrfs_fmt STATIC ${PROJECT_SOURCE_DIR}/cmake/fmt.cpp)
target_link_libraries(zrfs_fmt PUBLIC zrfs_headers)

# GoogleTest is built from its sources, so that both builds and the sanitizers use the same one.
if(ZRFS_BUILD_TESTS)
  set(CMAKE_POLICY_DEFAULT_CMP0077 NEW)
  set(INSTALL_GTEST OFF)
  set(gtest_force_shared_crt ON)
  set(ZRFS_GOOGLETEST /usr/src/googletest CACHE PATH "The sources of GoogleTest")
  if(NOT EXISTS ${ZRFS_GOOGLETEST}/CMakeLists.txt)
    message(FATAL_ERROR "The sources of GoogleTest are not in ${ZRFS_GOOGLETEST}: install them (Debian: "
                        "googletest; scripts/setup installs all), name their folder in ZRFS_GOOGLETEST, "
                        "or set ZRFS_BUILD_TESTS to OFF")
  endif()
  add_subdirectory(${ZRFS_GOOGLETEST} ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
  if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
    target_compile_options(gtest PRIVATE $<$<NOT:$<CONFIG:Debug>>:-Og>)
  endif()
endif()
