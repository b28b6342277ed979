# Puts the DLLs that every program loads beside the programs, so that bin/ can be taken to a Windows machine as
# it is. DLL, programs and tests share one C++ runtime: strings and exceptions cross between them.

set(LUMARO_D3DCOMPILER_DLL "" CACHE FILEPATH
    "Direct3D shader compiler to put beside the programs (Wine's own is too old; Windows has one)")

set(LUMARO_INSTALLED_DLLS)
if(MINGW)
  if(NOT LUMARO_RUNTIME_DLLS)
    set(found)
    foreach(dll IN ITEMS libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
      execute_process(COMMAND "${CMAKE_CXX_COMPILER}" -print-file-name=${dll}
          OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
      if(NOT IS_ABSOLUTE "${path}")
        message(FATAL_ERROR "${CMAKE_CXX_COMPILER} has no ${dll}: install g++-mingw-w64-x86-64-posix")
      endif()
      cmake_path(NORMAL_PATH path)
      list(APPEND found "${path}")
    endforeach()
    set(LUMARO_RUNTIME_DLLS "${found}" CACHE STRING "DLLs of the C++ runtime")
  endif()

  # Without the debugging symbols that make up nine tenths of libstdc++.
  foreach(dll IN LISTS LUMARO_RUNTIME_DLLS)
    cmake_path(GET dll FILENAME name)
    set(stripped "${PROJECT_BINARY_DIR}/runtime/${name}")
    if("${dll}" IS_NEWER_THAN "${stripped}")
      file(MAKE_DIRECTORY "${PROJECT_BINARY_DIR}/runtime")
      execute_process(COMMAND "${CMAKE_STRIP}" -o "${stripped}" "${dll}" COMMAND_ERROR_IS_FATAL ANY)
    endif()
    list(APPEND LUMARO_INSTALLED_DLLS "${stripped}")
  endforeach()

  set(dlls ${LUMARO_INSTALLED_DLLS})
  if(LUMARO_D3DCOMPILER_DLL)
    if(NOT EXISTS "${LUMARO_D3DCOMPILER_DLL}")
      message(FATAL_ERROR "The shader compiler ${LUMARO_D3DCOMPILER_DLL} is missing: run scripts/setup windows")
    endif()
    list(APPEND dlls "${LUMARO_D3DCOMPILER_DLL}")
  endif()
  foreach(dll IN LISTS dlls)
    cmake_path(GET dll FILENAME name)
    configure_file("${dll}" "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${name}" COPYONLY)
  endforeach()
endif()
