# cpack: LumaroRender-VERSION-win64.zip, the programs for a machine without a compiler, and
# LumaroRender-VERSION-win64-sdk.zip, what a host is built with.

if(LUMARO_BUILD_PROGRAMS)
  # At the top of the ZIP only: an installation has no place for them.
  foreach(file IN ITEMS README.txt sample.cmd)
    configure_file("${PROJECT_SOURCE_DIR}/cmake/zip/${file}.in" "${PROJECT_BINARY_DIR}/zip/${file}" @ONLY
        NEWLINE_STYLE CRLF)
    install(FILES "${PROJECT_BINARY_DIR}/zip/${file}" DESTINATION . COMPONENT programs EXCLUDE_FROM_ALL)
  endforeach()
endif()

set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_VENDOR "LumaroRender")
set(CPACK_PACKAGE_FILE_NAME "LumaroRender-${PROJECT_VERSION}-win64")
set(CPACK_ARCHIVE_PROGRAMS_FILE_NAME "${CPACK_PACKAGE_FILE_NAME}")
set(CPACK_ARCHIVE_SDK_FILE_NAME "${CPACK_PACKAGE_FILE_NAME}-sdk")
set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
set(CPACK_COMPONENT_INCLUDE_TOPLEVEL_DIRECTORY ON)
set(CPACK_COMPONENTS_ALL sdk)
if(LUMARO_BUILD_PROGRAMS)
  list(APPEND CPACK_COMPONENTS_ALL programs)
endif()
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
include(CPack)
