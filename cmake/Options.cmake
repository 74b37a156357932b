# SPDX-License-Identifier: MIT
# What is installed of include/.
file(GLOB ZRFS_PUBLIC_HEADERS CONFIGURE_DEPENDS
  ${PROJECT_SOURCE_DIR}/include/*.h ${PROJECT_SOURCE_DIR}/include/zrfs/*.hpp)

# Compile and link options that every target of the project shares, as the interface target
# zrfs_options.
add_library(zrfs_options INTERFACE)
target_include_directories(zrfs_options INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(zrfs_options INTERFACE -Wall -Wextra -Wshadow -Wno-unused-parameter)
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  # GCC 12 warns of impossible lengths inside its own string class.
  target_compile_options(zrfs_options INTERFACE -Wno-restrict -Wno-stringop-overread
                         -Wno-stringop-overflow)
endif()
target_compile_definitions(zrfs_options INTERFACE $<$<BOOL:${WIN32}>:UNICODE _UNICODE
                           NOMINMAX WIN32_LEAN_AND_MEAN _WIN32_WINNT=0x0A00>)
find_package(Threads REQUIRED)
target_link_libraries(zrfs_options INTERFACE Threads::Threads)
if(WIN32)
  # One file to ship: the run-time libraries of the compiler go into each program and DLL. The same
  # sources make the same bytes.
  target_link_options(zrfs_options INTERFACE -static -Wl,--no-insert-timestamp)
endif()
option(ZRFS_NEUTRAL_PATHS "Leave this machine's folders out of what is built" OFF)
if(ZRFS_NEUTRAL_PATHS)
  target_compile_options(zrfs_options INTERFACE
    -ffile-prefix-map=${PROJECT_BINARY_DIR}=build -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
endif()
if(ZRFS_FUZZ AND NOT CMAKE_CXX_COMPILER_ID MATCHES Clang)
  message(FATAL_ERROR "ZRFS_FUZZ needs clang: set CMAKE_C_COMPILER and CMAKE_CXX_COMPILER")
endif()
if(ZRFS_SANITIZE OR ZRFS_FUZZ)
  target_compile_definitions(zrfs_options INTERFACE _GLIBCXX_ASSERTIONS)
  target_compile_definitions(zrfs_options INTERFACE ZRFS_NO_POOLS)
  target_compile_options(zrfs_options INTERFACE -fsanitize=address,undefined
                         -fno-sanitize-recover=undefined -fno-omit-frame-pointer
                         $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)  # false in its own library
  target_link_options(zrfs_options INTERFACE -fsanitize=address,undefined)
endif()
if(ZRFS_SANITIZE_THREADS)
  target_compile_definitions(zrfs_options INTERFACE _GLIBCXX_ASSERTIONS ZRFS_NO_POOLS)
  target_compile_options(zrfs_options INTERFACE -fsanitize=thread -fno-omit-frame-pointer
                         $<$<CXX_COMPILER_ID:GNU>:-Wno-tsan>)  # knows no fences
  target_link_options(zrfs_options INTERFACE -fsanitize=thread)
endif()
if(ZRFS_FUZZ)
  # Every library tells the fuzzer which ways a run took through it.
  target_compile_options(zrfs_options INTERFACE -fsanitize=fuzzer-no-link -g -O1)
endif()
