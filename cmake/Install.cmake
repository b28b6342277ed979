# cmake --install: the DLL with its import library, the headers, the command line, and a package that gives
# hosts the target LumaroRender::LumaroRender.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/LumaroRender")

target_include_directories(LumaroRender INTERFACE "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>")
target_compile_features(LumaroRender INTERFACE cxx_std_20)

install(TARGETS LumaroRender EXPORT LumaroRenderTargets
    RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}"
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}")
if(TARGET lumaro)
  install(TARGETS lumaro RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
endif()
# Windows has a shader compiler of its own, so none is installed.
install(FILES ${LUMARO_RUNTIME_DLLS} DESTINATION "${CMAKE_INSTALL_BINDIR}")

foreach(folder IN ITEMS core math graphics octree render)
  install(DIRECTORY "${PROJECT_SOURCE_DIR}/${folder}" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
      FILES_MATCHING PATTERN "*.h")
endforeach()
install(FILES LICENSE THIRD-PARTY-NOTICES.md DESTINATION "${CMAKE_INSTALL_DATADIR}/LumaroRender")

configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/LumaroRenderConfig.cmake.in"
    "${PROJECT_BINARY_DIR}/LumaroRenderConfig.cmake" INSTALL_DESTINATION "${package_dir}")
# Before 1.0 a minor version may break its hosts.
write_basic_package_version_file("${PROJECT_BINARY_DIR}/LumaroRenderConfigVersion.cmake"
    COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/LumaroRenderConfig.cmake"
    "${PROJECT_BINARY_DIR}/LumaroRenderConfigVersion.cmake" DESTINATION "${package_dir}")
install(EXPORT LumaroRenderTargets NAMESPACE LumaroRender:: DESTINATION "${package_dir}")
