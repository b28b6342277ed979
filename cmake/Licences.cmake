# lumaro_licences(OUT): sets OUT to files with the licence texts of all that is linked into the DLL and the command
# line, or shipped beside them, each named after its library. They come from where the libraries came from: the
# vcpkg tree, or Debian's packages (the Windows libraries are built from the same source packages).
function(lumaro_licences out)
  # name as in vcpkg : Debian package
  set(libraries brotli:libbrotli1 cli11:libcli11-dev eigen3:libeigen3-dev libjpeg-turbo:libjpeg62-turbo
      libpng:libpng16-16 nlohmann-json:nlohmann-json3-dev tinyobjloader:libtinyobjloader-dev
      zlib:libz-mingw-w64-dev zstd:libzstd1)
  if(MINGW)
    list(APPEND libraries gcc-runtime:gcc-mingw-w64-base mingw-w64:mingw-w64-x86-64-dev)
  endif()
  set(files)
  foreach(entry IN LISTS libraries)
    string(REGEX MATCH "^(.*):(.*)$" entry "${entry}")
    set(library ${CMAKE_MATCH_1})
    set(text "${VCPKG_INSTALLED_DIR}/${VCPKG_TARGET_TRIPLET}/share/${library}/copyright")
    if(NOT EXISTS "${text}")
      set(text "/usr/share/doc/${CMAKE_MATCH_2}/copyright")
    endif()
    if(EXISTS "${text}")
      configure_file("${text}" "${PROJECT_BINARY_DIR}/licences/${library}.txt" COPYONLY)
      list(APPEND files "${PROJECT_BINARY_DIR}/licences/${library}.txt")
    else()
      message(WARNING "No licence text of ${library} was found: what is installed lacks it")
    endif()
  endforeach()
  if(MINGW AND EXISTS /usr/share/common-licenses/GPL-3) # that of GCC's runtime refers to it
    configure_file(/usr/share/common-licenses/GPL-3 "${PROJECT_BINARY_DIR}/licences/GPL-3.txt" COPYONLY)
    list(APPEND files "${PROJECT_BINARY_DIR}/licences/GPL-3.txt")
  endif()
  set(${out} ${files} PARENT_SCOPE)
endfunction()
