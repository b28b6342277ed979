# What cmake --install installs, in two components, each of which stands by itself:
#   programs  the command line and the viewer with every DLL that Windows lacks
#   sdk       the DLL with its import library, the headers, and a package that gives hosts the target
#             LumaroRender::LumaroRender
# Windows has a shader compiler of its own, so none is installed.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
include(Licences)

option(LUMARO_INSTALL_RUNTIME "Install the DLLs of the C++ runtime and the libraries' licences" ON)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/LumaroRender")
set(share_dir "${CMAKE_INSTALL_DATADIR}/LumaroRender")

target_include_directories(LumaroRender INTERFACE "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>")
target_compile_features(LumaroRender INTERFACE cxx_std_20)

# ---- Both ----

set(licences)
if(LUMARO_INSTALL_RUNTIME)
  lumaro_licences(licences)
  if(MSVC)
    set(CMAKE_INSTALL_SYSTEM_RUNTIME_LIBS_SKIP ON)
    include(InstallRequiredSystemLibraries)
    list(APPEND LUMARO_INSTALLED_DLLS ${CMAKE_INSTALL_SYSTEM_RUNTIME_LIBS})
  endif()
endif()
foreach(component IN ITEMS programs sdk)
  install(FILES LICENSE THIRD-PARTY-NOTICES.md CHANGELOG.md DESTINATION "${share_dir}" COMPONENT ${component})
  if(LUMARO_INSTALL_RUNTIME)
    install(FILES ${LUMARO_INSTALLED_DLLS} DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT ${component})
    install(FILES ${licences} DESTINATION "${share_dir}/licences" COMPONENT ${component})
  endif()
endforeach()

# ---- programs ----

if(LUMARO_BUILD_PROGRAMS)
  foreach(program IN ITEMS LumaroRender lumaro viewer)
    install(TARGETS ${program} RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT programs)
  endforeach()
endif()

# ---- sdk ----

install(TARGETS LumaroRender EXPORT LumaroRenderTargets
    RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT sdk
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT sdk)

# Headers of the inside: nothing that they declare is exported, and none of the others includes them.
set(private_core BackgroundThread Brotli ExceptionLog GrowingBuffer LoadingQueue LoadingTask LoadingWorkers)
set(private_graphics ImageFile Jpeg PanoramaGrid Pfm Png)
set(private_octree ChildCube Hierarchy HierarchyPage IntensityRange JsonDocument JsonValue MemoryBudget NodeLimits Printable RandomAccessFile StoppableMutex
    las/.* tiles/.* NodeKey
    copc/ChunkReader copc/Head copc/HierarchyReader copc/Store
    entwine/EntwineTree entwine/HierarchyFile entwine/Metadata entwine/TileFiles entwine/Zstandard
    potree/ChunkColumn potree/FetchCancelled potree/FileLoader potree/HierarchyChunk potree/Metadata potree/Node
    potree/NodeChunk potree/NodeTable potree/PointCodes potree/PointColumns potree/Store)
set(private_render core/DepthTerms core/ReadMapping core/TargetNames core/UploadAllowance
    gpu/ShaderCompiler gpu/ShaderInclude gpu/ShaderLibrary gpu/ShaderWarmUp gpu/TypePromises gpu/VertexLayouts
    pointcloud/BrightnessAndContrast pointcloud/BudgetListener pointcloud/LoadingProgressMeter
    pointcloud/LocationPalette pointcloud/MeshDistances pointcloud/ModelMesh
    pointcloud/NodeId pointcloud/NodeLoads pointcloud/NodePrioritizer pointcloud/NodeVertexLoader pointcloud/NodeVertexPacking
    pointcloud/NodeVertexSource pointcloud/NodeWalk pointcloud/PointCloudGpu
    pointcloud/PointCloudStreamer pointcloud/PointPool pointcloud/PublishedNodes pointcloud/ResidentNodes pointcloud/WalkParameters
    renderables/FileWithin renderables/LineBuffer renderables/ObjLines renderables/ObjMeshLoader renderables/PanoDistances
    renderables/PanoGpu renderables/PanoLoading renderables/PanoTiles renderables/PolygonCutter)
foreach(folder IN ITEMS core math graphics octree render)
  list(JOIN private_${folder} "|" private)
  file(GLOB_RECURSE headers CONFIGURE_DEPENDS RELATIVE "${PROJECT_SOURCE_DIR}/${folder}"
      "${PROJECT_SOURCE_DIR}/${folder}/*.h")
  list(FILTER headers EXCLUDE REGEX "^(${private})\\.h$")
  foreach(header IN LISTS headers)
    cmake_path(GET header PARENT_PATH below)
    install(FILES "${folder}/${header}" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/${folder}/${below}" COMPONENT sdk)
  endforeach()
endforeach()
install(DIRECTORY examples DESTINATION "${share_dir}" COMPONENT sdk)
install(FILES docs/hosts.md docs/stores.md DESTINATION "${share_dir}/docs" COMPONENT sdk)

configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/LumaroRenderConfig.cmake.in"
    "${PROJECT_BINARY_DIR}/LumaroRenderConfig.cmake" INSTALL_DESTINATION "${package_dir}")
# Before 1.0 a minor version may break its hosts.
write_basic_package_version_file("${PROJECT_BINARY_DIR}/LumaroRenderConfigVersion.cmake"
    COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/LumaroRenderConfig.cmake"
    "${PROJECT_BINARY_DIR}/LumaroRenderConfigVersion.cmake" DESTINATION "${package_dir}" COMPONENT sdk)
install(EXPORT LumaroRenderTargets NAMESPACE LumaroRender:: DESTINATION "${package_dir}" COMPONENT sdk)
