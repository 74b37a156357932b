# SPDX-License-Identifier: MIT
# Runs when the files of the Debian packages are together: gives each package the terms as a file of
# its own, for no two packages may have the same one.
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  set(root ${CPACK_TEMPORARY_DIRECTORY}/${component}/usr/share/doc)
  file(READ ${root}/ZrFsLibrary/LICENSE license)
  file(READ ${root}/ZrFsLibrary/NOTICE notice)
  file(REMOVE ${root}/ZrFsLibrary/LICENSE ${root}/ZrFsLibrary/NOTICE)
  if(NOT component STREQUAL documentation)
    file(REMOVE_RECURSE ${root}/ZrFsLibrary)
  endif()
  file(WRITE ${root}/${CPACK_DEBIAN_${upper}_PACKAGE_NAME}/copyright "${license}\n${notice}")
endforeach()
