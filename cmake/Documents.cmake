# SPDX-License-Identifier: MIT
# The documents as they are installed: in the folders that they have here, so that their links hold.
# Links to what is installed elsewhere are turned there.

# zrfs_page(name): a page with links to headers and to the Python package
function(zrfs_page name)
  get_filename_component(folder ${name} DIRECTORY)
  set(from ${CMAKE_INSTALL_FULL_DOCDIR}/${folder})
  file(RELATIVE_PATH headers ${from} ${CMAKE_INSTALL_FULL_INCLUDEDIR}/zrfs)
  file(RELATIVE_PATH python ${from} ${CMAKE_INSTALL_PREFIX}/${ZRFS_PYTHON_DIR})
  file(READ ${name} text)
  string(REGEX REPLACE "\\]\\((\\.\\./)?include/(zrfs/)?" "](${headers}/" text "${text}")
  string(REGEX REPLACE "\\]\\((\\.\\./)?python/" "](${python}/" text "${text}")
  file(GENERATE OUTPUT ${PROJECT_BINARY_DIR}/pages/${name} CONTENT "${text}")
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${name})
  install(FILES ${PROJECT_BINARY_DIR}/pages/${name} DESTINATION ${CMAKE_INSTALL_DOCDIR}/${folder}
    COMPONENT documentation)
endfunction()

zrfs_page(README.md)
zrfs_page(docs/guide.md)
install(FILES CHANGELOG.md CONTRIBUTING.md SECURITY.md DESTINATION ${CMAKE_INSTALL_DOCDIR}
  COMPONENT documentation)
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs COMPONENT documentation
  FILES_MATCHING PATTERN "*.md" PATTERN "*.png" PATTERN "*.svg" PATTERN "guide.md" EXCLUDE)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation)

# The reference of the public headers.
option(ZRFS_BUILD_REFERENCE "Make the reference of the public headers, with Doxygen" ON)
find_program(DOXYGEN doxygen)
if(ZRFS_BUILD_REFERENCE AND NOT DOXYGEN)
  message(STATUS "Doxygen is missing (Debian: doxygen): the reference of the headers is not made")
elseif(ZRFS_BUILD_REFERENCE)
  file(CONFIGURE OUTPUT Doxyfile CONTENT
    "@INCLUDE = docs/Doxyfile\nOUTPUT_DIRECTORY = \"@PROJECT_BINARY_DIR@/reference\"\nWARN_AS_ERROR = NO\n" @ONLY)
  add_custom_command(OUTPUT reference/html/index.html
    COMMAND ${CMAKE_COMMAND} -E rm -rf ${PROJECT_BINARY_DIR}/reference
    COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/reference
    COMMAND ${DOXYGEN} ${PROJECT_BINARY_DIR}/Doxyfile
    DEPENDS ${ZRFS_PUBLIC_HEADERS} docs/Doxyfile docs/guide.md
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} VERBATIM COMMENT "Making the reference")
  add_custom_target(zrfs_reference ALL DEPENDS reference/html/index.html)
  install(DIRECTORY ${PROJECT_BINARY_DIR}/reference/html
    DESTINATION ${CMAKE_INSTALL_DOCDIR}/reference COMPONENT documentation)
endif()
