# Installs every symbolic link of the build's resource folder as the same
# link (same target) in the installed resource folder.
file(GLOB links LIST_DIRECTORIES true "${QUILLON_LINKS_FROM}/*")
foreach(link IN LISTS links)
  if(NOT IS_SYMLINK "${link}")
    continue()
  endif()
  file(READ_SYMLINK "${link}" target)
  cmake_path(IS_PREFIX QUILLON_LINKS_BUILD_TREE "${target}" NORMALIZE into_build_tree)
  if(NOT IS_ABSOLUTE "${target}" OR into_build_tree)
    message(FATAL_ERROR "${link} points to ${target}, which an installed system does not have")
  endif()
  file(INSTALL "${link}" DESTINATION "${CMAKE_INSTALL_PREFIX}/${QUILLON_LINKS_TO}")
endforeach()
