# The web player's files for QuillonServer.jar: the page (web/*, flat) under
# web/ and hls.js with its licence under web/vendor/. hls.js comes from the
# npm registry at the version pinned in webvendor/package-lock.json, fetched
# once into the build folder while configuring: add_jar wants its resources
# to exist then. Sets QUILLON_WEB_RESOURCES for add_jar's RESOURCES.
option(QUILLON_FETCH_HLSJS "Fetch hls.js with npm for the web player" ON)

file(GLOB QUILLON_WEB_PAGE_FILES CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/web/*)
set(QUILLON_WEB_RESOURCES NAMESPACE web ${QUILLON_WEB_PAGE_FILES})

set(_vendor_src ${CMAKE_CURRENT_SOURCE_DIR}/webvendor)
set(_vendor_work ${CMAKE_CURRENT_BINARY_DIR}/webvendor)
set(_vendor_out ${CMAKE_CURRENT_BINARY_DIR}/web/vendor)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
  ${_vendor_src}/package.json ${_vendor_src}/package-lock.json)

unset(QUILLON_HLSJS_VERSION CACHE)
if(QUILLON_FETCH_HLSJS)
  file(READ ${_vendor_src}/package-lock.json _lock)
  string(JSON _hls_version GET "${_lock}" packages node_modules/hls.js version)
  set(_stamp ${_vendor_out}/hls.js.version)
  set(_have)
  if(EXISTS ${_stamp})
    file(READ ${_stamp} _have)
  endif()
  if(NOT _have STREQUAL _hls_version)
    find_program(QUILLON_NPM npm)
    if(NOT QUILLON_NPM)
      message(FATAL_ERROR "The web player needs npm to fetch hls.js ${_hls_version} "
        "(or configure with -DQUILLON_FETCH_HLSJS=OFF to build without it).")
    endif()
    message(STATUS "Fetching hls.js ${_hls_version} with npm")
    file(MAKE_DIRECTORY ${_vendor_work} ${_vendor_out})
    file(COPY ${_vendor_src}/package.json ${_vendor_src}/package-lock.json DESTINATION ${_vendor_work})
    execute_process(
      COMMAND ${QUILLON_NPM} ci --ignore-scripts --no-audit --no-fund --prefer-offline
      WORKING_DIRECTORY ${_vendor_work}
      RESULT_VARIABLE _npm_result
      OUTPUT_VARIABLE _npm_output ERROR_VARIABLE _npm_output)
    set(_dist ${_vendor_work}/node_modules/hls.js)
    if(NOT _npm_result EQUAL 0 OR NOT EXISTS ${_dist}/dist/hls.light.min.js)
      message(FATAL_ERROR "npm could not fetch hls.js ${_hls_version}:\n${_npm_output}\n"
        "Configure with -DQUILLON_FETCH_HLSJS=OFF to build the web player without it.")
    endif()
    file(COPY_FILE ${_dist}/dist/hls.light.min.js ${_vendor_out}/hls.light.min.js)
    # The package's notice, then the licence it names in full.
    file(READ ${_dist}/LICENSE _notice)
    set(_apache)
    if(EXISTS /usr/share/common-licenses/Apache-2.0)
      file(READ /usr/share/common-licenses/Apache-2.0 _apache)
    endif()
    file(WRITE ${_vendor_out}/hls.js.LICENSE
      "hls.js ${_hls_version}, from the npm package \"hls.js\" (dist/hls.light.min.js)\n\n"
      "${_notice}\n${_apache}")
    file(WRITE ${_stamp} "${_hls_version}")
  endif()
  # The package's copyright file names what the jar bundles.
  set(QUILLON_HLSJS_VERSION ${_hls_version} CACHE INTERNAL "hls.js version inside the jar")
  list(APPEND QUILLON_WEB_RESOURCES NAMESPACE web/vendor
    ${_vendor_out}/hls.light.min.js ${_vendor_out}/hls.js.LICENSE)
endif()
