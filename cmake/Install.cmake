# SPDX-License-Identifier: MIT
# What `cmake --install` puts where, in the components runtime, development, tools, python and
# documentation.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS ZrFsLibrary EXPORT ZrFsLibraryTargets
  RUNTIME COMPONENT runtime
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE COMPONENT development)
install(FILES ${ZRFS_PUBLIC_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zrfs
  COMPONENT development)

set(ZRFS_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ZrFsLibrary)
install(EXPORT ZrFsLibraryTargets NAMESPACE ZrFs:: DESTINATION ${ZRFS_CMAKE_DIR}
  COMPONENT development)
configure_package_config_file(cmake/ZrFsLibraryConfig.cmake.in
  ${PROJECT_BINARY_DIR}/ZrFsLibraryConfig.cmake INSTALL_DESTINATION ${ZRFS_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ZrFsLibraryConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ZrFsLibraryConfig.cmake
  ${PROJECT_BINARY_DIR}/ZrFsLibraryConfigVersion.cmake
  DESTINATION ${ZRFS_CMAKE_DIR} COMPONENT development)

# The folder above the one of zrfs.pc, however deep that lies, so that all of it can be moved.
file(RELATIVE_PATH ZRFS_PREFIX_FROM_PC /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" ZRFS_PREFIX_FROM_PC ${ZRFS_PREFIX_FROM_PC})
configure_file(cmake/zrfs.pc.in ${PROJECT_BINARY_DIR}/zrfs.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zrfs.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)

if(WIN32)
  # A program on a Windows without it finds the library for offline hives beside itself.
  install(FILES $<TARGET_FILE:offreg> DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
  # For the compilers of others: the list of exports, and an import library made of it.
  get_target_property(sources ZrFsLibrary SOURCES)
  get_target_property(folder ZrFsLibrary SOURCE_DIR)
  foreach(source ${sources})
    if(source MATCHES "\\.def$")
      get_filename_component(ZRFS_DEF ${source} ABSOLUTE BASE_DIR ${folder})
    endif()
  endforeach()
  install(FILES ${ZRFS_DEF} DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
  find_program(LLVM_DLLTOOL NAMES llvm-dlltool llvm-dlltool-14)
  if(LLVM_DLLTOOL)
    set(lib ${PROJECT_BINARY_DIR}/ZrFsLibrary.lib)
    add_custom_command(OUTPUT ${lib} DEPENDS ${ZRFS_DEF}
      COMMAND ${LLVM_DLLTOOL} -m i386:x86-64 -d ${ZRFS_DEF} -l ${lib} VERBATIM)
    add_custom_target(zrfs_msvc_lib ALL DEPENDS ${lib})
    install(FILES ${lib} DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
  else()
    message(STATUS "llvm-dlltool is missing (Debian: llvm): no ZrFsLibrary.lib is made")
  endif()
endif()

if(TARGET fbr)
  install(TARGETS fbr RUNTIME COMPONENT tools)
  # zrfs_words(kind folder name)
  function(zrfs_words kind folder name)
    if(TARGET zrfs_words)
      install(FILES ${PROJECT_BINARY_DIR}/words/fbr.${kind} DESTINATION ${folder} RENAME ${name}
        COMPONENT tools)
    endif()
  endfunction()
  zrfs_words(powershell ${CMAKE_INSTALL_DATADIR}/zrfs fbr-completions.ps1)
  if(NOT WIN32)
    # Distributions have zsh look elsewhere for what their packages bring.
    set(ZRFS_ZSH_DIR ${CMAKE_INSTALL_DATADIR}/zsh/site-functions CACHE STRING
      "Folder for the completions of zsh")
    zrfs_words(man ${CMAKE_INSTALL_MANDIR}/man1 fbr.1)
    zrfs_words(bash ${CMAKE_INSTALL_DATADIR}/bash-completion/completions fbr)
    zrfs_words(zsh ${ZRFS_ZSH_DIR} _fbr)
    zrfs_words(fish ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d fbr.fish)
  endif()
endif()
if(WIN32)
  set(ZRFS_PYTHON_DIR python)
else()
  set(ZRFS_PYTHON_DIR lib/python3/dist-packages)
endif()
install(DIRECTORY python/zrfs DESTINATION ${ZRFS_PYTHON_DIR} COMPONENT python
  FILES_MATCHING PATTERN "*.py" PATTERN "py.typed" PATTERN "__pycache__" EXCLUDE)
# What Python's own tools ask for the version.
configure_file(cmake/PythonMetadata.in ${PROJECT_BINARY_DIR}/METADATA @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/METADATA COMPONENT python
  DESTINATION ${ZRFS_PYTHON_DIR}/zrfs-${PROJECT_VERSION}.dist-info)
include(cmake/Documents.cmake)
# A Debian package has them as its own file, see DebianCopyright.cmake.
foreach(component runtime development tools python documentation)
  install(FILES LICENSE NOTICE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT ${component})
endforeach()
